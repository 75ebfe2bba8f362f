#ifndef PartBuild_h
#define PartBuild_h

#include "Mesh.h"

#include "PLMIdxIBaseOctree.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// How deep an octree may go and how fine its cells may get.
struct BuildParameters {
    int depth = 7;          ///< levels below the root at most, 2 to 19
    float cellSize = 0.0f;  ///< stop halving at cells of this side, model units; 0: `depth` alone
};

/// The octree of one part, and what is told of it.
struct BuiltPart {
    std::unique_ptr<const unsigned char[]> image;     ///< the stored octree; null after a failure
    unsigned int imageSize = 0;                       ///< bytes of `image`
    std::shared_ptr<const PLMIdxIBaseOctree> octree;  ///< as drawn and filled, before it was packed
    unsigned int depth = 0;                           ///< levels below the root
    std::vector<int> cellsByLevel;  ///< non-empty cells as drawn, level 0 to `depth`
    std::uint64_t nSolid = 0;       ///< occupied cells of the last level: surface and inside
    std::uint64_t nInside = 0;      ///< those that no triangle touches
    std::uint64_t nSkipped = 0;     ///< triangles that touched no cell
    double milliseconds = 0.0;      ///< drawing, filling and packing
    std::string note;               ///< what fell short of the parameters; mostly empty
    std::string failure;            ///< why there is no octree; empty when there is one
};

/// Builds the octree of a part. The image depends on the part and the parameters alone, not on what
/// was built before. One build at a time: it listens to the library's trace.
BuiltPart BuildPart(const MeshPart& iPart, const BuildParameters& iParameters);

#endif
