#include "PartBuild.h"

#include "TraceOutput.h"

#include "PLMIdxOctreeBuilder.h"

#include "formats/OctreeImage.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace {

/// A box of coordinates up to this one, made a cube with its margin, stays within a float.
constexpr float kLargestCoordinate = 1e38f;

/// The library says in one way only that it couldn't tell inside from outside:
/// PLMIdxOctreeBuilder::End() documents this tag.
constexpr const char* kFillFailedTag = "PLMIdxOctreeBuilder.DrawGeometry.PLMIdxOctreeFiller.Fill";

/// A builder that notes what became of each triangle, and lets its octree be looked at: unlike the
/// packed one, it tells the cells that triangles touch from those that the fill made full.
class NotingBuilder final : public PLMIdxOctreeBuilder {
public:
    const PLMIdxIBaseOctree& Drawn() const { return _workingOctree; }

    /// Triangles that touched no cell of the octree as it was packed.
    unsigned int CountOutside() const { return _nOutside; }

    /// Whether the mesh was drawn again, less deep, because its cells didn't fit into the memory.
    bool WasDrawnAgain() const { return _wasDrawnAgain; }

    /// Called for each triangle of a mesh. The mesh is drawn again from its first triangle on after
    /// a failure, at one level less.
    long int DrawTriangle(
        const IDX_Point& iP1, const IDX_Point& iP2, const IDX_Point& iP3) override {
        const long int status = PLMIdxOctreeBuilder::DrawTriangle(iP1, iP2, iP3);
        if (status == IDX_S_NOTHING_DONE) ++_nOutside;
        if (IDX_Failed(status)) {
            _wasDrawnAgain = true;
            _nOutside = 0;
        }
        return status;
    }

private:
    unsigned int _nOutside = 0;
    bool _wasDrawnAgain = false;
};

/// Refuses coordinates that the library can't take.
Status CheckCoordinates(const MeshPart& iPart) {
    float largest = 0.0f;
    for (const IDX_Point& point : iPart.points) {
        for (const float coordinate : {point.x, point.y, point.z}) {
            largest = std::max(largest, std::fabs(coordinate));
        }
    }
    if (largest <= kLargestCoordinate) return {};
    char text[96];
    std::snprintf(
        text, sizeof text, "coordinates reach %.3g: the extents would overflow a 32-bit float",
        static_cast<double>(largest));
    return Status::PartFailed(text);
}

/// Gets the octree and its figures from a builder that has built.
void GetResult(const std::shared_ptr<NotingBuilder>& ioBuilder, BuiltPart& oBuilt) {
    const PLMIdxIBaseOctree& octree = ioBuilder->GetOctree();
    PartFacts& facts = oBuilt.facts;
    oBuilt.image.reset(ioBuilder->GetOctreeStream(facts.imageSize));
    oBuilt.octree = {ioBuilder, &ioBuilder->Drawn()};  // keeps the whole builder
    facts.depth = octree._depth;
    std::copy_n(ioBuilder->GetNCellsByDepth(), facts.depth + 1, facts.cellsByLevel.begin());
    if (facts.depth == 0) return;
    facts.nSolid = OctreeImage(oBuilt.image.get()).CountOccupied();
    facts.nInside = facts.nSolid - static_cast<std::uint64_t>(facts.cellsByLevel[facts.depth]);
}

/// The box of all points, of which there is at least one.
IDX_Base_BoundingBox BoxOf(const std::vector<IDX_Point>& iPoints) {
    IDX_Base_BoundingBox box(iPoints.front(), iPoints.front());
    for (const IDX_Point& point : iPoints) box.Union({point, point});
    return box;
}

}  // namespace

/// Each build has a builder of its own: one that made a small and far octree can't make another.
Status BuildPart(const MeshPart& iPart, const BuildParameters& iParameters, BuiltPart& oBuilt) {
    oBuilt = {};
    if (iPart.triangles.empty()) return Status::PartFailed("has no triangle that can be drawn");
    Status status = CheckCoordinates(iPart);
    if (status.Failed()) return status;

    const TagWatch fillFailure(kFillFailedTag);
    const auto start = std::chrono::steady_clock::now();
    const auto builder = std::make_shared<NotingBuilder>();
    builder->SetParameters(iParameters.depth, iParameters.cellSize, IDX_False);
    const long int built = builder->DrawGeometry(
        iPart.points.data(), static_cast<unsigned int>(iPart.points.size()), iPart.triangles.data(),
        static_cast<unsigned int>(iPart.triangles.size()));
    if (IDX_Failed(built)) {
        return Status::PartFailed("no octree could be built (" + LatestTag() + ")");
    }
    GetResult(builder, oBuilt);
    const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
    oBuilt.facts.milliseconds = time.count();
    oBuilt.facts.box = BoxOf(iPart.points);
    oBuilt.facts.nTriangles = static_cast<std::uint32_t>(iPart.triangles.size());
    oBuilt.facts.nSkipped = iPart.nSkipped + builder->CountOutside();
    oBuilt.isLessDeep = builder->WasDrawnAgain();
    oBuilt.isSurfaceAlone = fillFailure.IsSeen();
    return {};
}
