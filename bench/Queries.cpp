// Questions to an open part index: the median and the 99th of 100 of their times, in microseconds; then how fast an index
// is verified out of the page cache, in MB/s.
//   Copies of a mesh lie on a grid of 6 x 6 x 6, so close that neighbours' boxes overlap; depth 7.

#include "Queries.h"

#include "IndexCheck.h"
#include "IndexWriter.h"
#include "Mesh.h"
#include "PartIndex.h"
#include "RunProgram.h"
#include "ScratchFolder.h"
#include "TableReporter.h"

#include "PLMIdxOctreeBuilder.h"

#include "formats/OctreeImage.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <random>
#include <stdexcept>

namespace {

namespace fs = std::filesystem;

constexpr int kGrid = 6;
constexpr int kDepth = 7;
constexpr int kQuestions = 2000;
constexpr double kStep = 0.9;  // from one copy to the next, in sides of its box

IDX_Base_BoundingBox BoxOfPoints(const std::vector<IDX_Point>& iPoints) {
    IDX_Base_BoundingBox box(iPoints.front(), iPoints.front());
    for (const IDX_Point& point : iPoints) box.Union({point, point});
    return box;
}

void Require(const Status& iStatus) {
    if (iStatus.Failed()) throw std::runtime_error(iStatus.Text());
}

void AddCopy(IndexWriter& ioWriter, Mesh iMesh, const IDX_Point& iMove, const std::string& iName) {
    for (IDX_Point& point : iMesh.points) {
        point = {point.x + iMove.x, point.y + iMove.y, point.z + iMove.z};
    }
    PLMIdxOctreeBuilder builder;
    builder.SetParameters(kDepth, 0.0F, IDX_False);
    builder.DrawGeometry(
        iMesh.points.data(), static_cast<unsigned int>(iMesh.points.size()), iMesh.triangles.data(),
        static_cast<unsigned int>(iMesh.triangles.size()));
    IndexedPart part;
    const std::unique_ptr<const unsigned char[]> image(builder.GetOctreeStream(part.imageSize));
    part.identifier = iName;
    part.image = image.get();
    part.box = BoxOfPoints(iMesh.points);
    part.nTriangles = static_cast<std::uint32_t>(iMesh.triangles.size());
    const Damage damage = OctreeImage::Check(image.get(), part.imageSize, part.nOccupied);
    if (damage) throw std::runtime_error(damage.Text());
    Require(ioWriter.Add(part));
}

void WriteIndex(const std::string& iFolder, const Mesh& iMesh) {
    const IDX_Base_BoundingBox box = BoxOfPoints(iMesh.points);
    const IDX_Point low = box.GetLow();
    const IDX_Point high = box.GetHigh();
    const auto step = [](float from, float to, int count) {
        return static_cast<float>(kStep * static_cast<double>(to - from) * count);
    };
    IndexWriter writer(iFolder);
    Require(writer.Open());
    for (int number = 0; number < kGrid * kGrid * kGrid; ++number) {
        const IDX_Point move = {
            step(low.x, high.x, number % kGrid), step(low.y, high.y, number / kGrid % kGrid),
            step(low.z, high.z, number / kGrid / kGrid)};
        AddCopy(writer, iMesh, move, "part" + std::to_string(number));
    }
    Require(writer.Finish());
}

/// Draws points from where the parts are.
class PointSource {
public:
    explicit PointSource(const PartIndex& iIndex) {
        Require(iIndex.ForEach([&](const StoredPart& part) {
            _boxes.push_back(BoxOf(part.record.box));
            return Status();
        }));
    }

