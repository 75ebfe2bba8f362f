#ifndef Tree234Search_h
#define Tree234Search_h

#include "Tree234Records.h"
#include "common/TraceFailure.h"
#include "files/CachedBytes.h"

#include "IDX_Base_Identifier.h"

#include <cstring>
#include <limits>

// Look-up and insertion in a 2-3-4 tree whose nodes are in a file.
//
// A node has one to three items and, unless it is a leaf, one child more than items. All leaves
// have the same depth. An insertion splits each full node on its way down, before it searches it.
// So the parent of a node always has room for the item that a split moves up, and one way down is
// enough.
//
// L. J. Guibas, R. Sedgewick, "A dichromatic framework for balanced trees", FOCS 1978 (top-down
// 2-3-4 trees). D. E. Knuth, "The Art of Computer Programming", volume 3, section 6.2.4 (B-trees).

// What an insertion writes, in this order; the stored file shows each of these steps:
//   - an empty root, if the tree is empty;
//   - for each full node on the way: a new root above it, if it is the root; the parent with a gap;
//     the new right half; the parent with the gap filled; the left half;
//   - the leaf with a gap, the record, the identifier, the leaf with the offset of the record.
//
// When the way down ends at an item with this identifier, the last step is: the record, the
// identifier, the node with the offset of the record.

/// An identifier whose bytes belong to another object: for comparisons without a copy.
class IdentifierInPlace final : public IDX_Base_Identifier {
public:
    void Set(const unsigned char* iData, unsigned int iSize) {
        _data = iData;
        _size = iSize;
    }

    const unsigned char* GetData() const override { return _data; }
    unsigned int GetSize() const override { return _size; }

private:
    const unsigned char* _data = nullptr;
    unsigned int _size = 0;
};

/// One look-up or insertion, with the node that it has reached on its way down.
///
/// Each step reads its node from the store and writes it back at once. So the trace says which step
/// failed, and other objects on the same file see the node.
/// @tparam Cache the view of the store's bytes that are in memory (CachedBytes.h). All other reads,
///                and all writes, are calls of the store's virtual operations, in a fixed order.
template <class Cache>
class Tree234Search {
public:
    /// @param iItem  to be inserted; null for a look-up
    Tree234Search(
        IDX_WT_Tree234& ioTree,
        const Cache& iCache,
        const IDX_234Struct_ItemSlot* iItem,
        const IDX_Base_Identifier& iId,
        bool iInsert,
        unsigned int& oItemOffset)
        : _tree(ioTree),
          _store(*ioTree.m_file),
          _cache(iCache),
          _item(iItem),
          _id(iId),
          _insert(iInsert),
          _itemOffset(oItemOffset) {}

    /// Searches from a child of a node on, or from the root when `iParentOffset` is 0. A search
    /// that needs more levels than any tree has is in a damaged file.
    bool Run(unsigned int iParentOffset, unsigned int iChildIndex) {
        _parentOffset = iParentOffset;
        _childIndex = iChildIndex;
        for (unsigned int level = 0; level < kMaxTree234Levels; ++level) {
            if (!VisitNode()) return false;
            if (_isFinished) return true;
        }
        return TraceFalse("IDX_WT_Tree234._Query.InvalidNode");
    }

private:
    // The steps. Each returns false after a failure, whose tag it has traced.

    bool Finish(unsigned int iItemOffset) {
        _itemOffset = iItemOffset;
        _isFinished = true;
        return true;
    }

    /// Makes the child at `_place` the next node to visit.
    bool Descend() {
        _parentOffset = _nodeOffset;
        _childIndex = _place;
        return true;
    }

    /// Handles one level: finishes the search, or makes a child the next node to visit.
    bool VisitNode() {
        // A look-up in an empty tree finds nothing. The manifest is read at each level, since
        // nothing of the tree stays in memory from one level to the next.
        if (!_insert && !HasRoot()) return Finish(0);
        if (_insert && _item == nullptr) {
            return TraceFalse("IDX_WT_Tree234._Query.InvalidItem");
        }
        if (!FindNode()) return false;
        if (_insert && _node.IsFull() && !Split()) return false;
        if (_isFinished) return true;
        return _node.IsLeaf() ? SearchLeaf() : SearchInnerNode();
    }

