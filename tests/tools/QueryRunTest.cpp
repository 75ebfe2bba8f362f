// gridloom-query on indexes that gridloom-index has made. The judge is brute force over the meshes: plain loops over their
// boxes, and rays that count the triangles in their way.

#include "PartIndex.h"
#include "Queries.h"
#include "TemporaryFolder.h"
#include "ToolRun.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <random>

namespace fs = std::filesystem;

namespace {

using Names = std::vector<std::string>;
using Triangle = std::array<Point, 3>;
using Mesh = std::vector<Triangle>;

Point Minus(const Point& a, const Point& b) {
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}

double Dot(const Point& a, const Point& b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

Point Cross(const Point& a, const Point& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

/// Whether a ray meets a triangle; nothing when it comes too near to an edge to tell.
std::optional<bool> Meets(const Point& from, const Point& along, const Triangle& triangle) {
    const Point edge1 = Minus(triangle[1], triangle[0]);
    const Point edge2 = Minus(triangle[2], triangle[0]);
    const Point across = Cross(along, edge2);
    const double determinant = Dot(edge1, across);
    constexpr double kSlack = 1e-9;
    if (std::fabs(determinant) < kSlack * std::sqrt(Dot(edge1, edge1) * Dot(across, across)))
        return {};
    const Point start = Minus(from, triangle[0]);
    const double u = Dot(start, across) / determinant;
    const Point turned = Cross(start, edge1);
    const double v = Dot(along, turned) / determinant;
    const double least = std::min({u, v, 1.0 - u - v});
    if (std::fabs(least) < kSlack) return {};
    return least > 0.0 && Dot(edge2, turned) / determinant > 0.0;
}

/// Whether a point is inside of a closed mesh; nothing when the rays don't agree.
std::optional<bool> IsInside(const Point& point, const Mesh& mesh) {
    std::optional<bool> inside;
    for (const Point& along : {
             Point{0.53,  0.61,  0.59 },
             Point{-0.71, 0.23,  -0.66},
             Point{0.11,  -0.87, 0.47 }
    }) {
        bool isOdd = false;
        for (const Triangle& triangle : mesh) {
            const auto meets = Meets(point, along, triangle);
            if (!meets) return {};
            isOdd ^= *meets;
        }
        if (inside && *inside != isOdd) return {};
        inside = isOdd;
    }
    return inside;
}

/// A lower bound of the square of the distance to a triangle: that to its plane, or to its box.
double SquaredGap(const Point& point, const Triangle& triangle) {
    Box box = {triangle[0], triangle[0]};
    for (const Point& corner : triangle) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            box.low[axis] = std::min(box.low[axis], corner[axis]);
            box.high[axis] = std::max(box.high[axis], corner[axis]);
        }
    }
    const Point normal = Cross(Minus(triangle[1], triangle[0]), Minus(triangle[2], triangle[0]));
    const double length = Dot(normal, normal);
    const double height =
        length > 0.0 ? Dot(Minus(point, triangle[0]), normal) / std::sqrt(length) : 0.0;
    return std::max(height * height, SquaredDistance(box, point));
}

bool IsFartherThan(double distance, const Point& point, const Mesh& mesh) {
    return std::none_of(mesh.begin(), mesh.end(), [&](const Triangle& triangle) {
        return SquaredGap(point, triangle) <= distance * distance;
    });
}

/// Whether each edge belongs to two triangles, which run along it in opposite directions.
bool IsClosed(const Mesh& mesh) {
    std::map<std::pair<Point, Point>, int> edges;
    for (const Triangle& triangle : mesh) {
        for (std::size_t c = 0; c < 3; ++c) {
            ++edges[{triangle[c], triangle[(c + 1) % 3]}];
            --edges[{triangle[(c + 1) % 3], triangle[c]}];
        }
    }
    return std::all_of(
        edges.begin(), edges.end(), [](const auto& edge) { return edge.second == 0; });
}

Box BoxAround(const Mesh& mesh) {
    Box box = {mesh[0][0], mesh[0][0]};
    for (const Triangle& triangle : mesh) {
        for (const Point& corner : triangle) {
            for (std::size_t axis = 0; axis < 3; ++axis) {
                box.low[axis] = std::min(box.low[axis], corner[axis]);
                box.high[axis] = std::max(box.high[axis], corner[axis]);
            }
        }
    }
    return box;
}

std::string BinaryStl(const Mesh& mesh) {
    std::string bytes(80, ' ');
    const auto add = [&](const auto& value) {
        bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
    };
    add(static_cast<std::uint32_t>(mesh.size()));
    for (const Triangle& triangle : mesh) {
        for (int i = 0; i < 3; ++i) add(0.0F);
        for (const Point& corner : triangle) {
            for (const double coordinate : corner) add(static_cast<float>(coordinate));
        }
        add(std::uint16_t{0});
    }
    return bytes;
}

Mesh ReadBinaryStl(const std::string& path) {
    const std::string bytes = ContentOf(path);
    Mesh mesh;
    for (std::size_t at = 84; at + 50 <= bytes.size(); at += 50) {
        std::array<float, 9> corners;
        std::memcpy(corners.data(), bytes.data() + at + 12, sizeof corners);
        Triangle triangle;
        for (std::size_t i = 0; i < corners.size(); ++i) triangle[i / 3][i % 3] = corners[i];
        mesh.push_back(triangle);
    }
    return mesh;
}

/// A ring with a square section round an axis through a point, as coarse as its number of corners says.
Mesh Ring(const Point& centre, double radius, double half, int corners) {
    const auto corner = [&](int turn, int place) {
        const double angle = 2.0 * 3.14159265358979 * (turn % corners) / corners;
        const double across = radius + (place == 1 || place == 2 ? half : -half);
        const double up = place >= 2 ? half : -half;
        const Point exact = {
            centre[0] + across * std::cos(angle), centre[1] + across * std::sin(angle),
            centre[2] + up};
        return Point{float(exact[0]), float(exact[1]), float(exact[2])};
    };
    Mesh mesh;
    for (int turn = 0; turn < corners; ++turn) {
        for (int place = 0; place < 4; ++place) {
            const int next = (place + 1) % 4;
            mesh.push_back({corner(turn, place), corner(turn + 1, place), corner(turn + 1, next)});
            mesh.push_back({corner(turn, place), corner(turn + 1, next), corner(turn, next)});
        }
    }
    return mesh;
}

Names NamesOf(const Parts& parts) {
    Names names;
    for (const StoredPart& part : parts) names.push_back(part.identifier);
    return names;
}

/// Every part is found by its name and its box, and points of it and around it are told apart as rays tell them.
void ExpectAnswersOfMeshes(
    const std::string& base, const std::map<std::string, Mesh>& meshes, int pointsOfPart) {
    const PartIndex index = PartIndex::OpenBase(base);
    EXPECT_EQ(index.CountParts(), meshes.size());
    std::mt19937 random(11);
    std::uniform_real_distribution<double> share(-0.1, 1.1);
    int nInside = 0;
    for (const auto& [name, mesh] : meshes) {
        SCOPED_TRACE(name);
        const Parts found = FindByName(index, name);
        ASSERT_EQ(NamesOf(found), Names{name});
        const Box box = BoxAround(mesh);
        Names expected;
        for (const auto& [other, otherMesh] : meshes) {
            if (Meet(BoxAround(otherMesh), box)) expected.push_back(other);
        }
        EXPECT_EQ(NamesOf(FindInBox(index, box)), expected);
        if (!IsClosed(mesh)) continue;
        const PLMIdxIBaseOctree& octree = index.OctreeOf(found[0]);
        const double cell = double{octree._bbSize.x} / std::exp2(octree._depth);
        for (int i = 0; i < pointsOfPart; ++i) {
            Point point;
            for (std::size_t axis = 0; axis < 3; ++axis) {
                point[axis] = box.low[axis] + share(random) * (box.high[axis] - box.low[axis]);
            }
            // Within a cell of the surface, the cells decide.
            if (!IsFartherThan(2.0 * cell, point, mesh)) continue;
            const auto inside = IsInside(point, mesh);
            if (!inside) continue;
            const Names solid = NamesOf(FindAt(index, point));
            EXPECT_EQ(std::count(solid.begin(), solid.end(), name), *inside ? 1 : 0)
                << point[0] << " " << point[1] << " " << point[2];
            nInside += *inside ? 1 : 0;
        }
    }
    EXPECT_GT(nInside, 10);
}

class QueryRunTest : public testing::Test {
protected:
    QueryRunTest() : _base(_folder / "base"), _in(_folder / "in") {}

