#ifndef RTreeImage_h
#define RTreeImage_h

#include "Damage.h"
#include "UnalignedMemory.h"

#include "IDX_Base_RTree.h"

#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

// The R-tree image: a header, and after it nodes of one size. Nodes name each other by their byte
// offset from the first node. Host byte order. docs/file-formats.md, "R-tree image".

/// The header, before the nodes. 12 bytes.
struct RTreeImageHeader {
    unsigned short minFill;      //  0  2  fewest entries that a split leaves in a node
    unsigned short maxChildren;  //  2  2  entries that a node holds
    unsigned int root;           //  4  4  offset of the root, from the first node
    unsigned int size;           //  8  4  bytes of all nodes
};
constexpr unsigned int kRTreeImageHeaderSize = 12;
static_assert(
    sizeof(RTreeImageHeader) == kRTreeImageHeaderSize && offsetof(RTreeImageHeader, size) == 8,
    "R-tree image: header");

/// The first bytes of each node. The entries, of type IDX_Base_RTree::ChildRec, follow. 12 bytes.
struct RTreeNodeHeader {
    unsigned int parent;    //  0  4  offset of the parent, 0 in the root
    unsigned short level;   //  4  2  height above the leaves
    unsigned short count;   //  6  2  entries in use
    unsigned short slot;    //  8  2  index of the node's entry in its parent, 0 in the root
    unsigned short unused;  // 10  2  zero
};
constexpr unsigned int kRTreeNodeHeaderSize = 12;
static_assert(
    sizeof(RTreeNodeHeader) == kRTreeNodeHeaderSize && offsetof(RTreeNodeHeader, slot) == 8,
    "R-tree image: node header");

/// A view of an R-tree image, for reading in place. Check an image that comes from a file with
/// Check() first. In a checked image no walk leaves the image, and every walk ends.
class RTreeImage {
public:
    using Entry = IDX_Base_RTree::ChildRec;

    /// @param iBytes  the first byte of the header, at any alignment. Stays the caller's and must
    ///                outlive this object.
    explicit RTreeImage(const unsigned char* iBytes)
        : _nodes(iBytes + kRTreeImageHeaderSize), _header(LoadAt<RTreeImageHeader>(iBytes, 0)) {}

    /// Checks every node: offsets, counts, levels and parents. Each box in an inner node must be
    /// the union of the child's boxes, bit for bit. Linear time.
    /// @param iSize  bytes of the image
    static Damage Check(const unsigned char* iBytes, std::size_t iSize);

    /// Compares the bits of two boxes: so a NaN equals itself, and 0 differs from -0.
    static bool HaveSameBits(
        const IDX_Base_BoundingBox& iFirst, const IDX_Base_BoundingBox& iSecond) {
        const void* first = &iFirst;
        const void* second = &iSecond;
        return std::memcmp(first, second, sizeof iFirst) == 0;
    }

    const RTreeImageHeader& Header() const { return _header; }

    /// Bytes of each node.
    std::size_t NodeSize() const {
        return kRTreeNodeHeaderSize + _header.maxChildren * sizeof(Entry);
    }

    /// @param iNode  offset of a node
    RTreeNodeHeader Node(unsigned int iNode) const {
        return LoadAt<RTreeNodeHeader>(_nodes, iNode);
    }
    Entry EntryOf(unsigned int iNode, unsigned int iSlot) const {
        return EntryAt(_nodes + iNode + kRTreeNodeHeaderSize + iSlot * sizeof(Entry));
    }

    /// Calls `iVisit(entry)` for each entry of a leaf for which `iTest(box)` is true. Enters a
    /// child only if its box passes the test, too.
    /// @return the number of nodes that were read
    template <class Test, class Visit>
    std::size_t Search(const Test& iTest, const Visit& iVisit) const {
        return SearchBytes(
            [&](const unsigned char* iEntry) { return iTest(EntryAt(iEntry).box); }, iVisit);
    }

    /// The same with a test of an entry's bytes in place: the box, and after it the value.
    template <class Test, class Visit>
    std::size_t SearchBytes(const Test& iTest, const Visit& iVisit) const {
        return SearchBelow(_header.root, iTest, iVisit);
    }

private:
    static Entry EntryAt(const unsigned char* iBytes) {
        // The image has a box as it lies in memory. So it is copied as bytes, even if its class has
        // a copy operation of its own.
        Entry entry;
        std::memcpy(static_cast<void*>(&entry), iBytes, sizeof entry);
        return entry;
    }

