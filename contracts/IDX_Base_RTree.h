#ifndef IDX_Base_RTree_h
#define IDX_Base_RTree_h

#include "GridloomContractsExport.h"
#include "IDX_Base_BoundingBox.h"

#include <cstddef>

/// What writers and readers of an R-tree image have in common: one block of nodes of equal size.
/// Nodes name each other by byte offset from the start of the block. docs/file-formats.md, "R-tree
/// image".
///
/// Derived classes read and write the fields directly.
class GRIDLOOM_CONTRACTS_API IDX_Base_RTree {
public:
    /// One entry of a node, the same in memory and in files.
    struct ChildRec {
        IDX_Base_BoundingBox box;  ///<  0 24  in an inner node: encloses all that is in the child
        unsigned int value = 0;    ///< 24  4  in a leaf: the user's; else the offset of the child
    };

    IDX_Base_RTree(const IDX_Base_RTree&) = delete;
    IDX_Base_RTree& operator=(const IDX_Base_RTree&) = delete;

protected:
    /// No storage. All fields are 0, except the size of a node's header.
    IDX_Base_RTree();
    virtual ~IDX_Base_RTree();

    unsigned short m_minFill;       ///< fewest entries that a split leaves in a node
    unsigned short m_maxChildren;   ///< entries that a node holds
    unsigned int m_root;            ///< offset of the root
    unsigned int m_nodeSize;        ///< bytes of every node
    unsigned int m_nodeHeaderSize;  ///< offset of the first entry in a node, never changed
    unsigned char* m_storage;       ///< the nodes; null when there is no tree
    unsigned int m_size;            ///< bytes of the storage in use
};
static_assert(sizeof(IDX_Base_RTree::ChildRec) == 28, "R-tree image: IDX_Base_RTree::ChildRec");
static_assert(
    offsetof(IDX_Base_RTree::ChildRec, value) == 24, "R-tree image: IDX_Base_RTree::ChildRec");

#endif
