#ifndef PLMIdxOctreeLoader_h
#define PLMIdxOctreeLoader_h

#include "GridloomExport.h"
#include "PLMIdxOptimOctree_0.h"
#include "PLMIdxWorkingOctree.h"

/// Makes an octree of a stored image, of the form that the image's first word names. Allocates nothing:
/// the octree is a member, and a view on the image where it lies. A read-only map is good enough.
class GRIDLOOM_API PLMIdxOctreeLoader {
public:
    /// Loads the image.
    /// @param iBuffer  its first byte, not null; any alignment. The image stays the caller's and must
    ///                 outlive the loader.
    explicit PLMIdxOctreeLoader(void* iBuffer);

    PLMIdxOctreeLoader(const PLMIdxOctreeLoader&) = delete;
    PLMIdxOctreeLoader& operator=(const PLMIdxOctreeLoader&) = delete;

    ~PLMIdxOctreeLoader();

    /// The octree, owned by the loader. Null when the image has another form or version, or one that can't
    /// be stored.
    PLMIdxIBaseOctree* GetOctree() const;

private:
    PLMIdxIBaseOctree* _octree;  ///< one of the two below, or null
    PLMIdxWorkingOctree _workingOctree;
    PLMIdxOptimOctree_0 _optimOctree;
};

#endif
