#ifndef PLMIdxWTOptimOctree_0_h
#define PLMIdxWTOptimOctree_0_h

#include "PLMIdxOptimOctree_0.h"

template <class Source>
class CompactOctreePacker;

/// The compact octree with a block of its own, for writing: packs any octree into the stored form
/// and hands out the image. It can be read like any other octree.
///
/// The first record takes the block of IDX_Base_Constants::MAX_OCTREE_SIZE bytes. Later
/// constructions use the block again; it never moves or grows during one. Two operations make it
/// smaller for good: ConstructFullOctree replaces it by one of 8 bytes, and Load from a split file
/// lowers its capacity to the size of the image. A larger octree ends with
/// "PLMIdxWTOptimOctree_0._Alloc.MaxSize" then, and needs a new object. One thread at a time while
/// building.
class GRIDLOOM_API PLMIdxWTOptimOctree_0 : public PLMIdxOptimOctree_0 {
public:
    PLMIdxWTOptimOctree_0();

    // The order of the virtual operations is part of the interface.

    ~PLMIdxWTOptimOctree_0() override;

    /// Always fails with IDX_E_FAIL: a writer is never a view of memory that it doesn't own.
    long int Load(void* iBuffer) override;

    /// Reads an image from its place in a split file. Takes any version of the format, and any type
    /// when the image has no records. The records aren't checked.
    /// @return IDX_S_OK. IDX_E_FAIL with "PLMIdxWTOptimOctree_0.Load.ReadAt(OctreeHeader)", or
    ///         IDX_E_OUT_OF_MEMORY with "PLMIdxWTOptimOctree_0._Alloc.AllocationFailed": the octree
    ///         is as before. IDX_E_FAIL with "PLMIdxWTOptimOctree_0.Load.InvalidType" or
    ///         "PLMIdxWTOptimOctree_0.Load.ReadAt(OctreeBuffer)": the records are lost, and the
    ///         octree must not be used before the next load or construction.
    long int Load(IDX_WT_SplittedFile& ioFile, unsigned int iPart, unsigned int iOffset);

    /// Makes this octree the packed copy of `iSource`, cuboid included. Nothing is merged or
    /// pruned; OCTREE_SURFACE becomes OCTREE_FULL. Linear in the cells of the source.
    /// @return IDX_S_OK. IDX_E_FAIL when there is no memory for the block, when it is full (see
    ///         above), or for a source of depth 1: the octree is incomplete then and must not be
    ///         used.
    long int ConstructFrom(const PLMIdxIBaseOctree& iSource);

    /// Makes this octree the one of depth 2 with every cell occupied, without a cuboid.
    /// @param iOrigin  low corner of the box
    /// @param iSize    extents of the box
    /// @return IDX_S_OK, or IDX_E_OUT_OF_MEMORY without memory for 8 bytes
    long int ConstructFullOctree(const IDX_Point& iOrigin, const IDX_Point& iSize);

    /// Copies the stored image, header and records, into a new block.
    /// @param oSize  length of the block in bytes, equal to GetSizeInFiles()
    /// @return the block, owned by the caller, who gives it back with delete[]; never null. Every
    ///         call makes another one.
    unsigned char* GetOctreeBuffer(unsigned int& oSize) const;

    /// True when both octrees have the same depth and the same state in every cell. Box, cuboid and
    /// the order of the records don't count.
    bool operator==(const PLMIdxWTOptimOctree_0& iOther) const;

protected:
    template <class Source>
    friend class CompactOctreePacker;  ///< the library's own packing walk

    /// Empties the octree and lays out the root record.
    long int Reset();

    /// Makes the first `iSize` bytes of the block zero. A block that is smaller is replaced.
    /// @return IDX_S_OK, or as _Alloc without memory: the block is as before then
    long int ClearBlock(unsigned int iSize);

    /// Takes `iSize` zeroed bytes from the block and gives their offset.
    /// @return IDX_S_OK; IDX_E_OUT_OF_MEMORY with "PLMIdxWTOptimOctree_0._Alloc.AllocationFailed";
    ///         IDX_E_FAIL with "PLMIdxWTOptimOctree_0._Alloc.MaxSize"
    long int _Alloc(unsigned int iSize, unsigned int& oOffset);

    /// Marks the cell (iIterator, iChild) as occupied.
    /// @return 1, or IDX_E_FAIL below the last level
    long int _FillCell(const IDX_Base_Octree_Iterator& iIterator, unsigned int iChild);

    /// Packs the cells below the first position into the record of the second one.
    long int _SubConstructFrom(
        const PLMIdxIBaseOctree& iSource,
        IDX_Base_Octree_Iterator& ioSourceIterator,
        IDX_Base_Octree_Iterator& ioIterator);

    /// Compares the cells below the two positions: 0 for the same, 1 for different.
    long int _SubEqual(
        IDX_Base_Octree_Iterator& ioIterator,
        IDX_Base_Octree_Iterator& ioOtherIterator,
        const PLMIdxWTOptimOctree_0& iOther) const;

    unsigned int _capacity;  ///< bytes of the block, 0 in a new object
};

#endif
