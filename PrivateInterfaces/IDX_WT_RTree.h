#ifndef IDX_WT_RTree_h
#define IDX_WT_RTree_h

#include "GridloomExport.h"
#include "IDX_Base_BoundingBox.h"
#include "IDX_Base_RTree.h"
#include "IDX_Bool.h"

class IDX_WT_File;
class IDX_WT_SplittedFile;
class RTreeInnerNodes;
class RTreeNode;

/// Collects pairs of a box and a number into an R-tree, and writes it as one image. There is no search and
/// no removal: readers search the image where it lies. docs/file-formats.md, "R-tree image".
///
/// The classic R-tree with volume in the place of area and the quadratic split: A. Guttman, "R-trees: a
/// dynamic index structure for spatial searching", SIGMOD 1984. The image after any sequence of calls is
/// settled to the byte.
///
/// Init() or Load() first, then any number of Insert() and Save(). Boxes and numbers may repeat. The tree
/// takes boxes as they are: a NaN never enters the box of a node through anything but its first entry.
///
/// Owns its memory. An operation that can't get any gives IDX_False and leaves no tree behind; then only
/// Init(), Load() and the destructor do something. One thread at a time for each object.
class GRIDLOOM_API IDX_WT_RTree : public IDX_Base_RTree {
public:
    /// No tree.
    IDX_WT_RTree();

    // The order of the virtual operations is part of the interface.

    ~IDX_WT_RTree() override;

    /// Replaces the tree by the image at `iOffset`. Takes the image as it is: Insert() looks at it first.
    /// Tags: "IDX_WT_RTree.Load.IDX_WT_File.ReadAt(Header)", and nothing has changed;
    /// "IDX_WT_RTree.Load.IDX_WT_File.ReadAt(Tree)", and Insert() gives IDX_False until the next Init() or
    /// Load(). IDX_False without a tag when there is no memory: the object has no tree then.
    virtual IDX_Bool Load(IDX_WT_File& ioFile, unsigned int iOffset);

    /// Appends the image to a file that is open for writing, and gives its place.
    /// Tags: "IDX_WT_RTree.Save.IDX_WT_SplittedFile.Write(Header)" and
    /// "IDX_WT_RTree.Save.IDX_WT_SplittedFile.WriteAt", of which the latter leaves the header in the file, as
    /// does a Save() without a tree.
    virtual IDX_Bool Save(IDX_WT_File& ioFile, unsigned int& oOffset);

    /// The same with an image in a piece of a split file, whose place the caller chooses. Same tags.
    IDX_Bool Load(IDX_WT_SplittedFile& ioFile, unsigned int iPart, unsigned int iOffset);
    IDX_Bool Save(IDX_WT_SplittedFile& ioFile, unsigned int iPart, unsigned int iOffset);

    /// Makes an empty tree in the place of any other.
    /// @param iMinFill      fewest entries that a split leaves in a node; 0 and 1 force nothing, nor does a
    ///                      number above iMaxChildren
    /// @param iMaxChildren  entries that a node holds, 2 or more: below that Insert() gives IDX_False
    /// @return IDX_False when there is no memory. Tag where the root can't be had:
    ///         "IDX_WT_RTreeStorageHandler.Alloc(realloc)",
    ///         "IDX_WT_RTree.Init.IDX_WT_RTreeStorageHandler.Alloc"
    IDX_Bool Init(unsigned short iMinFill, unsigned short iMaxChildren);

    /// Adds one entry to a leaf. The time grows with the height of the tree, and where a node splits with
    /// the square of iMaxChildren. The first one after a Load() reads the whole image once.
    /// @return IDX_False when there is no tree, or one that isn't sound: an offset that is no node, a count
    ///         above iMaxChildren, an empty node above or below others, a child that doesn't know its
    ///         parent or isn't one level lower. Without memory for a node, or 2^32 bytes of them, too; tags
    ///         "IDX_WT_RTreeStorageHandler.Alloc(realloc)", and behind it for a root
    ///         "IDX_WT_RTree.AdjustTree.IDX_WT_RTreeStorageHandler.Alloc", for any other node
    ///         "IDX_WT_RTree.Split.IDX_WT_RTreeStorageHandler.Alloc", "IDX_WT_RTree.AdjustTree.Split".
    IDX_Bool Insert(const IDX_Base_BoundingBox& iBox, unsigned int iValue);

