#ifndef RTreeNode_h
#define RTreeNode_h

#include "IDX_Base_RTree.h"

#include "formats/RTreeImage.h"

#include <cstddef>
#include <cstring>

/// A view of one node of an R-tree in its storage. The storage may move with each new node, so make
/// a view anew after that.
class RTreeNode {
public:
    using ChildRec = IDX_Base_RTree::ChildRec;

    RTreeNode(unsigned char* iBytes, unsigned int iHeaderSize)
        : _bytes(iBytes), _entries(iBytes + iHeaderSize) {}

    unsigned int Parent() const {
        return LoadAt<unsigned int>(_bytes, offsetof(RTreeNodeHeader, parent));
    }
    unsigned short Level() const {
        return LoadAt<unsigned short>(_bytes, offsetof(RTreeNodeHeader, level));
    }
    unsigned short Count() const {
        return LoadAt<unsigned short>(_bytes, offsetof(RTreeNodeHeader, count));
    }
    unsigned short Slot() const {
        return LoadAt<unsigned short>(_bytes, offsetof(RTreeNodeHeader, slot));
    }

    void SetLevel(unsigned int iLevel) { SetShort(offsetof(RTreeNodeHeader, level), iLevel); }
    void SetCount(unsigned int iCount) { SetShort(offsetof(RTreeNodeHeader, count), iCount); }
    void SetPlace(unsigned int iParent, unsigned int iSlot) {
        StoreAt(_bytes, offsetof(RTreeNodeHeader, parent), iParent);
        SetShort(offsetof(RTreeNodeHeader, slot), iSlot);
    }

    // A box goes into the image as it lies in memory. So it is copied as bytes, even if its class
    // has a copy operation of its own.

    ChildRec Entry(unsigned int iSlot) const {
        ChildRec entry;
        std::memcpy(static_cast<void*>(&entry), EntryAt(iSlot), sizeof entry);
        return entry;
    }
    IDX_Base_BoundingBox Box(unsigned int iSlot) const {
        IDX_Base_BoundingBox box;
        std::memcpy(static_cast<void*>(&box), EntryAt(iSlot) + offsetof(ChildRec, box), sizeof box);
        return box;
    }
    unsigned int Value(unsigned int iSlot) const {
        return LoadAt<unsigned int>(EntryAt(iSlot), offsetof(ChildRec, value));
    }

    void SetEntry(unsigned int iSlot, const ChildRec& iEntry) {
        std::memcpy(EntryAt(iSlot), static_cast<const void*>(&iEntry), sizeof iEntry);
    }
    void SetBox(unsigned int iSlot, const IDX_Base_BoundingBox& iBox) {
        std::memcpy(
            EntryAt(iSlot) + offsetof(ChildRec, box), static_cast<const void*>(&iBox), sizeof iBox);
    }
    void SetValue(unsigned int iSlot, unsigned int iValue) {
        StoreAt(EntryAt(iSlot), offsetof(ChildRec, value), iValue);
    }

private:
    void SetShort(std::size_t iOffset, unsigned int iValue) {
        StoreAt(_bytes, iOffset, static_cast<unsigned short>(iValue));
    }
    unsigned char* EntryAt(unsigned int iSlot) const {
        return _entries + std::size_t{iSlot} * sizeof(ChildRec);
    }

    unsigned char* _bytes;
    unsigned char* _entries;
};

#endif
