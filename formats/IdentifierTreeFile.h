#ifndef IdentifierTreeFile_h
#define IdentifierTreeFile_h

#include "Damage.h"
#include "LengthPrefix.h"
#include "SplitFile.h"
#include "UnalignedMemory.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <type_traits>
#include <utility>
#include <vector>

// The identifier tree file: a manifest, then nodes and items in the order in which they were
// appended. Each starts at a multiple of 4. An item is a record, whose size the subclass sets, and
// then the identifier, length-prefixed. Host byte order; the manifest says which.
// docs/file-formats.md, "Identifier tree file".

/// How the file of every tree starts. A subclass's manifest begins with it. 8 bytes.
struct IDX_234Struct_Manifest {
    unsigned short endian;   //  0  2  IDX_Base_Endian::one() of the writer
    unsigned short version;  //  2  2  kTree234Version
    unsigned int root;       //  4  4  offset of the root node, 0 while the tree is empty
};
static_assert(
    sizeof(IDX_234Struct_Manifest) == 8 && offsetof(IDX_234Struct_Manifest, version) == 2 &&
        offsetof(IDX_234Struct_Manifest, root) == 4,
    "identifier tree file: manifest");
static_assert(
    std::is_trivially_copyable<IDX_234Struct_Manifest>::value,
    "identifier tree file: the manifest is copied as bytes");

constexpr unsigned short kTree234Version = 45;
constexpr unsigned int kTree234RootOffset = offsetof(IDX_234Struct_Manifest, root);

/// How every record of a subclass starts. 16 bytes of the subclass's own.
struct IDX_234Struct_ItemSlot {
    unsigned char data[16];
};
static_assert(sizeof(IDX_234Struct_ItemSlot) == 16, "identifier tree file: record");

/// A node of the tree. Its items fill the array from the left; a 0 follows the last one. 28 bytes.
struct Tree234Node {
    static constexpr unsigned int kMaxItems = 3;

    unsigned int children[4];  //   0  16  offsets of nodes; child i has identifiers below item i
    unsigned int items[3];     //  16  12  offsets of items

    bool IsLeaf() const { return children[0] == 0; }
    bool IsFull() const { return items[kMaxItems - 1] != 0; }

    unsigned int CountItems() const {
        unsigned int count = 0;
        while (count < kMaxItems && items[count] != 0) ++count;
        return count;
    }
};
constexpr unsigned int kTree234NodeSize = 28;
static_assert(
    sizeof(Tree234Node) == kTree234NodeSize && offsetof(Tree234Node, items) == 16,
    "identifier tree file: node");
static_assert(
    std::is_trivially_copyable<Tree234Node>::value,
    "identifier tree file: nodes are copied as bytes");

/// No undamaged tree has more levels. A tree of h levels has 2^h - 1 nodes or more. Each node has
/// an item. Both together take 28 + 20 bytes, and a file ends before 2^31.
constexpr unsigned int kMaxTree234Levels = 32;

/// A read-only view of an identifier tree file in memory. A file that isn't trusted goes through
/// Check() first. After that no access leaves the file.
class IdentifierTreeFile {
public:
    /// The bytes of an identifier inside the file.
    struct Identifier {
        const unsigned char* bytes;
        std::size_t size;
    };

    /// @param iBytes         the file; owned by the caller, must outlive this view
    /// @param iSize          bytes of the file
    /// @param iManifestSize  bytes of the manifest, including those of the subclass
    /// @param iRecordSize    bytes of a record
    IdentifierTreeFile(
        const unsigned char* iBytes,
        std::size_t iSize,
        std::size_t iManifestSize,
        std::size_t iRecordSize)
        : _bytes(iBytes), _size(iSize), _manifestSize(iManifestSize), _recordSize(iRecordSize) {}

    /// Whether the file is a tree as the library writes it: all leaves at one depth, identifiers in
    /// rising order, and each byte of the file in exactly one node or item. Takes n log n for n
    /// nodes and items.
    /// @param oItems  offsets of the items, in rising order of their identifiers
    Damage Check(std::vector<unsigned int>& oItems) const;

    std::size_t Size() const { return _size; }
    std::size_t FirstBlock() const { return NextAppend(_manifestSize); }

    IDX_234Struct_Manifest Manifest() const { return LoadAt<IDX_234Struct_Manifest>(_bytes, 0); }
    Tree234Node Node(std::size_t iOffset) const { return LoadAt<Tree234Node>(_bytes, iOffset); }

    const unsigned char* RecordOf(std::size_t iItem) const { return _bytes + iItem; }
    Identifier IdentifierOf(std::size_t iItem) const {
        const std::size_t length = iItem + _recordSize;
        return {_bytes + length + kLengthPrefixSize, LoadAt<LengthPrefix>(_bytes, length)};
    }

    /// Bytes of an item; 0 when it isn't inside the file as a whole.
    std::size_t SizeOfItem(std::size_t iItem) const {
        if (!Holds(iItem, _recordSize + kLengthPrefixSize)) return 0;
        const std::size_t size = _recordSize + kLengthPrefixSize + IdentifierOf(iItem).size;
        return Holds(iItem, size) ? size : 0;
    }

