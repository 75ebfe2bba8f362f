#include "PartBuild.h"

#include "TraceOutput.h"

#include "IDX_Base_Trace.h"
#include "PLMIdxOctreeBuilder.h"

#include "formats/OctreeImage.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace {

/// A box of coordinates up to this one, made a cube with its margin, stays within a float.
constexpr float kLargestCoordinate = 1e38f;

/// A builder that lets its octree be looked at: unlike the packed one, it tells the cells that triangles
/// touch from those that the fill made full.
class OpenBuilder final : public PLMIdxOctreeBuilder {
public:
    const PLMIdxIBaseOctree& Drawn() const { return _workingOctree; }
};

/// Listens to the library's trace while it lives.
class TraceListener {
public:
    TraceListener() { IDX_Base_Trace::SetSink(&TraceListener::Take, this); }
    TraceListener(const TraceListener&) = delete;
    TraceListener& operator=(const TraceListener&) = delete;
    ~TraceListener() { IDX_Base_Trace::SetSink(nullptr, nullptr); }

    /// Triangles of the last drawing that touched no cell.
    unsigned int nOutside = 0;
    bool fillFailed = false;
    bool arenaFull = false;
    std::string lastTag;  ///< the outermost failure

private:
    static void Take(IDX_Base_Trace::Level, const char* iLine, void* iListener) {
        if (IsTraceShown()) std::fprintf(stderr, "%s\n", iLine);
        static_cast<TraceListener*>(iListener)->TakeLine(iLine);
    }

    void TakeLine(const char* iLine) {
        constexpr const char* kOutside =
            "PLMIdxOctreeBuilder.DrawTriangles - %u / %*u triangles outside";
        if (std::sscanf(iLine, kOutside, &nOutside) == 1) return;
        lastTag = iLine;
        if (lastTag.ends_with("PLMIdxOctreeFiller.Fill")) fillFailed = true;
        if (lastTag.find("_Alloc.") != std::string::npos) arenaFull = true;
    }
};

/// Why the library can't take these coordinates; empty when it can.
std::string FindBadCoordinate(const MeshPart& iPart) {
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
    return text;
}

/// Takes the octree and the figures out of a builder that has built.
void TakeResult(const std::shared_ptr<OpenBuilder>& ioBuilder, BuiltPart& oBuilt) {
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

std::string DescribeShortfall(const TraceListener& iTrace) {
    std::string note;
    if (iTrace.arenaFull) note = "less deep than asked for: its cells don't fit into the memory";
    if (iTrace.fillFailed) {
        note += note.empty() ? "" : "; ";
        note += "the surface alone: the cells are too many to tell inside from outside";
    }
    return note;
}

}  // namespace

BuiltPart BuildPart(const MeshPart& iPart, const BuildParameters& iParameters) {
    BuiltPart built;
    built.facts.nTriangles = static_cast<std::uint32_t>(iPart.triangles.size());
    built.facts.nSkipped = iPart.nSkipped;
    built.failure =
        iPart.triangles.empty() ? "has no triangle that can be drawn" : FindBadCoordinate(iPart);
    if (!built.failure.empty()) return built;

    TraceListener trace;
    const auto start = std::chrono::steady_clock::now();
    const auto builder = std::make_shared<OpenBuilder>();
    builder->SetParameters(iParameters.depth, iParameters.cellSize, IDX_False);
    const long int status = builder->DrawGeometry(
        iPart.points.data(), static_cast<unsigned int>(iPart.points.size()), iPart.triangles.data(),
        static_cast<unsigned int>(iPart.triangles.size()));
    if (IDX_Failed(status)) {
        built.failure = "no octree could be built (" + trace.lastTag + ")";
        return built;
    }
    TakeResult(builder, built);
    const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
    built.facts.milliseconds = time.count();
    built.facts.box = BoxOf(iPart.points);
    built.facts.nSkipped += trace.nOutside;
    built.note = DescribeShortfall(trace);
    return built;
}