    Point Next() {
        const Box& box = _boxes[_random() % _boxes.size()];
        Point point;
        for (std::size_t axis = 0; axis < point.size(); ++axis) {
            const double share = static_cast<double>(_random() >> 40U) * 0x1p-24;
            point[axis] = box.low[axis] + share * (box.high[axis] - box.low[axis]);
        }
        return point;
    }

private:
    std::vector<Box> _boxes;
    std::mt19937_64 _random{1};
};

/// Opens the index in a folder and examines its octrees.
void OpenExamined(const std::string& iFolder, PartIndex& oIndex) {
    Require(oIndex.Open(iFolder));
    Require(oIndex.ForEach([&](const StoredPart& part) {
        const PLMIdxIBaseOctree* octree = nullptr;
        return oIndex.OctreeOf(part, octree);
    }));
}

/// Asks once. The number of parts that answer is added up, so that no answer is left out.
using Question = std::function<Status(
    const PartIndex&, const Point&, std::size_t iNumber, std::size_t& ioAnswers)>;

/// Asks many times, each time at another place, and notes how long each answer took.
void Ask(benchmark::State& ioState, const std::string& iFolder, const Question& iQuestion) {
    using Clock = std::chrono::steady_clock;
    PartIndex index;
    OpenExamined(iFolder, index);
    std::size_t nAnswers = 0;
    std::vector<double> times;
    for (auto _ : ioState) {
        PointSource points(index);
        for (std::size_t i = 0; i < kQuestions; ++i) {
            const Point point = points.Next();
            const Clock::time_point start = Clock::now();
            const Status status = iQuestion(index, point, i, nAnswers);
            const std::chrono::duration<double, std::micro> time = Clock::now() - start;
            times.push_back(time.count());
            Require(status);
        }
    }
    benchmark::DoNotOptimize(nAnswers);
    std::sort(times.begin(), times.end());
    ioState.counters["median us"] = times[times.size() / 2];
    ioState.counters["99 of 100 us"] = times[times.size() * 99 / 100];
}

/// A question out of one that fills a list.
template <class List, class Find>
Question Counting(const Find& iFind) {
    return [iFind](
               const PartIndex& iIndex, const Point& iPoint, std::size_t iNumber,
               std::size_t& ioAnswers) {
        List found;
        const Status status = iFind(iIndex, iPoint, iNumber, found);
        ioAnswers += found.size();
        return status;
    };
}

std::vector<std::pair<std::string, Question>> Questions() {
    const auto byName = [](const PartIndex& index, const Point&, std::size_t number, Parts& found) {
        return FindByName(index, "part" + std::to_string(number % index.CountParts()), found);
    };
    const auto inBox = [](const PartIndex& index, const Point& point, std::size_t, Parts& found) {
        return FindInBox(index, {point, point}, found);
    };
    const auto at = [](const PartIndex& index, const Point& point, std::size_t, Parts& found) {
        return FindAt(index, point, found);
    };
    const auto nearest = [](const PartIndex& index, const Point& point, std::size_t,
                            std::vector<NearPart>& found) {
        return FindNearest(index, point, 1, found);
    };
    return {
        {"identifier", Counting<Parts>(byName)                 },
        {"box",        Counting<Parts>(inBox)                  },
        {"point",      Counting<Parts>(at)                     },
        {"nearest",    Counting<std::vector<NearPart>>(nearest)}
    };
}

void Main() {
    const std::vector<Workload> workloads = FindWorkloads(fs::path());
    const ScratchFolder folder;
    WriteIndex(folder.path, MakeMesh(workloads.front()));
    TableReporter reporter("question", {});
    for (const auto& [name, question] : Questions()) {
        reporter.Announce(name, {"median us", "99 of 100 us"});
        const auto run = [&folder, ask = question](benchmark::State& ioState) {
            Ask(ioState, folder.path, ask);
        };
        benchmark::RegisterBenchmark((name + "/ask").c_str(), run)->Iterations(3);
    }
    reporter.Announce("verification", {"MB/s"});
    const auto verify = [&folder](benchmark::State& ioState) {
        double nBytes = 0.0;
        for (auto _ : ioState) {
            const IndexCheckResult result = CheckIndex(folder.path, {});
            if (result.nProblems != 0) ioState.SkipWithError("the index isn't sound");
            nBytes += static_cast<double>(result.nBytes);
        }
        ioState.counters["MB/s"] = benchmark::Counter(nBytes / 1e6, benchmark::Counter::kIsRate);
    };
    benchmark::RegisterBenchmark("verification/verify", verify)->MinTime(0.5);
    benchmark::RunSpecifiedBenchmarks(&reporter);
}

}  // namespace

int main(int iCount, char** iArguments) {
    return RunProgram("bench_queries", Main, iCount, iArguments);
}
