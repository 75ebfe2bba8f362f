#include "PLMIdxOctreeLoader.h"

#include "CompactOctreeRecords.h"

/// A working octree is never stored: its Load() always fails, and traces that.
PLMIdxOctreeLoader::PLMIdxOctreeLoader(void* iBuffer) : _octree(nullptr) {
    const auto* image = static_cast<const unsigned char*>(iBuffer);
    switch (LoadAt<unsigned int>(image, offsetof(OctreeHeader, type))) {
        case IDX_WORKING_OCTREE:
            if (_workingOctree.Load(iBuffer) == IDX_S_OK) _octree = &_workingOctree;
            break;
        case IDX_OPTIM_OCTREE_0:
            if (_optimOctree.Load(iBuffer) == IDX_S_OK) _octree = &_optimOctree;
            break;
        default:
            break;
    }
}

PLMIdxOctreeLoader::~PLMIdxOctreeLoader() {
    _octree = nullptr;
}

PLMIdxIBaseOctree* PLMIdxOctreeLoader::GetOctree() const {
    return _octree;
}
