#ifndef PartBuild_h
#define PartBuild_h

#include "Mesh.h"

#include "IDX_Base_BoundingBox.h"
#include "PLMIdxIBaseOctree.h"

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>

constexpr int kShallowest = 2;  ///< levels below the root that may be asked for, at least
constexpr int kDeepest = 19;    ///< and at most

/// How deep an octree may go and how fine its cells may get.
struct BuildParameters {
    int depth = 7;          ///< levels below the root at most
    float cellSize = 0.0f;  ///< stop halving at cells of this side, model units; 0: `depth` alone
};

/// What is told of a part and its octree. It travels between processes as it stands.
struct PartFacts {
    IDX_Base_BoundingBox box;      ///< of all points of the triangles
    std::uint32_t nTriangles = 0;  ///< of the mesh
    std::uint32_t imageSize = 0;   ///< bytes of the stored octree
    std::uint32_t depth = 0;       ///< levels below the root
    std::array<int, kDeepest + 1> cellsByLevel =
        {};                      ///< non-empty cells as drawn, level 0 to `depth`
    std::uint64_t nSolid = 0;    ///< occupied cells of the last level: surface and inside
    std::uint64_t nInside = 0;   ///< those that no triangle touches
    std::uint64_t nSkipped = 0;  ///< faces and triangles that couldn't be drawn or touched no cell
    double milliseconds = 0.0;   ///< drawing, filling and packing
};
static_assert(std::is_trivially_copyable_v<PartFacts>);

/// The octree of one part, and what is told of it.
struct BuiltPart {
    PartFacts facts;
    std::unique_ptr<const unsigned char[]> image;     ///< the stored octree; null after a failure
    std::shared_ptr<const PLMIdxIBaseOctree> octree;  ///< as drawn and filled, before it was packed
    std::string note;     ///< what fell short of the parameters; mostly empty
    std::string failure;  ///< why there is no octree; empty when there is one
};

/// Builds the octree of a part. The image depends on the part and the parameters alone, not on what
/// was built before. One build at a time: it listens to the library's trace.
BuiltPart BuildPart(const MeshPart& iPart, const BuildParameters& iParameters);

#endif