    /// Whether the manifest names a root; false also when it can't be read.
    bool HasRoot() {
        const std::span<const unsigned char> manifest = _cache.BytesFrom(0);
        if (manifest.size() < sizeof(IDX_234Struct_Manifest)) return _tree._HasRoot() == IDX_True;
        return LoadAt<unsigned int>(manifest.data(), kTree234RootOffset) != 0;
    }

    bool ReadNode(unsigned int iOffset, Tree234Node& oNode) {
        const std::span<const unsigned char> bytes = _cache.BytesFrom(iOffset);
        if (bytes.size() < kTree234NodeSize) {
            // A store of a subclass may give any value: all but IDX_False count as success.
            return _store.ReadAt(iOffset, &oNode, kTree234NodeSize) != IDX_False;
        }
        std::memcpy(&oNode, bytes.data(), kTree234NodeSize);
        return true;
    }

    /// Reads the node to visit: the root, or a child of the node before. The child's offset is read
    /// from the stored parent, not from the copy here.
    bool FindNode() {
        const bool isFound = _parentOffset == 0 ? FindRoot() : FindChild();
        if (!isFound) return false;
        if (_nodeOffset == 0) return TraceFalse("IDX_WT_Tree234._Query.InvalidNode");
        if (!ReadNode(_nodeOffset, _node)) {
            return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.ReadAt (2)");
        }
        PrefetchBelow();
        return true;
    }

    /// Asks the processor to load all children while the identifiers are compared. Otherwise the
    /// search would wait for the child after the comparison. Absent children (offset 0) are
    /// prefetched, too: a branch on them would be mispredicted half of the time.
    void PrefetchBelow() const {
        for (const unsigned int child : _node.children) _cache.Prefetch(child, kTree234NodeSize);
        if (!Cache::kNeedsLookup) return;
        for (unsigned int i = 1; i < Tree234Node::kMaxItems; ++i) {
            _cache.Prefetch(_node.items[i] + _tree.m_itemSize, kLengthPrefixSize);
        }
    }

    bool FindRoot() {
        if (_tree._GetRoot(&_nodeOffset) == IDX_False) {
            return TraceFalse("IDX_WT_Tree234._Query._GetRoot");
        }
        return _nodeOffset != 0 || !_insert || AppendEmptyRoot();
    }

    bool FindChild() {
        if (!ReadNode(_parentOffset, _parent)) {
            return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.ReadAt (1)");
        }
        _nodeOffset = _parent.children[_childIndex];
        return true;
    }

    /// Writes the first node of an empty tree.
    bool AppendEmptyRoot() {
        _nodeOffset = _store.GetSize();
        if (_store.Write(&_node, kTree234NodeSize) == IDX_False) {
            return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.Write (1)");
        }
        if (_tree._SetRoot(_nodeOffset) == IDX_False) {
            return TraceFalse("IDX_WT_Tree234._Query._SetRoot (1)");
        }
        return true;
    }

    /// Splits a full node and goes on in the half where the identifier belongs:
    ///
    ///         [ p ]                    [ b p ]
    ///         /                        /   |            a b c: items of the full node
    ///     [ a b c ]       becomes    [a]  [c]           0 1 2 3: its children
    ///     0 1 2 3                    0 1  2 3
    ///
    /// The parent has room for b: it was split on the way down if it was full.
    bool Split() {
        if (_parentOffset == 0 && !AppendParent()) return false;
        return OpenGapInParent() && AppendSibling() && FillGapInParent() && TrimNode() &&
               ChooseHalf();
    }

    /// Makes a new, empty root whose child 0 will be the old root. Only here the tree gets a level
    /// more.
    bool AppendParent() {
        _childIndex = 0;
        _parentOffset = _store.GetSize();
        if (_store.Write(&_parent, kTree234NodeSize) == IDX_False) {
            return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.Write (2)");
        }
        if (_tree._SetRoot(_parentOffset) == IDX_False) {
            return TraceFalse("IDX_WT_Tree234._Query._SetRoot (2)");
        }
        return true;
    }