    /// Whether a node or item of that length may start at an offset.
    bool Holds(std::size_t iOffset, std::size_t iLength) const {
        return iOffset >= FirstBlock() && iOffset % kFileAlignment == 0 && iOffset <= _size &&
               iLength <= _size - iOffset;
    }

private:
    const unsigned char* _bytes;
    std::size_t _size;
    std::size_t _manifestSize;
    std::size_t _recordSize;
};

namespace identifier_tree_check {

/// Visits all nodes in the order of their identifiers.
class TreeWalk {
public:
    TreeWalk(const IdentifierTreeFile& iFile, std::vector<unsigned int>& oItems)
        : _file(iFile), _items(oItems) {}

    Damage Run() {
        const unsigned int root = _file.Manifest().root;
        if (root != 0) Visit(root, 0);
        return _damage ? _damage : CheckCover();
    }

private:
    using Identifier = IdentifierTreeFile::Identifier;

    bool Fail(std::size_t iOffset, const char* iText) {
        _damage = Damage::At(iOffset, iText);
        return false;
    }

    bool Visit(unsigned int iNode, unsigned int iLevel) {
        if (!_file.Holds(iNode, kTree234NodeSize)) return Fail(iNode, "no node");
        if (iLevel == kMaxTree234Levels || _cover.size() > _file.Size() / kTree234NodeSize) {
            return Fail(iNode, "more levels or nodes than a tree of this length has");
        }
        // A cycle ends at one of the two limits. An overlap of nodes is found at the end, by
        // CheckCover().
        _cover.emplace_back(iNode, kTree234NodeSize);
        const Tree234Node node = _file.Node(iNode);
        const unsigned int nItems = node.CountItems();
        if (nItems == 0) return Fail(iNode, "a node without an item");
        if (!HasRightFields(node, nItems)) return Fail(iNode, "a node whose fields don't fit");
        if (node.IsLeaf() && !IsLeafLevel(iLevel)) return Fail(iNode, "a leaf of another depth");
        for (unsigned int i = 0; i <= nItems; ++i) {
            if (!node.IsLeaf() && !Visit(node.children[i], iLevel + 1)) return false;
            if (i < nItems && !AddItem(node.items[i])) return false;
        }
        return true;
    }

    /// Whether items and children fill their arrays from the left. A leaf has no child; an inner
    /// node has one child more than items.
    static bool HasRightFields(const Tree234Node& iNode, unsigned int iItems) {
        for (unsigned int i = 0; i <= Tree234Node::kMaxItems; ++i) {
            const bool hasChild = !iNode.IsLeaf() && i <= iItems;
            if ((iNode.children[i] != 0) != hasChild) return false;
            if (i < Tree234Node::kMaxItems && (iNode.items[i] != 0) != (i < iItems)) return false;
        }
        return true;
    }

    /// Whether a leaf at this level is as deep as the first leaf that was met.
    bool IsLeafLevel(unsigned int iLevel) {
        if (_leafLevel == kMaxTree234Levels) _leafLevel = iLevel;
        return _leafLevel == iLevel;
    }

    /// Checks an item and adds it to the list. Its identifier must be above the one before.
    bool AddItem(unsigned int iItem) {
        const std::size_t size = _file.SizeOfItem(iItem);
        if (size == 0) return Fail(iItem, "no item, or one past the end of the file");
        const Identifier identifier = _file.IdentifierOf(iItem);
        if (!_items.empty() && !IsLess(_last, identifier)) {
            return Fail(iItem, "an identifier that doesn't rise");
        }
        _last = identifier;
        _items.push_back(iItem);
        _cover.emplace_back(iItem, size);
        return true;
    }

    static bool IsLess(const Identifier& iFirst, const Identifier& iSecond) {
        const std::size_t both = std::min(iFirst.size, iSecond.size);
        const int order = both != 0 ? std::memcmp(iFirst.bytes, iSecond.bytes, both) : 0;
        return order != 0 ? order < 0 : iFirst.size < iSecond.size;
    }

    /// Whether nodes and items follow each other from the manifest to the end of the file, without
    /// a gap (but for padding) and without an overlap.
    Damage CheckCover() {
        std::sort(_cover.begin(), _cover.end());
        std::size_t end = _file.FirstBlock();
        for (const auto& block : _cover) {
            const std::size_t start = NextAppend(end);
            if (block.first != start) return Damage::At(start, "bytes of no node or item");
            end = start + block.second;
        }
        return end == _file.Size() ? Damage() : Damage("holds bytes after its last node or item");
    }

    const IdentifierTreeFile& _file;
    std::vector<unsigned int>& _items;
    std::vector<std::pair<std::size_t, std::size_t>> _cover;  ///< offset and length of what was met
    Identifier _last = {nullptr, 0};
    unsigned int _leafLevel = kMaxTree234Levels;  ///< kMaxTree234Levels before the first leaf
    Damage _damage;
};

}  // namespace identifier_tree_check

inline Damage IdentifierTreeFile::Check(std::vector<unsigned int>& oItems) const {
    constexpr unsigned short kSameByteOrder = 1;
    oItems.clear();
    if (_size < _manifestSize) return Damage("is shorter than its manifest");
    if (Manifest().endian != kSameByteOrder) return Damage("was written in another byte order");
    if (Manifest().version != kTree234Version) return Damage("is of another version");
    return identifier_tree_check::TreeWalk(*this, oItems).Run();
}

#endif
