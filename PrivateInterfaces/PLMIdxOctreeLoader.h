#ifndef PLMIdxOctreeLoader_h
#define PLMIdxOctreeLoader_h

#include "GridloomExport.h"
#include "PLMIdxOptimOctree_0.h"
#include "PLMIdxWorkingOctree.h"

/// Makes an octree from a stored image. The first word of the image names the class of the octree.
/// Allocates nothing: the octree is a member, and a view of the image in place. The image is only
/// read.
class GRIDLOOM_API PLMIdxOctreeLoader {
public:
    /// Loads the image.
    /// @param iBuffer  its first byte, not null; any alignment. The image stays the caller's and
    ///                 must outlive the loader.
    explicit PLMIdxOctreeLoader(void* iBuffer);

    PLMIdxOctreeLoader(const PLMIdxOctreeLoader&) = delete;
    PLMIdxOctreeLoader& operator=(const PLMIdxOctreeLoader&) = delete;

    ~PLMIdxOctreeLoader();

    /// The octree, owned by the loader. Null when the image has an unknown type or version, or the
    /// type of the working octree, which has no stored image.
    PLMIdxIBaseOctree* GetOctree() const;

private:
    PLMIdxIBaseOctree* _octree;  ///< one of the two below, or null
    PLMIdxWorkingOctree _workingOctree;
    PLMIdxOptimOctree_0 _optimOctree;
};

#endif
