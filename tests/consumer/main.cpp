#include "PLMIdxOctreeBuilder.h"

#include <cstdio>
#include <memory>

// Number of occupied cells of the last level below a position.
static long CountCells(const PLMIdxIBaseOctree& octree, IDX_Base_Octree_Iterator parent) {
    long cells = 0;
    for (unsigned int child = 0; child < 8; ++child) {
        const IDX_Base_Octree_TestResult state = octree.Test(parent, child);
        if (state == OCTREE_FULL) cells += 1L << (3 * (octree._depth - parent.depth - 1));
        if (state != OCTREE_PARTIAL) continue;
        IDX_Base_Octree_Iterator position = parent;
        octree.Move(position, child);
        cells += CountCells(octree, position);
    }
    return cells;
}

int main() {
    // A corner cut from a cube: four points, four triangles.
    const IDX_Point points[] = {
        {0, 0, 0},
        {1, 0, 0},
        {0, 1, 0},
        {0, 0, 1}
    };
    const IDX_Triangle triangles[] = {{{0, 1, 2}}, {{0, 1, 3}}, {{0, 2, 3}}, {{1, 2, 3}}};

    PLMIdxOctreeBuilder builder;
    builder.SetParameters(6, 0.0f, IDX_False);  // 2^6 cells along each axis
    if (IDX_Failed(builder.DrawGeometry(points, 4, triangles, 4))) return 1;

    // The image is what goes into a file.
    unsigned int size = 0;
    const std::unique_ptr<unsigned char[]> image(builder.GetOctree().GetOctreeBuffer(size));

    // A reader is a view on the image: nothing is parsed or copied.
    PLMIdxOptimOctree_0 octree;
    if (IDX_Failed(octree.Load(image.get()))) return 1;
    const long cells = CountCells(octree, IDX_Base_Octree_Iterator());
    std::printf("%u bytes, depth %u, %ld occupied cells\n", size, octree._depth, cells);
    return 0;
}