    template <class Test, class Visit>
    std::size_t SearchBelow(unsigned int iNode, const Test& iTest, const Visit& iVisit) const {
        const RTreeNodeHeader node = Node(iNode);
        const unsigned char* entry = _nodes + iNode + kRTreeNodeHeaderSize;
        const unsigned char* end = entry + node.count * sizeof(Entry);
        std::size_t nNodes = 1;
        for (; entry != end; entry += sizeof(Entry)) {
            if (!iTest(entry)) continue;
            if (node.level == 0) {
                iVisit(EntryAt(entry));
            } else {
                nNodes +=
                    SearchBelow(LoadAt<unsigned int>(entry, offsetof(Entry, value)), iTest, iVisit);
            }
        }
        return nNodes;
    }

    const unsigned char* _nodes;
    RTreeImageHeader _header;
};

namespace rtree_image_check {

/// The highest level of a root in 2^32 bytes, when inner nodes have two entries or more.
constexpr unsigned int kHighestLevel = 31;

/// Checks one node after the other, from the root down. The nodes that it has found and not checked
/// yet wait in a list, so that a damaged tree of any height takes no stack.
class NodeWalk {
public:
    NodeWalk(const RTreeImage& iTree, std::size_t iSize) : _tree(iTree), _size(iSize) {}

    Damage Run() {
        Visit(_tree.Header().root);
        std::size_t nSeen = 0;
        for (; !_waiting.empty() && !_damage; ++nSeen) {
            const unsigned int node = _waiting.back();
            _waiting.pop_back();
            CheckChildren(node);
        }
        if (!_damage && nSeen != _size / _tree.NodeSize()) {
            _damage = Damage("holds nodes that can't be reached");
        }
        return _damage;
    }

private:
    void Fail(unsigned int iNode, const char* iText) {
        _damage = Damage("node " + std::to_string(iNode) + ": " + iText);
    }

    bool IsNode(unsigned int iOffset) const {
        return iOffset % _tree.NodeSize() == 0 && iOffset < _size;
    }

    void Visit(unsigned int iRoot) {
        if (!IsNode(iRoot)) return Fail(iRoot, "the root is no node");
        const RTreeNodeHeader root = _tree.Node(iRoot);
        if (root.level > kHighestLevel) {
            return Fail(iRoot, "higher than any tree of this length");
        }
        if (root.level != 0 && root.count < 2) {
            return Fail(iRoot, "an inner root of fewer than two entries");
        }
        Enter(iRoot);
    }

    void Enter(unsigned int iNode) {
        if (_tree.Node(iNode).count > _tree.Header().maxChildren) {
            return Fail(iNode, "more entries than a node holds");
        }
        _waiting.push_back(iNode);
    }

    void CheckChildren(unsigned int iNode) {
        const RTreeNodeHeader node = _tree.Node(iNode);
        for (unsigned int slot = 0; slot < node.count && node.level != 0 && !_damage; ++slot) {
            const RTreeImage::Entry entry = _tree.EntryOf(iNode, slot);
            if (!IsChild(iNode, slot, entry.value)) {
                return Fail(iNode, "an entry leads to no child of its own");
            }
            Enter(entry.value);
            if (!_damage && !RTreeImage::HaveSameBits(entry.box, BoxOf(entry.value))) {
                return Fail(iNode, "a box doesn't enclose what is below it");
            }
        }
    }

    /// Whether an entry of an inner node leads to a child that names this entry as its own. So no
    /// node has two parents.
    bool IsChild(unsigned int iNode, unsigned int iSlot, unsigned int iChild) const {
        if (!IsNode(iChild)) return false;
        const RTreeNodeHeader child = _tree.Node(iChild);
        return child.parent == iNode && child.slot == iSlot &&
               child.level + 1 == _tree.Node(iNode).level && child.count > 0;
    }

    /// The union of a node's entries, in the order of their slots.
    IDX_Base_BoundingBox BoxOf(unsigned int iNode) const {
        IDX_Base_BoundingBox box = _tree.EntryOf(iNode, 0).box;
        for (unsigned int slot = 1; slot < _tree.Node(iNode).count; ++slot) {
            box.Union(_tree.EntryOf(iNode, slot).box);
        }
        return box;
    }

    const RTreeImage& _tree;
    std::size_t _size;  ///< of all nodes
    std::vector<unsigned int> _waiting;
    Damage _damage;
};

}  // namespace rtree_image_check

inline Damage RTreeImage::Check(const unsigned char* iBytes, std::size_t iSize) {
    if (iSize < kRTreeImageHeaderSize) return Damage("is shorter than its header");
    const RTreeImage tree(iBytes);
    const RTreeImageHeader& header = tree.Header();
    if (header.maxChildren < 2) return Damage("the header allows no two entries in a node");
    const std::size_t size = iSize - kRTreeImageHeaderSize;
    if (header.size != size) return Damage("the header tells another length");
    if (size == 0 || size % tree.NodeSize() != 0) {
        return Damage("the length isn't that of whole nodes");
    }
    return rtree_image_check::NodeWalk(tree, size).Run();
}

#endif
