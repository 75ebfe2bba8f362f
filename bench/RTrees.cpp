// R-trees of boxes: thousand insertions a second, then microseconds and nodes for a window query.
//   uniform    small boxes anywhere in the unit cube
//   clustered  in 100 clusters
//   curve      along a curve that fills the cube, one after the other
// 10^5 and 10^6 boxes, nodes of M entries, at least 30 % of them on each side of a split. The slow peers are measured
// at 10^5 and M = 16 alone. All find the same boxes.

#include "BoxIndexes.h"
#include "RunProgram.h"
#include "TableReporter.h"

#include <cmath>
#include <iostream>
#include <map>
#include <random>
#include <stdexcept>

namespace {

using Box = IDX_Base_BoundingBox;
using Boxes = std::vector<Box>;
using Random = std::mt19937_64;

constexpr std::size_t kWindows = 2000;
constexpr float kEdge = 0.01f;    ///< of a box, at most
constexpr float kWindow = 0.05f;  ///< edge of a window at 10^5 boxes

/// From 0 to 1, the same with every standard library.
float Unit(Random& ioRandom) {
    return static_cast<float>(ioRandom() >> 40) * 0x1p-24f;
}

Box BoxAt(Random& ioRandom, const IDX_Point& iLow, float iEdge) {
    const auto edge = [&] { return Unit(ioRandom) * iEdge; };
    const float x = edge();
    const float y = edge();
    const float z = edge();
    return {
        iLow, {iLow.x + x, iLow.y + y, iLow.z + z}
    };
}

IDX_Point PointAnywhere(Random& ioRandom) {
    const float x = Unit(ioRandom);
    const float y = Unit(ioRandom);
    return {x, y, Unit(ioRandom)};
}

/// A point of the curve, `iAt` from 0 to 1.
IDX_Point PointOfCurve(float iAt) {
    const float turn = iAt * 6.2831853f;
    return {
        0.5f + 0.5f * std::sin(3.0f * turn), 0.5f + 0.5f * std::sin(5.0f * turn + 1.0f),
        0.5f + 0.5f * std::sin(7.0f * turn + 2.0f)};
}

/// Boxes, and windows where boxes are.
struct BoxSet {
    std::string name;
    Boxes boxes;
    Boxes windows;
};

BoxSet MakeBoxSet(const std::string& iName, std::size_t iCount) {
    Random random(20240601);
    std::vector<IDX_Point> centres(100);
    for (IDX_Point& centre : centres) centre = PointAnywhere(random);
    // The windows hold the same number of boxes, whatever there are.
    const float scale = std::cbrt(1e5f / static_cast<float>(iCount));
    BoxSet set;
    set.name = iName + (iCount == 100000 ? " 10^5" : " 10^6");
    for (std::size_t i = 0; i < iCount; ++i) {
        IDX_Point low = PointAnywhere(random);
        if (iName == "clustered") {
            const IDX_Point& centre = centres[i * 7919 % centres.size()];
            low = {
                centre.x + 0.05f * low.x * low.x, centre.y + 0.05f * low.y * low.y,
                centre.z + 0.05f * low.z * low.z};
        } else if (iName == "curve") {
            const IDX_Point on = PointOfCurve(static_cast<float>(i) / static_cast<float>(iCount));
            low = {on.x + 0.01f * low.x, on.y + 0.01f * low.y, on.z + 0.01f * low.z};
        }
        set.boxes.push_back(BoxAt(random, low, kEdge * scale));
    }
    const float edge = kWindow * scale * (iName == "uniform" ? 1.0f : 0.4f);
    for (std::size_t i = 0; i < kWindows; ++i) {
        const IDX_Point low = set.boxes[random() % iCount].GetLow();
        set.windows.push_back(Box(low, {low.x + edge, low.y + edge, low.z + edge}));
    }
    return set;
}

std::unique_ptr<BoxIndex> Build(
    const BoxIndexKind& iKind, const BoxSet& iSet, unsigned int iFanOut) {
    std::unique_ptr<BoxIndex> index = iKind.make(iFanOut * 3 / 10, iFanOut);
    std::uint32_t value = 0;
    for (const Box& box : iSet.boxes) index->Insert(box, value++);
    return index;
}

std::string RowOf(const BoxSet& iSet, unsigned int iFanOut) {
    return iSet.name + " M=" + std::to_string(iFanOut);
}

/// Calls `iRegister` with every kind of index that takes part, set by set.
template <class Register>
void ForAll(const std::vector<BoxSet>& iSets, const Register& iRegister) {
    for (const BoxSet& set : iSets) {
        for (const unsigned int fanOut : {8u, 16u, 32u}) {
            for (const BoxIndexKind& kind : BoxIndexKinds()) {
                if (kind.isSlow && (set.boxes.size() > 100000 || fanOut != 16)) continue;
                iRegister(kind, set, fanOut);
            }
        }
    }
}

void RunInsertions(const std::vector<BoxSet>& iSets) {
    TableReporter reporter(
        "thousand insertions a second",
        {
            {"Gridloom / Boost",           "Gridloom", "Boost"          },
            {"Gridloom / libspatialindex", "Gridloom", "libspatialindex"},
            {"Gridloom / SQLite",          "Gridloom", "SQLite"         }
    });
    ForAll(iSets, [&](const BoxIndexKind& iKind, const BoxSet& iSet, unsigned int iFanOut) {
        const std::string row = RowOf(iSet, iFanOut);
        reporter.Announce(row, {iKind.name});
        const auto run = [iKind, &iSet, iFanOut](benchmark::State& ioState) {
            for (auto _ : ioState) {
                std::unique_ptr<BoxIndex> index = Build(iKind, iSet, iFanOut);
                ioState.PauseTiming();
                index.reset();
                ioState.ResumeTiming();
            }
            const double insertions =
                static_cast<double>(ioState.iterations()) * static_cast<double>(iSet.boxes.size());
            ioState.counters[iKind.name] =
                benchmark::Counter(insertions / 1e3, benchmark::Counter::kIsRate);
        };
        benchmark::RegisterBenchmark((row + "/insert " + iKind.name).c_str(), run)->MinTime(0.2);
    });
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::ClearRegisteredBenchmarks();
}

/// The indexes that searches need, each built when it is first asked for.
class BuiltIndexes {
public:
    BoxIndex& Get(const BoxIndexKind& iKind, const BoxSet& iSet, unsigned int iFanOut) {
        std::unique_ptr<BoxIndex>& index = _indexes[RowOf(iSet, iFanOut) + iKind.name];
        if (index == nullptr) {
            index = Build(iKind, iSet, iFanOut);
            index->Finish();
        }
        return *index;
    }

private:
    std::map<std::string, std::unique_ptr<BoxIndex>> _indexes;
};

void Search(
    benchmark::State& ioState, BoxIndex& ioIndex, const std::string& iName, const BoxSet& iSet) {
    std::size_t hits = 0;
    for (auto _ : ioState) {
        hits = 0;
        for (const Box& window : iSet.windows) hits += ioIndex.CountHits(window);
        benchmark::DoNotOptimize(hits);
    }
    std::size_t nodes = 0;
    for (const Box& window : iSet.windows) nodes += ioIndex.CountNodes(window);
    static std::map<std::string, std::size_t> expected;
    if (expected.emplace(iSet.name, hits).first->second != hits) {
        ioState.SkipWithError("other boxes than the first index finds");
    }
    const auto queries = static_cast<double>(iSet.windows.size());
    ioState.counters[iName] = benchmark::Counter(
        static_cast<double>(ioState.iterations()) * queries / 1e6,
        benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    if (nodes != 0) {
        ioState.counters[iName + " nodes"] = static_cast<double>(nodes) / queries;
    }
}

void RunSearches(const std::vector<BoxSet>& iSets) {
    TableReporter reporter(
        "microseconds a query", {
                                    {"Gridloom / Boost",       "Gridloom",       "Boost"      },
                                    {"Gridloom / Boost nodes", "Gridloom nodes", "Boost nodes"}
    });
    BuiltIndexes indexes;
    ForAll(iSets, [&](const BoxIndexKind& iKind, const BoxSet& iSet, unsigned int iFanOut) {
        const std::string row = RowOf(iSet, iFanOut);
        reporter.Announce(row, {iKind.name});
        const auto run = [&indexes, iKind, &iSet, iFanOut](benchmark::State& ioState) {
            Search(ioState, indexes.Get(iKind, iSet, iFanOut), iKind.name, iSet);
        };
        benchmark::RegisterBenchmark((row + "/search " + iKind.name).c_str(), run)->MinTime(0.2);
    });
    for (const BoxIndexKind& kind : BoxIndexKinds()) {
        if (kind.name != "SQLite")
            reporter.Announce(RowOf(iSets.front(), 8), {kind.name + " nodes"});
    }
    benchmark::RunSpecifiedBenchmarks(&reporter);
}

void Main() {
    std::vector<BoxSet> sets;
    for (const std::size_t count : {std::size_t{100000}, std::size_t{1000000}}) {
        for (const char* name : {"uniform", "clustered", "curve"}) {
            sets.push_back(MakeBoxSet(name, count));
        }
    }
    RunInsertions(sets);
    std::cout << '\n';
    RunSearches(sets);
}

}  // namespace

int main(int iCount, char** iArguments) {
    return RunProgram("bench_rtree", Main, iCount, iArguments);
}
