#include "Images.h"

namespace {

struct Cube {
    std::size_t x, y, z, width;
};

void Mark(std::vector<bool>& solid, std::size_t side, const Cube& cube) {
    for (std::size_t z = cube.z; z < cube.z + cube.width; ++z)
        for (std::size_t y = cube.y; y < cube.y + cube.width; ++y)
            for (std::size_t x = cube.x; x < cube.x + cube.width; ++x)
                solid[x + side * (y + side * z)] = true;
}

void Collect(
    const PLMIdxIBaseOctree& octree,
    IDX_Base_Octree_Iterator iterator,
    const Cube& cell,
    std::vector<bool>& solid) {
    const std::size_t half = cell.width / 2;
    for (unsigned int c = 0; c < 8; ++c) {
        const Cube child = {
            cell.x + (c & 1) * half, cell.y + (c >> 1 & 1) * half, cell.z + (c >> 2) * half, half};
        const IDX_Base_Octree_TestResult state = octree.Test(iterator, c);
        if (state == OCTREE_FULL || state == OCTREE_SURFACE)
            Mark(solid, std::size_t{1} << octree._depth, child);
        if (state != OCTREE_PARTIAL) continue;
        IDX_Base_Octree_Iterator below = iterator;
        if (octree.Move(below, c) == IDX_S_OK) Collect(octree, below, child, solid);
    }
}

}  // namespace

std::vector<bool> SolidCells(const PLMIdxIBaseOctree& octree) {
    const std::size_t side = std::size_t{1} << octree._depth;
    std::vector<bool> solid(side * side * side);
    if (octree._depth > 0) Collect(octree, {}, {0, 0, 0, side}, solid);
    return solid;
}
