#ifndef PLMIdxWTWorkingOctree_h
#define PLMIdxWTWorkingOctree_h

#include "PLMIdxWorkingOctree.h"

/// The working octree with an arena of its own, for writing: triangles mark its cells, the filler
/// tags and fills them, and its depth can be reduced.
///
/// The first record takes the arena, IDX_Base_Constants::MAX_OCTREE_SIZE bytes. It never moves or
/// grows: the address of a tag stays valid until the next Reset. Records are handed out in rising
/// order and never freed one by one. Every cell has a 16-bit tag, 0 in a new record.
///
/// Order of calls: SetDepth and SetBB (each empties the tree), then MoveCreate, Fill and the tags.
/// An octree whose root got no memory must not be walked: Reset says so. One thread at a time.
class GRIDLOOM_API PLMIdxWTWorkingOctree : public PLMIdxWorkingOctree {
public:
    /// Number of levels, the root's included: a tree is at most MAXDEPTH - 1 deep.
    static const int MAXDEPTH = 20;

    PLMIdxWTWorkingOctree();
    ~PLMIdxWTWorkingOctree() override;

    /// Refused with IDX_E_NOT_IMPLEMENTED and the trace
    /// "PLMIdxWTWorkingOctree.Load - Not Implemented".
    long int Load(IDX_WT_SplittedFile& ioFile, unsigned int iPart, unsigned int iOffset);

    /// Sets the depth and empties the tree. Doesn't report a failure of Reset.
    void SetDepth(int iDepth);

    /// Sets the box, low corner and extents, and empties the tree. Doesn't report a failure of
    /// Reset.
    void SetBB(IDX_Point const& iOrigin, IDX_Point const& iSize);

    /// Sets the box and keeps the tree.
    void SetBBWithoutReset(IDX_Point const& iOrigin, IDX_Point const& iSize);

    /// Sets the cuboid that goes into the stored image. The tree stays.
    void SetCuboid(
        IDX_Base_4x4Matrix const& iMatrix, IDX_Point const& iPoint1, IDX_Point const& iPoint2);

    /// Removes the cuboid: the default matrix, and both points at the origin.
    void UnsetCuboid();

    /// Empties the tree and makes the root record, keeping the arena. All counts become 0 but the
    /// root's. Constant time.
    /// @return IDX_S_OK; IDX_E_FAIL for a depth of 1 or of MAXDEPTH and more, and when the arena is
    ///         too small for the root; IDX_E_OUT_OF_MEMORY when there is no memory for the arena
    long int Reset();

    /// Moves into a child and makes what is missing: below a node the child's record, in a leaf
    /// group the mark OCTREE_SURFACE. Must not be called below the last level. Constant time.
    /// @return IDX_S_OK; IDX_E_OUT_OF_MEMORY when the arena is full: the iterator and the tree are
    ///         as before then; IDX_E_FAIL on a tree without a root
    long int MoveCreate(IDX_Base_Octree_Iterator& ioIterator, unsigned int iChild);

    /// Sets the state of the cell (iIterator, iChild). When the cell is a leaf group, OCTREE_FULL
    /// makes its eight cells full, and any other state makes them empty.
    void Fill(
        IDX_Base_Octree_Iterator const& iIterator,
        unsigned int iChild,
        IDX_Base_Octree_TestResult iState);

    /// The tag of the cell (iIterator, iChild). The tag of a leaf group is that of its cell 0.
    void GetTag(
        IDX_Base_Octree_Iterator const& iIterator, unsigned int iChild, unsigned short& oTag);

    /// The address of the cell's tag, valid until the next Reset.
    void GetTagPtr(
        IDX_Base_Octree_Iterator const& iIterator, unsigned int iChild, unsigned short*& oTag);

    /// Sets the tag of the cell. A tag above 1 keeps the filler from filling this tree.
    void SetTag(
        IDX_Base_Octree_Iterator const& iIterator, unsigned int iChild, unsigned short iTag);

    /// Reduces the depth of the tree. At the new last level a subdivided cell becomes
    /// OCTREE_SURFACE; empty and full cells stay as they are. Box and cuboid stay, all tags become
    /// 0. Needs a second arena while it runs. Linear in the cells that remain.
    /// @param iDepth  the new depth, 0 or from 2
    /// @return IDX_S_OK. IDX_E_INVALID_ARGUMENT when `iDepth` isn't lower (a negative one never
    ///         is), and IDX_E_FAIL without a root record: nothing has changed. IDX_E_FAIL when
    ///         there is no memory for the new arena, or when it is full: the tree has the cells
    ///         that were copied so far.
    long int ReduceDepth(int iDepth);

    /// Copies box, depth and cells of another octree of any form, but not its cuboid. All tags
    /// become 0. Linear in the cells of the source.
    /// @return IDX_S_OK, or IDX_E_FAIL when there is no memory for the arena or it is full
    long int ConstructFrom(PLMIdxIBaseOctree const& iSource);

protected:
    friend struct WorkingOctreeAccess;

    /// The same, down to the given depth instead of the source's own.
    long int ConstructFrom(PLMIdxIBaseOctree const& iSource, int iDepth);

    /// Copies the cells below the first position to the second one, down to this octree's depth.
    long int _SubConstructFrom(
        PLMIdxIBaseOctree const& iSource,
        IDX_Base_Octree_Iterator& ioSourceIterator,
        IDX_Base_Octree_Iterator& ioIterator);

    /// Takes `iSize` zeroed bytes from the arena and gives their offset. A failure changes nothing.
    /// @return IDX_S_OK; IDX_E_OUT_OF_MEMORY with "PLMIdxWTWorkingOctree._Alloc.AllocationFailed
    ///         ( %d MB )" when there is no memory for the arena; IDX_E_FAIL with
    ///         "PLMIdxWTWorkingOctree._Alloc.MaxSize" when it is full
    long int _Alloc(unsigned int iSize, unsigned int& oOffset);
    long int _AllocNode(unsigned int& oOffset);
    long int _AllocNodeSet(unsigned int& oOffset);
    void _InitNodeSet(unsigned int& iOffset);

    unsigned int _capacity;        ///< bytes of the arena, 0 until the first allocation
    int _nCellsByDepth[MAXDEPTH];  ///< entry L counts the non-empty cells of level L

private:
    /// Refused with IDX_E_NOT_IMPLEMENTED, without a trace.
    long int Load(void* iBuffer) override;

    unsigned int _changes;  ///< number of changes that may have removed a cell or made one full
    bool _tagged;           ///< some cell may have a tag above 1, which a new fill doesn't know
};

#endif
