#ifndef PLMIdxWTWorkingOctree_h
#define PLMIdxWTWorkingOctree_h

#include "PLMIdxWorkingOctree.h"

/// The working octree with an arena of its own, for writing: triangles mark its cells, the filler
/// tags and fills them, and its depth can be cut.
///
/// The arena is allocated once, IDX_Base_Constants::MAX_OCTREE_SIZE bytes, with the first record, and
/// never moves: a pointer to a tag stays valid until the next Reset. Records are handed out in
/// rising order and never given back one by one. Every cell has a 16-bit tag, 0 in a new record.
///
/// Order of calls: SetDepth and SetBB (each empties the tree), then MoveCreate, Fill and the tags.
/// An octree whose root record couldn't be had (an arena that is missing or too small) must not be
/// walked: Reset tells. One thread at a time.
class GRIDLOOM_API PLMIdxWTWorkingOctree : public PLMIdxWorkingOctree {
public:
    /// Number of levels that are counted, the root's included: a tree is at most MAXDEPTH - 1 deep.
    static const int MAXDEPTH = 20;

    PLMIdxWTWorkingOctree();
    ~PLMIdxWTWorkingOctree() override;

    /// Refused with IDX_E_NOT_IMPLEMENTED and the trace
    /// "PLMIdxWTWorkingOctree.Load - Not Implemented".
    long int Load(IDX_WT_SplittedFile& ioFile, unsigned int iPart, unsigned int iOffset);

    /// Sets the depth and empties the tree. The result of Reset is dropped.
    void SetDepth(int iDepth);

    /// Sets the box, low corner and extents, and empties the tree. The result of Reset is dropped.
    void SetBB(IDX_Point const& iOrigin, IDX_Point const& iSize);

    /// Sets the box and keeps the tree.
    void SetBBWithoutReset(IDX_Point const& iOrigin, IDX_Point const& iSize);

    /// Sets the cuboid that goes into the stored image. The tree isn't touched.
    void SetCuboid(
        IDX_Base_4x4Matrix const& iMatrix, IDX_Point const& iPoint1, IDX_Point const& iPoint2);

    /// Takes the cuboid away: the default matrix, and both points at the origin.
    void UnsetCuboid();

    /// Empties the tree and makes the root record, keeping the arena. All counts become 0 but the
    /// root's. Constant time.
    /// @return IDX_S_OK; IDX_E_FAIL for a depth of 1 or of MAXDEPTH and more, and when the arena has
    ///         no room for the root; IDX_E_OUT_OF_MEMORY when the arena can't be had
    long int Reset();

    /// Moves into a child and makes what is missing on the way: at a node its record, in a leaf
    /// group the mark OCTREE_SURFACE. Must not be called below the last level. Constant time.
    /// @return IDX_S_OK, or IDX_E_OUT_OF_MEMORY when the arena can't take the record; the iterator
    ///         and the tree are then as before. IDX_E_FAIL on a tree without a root.
    long int MoveCreate(IDX_Base_Octree_Iterator& ioIterator, unsigned int iChild);

    /// Writes the state of the cell (iIterator, iChild). A leaf group as a whole (at r = 2) becomes
    /// eight full cells for OCTREE_FULL and eight empty ones for any other state.
    void Fill(
        IDX_Base_Octree_Iterator const& iIterator,
        unsigned int iChild,
        IDX_Base_Octree_TestResult iState);

    /// The tag of the cell (iIterator, iChild). A leaf group as a whole shares the tag of its cell 0.
    void GetTag(
        IDX_Base_Octree_Iterator const& iIterator, unsigned int iChild, unsigned short& oTag);

    /// The address of the cell's tag, valid until the next Reset.
    void GetTagPtr(
        IDX_Base_Octree_Iterator const& iIterator, unsigned int iChild, unsigned short*& oTag);

    void SetTag(
        IDX_Base_Octree_Iterator const& iIterator, unsigned int iChild, unsigned short iTag);

    /// Cuts the tree to a lower depth: a cell with anything in it becomes OCTREE_SURFACE at the new
    /// last level, empty and full cells stay what they are. The box and the cuboid stay, all tags
    /// are 0 afterwards. Needs a second arena while it runs. Linear in the cells that remain.
    /// @param iDepth  the new depth, 0 or from 2
    /// @return IDX_S_OK; IDX_E_INVALID_ARGUMENT when `iDepth` isn't lower (a negative one never is),
    ///         and nothing has changed; IDX_E_FAIL without a root record, nothing has changed, or
    ///         when the new arena can't be had or is full: the tree holds what was copied so far
    long int ReduceDepth(int iDepth);

    /// Takes over box, depth and cells of another octree of any form. The cuboid isn't copied, and
    /// all tags are 0. Linear in the cells of the source.
    /// @return IDX_S_OK, or IDX_E_FAIL when the arena can't be had or is full
    long int ConstructFrom(PLMIdxIBaseOctree const& iSource);

protected:
    friend struct WorkingOctreeAccess;

    /// The same, down to the given depth instead of the source's own.
    long int ConstructFrom(PLMIdxIBaseOctree const& iSource, int iDepth);

    /// Copies what lies below the two positions, down to this octree's own depth.
    long int _SubConstructFrom(
        PLMIdxIBaseOctree const& iSource,
        IDX_Base_Octree_Iterator& ioSourceIterator,
        IDX_Base_Octree_Iterator& ioIterator);

    /// Takes `iSize` zeroed bytes from the arena and gives their offset.
    /// @return IDX_S_OK; IDX_E_OUT_OF_MEMORY with "PLMIdxWTWorkingOctree._Alloc.AllocationFailed
    ///         ( %d MB )" when the arena can't be had; IDX_E_FAIL with
    ///         "PLMIdxWTWorkingOctree._Alloc.MaxSize" when it is full. Nothing has changed then.
    long int _Alloc(unsigned int iSize, unsigned int& oOffset);
    long int _AllocNode(unsigned int& oOffset);
    long int _AllocNodeSet(unsigned int& oOffset);
    void _InitNodeSet(unsigned int& iOffset);

    unsigned int _capacity;        ///< bytes of the arena, 0 until the first allocation
    int _nCellsByDepth[MAXDEPTH];  ///< entry L counts the non-empty cells of level L

private:
    /// Refused with IDX_E_NOT_IMPLEMENTED, without a trace.
    long int Load(void* iBuffer) override;

    unsigned int _changes;  ///< grows with all that may take a cell away or make one full
    bool _tagged;           ///< some tag may be one that a new fill doesn't know
};

#endif