    void Index(const std::string& input, const char* depth) const {
        const Outcome outcome =
            RunTool(GRIDLOOM_INDEX, {"-index", _base, "-depth", depth, "-quiet", input});
        ASSERT_EQ(outcome.exitCode, 0) << outcome.errors;
    }

    Outcome Ask(Names question) const {
        question.insert(question.begin(), {"-index", _base});
        return RunTool(GRIDLOOM_QUERY, question);
    }

    TemporaryFolder _folder;
    std::string _base;
    std::string _in;
};

TEST_F(QueryRunTest, FindsWhatBruteForceFinds) {
    std::map<std::string, Mesh> meshes;
    fs::create_directories(_in + "/rings");
    for (int i = 0; i < 8; ++i) {
        const std::string name = "rings/ring" + std::to_string(i) + ".stl";
        const Mesh mesh = Ring({1.5 * i, 0.3 * i, -0.2 * i}, 1.0 + 0.2 * i, 0.3, 5 + 3 * i);
        ASSERT_TRUE(IsClosed(mesh));
        SetContent(_in + "/" + name, BinaryStl(mesh));
        meshes[name] = mesh;
    }
    Index(_in, "6");
    ExpectAnswersOfMeshes(_base, meshes, 200);
}

TEST_F(QueryRunTest, FindsThePartsOfARealAssembly) {
    const char* folder = std::getenv("GRIDLOOM_MESHES");
    const std::string saw = std::string(folder != nullptr ? folder : "") + "/assembly/saw/placed";
    if (!fs::exists(saw)) GTEST_SKIP() << "GRIDLOOM_MESHES names no assembly";
    std::map<std::string, Mesh> meshes;
    for (const auto& entry : fs::directory_iterator(saw)) {
        if (entry.path().extension() != ".stl") continue;
        meshes[entry.path().filename()] = ReadBinaryStl(entry.path());
    }
    Index(saw, "7");
    ExpectAnswersOfMeshes(_base, meshes, 20);
}

TEST_F(QueryRunTest, TextsAndExitCodes) {
    EXPECT_EQ(Ask({"-list"}).exitCode, 5) << "no index";
    fs::create_directories(_in);
    SetContent(_in + "/a.obj", ObjCube(1));
    SetContent(_in + "/b.obj", ObjCube(1, 1));
    SetContent(_in + "/c.obj", ObjCube(1, -9));
    Index(_in, "3");
    const struct {
        Names question;
        int exitCode;
        Names parts;  ///< that stand in the answer, and no other
    } rows[] = {
        {{"-id", "a.obj"},                            0, {"a.obj"}                  },
        {{"--id=[bc].obj"},                           0, {"b.obj", "c.obj"}         },
        {{"--id", "A.obj"},                           1, {}                         },
        {{"-box", "-20,0,0,-8.5,1,1"},                0, {"c.obj"}                  },
        {{"-box=-20,5,5,20,6,6"},                     1, {}                         },
        {{"-point", "1,0.5,0.5"},                     0, {"a.obj", "b.obj"}         },
        {{"-point", "-8.5,0.5,0.5"},                  0, {"c.obj"}                  },
        {{"-near", "-4,0,0", "-count", "2"},          0, {"a.obj", "c.obj"}         },
        {{"-clash", "a.obj"},                         0, {"b.obj"}                  },
        {{"-clash", "c.obj"},                         1, {}                         },
        {{"-clash", "d.obj"},                         1, {}                         },
        {{"-list"},                                   0, {"a.obj", "b.obj", "c.obj"}},
        {{"-list", "-json"},                          0, {"a.obj", "b.obj", "c.obj"}},
        {{"-stats"},                                  0, {}                         },
        {{"-verify"},                                 0, {}                         },
        {{},                                          2, {}                         },
        {{"-list", "-stats"},                         2, {}                         },
        {{"-box", "1,0,0,0,1,1"},                     2, {}                         },
        {{"-point", "1,2"},                           2, {}                         },
        {{"-list", "-count", "2"},                    2, {}                         },
        {{"-list", "-up", "y"},                       2, {}                         },
        {{"-verify", "-export", "png"},               2, {}                         },
        {{"-list", "word"},                           2, {}                         },
        {{"-list", "-export", "ply", "-output", "/"}, 5, {"a.obj", "b.obj", "c.obj"}},
    };
    for (const auto& row : rows) {
        const Outcome outcome = Ask(row.question);
        const std::string question = testing::PrintToString(row.question);
        EXPECT_EQ(outcome.exitCode, row.exitCode) << question << outcome.errors;
        EXPECT_EQ(
            outcome.errors.empty(), row.exitCode < 2 && row.question != Names({"-clash", "d.obj"}))
            << question << outcome.errors;
        for (const char* part : {"a.obj", "b.obj", "c.obj"}) {
            const bool isExpected = std::count(row.parts.begin(), row.parts.end(), part) > 0;
            EXPECT_EQ(outcome.output.find(part) != std::string::npos, isExpected)
                << question << part;
        }
    }
    EXPECT_EQ(Ask({"-verify"}).output.find("\nsound: 3 parts"), 0u);
    EXPECT_NE(Ask({"-near", "-5,0,0"}).output.find("c.obj         3 "), std::string::npos);
    EXPECT_EQ(Ask({"--version"}).output.find("gridloom-query "), 0u);

    const std::string live = _base + "/Dwh/1/Boxes";
    SetContent(live, ContentOf(live) + "x");
    for (const Names& question : {Names{"-list"}, Names{"-verify"}}) {
        const Outcome outcome = Ask(question);
        EXPECT_EQ(outcome.exitCode, 4);
        EXPECT_NE((outcome.errors + outcome.output).find("Boxes"), std::string::npos);
    }
}

TEST_F(QueryRunTest, ExportsHoldWhatTheyPromise) {
    fs::create_directories(_in);
    SetContent(_in + "/a.obj", ObjCube(1));
    SetContent(_in + "/b.obj", ObjCube(1, 5));
    Index(_in, "2");  // 4 x 4 x 4 cells, all of them occupied: 96 outer faces
    const std::string file = _folder / "out";
    ASSERT_EQ(Ask({"-export", "ply", "-output", file}).exitCode, 0);
    const std::string ply = ContentOf(file);
    EXPECT_NE(ply.find("element vertex 768\n"), std::string::npos);
    EXPECT_NE(ply.find("element face 192\n"), std::string::npos);
    EXPECT_EQ(ply.size(), ply.find("end_header\n") + 11 + 768 * 15 + 192 * 17);
    ASSERT_EQ(Ask({"-id", "b.obj", "-export", "vtk", "-output", file}).exitCode, 0);
    const std::string vtk = ContentOf(file);
    EXPECT_NE(vtk.find("POINTS 384 float\n"), std::string::npos);
    EXPECT_NE(vtk.find("POLYGONS 96 480\n"), std::string::npos);
    EXPECT_NE(vtk.find("CELL_DATA 96\n"), std::string::npos);
    for (const Names& question : {
             Names{             },
             Names{ "-point", "0.5,0.5,0.5"}
    }) {
        Names arguments = question;
        arguments.insert(arguments.end(), {"-export", "png", "-output", file});
        ASSERT_EQ(Ask(arguments).exitCode, 0);
        EXPECT_EQ(ContentOf(file).find("\x89PNG"), 0u);
    }
}

}  // namespace