    /// Moves the parent's items and children after the node to the right, and writes the parent.
    bool OpenGapInParent() {
        if (!ReadNode(_parentOffset, _parent)) {
            return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.ReadAt (3)");
        }
        OpenGap(_parent, _childIndex);
        if (_store.WriteAt(_parentOffset, &_parent, kTree234NodeSize) == IDX_False) {
            return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.WriteAt (1)");
        }
        return true;
    }

    /// Writes the right half of the node as a new node.
    bool AppendSibling() {
        const Tree234Node& node = _node;
        if (!ReadNode(_nodeOffset, _node)) {
            return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.ReadAt (4)");
        }
        _sibling = {
            {node.children[2], node.children[3], 0, 0},
            {node.items[2],                0,                    0    }
        };
        _siblingOffset = _store.GetSize();
        if (_store.Write(&_sibling, kTree234NodeSize) == IDX_False) {
            return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.Write (3)");
        }
        return true;
    }

    /// Stores the middle item and the two halves in the parent, and writes it again.
    bool FillGapInParent() {
        _parent.items[_childIndex] = _node.items[1];
        _parent.children[_childIndex] = _nodeOffset;
        _parent.children[_childIndex + 1] = _siblingOffset;
        if (_store.WriteAt(_parentOffset, &_parent, kTree234NodeSize) == IDX_False) {
            return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.WriteAt (3)");
        }
        return true;
    }

    /// Keeps the left half in the node, and writes it.
    bool TrimNode() {
        const Tree234Node& node = _node;
        _node = {
            {node.children[0], node.children[1], 0, 0},
            {node.items[0],                0,                    0    }
        };
        if (_store.WriteAt(_nodeOffset, &_node, kTree234NodeSize) == IDX_False) {
            return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.WriteAt (4)");
        }
        return true;
    }

    /// Goes on in the half where the identifier belongs. Finishes when the item that moved up has
    /// this identifier. Its record isn't replaced then: that is part of the interface.
    bool ChooseHalf() {
        const unsigned int middle = _parent.items[_childIndex];
        short order = 0;
        const bool isCompared = Compare(
            middle, "IDX_WT_Tree234._Query.IDX_WT_File.ReadAt (5)",
            "IDX_WT_Tree234._Query.IDX_Base_Identifier.SortCompare (1)", order);
        if (!isCompared) return false;
        if (order == 0) return Finish(middle);
        if (order > 0) {
            _nodeOffset = _siblingOffset;
            _node = _sibling;
        }
        return true;
    }

    bool SearchInnerNode() {
        const bool isSearched = FindPlace(
            "IDX_WT_Tree234._Query.IDX_WT_File.ReadAt (7)",
            "IDX_WT_Tree234._Query.IDX_Base_Identifier.SortCompare (3)");
        if (!isSearched) return false;
        if (!_isThere) return Descend();
        if (!_insert) return Finish(_node.items[_place]);
        return AppendItem(
            "IDX_WT_Tree234._Query.IDX_WT_File.Write(Item) (3)",
            "IDX_WT_Tree234._Query.IDX_WT_File.Write(ItemId) (3)",
            "IDX_WT_Tree234._Query.IDX_WT_File.WriteAt(UpdateNode) (3)");
    }

    bool SearchLeaf() {
        const bool isSearched = FindPlace(
            "IDX_WT_Tree234._Query.IDX_WT_File.ReadAt (6)",
            "IDX_WT_Tree234._Query.IDX_Base_Identifier.SortCompare (2)");
        if (!isSearched) return false;
        if (!_insert) {
            return Finish(_isThere ? _node.items[_place] : 0);
        }
        if (!_isThere) return InsertIntoLeaf();
        return AppendItem(
            "IDX_WT_Tree234._Query.IDX_WT_File.Write(Item) (1)",
            "IDX_WT_Tree234._Query.IDX_WT_File.Write(ItemId) (1)",
            "IDX_WT_Tree234._Query.IDX_WT_File.WriteAt(UpdateNode) (1)");
    }