    /// Bytes of all nodes: the image has 12 more.
    unsigned int GetSize() const;

private:
    /// What is known of the tree in the storage.
    enum Soundness : unsigned char {
        Unknown,  ///< loaded, and not looked at yet
        Sound,    ///< all that Insert() relies on
        Damaged   ///< never to be touched
    };

    /// Adds an entry to a node of a level, which isn't above the root's.
    IDX_Bool Insert(const ChildRec& iRecord, unsigned short iLevel);

    /// Chooses the node of a level that is to take `iRecord`. Always IDX_True.
    IDX_Bool FindNode(const ChildRec& iRecord, unsigned short iLevel, unsigned int& oNode);

    /// Puts `iRecord` into `iNode`, splitting as far up as needed, and brings the boxes above up to date.
    IDX_Bool AdjustTree(unsigned int iNode, const ChildRec& iRecord);

    /// Sets the box of one entry and carries the change to the root.
    IDX_Bool AdjustTree(unsigned int iNode, unsigned short iSlot, const IDX_Base_BoundingBox& iBox);

    /// Cuts the full node `iNode`, with `iRecord` as one entry more. The two results are the entries for its
    /// parent: of the node that is new, and of what stayed.
    IDX_Bool Split(
        unsigned int iNode, const ChildRec& iRecord, ChildRec& oNewRecord, ChildRec& oOldRecord);

    /// Fills m_groups from m_boxes.
    void QuadraticSplit();

    /// Does nothing, and nothing calls it.
    void LinearSplit();

    /// Takes zeroed bytes from the storage, which may move.
    IDX_Bool Alloc(const unsigned int& iSize, unsigned int& oOffset);

    unsigned int m_capacity;        ///< bytes of the storage
    IDX_Base_BoundingBox* m_boxes;  ///< of a split: the boxes, the new entry's last
    ChildRec* m_records;            ///< of a split: the entries
    unsigned char* m_groups;        ///< of a split: 0 stays, 1 goes to the new node, 2 undecided
    float* m_volumes;               ///< of a split: the volumes of the boxes

    // What follows is this library's own.

    bool GrowStorage(unsigned long long iNeeded, unsigned long long iSmallerStep);
    bool ResizeStorage(unsigned long long iCapacity);
    bool ReserveWorkingArrays(unsigned int iMaxChildren);
    void FreeStorage();

    unsigned int NodeSize() const;
    RTreeNode NodeAt(unsigned int iOffset) const;
    bool IsReadyFor(unsigned int iLevel);
    bool IsNode(unsigned int iOffset) const;
    bool IsTreeSound() const;
    bool IsNodeSound(unsigned int iOffset) const;

    void DropInnerNodes();
    void CopyInnerNodes();
    bool CopyInnerNodes(unsigned int* oNumbers);

    IDX_Bool GrowRoot();
    IDX_Bool EnlargeBoxes(unsigned int iLeaf, const IDX_Base_BoundingBox& iBox);
    void SetBox(unsigned int iNode, unsigned int iSlot, const IDX_Base_BoundingBox& iBox);
    unsigned int Append(unsigned int iNode, const ChildRec& iRecord);
    unsigned int ChooseChild(unsigned int iNode, const IDX_Base_BoundingBox& iBox) const;
    IDX_Base_BoundingBox BoxOf(unsigned int iNode) const;
    void Distribute(
        unsigned int iNode, unsigned int iNewNode, ChildRec& oNewRecord, ChildRec& oOldRecord);

    template <class Read>
    IDX_Bool LoadImage(const Read& iRead);
    template <class WriteHeader, class WriteNodes>
    IDX_Bool SaveImage(const WriteHeader& iWriteHeader, const WriteNodes& iWriteNodes) const;

    float* m_splitMemory;           ///< of a split: the numbers of the undecided boxes
    unsigned int m_workingLength;   ///< places of each working array
    RTreeInnerNodes* m_innerNodes;  ///< a second copy for the way down; null when there is none
    Soundness m_soundness;
};

#endif
