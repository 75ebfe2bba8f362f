#ifndef IDX_WT_RTree_h
#define IDX_WT_RTree_h

#include "GridloomExport.h"
#include "IDX_Base_BoundingBox.h"
#include "IDX_Base_RTree.h"
#include "IDX_Bool.h"

class IDX_WT_File;
class IDX_WT_SplittedFile;

/// Collects pairs of a box and a number into an R-tree, and writes it as one image. There is no
/// search and no removal: readers search the image in place. docs/file-formats.md, "R-tree image".
///
/// The classic R-tree with the quadratic split, and with volume instead of area: A. Guttman,
/// "R-trees: a dynamic index structure for spatial searching", SIGMOD 1984. The same calls always
/// give the same bytes.
///
/// Call Init() or Load() first, then Insert() and Save() in any number. Boxes and numbers may
/// repeat. The tree doesn't check boxes. A NaN enters the box of a node only with the node's first
/// entry.
///
/// The object owns its memory. An operation that gets no memory gives IDX_False, and the object has
/// no tree afterwards: Init() and Load() work again, Insert() gives IDX_False. One thread at a time
/// for each object.
class GRIDLOOM_API IDX_WT_RTree : public IDX_Base_RTree {
public:
    /// No tree.
    IDX_WT_RTree();

    // The order of the virtual operations is part of the interface.

    ~IDX_WT_RTree() override;

    /// Replaces the tree by the image at `iOffset`. Nothing in the image is checked here: the next
    /// Insert() checks it.
    /// @return IDX_False with a tag when a read fails. After
    ///         "IDX_WT_RTree.Load.IDX_WT_File.ReadAt(Header)" nothing has changed. After
    ///         "IDX_WT_RTree.Load.IDX_WT_File.ReadAt(Tree)" Insert() gives IDX_False until the next
    ///         Init() or Load(). IDX_False without a tag when there is no memory.
    virtual IDX_Bool Load(IDX_WT_File& ioFile, unsigned int iOffset);

    /// Appends the image to a file that is open for writing.
    /// @param oOffset  where the image starts
    /// @return IDX_False with a tag when a write fails:
    ///         "IDX_WT_RTree.Save.IDX_WT_SplittedFile.Write(Header)" or
    ///         "IDX_WT_RTree.Save.IDX_WT_SplittedFile.WriteAt". After the second one the header
    ///         stays in the file. A Save() without a tree ends so, too.
    virtual IDX_Bool Save(IDX_WT_File& ioFile, unsigned int& oOffset);

    /// The same for an image in a piece of a split file. The caller chooses its place. Same tags.
    IDX_Bool Load(IDX_WT_SplittedFile& ioFile, unsigned int iPart, unsigned int iOffset);
    IDX_Bool Save(IDX_WT_SplittedFile& ioFile, unsigned int iPart, unsigned int iOffset);

    /// Makes an empty tree. A tree that the object had is lost.
    /// @param iMinFill      fewest entries that a split leaves in a node. 0 and 1 force nothing,
    ///                      nor does a number above iMaxChildren
    /// @param iMaxChildren  entries that a node holds, 2 or more: below that Insert() gives
    ///                      IDX_False
    /// @return IDX_False when there is no memory. When the root gets none, with the tags
    ///         "IDX_WT_RTreeStorageHandler.Alloc(realloc)" and
    ///         "IDX_WT_RTree.Init.IDX_WT_RTreeStorageHandler.Alloc"
    IDX_Bool Init(unsigned short iMinFill, unsigned short iMaxChildren);

    /// Adds one entry to a leaf. The time grows with the height of the tree, and with the square of
    /// iMaxChildren where a node splits. The first call after a Load() reads the whole image once.
    /// @return IDX_False, without a tag, when there is no tree or a damaged one: an offset that is
    ///         no node, a count above iMaxChildren, an empty node that isn't the only one, a child
    ///         that doesn't name its parent or isn't one level lower. IDX_False, with tags, when a
    ///         new node gets no memory or the nodes reach 2^32 bytes:
    ///         "IDX_WT_RTreeStorageHandler.Alloc(realloc)", then for a new root
    ///         "IDX_WT_RTree.AdjustTree.IDX_WT_RTreeStorageHandler.Alloc", for any other node
    ///         "IDX_WT_RTree.Split.IDX_WT_RTreeStorageHandler.Alloc",
    ///         "IDX_WT_RTree.AdjustTree.Split"
    IDX_Bool Insert(const IDX_Base_BoundingBox& iBox, unsigned int iValue);

    /// Bytes of all nodes. The image has 12 more.
    unsigned int GetSize() const;

private:
    IDX_Bool Insert(const ChildRec& iRecord, unsigned short iLevel);
    IDX_Bool FindNode(const ChildRec& iRecord, unsigned short iLevel, unsigned int& oNode);
    IDX_Bool AdjustTree(unsigned int iNode, const ChildRec& iRecord);
    IDX_Bool AdjustTree(unsigned int iNode, unsigned short iSlot, const IDX_Base_BoundingBox& iBox);
    IDX_Bool Split(
        unsigned int iNode, const ChildRec& iRecord, ChildRec& oNewRecord, ChildRec& oOldRecord);
    void QuadraticSplit();
    void LinearSplit();
    IDX_Bool Alloc(const unsigned int& iSize, unsigned int& oOffset);

    unsigned int m_capacity;        ///< bytes of the storage
    IDX_Base_BoundingBox* m_boxes;  ///< of a split: the boxes, the new entry's last
    ChildRec* m_records;            ///< of a split: the entries
    unsigned char* m_groups;        ///< of a split: 0 stays, 1 goes to the new node, 2 undecided
    float* m_volumes;               ///< of a split: the volumes of the boxes

    struct Internals;
    Internals* m_internals;  ///< owned; null before the first Init() or Load()
};

#endif
