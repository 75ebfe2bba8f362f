#ifndef PLMIdxWTOptimOctree_0_h
#define PLMIdxWTOptimOctree_0_h

#include "PLMIdxOptimOctree_0.h"

template <class Source>
class CompactOctreePacker;

/// The compact octree with a block of its own, for writing: packs any octree into the stored form
/// and hands the image out. It is itself a readable octree.
///
/// The block of IDX_Base_Constants::MAX_OCTREE_SIZE bytes is taken with the first record, used again by
/// later constructions, and never moves or grows during one. ConstructFullOctree puts one of 8 bytes in its
/// place, and Load from a split file leaves the octree no more than its image takes. From then on the object has
/// that much: a larger octree ends with "PLMIdxWTOptimOctree_0._Alloc.MaxSize", and needs a new object.
/// One thread at a time while building.
class GRIDLOOM_API PLMIdxWTOptimOctree_0 : public PLMIdxOptimOctree_0 {
public:
    PLMIdxWTOptimOctree_0();

    // The order of the virtual operations is part of the interface.

    ~PLMIdxWTOptimOctree_0() override;

    /// Always fails with IDX_E_FAIL: a writer is never a view on memory that it doesn't own.
    long int Load(void* iBuffer) override;

    /// Reads an image back from its place in a split file. Any version of the format is taken, and so is an
    /// image without records of any type; the records are trusted.
    /// @return IDX_S_OK, or IDX_E_FAIL with "PLMIdxWTOptimOctree_0.Load.ReadAt(OctreeHeader)" (the octree
    ///         is as before), "PLMIdxWTOptimOctree_0.Load.InvalidType" or
    ///         "PLMIdxWTOptimOctree_0.Load.ReadAt(OctreeBuffer)" (its records are lost, it must not be used
    ///         before the next load or construction); IDX_E_OUT_OF_MEMORY with
    ///         "PLMIdxWTOptimOctree_0._Alloc.AllocationFailed" (as before)
    long int Load(IDX_WT_SplittedFile& ioFile, unsigned int iPart, unsigned int iOffset);

    /// Makes this octree the packed copy of `iSource`, cuboid included. Nothing is merged or pruned;
    /// OCTREE_SURFACE becomes OCTREE_FULL. Linear in the cells of the source.
    /// @return IDX_S_OK, or IDX_E_FAIL when the block can't be had or is full (see above), or for a
    ///         source of depth 1; the octree is then incomplete and must not be used
    long int ConstructFrom(const PLMIdxIBaseOctree& iSource);

    /// Makes this octree the one of depth 2 with every cell occupied, without a cuboid.
    /// @param iOrigin  low corner of the box
    /// @param iSize    extents of the box
    /// @return IDX_S_OK, or IDX_E_OUT_OF_MEMORY when its 8 bytes can't be had
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

    /// Makes the first `iSize` bytes of the block zero, of a larger one where it has less.
    /// @return IDX_S_OK, or as _Alloc without memory; the block is then as before
    long int ClearBlock(unsigned int iSize);

    /// Takes `iSize` zeroed bytes from the block and gives their offset.
    /// @return IDX_S_OK; IDX_E_OUT_OF_MEMORY with "PLMIdxWTOptimOctree_0._Alloc.AllocationFailed";
    ///         IDX_E_FAIL with "PLMIdxWTOptimOctree_0._Alloc.MaxSize"
    long int _Alloc(unsigned int iSize, unsigned int& oOffset);

    /// Marks the cell (iIterator, iChild) as occupied.
    /// @return 1, or IDX_E_FAIL below the last level
    long int _FillCell(const IDX_Base_Octree_Iterator& iIterator, unsigned int iChild);

    /// Packs what lies below the two positions.
    long int _SubConstructFrom(
        const PLMIdxIBaseOctree& iSource,
        IDX_Base_Octree_Iterator& ioSourceIterator,
        IDX_Base_Octree_Iterator& ioIterator);

    /// Compares what lies below the two positions: 0 for the same, 1 for different.
    long int _SubEqual(
        IDX_Base_Octree_Iterator& ioIterator,
        IDX_Base_Octree_Iterator& ioOtherIterator,
        const PLMIdxWTOptimOctree_0& iOther) const;

    unsigned int _capacity;  ///< bytes of the block, 0 in a new object
};

#endif
