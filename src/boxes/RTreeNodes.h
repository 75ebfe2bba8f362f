#ifndef RTreeNodes_h
#define RTreeNodes_h

#include "RTreeNode.h"

/// All nodes of an R-tree, as they lie in its storage: what can be read off them without changing
/// them. Nodes name each other by their byte offset in the storage. A view like RTreeNode: the
/// storage may move with each new node, so make a view anew after that.
struct RTreeNodes {
    unsigned char* storage;
    unsigned int size;         ///< bytes of all nodes
    unsigned int nodeSize;     ///< bytes of one node
    unsigned int headerSize;   ///< bytes of a node before its first entry
    unsigned int maxChildren;  ///< entries that a node holds
    unsigned int root;         ///< offset of the root

    unsigned int Count() const { return size / nodeSize; }
    RTreeNode At(unsigned int iOffset) const { return RTreeNode(storage + iOffset, headerSize); }
    unsigned int RootLevel() const { return At(root).Level(); }

    /// The union of a node's entries, in the order of their slots: the order decides the sign of a
    /// zero. The node has an entry.
    IDX_Base_BoundingBox BoxOf(unsigned int iNode) const;

    /// Guttman's ChooseLeaf: which node of a level takes one more box. From the root down, it goes
    /// to the child whose box grows least; among equals to the one with the smallest box, among
    /// these to the one in the lowest slot.
    /// @param iLevel  not above the root's
    unsigned int Choose(const IDX_Base_BoundingBox& iBox, unsigned int iLevel) const;

    /// Whether the nodes form one or several trees that an insertion can walk: every offset is that
    /// of a node, and every way down or up ends. For nodes that come from a file. Linear in the
    /// nodes.
    bool AreSound() const;

private:
    bool IsNode(unsigned int iOffset) const { return iOffset < size && iOffset % nodeSize == 0; }
    unsigned int ChooseChild(unsigned int iNode, const IDX_Base_BoundingBox& iBox) const;
    bool IsNodeSound(unsigned int iOffset) const;
};

#endif
