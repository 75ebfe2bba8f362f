#ifndef Images_h
#define Images_h

#include "Meshes.h"

#include "PLMIdxIBaseOctree.h"
#include "PLMIdxOctreeBuilder.h"

#include <memory>
#include <vector>

using Bytes = std::vector<unsigned char>;

/// The stored image that the builder hands out.
inline Bytes ImageOf(PLMIdxOctreeBuilder& builder) {
    unsigned int size = 0;
    const std::unique_ptr<const unsigned char[]> block(builder.GetOctreeStream(size));
    return Bytes(block.get(), block.get() + size);
}

inline Bytes ImageOf(const PLMIdxWTOptimOctree_0& octree) {
    unsigned int size = 0;
    const std::unique_ptr<const unsigned char[]> block(octree.GetOctreeBuffer(size));
    return Bytes(block.get(), block.get() + size);
}

/// The records of an image, after its header.
inline Bytes RecordsOf(const Bytes& image) {
    return Bytes(image.begin() + 132, image.end());
}

inline long int Draw(PLMIdxOctreeBuilder& builder, const Mesh& mesh) {
    return builder.DrawGeometry(
        mesh.points.data(), static_cast<unsigned int>(mesh.points.size()), mesh.triangles.data(),
        static_cast<unsigned int>(mesh.triangles.size()));
}

/// The solid cells of the last level, X first: entry x + side * (y + side * z).
std::vector<bool> SolidCells(const PLMIdxIBaseOctree& octree);

#endif
