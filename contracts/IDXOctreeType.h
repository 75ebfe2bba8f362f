#ifndef IDXOctreeType_h
#define IDXOctreeType_h

/// The concrete form of an octree: the first word of a stored one.
enum IDXOctreeType : unsigned int {
    IDX_WORKING_OCTREE = 0,  ///< PLMIdxWorkingOctree
    IDX_OPTIM_OCTREE_0 = 2   ///< PLMIdxOptimOctree_0
};

#endif
