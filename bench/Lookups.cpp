// Point look-ups in a stored image: millions a second of processor time, on the torus knot with 2^8
// and 2^10 cells a side.
//   box   random cells of the box
//   near  random cells within two cells of the surface
//   line  cells one after the other along rows
// All contestants hold the same cells and are asked for the same ones.

#include "Cells.h"
#include "RunProgram.h"
#include "TableReporter.h"

#ifdef BENCH_OPENVDB
#include "OpenVdbPeer.h"
#endif
#ifdef BENCH_OCTOMAP
#include "OctoMapPeer.h"
#endif

#include "Mesh.h"

#include "PLMIdxOctreeBuilder.h"
#include "PLMIdxOptimOctree_0.h"

#include "formats/OctreeImage.h"

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>

namespace {

constexpr size_t kCells = 1 << 16;

using Cells = std::vector<Cell>;
using Random = std::mt19937_64;

/// A number below `iLimit`, the same with every standard library.
uint32_t Below(Random& ioRandom, uint32_t iLimit) {
    return static_cast<uint32_t>((ioRandom() >> 32) * iLimit >> 32);
}

Cells CellsInBox(Random& ioRandom, uint32_t iSide) {
    Cells cells(kCells);
    for (Cell& c : cells) {
        c = {Below(ioRandom, iSide), Below(ioRandom, iSide), Below(ioRandom, iSide)};
    }
    return cells;
}

/// Cells up to two away, along each axis, from that of a random vertex.
Cells CellsNearSurface(Random& ioRandom, const Mesh& iMesh, const GridBox& iBox, uint32_t iSide) {
    const auto coordinate = [&](float iValue, float iOrigin, float iSize) {
        const int cell = static_cast<int>((iValue - iOrigin) / iSize * static_cast<float>(iSide));
        const int moved = cell - 2 + static_cast<int>(Below(ioRandom, 5));
        return static_cast<uint32_t>(std::clamp(moved, 0, static_cast<int>(iSide) - 1));
    };
    Cells cells(kCells);
    for (Cell& c : cells) {
        const IDX_Point& p =
            iMesh.points[Below(ioRandom, static_cast<uint32_t>(iMesh.points.size()))];
        c.x = coordinate(p.x, iBox.origin.x, iBox.size.x);
        c.y = coordinate(p.y, iBox.origin.y, iBox.size.y);
        c.z = coordinate(p.z, iBox.origin.z, iBox.size.z);
    }
    return cells;
}

Cells CellsAlongRows(Random& ioRandom, uint32_t iSide) {
    Cells cells;
    while (cells.size() < kCells) {
        const uint32_t y = Below(ioRandom, iSide);
        const uint32_t z = Below(ioRandom, iSide);
        for (uint32_t x = 0; x < iSide; x++) cells.push_back({x, y, z});
    }
    return cells;
}

/// The stored image of a mesh and everything that is asked about it.
struct Subject {
    std::string name;
    std::unique_ptr<const unsigned char[]> bytes;
    size_t size = 0;
    std::map<std::string, Cells> cells;  ///< by kind
    PLMIdxOptimOctree_0 octree;          ///< on the image
#ifdef BENCH_OPENVDB
    std::unique_ptr<OpenVdbMask> mask;
#endif
#ifdef BENCH_OCTOMAP
    std::unique_ptr<OctoMapTree> tree;
#endif
};

std::unique_ptr<Subject> MakeSubject(const Mesh& iMesh, unsigned int iDepth) {
    auto subject = std::make_unique<Subject>();
    subject->name = "knot 2^" + std::to_string(iDepth);
    PLMIdxOctreeBuilder builder;
    builder.SetParameters(static_cast<int>(iDepth), 0.0f, IDX_False);
    const long int status = builder.DrawGeometry(
        iMesh.points.data(), static_cast<unsigned int>(iMesh.points.size()), iMesh.triangles.data(),
        static_cast<unsigned int>(iMesh.triangles.size()));
    if (status != IDX_S_OK) throw std::runtime_error("DrawGeometry failed");
    unsigned int size = 0;
    subject->bytes.reset(builder.GetOctreeStream(size));
    subject->size = size;
    (void)subject->octree.Load(
        const_cast<unsigned char*>(subject->bytes.get()));  // an image of ours

    const uint32_t side = 1u << iDepth;
    Random random(20240601);
    subject->cells["box"] = CellsInBox(random, side);
    subject->cells["near"] = CellsNearSurface(random, iMesh, CubeAround(iMesh, iDepth), side);
    subject->cells["line"] = CellsAlongRows(random, side);
    [[maybe_unused]] const OctreeImage image(subject->bytes.get());
#ifdef BENCH_OPENVDB
    subject->mask = std::make_unique<OpenVdbMask>(image);
#endif
#ifdef BENCH_OCTOMAP
    subject->tree = std::make_unique<OctoMapTree>(image);
#endif
    return subject;
}

/// The octree as anybody walks it, through the virtual operations of its base class.
bool IsOccupied(const PLMIdxIBaseOctree& iOctree, const Cell& iCell) {
    IDX_Base_Octree_Iterator iterator;
    for (unsigned int level = iOctree._depth; level-- > 0;) {
        const unsigned int child = ChildOf(iCell, level);
        const IDX_Base_Octree_TestResult state = iOctree.Test(iterator, child);
        if (state != OCTREE_PARTIAL) return state == OCTREE_FULL;
        (void)iOctree.Move(iterator, child);  // a partial child can be entered
    }
    return false;
}

template <class IsOccupiedCell>
size_t Count(const Cells& iCells, const IsOccupiedCell& iIsOccupied) {
    size_t count = 0;
    for (const Cell& cell : iCells) count += iIsOccupied(cell) ? 1 : 0;
    return count;
}

using Counter = std::function<size_t(const Cells&)>;

/// Every contestant must find the same cells occupied as the plain walk.
void Register(
    TableReporter& ioReporter,
    const Subject& iSubject,
    const std::string& iColumn,
    const Counter& iCount) {
    const OctreeImage image(iSubject.bytes.get());
    for (const char* kind : {"box", "near", "line"}) {
        const Cells& cells = iSubject.cells.at(kind);
        const size_t expected = Count(cells, [&image](const Cell& iCell) {
            return image.IsOccupied(iCell.x, iCell.y, iCell.z);
        });
        const auto run = [iColumn, iCount, &cells, expected](benchmark::State& ioState) {
            size_t found = 0;
            for (auto _ : ioState) benchmark::DoNotOptimize(found = iCount(cells));
            if (found != expected) ioState.SkipWithError("other cells than the plain walk");
            const double lookups =
                static_cast<double>(ioState.iterations()) * static_cast<double>(cells.size());
            ioState.counters[iColumn] =
                benchmark::Counter(lookups / 1e6, benchmark::Counter::kIsRate);
        };
        const std::string row = iSubject.name + " " + kind;
        ioReporter.Announce(row, {iColumn});
        benchmark::RegisterBenchmark((row + "/" + iColumn).c_str(), run)->MinTime(0.2);
    }
}

void RegisterAll(TableReporter& ioReporter, const Subject& iSubject) {
    const OctreeImage image(iSubject.bytes.get());
    Register(ioReporter, iSubject, "plain walk", [image](const Cells& iCells) {
        return Count(iCells, [&image](const Cell& iCell) {
            return image.IsOccupied(iCell.x, iCell.y, iCell.z);
        });
    });
    Register(ioReporter, iSubject, "Test and Move", [&iSubject](const Cells& iCells) {
        return Count(iCells, [&](const Cell& iCell) { return IsOccupied(iSubject.octree, iCell); });
    });
#ifdef BENCH_OPENVDB
    Register(ioReporter, iSubject, "OpenVDB", [&iSubject](const Cells& iCells) {
        return iSubject.mask->CountOccupied(iCells);
    });
#endif
#ifdef BENCH_OCTOMAP
    Register(ioReporter, iSubject, "OctoMap", [&iSubject](const Cells& iCells) {
        return iSubject.tree->CountOccupied(iCells);
    });
#endif
}

void Main() {
    const Mesh knot = MakeMesh(FindWorkloads({}).front());
    const std::unique_ptr<Subject> subjects[] = {MakeSubject(knot, 8), MakeSubject(knot, 10)};
    TableReporter reporter(
        "million look-ups a second",
        {
            {"Test and Move / plain walk", "Test and Move", "plain walk"},
            {"Test and Move / OctoMap",    "Test and Move", "OctoMap"   },
            {"plain walk / OpenVDB",       "plain walk",    "OpenVDB"   }
    });
    for (const auto& subject : subjects) RegisterAll(reporter, *subject);
    benchmark::RunSpecifiedBenchmarks(&reporter);
}

}  // namespace

int main(int iCount, char** iArguments) {
    return RunProgram("bench_lookups", Main, iCount, iArguments);
}
