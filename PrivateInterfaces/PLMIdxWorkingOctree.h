#ifndef PLMIdxWorkingOctree_h
#define PLMIdxWorkingOctree_h

#include "GridloomExport.h"
#include "PLMIdxIBaseOctree.h"

/// The form in which an octree is built, for reading. It exists in memory only and can't be stored.
///
/// All records are in one block of bytes, the arena. They name each other by byte offset; the root
/// record has the offset 0. This class doesn't own the arena.
class GRIDLOOM_API PLMIdxWorkingOctree : public PLMIdxIBaseOctree {
public:
    /// An octree of depth 0 without an arena.
    PLMIdxWorkingOctree();
    PLMIdxWorkingOctree(const PLMIdxWorkingOctree&) = delete;
    PLMIdxWorkingOctree& operator=(const PLMIdxWorkingOctree&) = delete;

    // The order of the virtual operations is part of the interface.

    ~PLMIdxWorkingOctree() override;

    IDX_Base_Octree_TestResult Test(
        IDX_Base_Octree_Iterator const& iIterator, unsigned int iChild) const override;

    /// Fails only below the last level. When a node's child isn't OCTREE_PARTIAL, the iterator
    /// keeps its `offset`, and the result is IDX_S_OK.
    long int Move(IDX_Base_Octree_Iterator& ioIterator, unsigned int iChild) const override;

    int GetSizeInFiles() const override;

    /// Refused with IDX_E_NOT_IMPLEMENTED and the trace "PLMIdxWorkingOctree.Save - Not
    /// Implemented".
    long int Save(
        IDX_WT_SplittedFile& ioFile, unsigned int& oPart, unsigned int& oOffset) const override;

    /// Refused with IDX_E_NOT_IMPLEMENTED and the trace "PLMIdxWorkingOctree.Load - Not
    /// Implemented".
    long int Load(void* iBuffer) override;

protected:
    friend struct WorkingOctreeAccess;  ///< the library's own walks over the records

    unsigned int _size;      ///< bytes of the arena in use
    unsigned char* _buffer;  ///< the arena, null until there is one
};

#endif
