#ifndef PLMIdxOptimOctree_0_h
#define PLMIdxOptimOctree_0_h

#include "GridloomExport.h"
#include "PLMIdxIBaseOctree.h"

/// The compact, stored form of an octree, for reading: a view of an image that the caller owns.
/// Walks read the image in place, without parsing or copying. Its bytes: docs/file-formats.md,
/// "Octree image".
///
/// A loaded object may be walked by several threads, each with its own iterator.
class GRIDLOOM_API PLMIdxOptimOctree_0 : public PLMIdxIBaseOctree {
public:
    /// An empty octree of depth 0.
    PLMIdxOptimOctree_0();
    PLMIdxOptimOctree_0(const PLMIdxOptimOctree_0&) = delete;
    PLMIdxOptimOctree_0& operator=(const PLMIdxOptimOctree_0&) = delete;

    // The order of the virtual operations is part of the interface.

    /// Frees nothing: the image stays the caller's.
    ~PLMIdxOptimOctree_0() override;

    IDX_Base_Octree_TestResult Test(
        IDX_Base_Octree_Iterator const& iIterator, unsigned int iChild) const override;

    /// Fails with IDX_E_FAIL below the last level, and from a node into a child that isn't
    /// OCTREE_PARTIAL. Then `offset` stays, but `depth` has grown.
    long int Move(IDX_Base_Octree_Iterator& ioIterator, unsigned int iChild) const override;

    int GetSizeInFiles() const override;

    /// Appends the image to a split file, whole in one piece. After a failure the bytes that were
    /// written stay in the file.
    /// @param oPart    number of the piece
    /// @param oOffset  of the first byte of the header in it, a multiple of 4
    /// @return IDX_S_OK, or IDX_E_FAIL with "PLMIdxWTOptimOctree_0.Save.IDX_WT_SplittedFile.Write"
    ///         (the header) or "PLMIdxWTOptimOctree_0.Save.IDX_WT_SplittedFile.WriteAt" (the
    ///         records)
    long int Save(
        IDX_WT_SplittedFile& ioFile, unsigned int& oPart, unsigned int& oOffset) const override;

    /// Makes this object a view of the image at `iBuffer`, which must outlive it and stay in place.
    /// The records are neither copied nor checked. Constant time.
    /// @param iBuffer  the first byte of the header; any alignment
    /// @return IDX_S_OK, or IDX_E_FAIL for a null buffer, another type or another version. Then the
    ///         object is as before.
    long int Load(void* iBuffer) override;

protected:
    unsigned int _size;      ///< bytes of the records
    unsigned char* _buffer;  ///< first record, null in a new object
};

#endif
