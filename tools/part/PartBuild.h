#ifndef PartBuild_h
#define PartBuild_h

#include "Mesh.h"
#include "Status.h"

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

/// Figures of a part and its octree. They travel between processes as they lie in memory.
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

/// The octree of one part, and its figures.
struct BuiltPart {
    PartFacts facts;
    std::unique_ptr<const unsigned char[]> image;     ///< the stored octree
    std::shared_ptr<const PLMIdxIBaseOctree> octree;  ///< as drawn and filled, before it was packed
    bool isLessDeep = false;      ///< than asked for: the cells didn't fit into the octree's memory
    bool isSurfaceAlone = false;  ///< the cells were too many to tell inside from outside
};

/// Builds the octree of a part. The image depends on the part and the parameters alone, not on what
/// was built before. One build at a time, after RouteTraceToConsole(): it watches the library's
/// trace.
Status BuildPart(const MeshPart& iPart, const BuildParameters& iParameters, BuiltPart& oBuilt);

#endif
