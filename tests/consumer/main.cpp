#include "PLMIdxOctreeBuilder.h"

#include "formats/OctreeImage.h"

#include <cstdio>
#include <memory>

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
    const OctreeImage octree(image.get());
    unsigned long solid = 0;
    octree.ForEachOccupied(
        [&](const OctreeCell& cell) { solid += 1UL << 3 * (octree.Depth() - cell.level); });
    std::printf("%u bytes, depth %u, %lu occupied cells\n", size, octree.Depth(), solid);
    return 0;
}
