// A part index that gridloom-index has made, verified and asked in this process. The judge of every
// answer is a flat list of the cells in which a part is solid, read off the stored bytes by their
// definition.

#include "IndexCheck.h"
#include "PartIndex.h"
#include "Queries.h"
#include "ToolRun.h"
#include "TraceRecorder.h"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <sstream>

namespace {

constexpr int kDepth = 4;
constexpr int kSide = 1 << kDepth;  // cells along an axis

using Names = std::vector<std::string>;

/// A part, and all cells in which it is solid.
struct Known {
    std::string name;
    Box box;
    std::vector<Box> cells;
};

template <class Value>
Value ValueAt(const unsigned char* bytes) {
    Value value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

/// Whether a cell of the last level is occupied, as the page of the format tells how to find out.
bool IsOccupied(const unsigned char* image, const int (&index)[3]) {
    const unsigned char* record = image + 132;
    for (int level = 1; level <= kDepth; ++level) {
        const int below = kDepth - level;
        const int child =
            (index[0] >> below & 1) + 2 * (index[1] >> below & 1) + 4 * (index[2] >> below & 1);
        if (below == 0) return (*record >> child & 1) != 0;
        if (below == 1) {
            record += child;
            continue;
        }
        const unsigned int states = ValueAt<unsigned short>(record);
        const auto state = [&](int k) { return states >> 2 * k & 3U; };
        if (state(child) != 1) return state(child) == 2;
        record = image + 132 + ValueAt<unsigned int>(record + 4);
        for (int k = 0; k < child; ++k) record += state(k) == 1 ? 8 : 0;
    }
    return false;
}

/// The occupied cells, each cut to the box of the part.
std::vector<Box> CellsOf(const unsigned char* image, const Box& box) {
    std::vector<Box> cells;
    for (int number = 0; number < kSide * kSide * kSide; ++number) {
        const int index[3] = {number % kSide, number / kSide % kSide, number / kSide / kSide};
        if (!IsOccupied(image, index)) continue;
        Box cell;
        bool isLeft = true;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const double origin = ValueAt<float>(image + 12 + 4 * axis);
            const double side = ValueAt<float>(image + 24 + 4 * axis) / double{kSide};
            cell.low[axis] = std::max(box.low[axis], origin + side * index[axis]);
            cell.high[axis] = std::min(box.high[axis], origin + side * (index[axis] + 1));
            isLeft &= cell.low[axis] <= cell.high[axis];
        }
        if (isLeft) cells.push_back(cell);
    }
    return cells;
}

/// Boxes of all sizes, some of them flat, with corners on a coarse grid so that some touch: lines
/// of tests/tools/boxes.
std::vector<Known> RandomBoxes(int count, std::string& lines) {
    std::mt19937 random(7);
    const auto number = [&](unsigned int below) { return static_cast<double>(random() % below); };
    std::vector<Known> parts;
    std::ostringstream text;
    for (int i = 0; i < count; ++i) {
        const Point low = {number(20), number(20), number(20)};
        const Point high = {low[0] + 1 + number(9), low[1] + number(6), low[2] + 1 + number(9)};
        const std::string name = std::string("p").append(std::to_string(i));
        text << name;
        for (const Point& corner : {low, high}) {
            for (const double coordinate : corner) text << " " << coordinate;
        }
        text << "\n";
        parts.push_back({
            "in.obj#in.obj/" + name, {low,              high},
               {                }
        });
    }
    lines = text.str();
    return parts;
}

/// Makes an index of boxes in the sub-directory that this gives.
std::string MakeIndex(const TemporaryFolder& folder, const std::string& lines) {
    SetContent(folder / "lines", lines);
    const Outcome outcome = RunIn(
        folder, "boxes < lines > in.obj && gridloom-index -index base -depth 4 -quiet in.obj");
    EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
    return folder / "base/Dwh/1/";
}

PartIndex Open(const std::string& folder) {
    PartIndex index;
    EXPECT_EQ(index.Open(folder).Text(), "");
    return index;
}

/// What a question finds that doesn't fail.
template <class Found = Parts, class Question, class... Arguments>
Found Ask(const Question& question, const Arguments&... arguments) {
    Found found;
    EXPECT_EQ(question(arguments..., found).Text(), "");
    return found;
}

std::vector<NearPart> AskNearest(const PartIndex& index, const Point& point, unsigned int count) {
    return Ask<std::vector<NearPart>>(FindNearest, index, point, count);
}

Names NamesOf(const Parts& parts) {
    Names names;
    for (const StoredPart& part : parts) names.push_back(part.identifier);
    return names;
}

template <class Test>
Names Expected(const std::vector<Known>& parts, const Test& test) {
    Names names;
    for (const Known& part : parts) {
        if (test(part)) names.push_back(part.name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool AnyCellMeets(const Known& part, const Box& box) {
    return std::any_of(
        part.cells.begin(), part.cells.end(), [&](const Box& cell) { return Meet(cell, box); });
}

bool AnyCellsMeet(const Known& part, const Known& other) {
    return std::any_of(other.cells.begin(), other.cells.end(), [&](const Box& cell) {
        return AnyCellMeets(part, cell);
    });
}

using Distances = std::vector<std::pair<double, std::string>>;

Distances NearestOf(const std::vector<Known>& parts, const Point& point, std::size_t count) {
    Distances nearest;
    for (const Known& part : parts) {
        double least = HUGE_VAL;
        for (const Box& cell : part.cells) least = std::min(least, SquaredDistance(cell, point));
        nearest.emplace_back(std::sqrt(least), part.name);
    }
    std::sort(nearest.begin(), nearest.end());
    nearest.resize(count);
    return nearest;
}

Distances DistancesOf(const std::vector<NearPart>& parts) {
    Distances distances;
    for (const NearPart& part : parts) distances.emplace_back(part.distance, part.part.identifier);
    return distances;
}

TEST(PartIndex, AnswersAsTheFlatListOfCellsDoes) {
    const TemporaryFolder folder;
    std::string lines;
    std::vector<Known> parts = RandomBoxes(40, lines);
    const PartIndex index = Open(MakeIndex(folder, lines));
    for (Known& part : parts) {
        const Parts found = Ask(FindByName, index, part.name);
        ASSERT_EQ(NamesOf(found), Names{part.name});
        part.cells = CellsOf(index.BytesOf(found[0].record), part.box);
    }
    std::mt19937 random(8);
    std::uniform_real_distribution<double> anywhere(-2.0, 32.0);
    for (int i = 0; i < 100; ++i) {
        Point point = {anywhere(random), anywhere(random), anywhere(random)};
        if (i % 2 == 0) {
            for (double& coordinate : point)
                coordinate = std::round(coordinate);  // on faces and corners
        }
        const Box at = {point, point};
        const auto isSolid = [&](const Known& part) { return AnyCellMeets(part, at); };
        EXPECT_EQ(NamesOf(Ask(FindAt, index, point)), Expected(parts, isSolid));
        Box box = at;
        for (double& coordinate : box.high) coordinate += std::abs(anywhere(random)) / 4;
        const auto meetsBox = [&](const Known& part) { return Meet(part.box, box); };
        EXPECT_EQ(NamesOf(Ask(FindInBox, index, box)), Expected(parts, meetsBox));
        EXPECT_EQ(DistancesOf(AskNearest(index, point, 5)), NearestOf(parts, point, 5));
    }
    for (const Known& part : parts) {
        const auto clashes = [&](const Known& other) {
            return &other != &part && AnyCellsMeet(part, other);
        };
        const Parts found = Ask(FindByName, index, part.name);
        EXPECT_EQ(NamesOf(Ask(FindClashes, index, found[0])), Expected(parts, clashes));
    }
    EXPECT_EQ(AskNearest(index, {0, 0, 0}, 1000).size(), parts.size());
}

TEST(PartIndex, WhatIsClosedIsNotTakenForEmptyAndWhatIsOpenStays) {
    const TemporaryFolder folder;
    const TraceRecorder trace;  // what the library says of it
    const std::string live = MakeIndex(folder, "a 0 0 0 1 1 1\n");
    {
        const PartIndex index = Open(live);
        EXPECT_EQ(CheckIndex(index, {}).problems, Names());
        EXPECT_EQ(CheckIndex(live, {}).problems, Names());  // a second one, which closes it
        Parts found;
        EXPECT_EQ(FindByName(index, "in.obj", found).Code(), ExitCode::Damaged);
        EXPECT_EQ(FindByName(index, "*", found).Code(), ExitCode::Damaged);
    }
    PartIndex index;
    ASSERT_EQ(index.OpenBase(folder / "base").Text(), "");
    std::filesystem::remove_all(live);
    EXPECT_EQ(NamesOf(Ask(FindAt, index, Point{0.5, 0.5, 0.5})), Names{"in.obj"});
}

/// Asks everything. A question may fail, and no more than that.
void AskAll(const std::string& folder) {
    PartIndex index;
    if (index.Open(folder).Failed()) return;
    Parts parts;
    Parts clashes;
    std::vector<NearPart> nearest;
    for (const char* name : {"in.obj#in.obj/a", "in.obj#in.obj/b", "nothing", "*"}) {
        if (FindByName(index, name, parts).Failed()) continue;
        for (const StoredPart& part : parts) (void)FindClashes(index, part, clashes);
    }
    const Point low = {-9, -9, -9};
    (void)FindInBox(
        index,
        Box{
            low, Point{9, 9, 9}
    },
        parts);
    (void)FindAt(index, {1, 1, 1}, parts);
    (void)FindNearest(index, {5, 5, 5}, 2, nearest);
}

TEST(PartIndex, AnyDamageIsNamedAndHarmless) {
    const TemporaryFolder folder;
    const TraceRecorder trace;  // what the library says of it
    const std::string index = MakeIndex(folder, "a 0 0 0 3 2 2\nb 2 1 1 5 5 2\nc 4 0 0 4 1 1\n");
    ASSERT_EQ(CheckIndex(index, {}).problems, Names());
    std::mt19937 random(9);
    for (const char* name : {"Parts", "Boxes", "Octrees0"}) {
        const std::string path = index + name;
        const std::string sound = ContentOf(path);
        for (std::size_t at = 0; at < sound.size(); ++at) {
            std::string damaged = sound;
            damaged[at] =
                static_cast<char>(static_cast<unsigned char>(damaged[at]) ^ (1 + random() % 255));
            SetContent(path, damaged);
            CheckIndex(index, {});
            AskAll(index);
        }
        for (std::size_t length = 0; length < sound.size(); length += 1 + random() % 15) {
            SetContent(path, sound.substr(0, length));
            EXPECT_NE(CheckIndex(index, {}).nProblems, 0u) << name << " cut at " << length;
            AskAll(index);
        }
        SetContent(path, sound);
    }
}

}  // namespace