    /// Sets `_place` to that of the first item whose identifier isn't below the one searched for;
    /// to the number of items when there is none. `_isThere` says whether that item has the
    /// identifier.
    bool FindPlace(const char* iReadTag, const char* iCompareTag) {
        const Tree234Node& node = _node;
        unsigned int& place = _place;
        for (place = 0; place < Tree234Node::kMaxItems && node.items[place] != 0; ++place) {
            short order = 0;
            if (!Compare(node.items[place], iReadTag, iCompareTag, order)) return false;
            _isThere = order == 0;
            if (order <= 0) break;
        }
        return true;
    }

    /// Makes room in the leaf and writes it, then appends the item, then writes the leaf again with
    /// its offset.
    bool InsertIntoLeaf() {
        OpenGapInItems(_node, _place);
        if (_store.WriteAt(_nodeOffset, &_node, kTree234NodeSize) == IDX_False) {
            return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.WriteAt (7)");
        }
        return AppendItem(
            "IDX_WT_Tree234._Query.IDX_WT_File.Write(Item) (2)",
            "IDX_WT_Tree234._Query.IDX_WT_File.Write(ItemId) (2)",
            "IDX_WT_Tree234._Query.IDX_WT_File.WriteAt(UpdateNode) (2)");
    }

    /// Appends the record and the identifier, and stores their offset at `_place`. An item that was
    /// there before stays in the file, out of reach.
    bool AppendItem(const char* iItemTag, const char* iIdentifierTag, const char* iNodeTag) {
        const unsigned int newItem = _store.GetSize();
        if (_store.Write(_item, _tree.m_itemSize) == IDX_False) return TraceFalse(iItemTag);
        if (_store.Write(_id) == IDX_False) return TraceFalse(iIdentifierTag);
        _node.items[_place] = newItem;
        if (_store.WriteAt(_nodeOffset, &_node, kTree234NodeSize) == IDX_False) {
            return TraceFalse(iNodeTag);
        }
        return Finish(newItem);
    }

    /// Compares the identifier that is searched for with the one of an item. The identifier follows
    /// the item's record, length-prefixed. It is compared in memory where the whole of it is
    /// cached; otherwise it is read into the tree's scratch field. An offset past 2^32 fails like
    /// any other past the end.
    bool Compare(unsigned int iItem, const char* iReadTag, const char* iCompareTag, short& oOrder) {
        constexpr unsigned int kNowhere = std::numeric_limits<unsigned int>::max();
        const unsigned int offset =
            iItem <= kNowhere - _tree.m_itemSize ? iItem + _tree.m_itemSize : kNowhere;
        const std::span<const unsigned char> bytes = _cache.BytesFrom(offset);
        if (bytes.size() >= kLengthPrefixSize) {
            const auto size = LoadAt<LengthPrefix>(bytes.data(), 0);
            if (size <= bytes.size() - sizeof size) {
                _stored.Set(bytes.data() + sizeof size, size);
                if (_id.SortCompare(_stored, oOrder) == IDX_False) return TraceFalse(iCompareTag);
                return true;
            }
        }
        if (_store.ReadAt(offset, _tree.m_id) == IDX_False) return TraceFalse(iReadTag);
        if (_id.SortCompare(_tree.m_id, oOrder) == IDX_False) return TraceFalse(iCompareTag);
        return true;
    }

    IDX_WT_Tree234& _tree;
    IDX_WT_File& _store;
    const Cache _cache;
    const IDX_234Struct_ItemSlot* _item;
    const IDX_Base_Identifier& _id;
    const bool _insert;
    unsigned int& _itemOffset;

    unsigned int _parentOffset = 0;  ///< 0 when the node is the root
    unsigned int _childIndex = 0;    ///< of the node in its parent
    unsigned int _nodeOffset = 0;
    unsigned int _siblingOffset = 0;
    unsigned int _place = 0;   ///< of the identifier among the items of the node
    bool _isThere = false;     ///< the item at `_place` has this identifier
    bool _isFinished = false;  ///< the result is known

    Tree234Node _node = {};
    Tree234Node _parent = {};
    Tree234Node _sibling = {};  ///< the right half of a split
    IdentifierInPlace _stored;  ///< the identifier under comparison
};

#endif
