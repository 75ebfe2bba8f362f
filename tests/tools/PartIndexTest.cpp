// A part index written, verified and asked in one process. The judge of every answer is a flat list of the cells in
// which a part is solid, read off the stored bytes by their definition.

#include "IndexCheck.h"
#include "IndexWriter.h"
#include "PartIndex.h"
#include "Queries.h"
#include "TemporaryFolder.h"
#include "TraceRecorder.h"

#include "PLMIdxDirectory.h"
#include "PLMIdxOctreeBuilder.h"

#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>

namespace {

constexpr int kDepth = 4;
constexpr int kSide = 1 << kDepth;  // cells along an axis

using Names = std::vector<std::string>;

struct Cuboid {
    std::string name;
    IDX_Point low;
    IDX_Point high;
};

/// A part, its image, and all cells in which it is solid.
struct Known {
    Cuboid cuboid;
    std::string image;
    std::vector<Box> cells;
};

template <class Value>
Value ValueAt(const std::string& bytes, std::size_t offset) {
    Value value;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

/// Whether a cell of the last level is occupied, as the page of the format tells how to find out.
bool IsOccupied(const std::string& image, const int (&index)[3]) {
    std::size_t at = 132;
    for (int level = 1; level <= kDepth; ++level) {
        const int below = kDepth - level;
        const int child =
            (index[0] >> below & 1) + 2 * (index[1] >> below & 1) + 4 * (index[2] >> below & 1);
        if (below == 0) return (image[at] >> child & 1) != 0;
        if (below == 1) {
            at += static_cast<std::size_t>(child);
            continue;
        }
        const unsigned int states = ValueAt<unsigned short>(image, at);
        const auto state = [&](int k) { return states >> 2 * k & 3U; };
        if (state(child) != 1) return state(child) == 2;
        std::size_t next = 132 + ValueAt<unsigned int>(image, at + 4);
        for (int k = 0; k < child; ++k) next += state(k) == 1 ? 8 : 0;
        at = next;
    }
    return false;
}

std::vector<Box> CellsOf(const Cuboid& cuboid, const std::string& image) {
    const float low[3] = {cuboid.low.x, cuboid.low.y, cuboid.low.z};
    const float high[3] = {cuboid.high.x, cuboid.high.y, cuboid.high.z};
    std::vector<Box> cells;
    int index[3];
    for (index[2] = 0; index[2] < kSide; ++index[2]) {
        for (index[1] = 0; index[1] < kSide; ++index[1]) {
            for (index[0] = 0; index[0] < kSide; ++index[0]) {
                if (!IsOccupied(image, index)) continue;
                Box cell;
                bool isLeft = true;
                for (std::size_t axis = 0; axis < 3; ++axis) {
                    const double origin = ValueAt<float>(image, 12 + 4 * axis);
                    const double side = ValueAt<float>(image, 24 + 4 * axis) / double{kSide};
                    cell.low[axis] = std::max<double>(low[axis], origin + side * index[axis]);
                    cell.high[axis] =
                        std::min<double>(high[axis], origin + side * (index[axis] + 1));
                    isLeft &= cell.low[axis] <= cell.high[axis];
                }
                if (isLeft) cells.push_back(cell);
            }
        }
    }
    return cells;
}

Known Build(const Cuboid& cuboid) {
    std::vector<IDX_Point> points;
    for (int corner = 0; corner < 8; ++corner) {
        points.push_back(
            {(corner & 1) != 0 ? cuboid.high.x : cuboid.low.x,
             (corner & 2) != 0 ? cuboid.high.y : cuboid.low.y,
             (corner & 4) != 0 ? cuboid.high.z : cuboid.low.z});
    }
    std::vector<IDX_Triangle> triangles;
    for (const char* quad : {"0231", "4576", "0154", "2673", "0462", "1375"}) {
        const auto corner = [&](int c) { return static_cast<unsigned int>(quad[c] - '0'); };
        triangles.push_back({corner(0), corner(1), corner(2)});
        triangles.push_back({corner(0), corner(2), corner(3)});
    }
    PLMIdxOctreeBuilder builder;
    builder.SetParameters(kDepth, 0.0f, IDX_False);
    EXPECT_EQ(builder.DrawGeometry(points.data(), 8, triangles.data(), 12), IDX_S_OK);
    unsigned int size = 0;
    const std::unique_ptr<const unsigned char[]> stream(builder.GetOctreeStream(size));
    const std::string image(reinterpret_cast<const char*>(stream.get()), size);
    return {cuboid, image, CellsOf(cuboid, image)};
}

/// Boxes of all sizes, some of them flat, with corners on a coarse grid so that some touch.
std::vector<Known> RandomParts(int count) {
    std::mt19937 random(7);
    const auto number = [&](unsigned int below) { return static_cast<float>(random() % below); };
    std::vector<Known> parts;
    for (int i = 0; i < count; ++i) {
        const IDX_Point low = {number(20), number(20), number(20)};
        const IDX_Point high = {low.x + 1 + number(9), low.y + number(6), low.z + 1 + number(9)};
        parts.push_back(Build({"part" + std::to_string(i), low, high}));
    }
    return parts;
}

void WriteParts(const std::string& folder, const std::vector<Known>& parts) {
    IndexWriter writer(folder);
    ASSERT_EQ(writer.Open().Text(), "");
    for (const Known& part : parts) {
        IndexedPart indexed;
        indexed.identifier = part.cuboid.name;
        indexed.image = reinterpret_cast<const unsigned char*>(part.image.data());
        indexed.imageSize = static_cast<unsigned int>(part.image.size());
        indexed.box = {part.cuboid.low, part.cuboid.high};
        indexed.nTriangles = 12;
        int index[3];
        for (index[2] = 0; index[2] < kSide; ++index[2]) {
            for (index[1] = 0; index[1] < kSide; ++index[1]) {
                for (index[0] = 0; index[0] < kSide; ++index[0]) {
                    indexed.nOccupied += IsOccupied(part.image, index) ? 1 : 0;
                }
            }
        }
        ASSERT_EQ(writer.Add(indexed).Text(), "");
    }
    ASSERT_EQ(writer.Finish().Text(), "");
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
        if (test(part)) names.push_back(part.cuboid.name);
    }
    std::sort(names.begin(), names.end());
    return names;
}

bool AnyCellMeets(const Known& part, const Box& box) {
    return std::any_of(
        part.cells.begin(), part.cells.end(), [&](const Box& cell) { return Meet(cell, box); });
}

TEST(PartIndex, AnswersAsTheFlatListOfCellsDoes) {
    const TemporaryFolder folder;
    const std::vector<Known> parts = RandomParts(40);
    WriteParts(folder / "", parts);
    const IndexCheckResult check = CheckIndex(folder / "", {});
    ASSERT_EQ(check.problems, Names());
    EXPECT_EQ(check.nParts, parts.size());

    const PartIndex index(folder / "");
    std::mt19937 random(8);
    std::uniform_real_distribution<double> anywhere(-2.0, 32.0);
    for (int i = 0; i < 100; ++i) {
        Point point = {anywhere(random), anywhere(random), anywhere(random)};
        if (i % 2 == 0) {
            for (double& coordinate : point)
                coordinate = std::round(coordinate);  // on faces and corners
        }
        const Box at = {point, point};
        EXPECT_EQ(NamesOf(FindAt(index, point)), Expected(parts, [&](const Known& part) {
                      return AnyCellMeets(part, at);
                  }));
        Box box = at;
        for (double& coordinate : box.high) coordinate += std::abs(anywhere(random)) / 4;
        EXPECT_EQ(NamesOf(FindInBox(index, box)), Expected(parts, [&](const Known& part) {
                      return Meet(BoxOf({part.cuboid.low, part.cuboid.high}), box);
                  }));

        std::vector<std::pair<double, std::string>> nearest;
        for (const Known& part : parts) {
            double least = HUGE_VAL;
            for (const Box& cell : part.cells)
                least = std::min(least, SquaredDistance(cell, point));
            nearest.emplace_back(std::sqrt(least), part.cuboid.name);
        }
        std::sort(nearest.begin(), nearest.end());
        const std::vector<NearPart> near = FindNearest(index, point, 5);
        ASSERT_EQ(near.size(), 5u);
        for (std::size_t k = 0; k < near.size(); ++k) {
            EXPECT_EQ(near[k].part.identifier, nearest[k].second);
            EXPECT_DOUBLE_EQ(near[k].distance, nearest[k].first);
        }
    }
    for (const Known& part : parts) {
        const Parts found = FindByName(index, part.cuboid.name);
        ASSERT_EQ(NamesOf(found), Names{part.cuboid.name});
        EXPECT_EQ(NamesOf(FindClashes(index, found[0])), Expected(parts, [&](const Known& other) {
                      return &other != &part &&
                             std::any_of(
                                 other.cells.begin(), other.cells.end(),
                                 [&](const Box& cell) { return AnyCellMeets(part, cell); });
                  }));
    }
    EXPECT_EQ(NamesOf(FindByName(index, "part?")).size(), 10u);
    EXPECT_EQ(NamesOf(FindByName(index, "*[02]9")), (Names{"part29"}));
    EXPECT_EQ(NamesOf(FindByName(index, "Part1")), Names());
    EXPECT_EQ(FindNearest(index, {0, 0, 0}, 1000).size(), parts.size());
}

TEST(PartIndex, AnEmptyIndexIsSoundAndAnswersNothing) {
    const TemporaryFolder folder;
    WriteParts(folder / "", {});
    EXPECT_EQ(CheckIndex(folder / "", {}).problems, Names());
    const PartIndex index(folder / "");
    EXPECT_TRUE(FindInBox(
                    index,
                    {
                        {-9, -9, -9},
                        {9,  9,  9 }
    })
                    .empty());
    EXPECT_TRUE(FindNearest(index, {0, 0, 0}, 3).empty());
    EXPECT_TRUE(FindByName(index, "*").empty());
}

TEST(PartIndex, WhatHasLostItsPartsIsNotTakenForEmpty) {
    const TemporaryFolder folder;
    const TraceRecorder trace;  // what the library says of it
    WriteParts(folder / "", RandomParts(1));
    {
        const PartIndex index(folder / "");
        EXPECT_EQ(CheckIndex(index, {}).problems, Names());
        EXPECT_EQ(CheckIndex(folder / "", {}).problems, Names());  // a second one, which closes it
        EXPECT_THROW(FindByName(index, "part0"), IndexError);
        EXPECT_THROW(FindByName(index, "*"), IndexError);
    }
    const std::string sound = ContentOf(folder / kPartsName);
    unsigned int root = 0;
    std::memcpy(&root, &sound[4], sizeof root);
    SetContent(folder / kPartsName, std::string(sound).replace(root + 16, 4, 4, '\0'));
    EXPECT_THROW(FindByName(PartIndex(folder / ""), "*"), IndexError) << "a node without its item";
    SetContent(folder / kPartsName, std::string(sound).replace(4, 4, 4, '\0'));
    EXPECT_THROW(PartIndex(folder / ""), IndexError) << "a manifest without its root";
}

/// Asks everything. Only an IndexError may come of it.
void AskAll(const std::string& folder) {
    try {
        const PartIndex index(folder);
        for (const char* name : {"a", "b", "nothing", "*"}) {
            for (const StoredPart& part : FindByName(index, name)) FindClashes(index, part);
        }
        FindInBox(
            index, {
                       {-9, -9, -9},
                       {9,  9,  9 }
        });
        FindAt(index, {1, 1, 1});
        FindNearest(index, {5, 5, 5}, 2);
    } catch (const IndexError& error) {
        EXPECT_STRNE(error.what(), "");
    }
}

TEST(PartIndex, AnyDamageIsToldAndHarmless) {
    const TemporaryFolder folder;
    const TraceRecorder trace;  // what the library says of it
    const std::vector<Known> parts = {
        Build({"a", {0, 0, 0}, {3, 2, 2}}
        ), Build({"b", {2, 1, 1}, {5, 5, 2}}
        ),
        Build({"c", {4, 0, 0}, {4, 1, 1}}
        )
    };
    WriteParts(folder / "", parts);
    ASSERT_EQ(CheckIndex(folder / "", {}).problems, Names());
    std::mt19937 random(9);
    for (const char* name : {kPartsName, kBoxesName, "Octrees0"}) {
        const std::string path = folder / name;
        const std::string sound = ContentOf(path);
        for (std::size_t at = 0; at < sound.size(); ++at) {
            std::string damaged = sound;
            damaged[at] =
                static_cast<char>(static_cast<unsigned char>(damaged[at]) ^ (1 + random() % 255));
            SetContent(path, damaged);
            CheckIndex(folder / "", {});
            AskAll(folder / "");
        }
        for (std::size_t length = 0; length < sound.size(); length += 1 + random() % 15) {
            SetContent(path, sound.substr(0, length));
            EXPECT_NE(CheckIndex(folder / "", {}).nProblems, 0u) << name << " cut at " << length;
            AskAll(folder / "");
        }
        SetContent(path, sound + '\0');
        EXPECT_NE(CheckIndex(folder / "", {}).nProblems, 0u) << name;
        std::filesystem::remove(path);
        EXPECT_NE(CheckIndex(folder / "", {}).nProblems, 0u) << name;
        AskAll(folder / "");
        SetContent(path, sound);
    }
}

/// One number of a file changed, and what the verification says.
TEST(PartIndex, DamageThatFitsTheStructureIsFound) {
    const TemporaryFolder folder;
    const TraceRecorder trace;
    WriteParts(
        folder / "", {
                         Build({"a", {0, 0, 0}, {3, 2, 2}}
                         ), Build({"b", {2, 1, 1}, {5, 5, 2}}
                         )
    });
    constexpr std::size_t kFirstRecord = 16 + 28;
    constexpr std::size_t kFirstBox = 12 + 12;
    const struct {
        const char* file;
        std::size_t offset;
        unsigned int number;
        const char* problem;
    } rows[] = {
        {"Parts",    8,                 2,          "isn't the tree of a part index"                      },
        {"Parts",    12,                3,          "its manifest tells another number of parts"          },
        {"Parts",    kFirstRecord,      1,          "a: its record leads to no octree"                    },
        {"Parts",    kFirstRecord + 16, 0x3F000000, "a: its box and that of its record differ"            },
        {"Parts",    kFirstRecord + 40, 1,          "a: its record tells another number of occupied cells"},
        {"Parts",    kFirstRecord + 52, 0x62,       "an identifier that doesn't rise"                     },
        {"Boxes",    kFirstBox + 24,    1,          "a: no box leads to it"                               },
        {"Boxes",    12 + 6,            17,         "more entries than a node holds"                      },
        {"Octrees0", 4,                 2,          "a: its octree: another version"                      },
        {"Octrees0", 8,                 1,          "a: its octree: depth out of range"                   },
        {"Octrees0", 12,                0x41000000, "a: its box isn't within its octree"                  },
        {"Octrees0", 132 + 4,           16,         "a: its octree: records don't fit together"           },
    };
    for (const auto& row : rows) {
        const std::string path = folder / row.file;
        const std::string sound = ContentOf(path);
        std::string damaged = sound;
        std::memcpy(damaged.data() + row.offset, &row.number, sizeof row.number);
        SetContent(path, damaged);
        const IndexCheckResult result = CheckIndex(folder / "", {});
        ASSERT_FALSE(result.problems.empty()) << row.problem;
        EXPECT_NE(result.problems[0].find(row.problem), std::string::npos) << result.problems[0];
        SetContent(path, sound);
    }
}

TEST(PartIndex, OpensWhatIsLive) {
    const TemporaryFolder folder;
    EXPECT_THROW(PartIndex::OpenBase(folder / "nothing"), IndexError);
    std::filesystem::create_directory(folder / "base");
    PLMIdxDirectory directory((folder / "base/Dwh").c_str());
    ASSERT_EQ(directory.BuildIndexPath(), IDX_S_OK);
    EXPECT_THROW(PartIndex::OpenBase(folder / "base"), IndexError) << "an index without files";
    WriteParts(
        folder / "base/Dwh/1", {
                                   Build({"new", {0, 0, 0}, {1, 1, 1}}
                                   )
    });
    ASSERT_EQ(directory.SwapIndexPath(), IDX_S_OK);
    const PartIndex index = PartIndex::OpenBase(folder / "base");
    ASSERT_EQ(directory.SwapIndexPath(), IDX_S_OK);
    std::filesystem::remove_all(folder / "base/Dwh/1");
    EXPECT_EQ(NamesOf(FindAt(index, {0.5, 0.5, 0.5})), Names{"new"}) << "what is open stays";
}

}  // namespace
