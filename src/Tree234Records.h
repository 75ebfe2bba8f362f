#ifndef Tree234Records_h
#define Tree234Records_h

#include "IDX_WT_Tree234.h"

#include <cstddef>
#include <type_traits>

// The bytes of an identifier tree file. docs/file-formats.md, "Identifier tree file".

static_assert(
    offsetof(IDX_234Struct_Manifest, version) == 2 && offsetof(IDX_234Struct_Manifest, root) == 4,
    "identifier tree file: manifest");
static_assert(
    std::is_trivially_copyable<IDX_234Struct_Manifest>::value,
    "identifier tree file: the manifest is copied as bytes");

constexpr unsigned int kTree234RootOffset = offsetof(IDX_234Struct_Manifest, root);

/// A node of the tree. Its items stand to the left; a 0 ends them. 28 bytes.
struct Tree234Node {
    static constexpr unsigned int kMaxItems = 3;

    unsigned int children[4];  //   0  16  offsets of nodes; child i lies left of item i
    unsigned int items[3];     //  16  12  offsets of item records

    bool IsLeaf() const { return children[0] == 0; }
    bool IsFull() const { return items[2] != 0; }

    /// Moves the items from `iPlace` on to the right, for one that goes there. Until then it keeps what it had.
    void OpenGapInItems(unsigned int iPlace) {
        for (unsigned int i = kMaxItems - 1; i > iPlace; --i) items[i] = items[i - 1];
    }

    /// The same with the children right of these items.
    void OpenGap(unsigned int iPlace) {
        OpenGapInItems(iPlace);
        for (unsigned int i = kMaxItems; i > iPlace + 1; --i) children[i] = children[i - 1];
    }
};
static_assert(
    sizeof(Tree234Node) == 28 && offsetof(Tree234Node, items) == 16, "identifier tree file: node");
static_assert(
    std::is_trivially_copyable<Tree234Node>::value,
    "identifier tree file: nodes are copied as bytes");

/// No sound tree is higher: one of h levels has 2^h - 1 nodes or more, each with an item, which take 28 and 20
/// bytes, and a file ends before 2^31.
constexpr unsigned int kMaxTree234Levels = 32;

#endif
