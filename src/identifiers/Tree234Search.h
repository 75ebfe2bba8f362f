#ifndef Tree234Search_h
#define Tree234Search_h

#include "Tree234Records.h"
#include "common/TraceFailure.h"
#include "files/CachedBytes.h"

#include "IDX_Base_Identifier.h"

#include <cstring>
#include <limits>

/// An identifier whose bytes stay where they are.
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

/// One search on its way down the tree, for a look-up or an insertion, and the node that it has come to.
/// @tparam Cache  what the tree's store has in hand: reads of it cost a look at the bytes where they lie. Every write,
///               and every read of what isn't in hand, is an operation of the store, through its virtual slots.
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

    /// Searches from a child of a node on or, if `iParentOffset` is 0, from the root.
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
    // The steps. Each gives false when it failed, with its tag traced.

    bool Finish(unsigned int iItemOffset) {
        _itemOffset = iItemOffset;
        _isFinished = true;
        return true;
    }

    /// Makes the child at the place the node to visit next.
    bool Descend() {
        _parentOffset = _nodeOffset;
        _childIndex = _place;
        return true;
    }

    /// Finishes the search, or leads it one level down.
    bool VisitNode() {
        if (!_insert && !HasRoot()) return Finish(0);
        if (_insert && _item == nullptr) {
            return TraceFalse("IDX_WT_Tree234._Query.InvalidItem");
        }
        if (!FindNode()) return false;
        if (_insert && _node.IsFull() && !Split()) return false;
        if (_isFinished) return true;
        return _node.IsLeaf() ? SearchLeaf() : SearchInnerNode();
    }

    bool HasRoot() {
        const std::span<const unsigned char> manifest = _cache.BytesFrom(0);
        if (manifest.size() < sizeof(IDX_234Struct_Manifest)) return _tree._HasRoot() != IDX_False;
        return LoadAt<unsigned int>(manifest.data(), kTree234RootOffset) != 0;
    }

    bool ReadNode(unsigned int iOffset, Tree234Node& oNode) {
        const std::span<const unsigned char> bytes = _cache.BytesFrom(iOffset);
        if (bytes.size() < kTree234NodeSize)
            return _store.ReadAt(iOffset, &oNode, kTree234NodeSize) != IDX_False;
        std::memcpy(&oNode, bytes.data(), kTree234NodeSize);
        return true;
    }

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

    /// Has the processor fetch the children side by side while the identifiers are compared: read behind that, the
    /// next node would be waited for. No branch on what the node has: half of these would be guessed wrong.
    void PrefetchBelow() const {
        for (const unsigned int child : _node.children) _cache.Prefetch(child, kTree234NodeSize);
        if (!Cache::kNeedsLookup) return;
        for (unsigned int i = 1; i < Tree234Node::kMaxItems; ++i) {
            _cache.Prefetch(_node.items[i] + _tree.m_itemSize, sizeof(unsigned int));
        }
    }

    bool FindRoot() {
        if (!_tree._GetRoot(&_nodeOffset)) return TraceFalse("IDX_WT_Tree234._Query._GetRoot");
        return _nodeOffset != 0 || !_insert || AppendEmptyRoot();
    }

    bool FindChild() {
        if (!ReadNode(_parentOffset, _parent)) {
            return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.ReadAt (1)");
        }
        _nodeOffset = _parent.children[_childIndex];
        return true;
    }

    bool AppendEmptyRoot() {
        _nodeOffset = _store.GetSize();
        if (!_store.Write(&_node, kTree234NodeSize)) {
            return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.Write (1)");
        }
        if (!_tree._SetRoot(_nodeOffset)) return TraceFalse("IDX_WT_Tree234._Query._SetRoot (1)");
        return true;
    }

    /// Cuts a full node in two: its right half moves to a new node, and its middle item up into the parent, which
    /// has room, since it was cut before it was left. Goes on in the half where the identifier belongs.
    bool Split() {
        if (_parentOffset == 0 && !AppendParent()) return false;
        return OpenGapInParent() && AppendSibling() && FillGapInParent() && TrimNode() &&
               ChooseHalf();
    }

    /// Puts a new root above the root.
    bool AppendParent() {
        _childIndex = 0;
        _parentOffset = _store.GetSize();
        if (!_store.Write(&_parent, kTree234NodeSize)) {
            return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.Write (2)");
        }
        if (!_tree._SetRoot(_parentOffset)) return TraceFalse("IDX_WT_Tree234._Query._SetRoot (2)");
        return true;
    }

    bool OpenGapInParent() {
        if (!ReadNode(_parentOffset, _parent)) {
            return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.ReadAt (3)");
        }
        OpenGap(_parent, _childIndex);
        if (!_store.WriteAt(_parentOffset, &_parent, kTree234NodeSize)) {
            return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.WriteAt (1)");
        }
        return true;
    }

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
        if (!_store.Write(&_sibling, kTree234NodeSize)) {
            return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.Write (3)");
        }
        return true;
    }

    bool FillGapInParent() {
        _parent.items[_childIndex] = _node.items[1];
        _parent.children[_childIndex] = _nodeOffset;
        _parent.children[_childIndex + 1] = _siblingOffset;
        if (!_store.WriteAt(_parentOffset, &_parent, kTree234NodeSize)) {
            return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.WriteAt (3)");
        }
        return true;
    }

    bool TrimNode() {
        const Tree234Node& node = _node;
        _node = {
            {node.children[0], node.children[1], 0, 0},
            {node.items[0],                0,                    0    }
        };
        if (!_store.WriteAt(_nodeOffset, &_node, kTree234NodeSize)) {
            return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.WriteAt (4)");
        }
        return true;
    }

    /// Finishes when the item that moved up has the identifier: its record isn't replaced.
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

    /// Finds the first item of the node that doesn't come before the identifier; its place is the number of items
    /// when there is none.
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

    /// The gap is written before the item, and settled behind it.
    bool InsertIntoLeaf() {
        OpenGapInItems(_node, _place);
        if (!_store.WriteAt(_nodeOffset, &_node, kTree234NodeSize)) {
            return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.WriteAt (7)");
        }
        return AppendItem(
            "IDX_WT_Tree234._Query.IDX_WT_File.Write(Item) (2)",
            "IDX_WT_Tree234._Query.IDX_WT_File.Write(ItemId) (2)",
            "IDX_WT_Tree234._Query.IDX_WT_File.WriteAt(UpdateNode) (2)");
    }

    /// Appends record and identifier, and has the place in the node point to them, whatever it pointed to before.
    bool AppendItem(const char* iItemTag, const char* iIdentifierTag, const char* iNodeTag) {
        const unsigned int newItem = _store.GetSize();
        if (!_store.Write(_item, _tree.m_itemSize)) return TraceFalse(iItemTag);
        if (!_store.Write(_id)) return TraceFalse(iIdentifierTag);
        _node.items[_place] = newItem;
        if (!_store.WriteAt(_nodeOffset, &_node, kTree234NodeSize)) return TraceFalse(iNodeTag);
        return Finish(newItem);
    }

    /// Compares the identifier that is asked for with the one behind a record, where that lies if possible. An offset
    /// past 2^32 fails like any that lies behind the end.
    bool Compare(unsigned int iItem, const char* iReadTag, const char* iCompareTag, short& oOrder) {
        constexpr unsigned int kNowhere = std::numeric_limits<unsigned int>::max();
        const unsigned int offset =
            iItem <= kNowhere - _tree.m_itemSize ? iItem + _tree.m_itemSize : kNowhere;
        const std::span<const unsigned char> bytes = _cache.BytesFrom(offset);
        if (bytes.size() >= sizeof(unsigned int)) {
            const auto size = LoadAt<unsigned int>(bytes.data(), 0);
            if (size <= bytes.size() - sizeof size) {
                _stored.Set(bytes.data() + sizeof size, size);
                return _id.SortCompare(_stored, oOrder) || TraceFalse(iCompareTag);
            }
        }
        if (!_store.ReadAt(offset, _tree.m_id)) return TraceFalse(iReadTag);
        return _id.SortCompare(_tree.m_id, oOrder) || TraceFalse(iCompareTag);
    }

    IDX_WT_Tree234& _tree;
    IDX_WT_File& _store;
    const Cache _cache;
    const IDX_234Struct_ItemSlot* _item;
    const IDX_Base_Identifier& _id;
    const bool _insert;
    unsigned int& _itemOffset;

    unsigned int _parentOffset = 0;  ///< 0 above the root
    unsigned int _childIndex = 0;    ///< of the node in its parent
    unsigned int _nodeOffset = 0;
    unsigned int _siblingOffset = 0;
    unsigned int _place = 0;   ///< of the identifier among the items of the node
    bool _isThere = false;     ///< the item at the place has this identifier
    bool _isFinished = false;  ///< nothing is left to do

    Tree234Node _node = {};
    Tree234Node _parent = {};
    Tree234Node _sibling = {};  ///< the right half of a split
    IdentifierInPlace _stored;  ///< the identifier under comparison
};

#endif
