// Mesh to solid voxels, by phase: milliseconds of processor time for drawing, filling and
// packing, for Gridloom and for the plain program, on the workloads of Mesh.cpp with 2^6, 2^8 and 2^10
// cells a side. Every iteration starts with fresh memory, as a first build does.
//
// The mesh files are looked for in $GRIDLOOM_MESHES. Takes the options of Google Benchmark.

#include "PlainVoxelizer.h"
#include "RunProgram.h"
#include "TableReporter.h"

#include "PLMIdxOctreeBuilder.h"

#include <cstdlib>
#include <ctime>
#include <map>
#include <stdexcept>

namespace {

/// Processor time since the last call, in seconds.
class Lap {
public:
    double operator()() {
        const double now = Now();
        const double passed = now - _last;
        _last = now;
        return passed;
    }

private:
    static double Now() {
        timespec now{};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
        return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
    }

    double _last = Now();
};

/// Seconds of each phase.
struct PhaseTimes {
    double draw = 0.0;
    double fill = 0.0;
    double pack = 0.0;
};

/// Opens the protected part of a builder: the class of the object stays the builder's
/// own, so that it draws by the same road as in DrawGeometry.
struct BuilderAccess : PLMIdxOctreeBuilder {
    static PLMIdxWTWorkingOctree& WorkingOctree(PLMIdxOctreeBuilder& ioBuilder) {
        return ioBuilder.*&BuilderAccess::_workingOctree;
    }
    static long int Draw(PLMIdxOctreeBuilder& ioBuilder, const Mesh& iMesh) {
        ioBuilder.*& BuilderAccess::_nDrawnTriangles = 1;  // so that End takes the octree as drawn
        return (ioBuilder.*&BuilderAccess::DrawTriangles)(
            iMesh.points.data(), static_cast<unsigned int>(iMesh.points.size()),
            iMesh.triangles.data(), static_cast<unsigned int>(iMesh.triangles.size()));
    }
};

/// End fills and packs in one; the same packing once more, into a new octree, is taken off from it.
PhaseTimes RunGridloom(const Mesh& iMesh, unsigned int iDepth) {
    PhaseTimes times;
    PLMIdxOctreeBuilder builder;
    builder.SetParameters(static_cast<int>(iDepth), 0.0f, IDX_False);
    const GridBox box = CubeAround(iMesh, iDepth);
    PLMIdxWTWorkingOctree& octree = BuilderAccess::WorkingOctree(builder);
    octree.SetDepth(static_cast<int>(iDepth));
    octree.SetBB(box.origin, box.size);

    Lap lap;
    const bool drawn = BuilderAccess::Draw(builder, iMesh) == IDX_S_OK;
    times.draw = lap();
    const bool ended = drawn && builder.End() == IDX_S_OK;
    const double fillAndPack = lap();
    PLMIdxWTOptimOctree_0 again;
    const bool packed = ended && again.ConstructFrom(octree) == IDX_S_OK;
    times.pack = lap();
    times.fill = fillAndPack - times.pack;
    if (!packed) throw std::runtime_error("a phase failed");
    return times;
}

PhaseTimes RunPlain(const Mesh& iMesh, unsigned int iDepth) {
    PhaseTimes times;
    Lap lap;
    PlainVoxelizer voxelizer(CubeAround(iMesh, iDepth), iDepth);
    voxelizer.Draw(iMesh);
    times.draw = lap();
    voxelizer.Flood();
    times.fill = lap();
    benchmark::DoNotOptimize(voxelizer.Pack());
    times.pack = lap();
    return times;
}

using Runner = PhaseTimes (*)(const Mesh&, unsigned int);

void Register(
    TableReporter& ioReporter,
    const std::string& iRow,
    const std::string& iName,
    Runner iRunner,
    const Mesh& iMesh,
    unsigned int iDepth) {
    const auto run = [iName, iRunner, &iMesh, iDepth](benchmark::State& ioState) {
        for (auto _ : ioState) {
            const PhaseTimes times = iRunner(iMesh, iDepth);
            ioState.SetIterationTime(times.draw + times.fill + times.pack);
            ioState.counters[iName + " draw"] = 1e3 * times.draw;
            ioState.counters[iName + " fill"] = 1e3 * times.fill;
            ioState.counters[iName + " pack"] = 1e3 * times.pack;
        }
    };
    ioReporter.Announce(iRow, {iName + " draw", iName + " fill", iName + " pack"});
    benchmark::RegisterBenchmark((iRow + "/" + iName).c_str(), run)->UseManualTime()->Iterations(1);
}

void Main() {
    TableReporter reporter(
        "ms", {
                  {"draw, of plain's", "Gridloom draw", "plain draw"},
                  {"fill, of plain's", "Gridloom fill", "plain fill"},
                  {"pack, of plain's", "Gridloom pack", "plain pack"}
    });
    const char* const folder = std::getenv("GRIDLOOM_MESHES");
    std::map<std::string, Mesh> meshes;
    for (const Workload& workload : FindWorkloads(folder ? folder : "")) {
        const Mesh& mesh = meshes[workload.name] = MakeMesh(workload);
        for (const unsigned int depth : {6u, 8u, 10u}) {
            const std::string row = workload.name + " 2^" + std::to_string(depth);
            Register(reporter, row, "Gridloom", RunGridloom, mesh, depth);
            Register(reporter, row, "plain", RunPlain, mesh, depth);
        }
    }
    benchmark::RunSpecifiedBenchmarks(&reporter);
}

}  // namespace

int main(int iCount, char** iArguments) {
    return RunProgram("bench_phases", Main, iCount, iArguments);
}
