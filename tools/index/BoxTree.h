#ifndef BoxTree_h
#define BoxTree_h

#include "IDX_Base_RTree.h"

#include <cstddef>
#include <cstring>
#include <string>

/// Whether all coordinates of two boxes are the same, bit for bit: a NaN is like itself, and 0 isn't like -0.
bool HaveSameBits(const IDX_Base_BoundingBox& iFirst, const IDX_Base_BoundingBox& iSecond);

/// Reads an R-tree image where it lies. docs/file-formats.md, "R-tree image". Check() comes first: from then on no
/// walk leaves the image, and every walk ends.
class BoxTree {
public:
    using Entry = IDX_Base_RTree::ChildRec;

    /// @param iBytes  the image, which must outlive this object; any alignment
    /// @param iSize   bytes from its start to the end of the file
    BoxTree(const unsigned char* iBytes, std::size_t iSize) : _bytes(iBytes), _size(iSize) {}

    /// Looks at every node: offsets, counts, levels, parents, and boxes that enclose those below bit for bit.
    /// @return empty, or what is wrong
    std::string Check() const;

    unsigned int Root() const { return Load<unsigned int>(kRootField); }
    bool IsLeaf(unsigned int iNode) const { return Level(iNode) == 0; }
    unsigned int Count(unsigned int iNode) const {
        return Load<unsigned short>(kHeaderSize + iNode + kCountField);
    }
    Entry EntryOf(unsigned int iNode, unsigned int iSlot) const {
        return Load<Entry>(kHeaderSize + iNode + kNodeHeaderSize + iSlot * sizeof(Entry));
    }

    /// Calls back with each entry of a leaf whose box a test accepts, going only where it accepts the boxes above.
    template <class Test, class Take>
    void Search(const Test& iTest, const Take& iTake) const {
        Search(Root(), iTest, iTake);
    }

private:
    // Offsets of fields. The header of an image: minFill, maxChildren, root, size; that of a node: parent, level,
    // count, slot.
    static constexpr std::size_t kMaxChildrenField = 2;
    static constexpr std::size_t kRootField = 4;
    static constexpr std::size_t kSizeField = 8;
    static constexpr std::size_t kHeaderSize = 12;
    static constexpr std::size_t kLevelField = 4;
    static constexpr std::size_t kCountField = 6;
    static constexpr std::size_t kSlotField = 8;
    static constexpr std::size_t kNodeHeaderSize = 12;

    template <class Value>
    Value Load(std::size_t iOffset) const {
        Value value;
        std::memcpy(&value, _bytes + iOffset, sizeof value);
        return value;
    }

    unsigned int Level(unsigned int iNode) const {
        return Load<unsigned short>(kHeaderSize + iNode + kLevelField);
    }
    std::size_t NodeSize() const {
        return kNodeHeaderSize + Load<unsigned short>(kMaxChildrenField) * sizeof(Entry);
    }

    template <class Test, class Take>
    void Search(unsigned int iNode, const Test& iTest, const Take& iTake) const {
        const unsigned int count = Count(iNode);
        const bool isLeaf = IsLeaf(iNode);
        for (unsigned int slot = 0; slot < count; ++slot) {
            const Entry entry = EntryOf(iNode, slot);
            if (!iTest(entry.box)) continue;
            if (isLeaf) {
                iTake(entry);
            } else {
                Search(entry.value, iTest, iTake);
            }
        }
    }

    std::string CheckHeader() const;
    std::string CheckRoot() const;
    bool IsNode(unsigned int iOffset) const;
    bool IsChild(unsigned int iNode, unsigned int iSlot) const;
    bool EnclosesChild(unsigned int iNode, unsigned int iSlot) const;

    const unsigned char* _bytes;
    std::size_t _size;
};

#endif
