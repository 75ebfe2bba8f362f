// Shapes whose solid cells follow from geometry alone.

#include "Images.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace {

std::vector<bool> Build(const Mesh& mesh, int depth) {
    PLMIdxOctreeBuilder builder;
    builder.SetParameters(depth, 0, IDX_False);
    EXPECT_EQ(Draw(builder, mesh), IDX_S_OK);
    EXPECT_EQ(builder.GetDepth(), depth);
    return SolidCells(builder.GetOctree());
}

// Walls that are drawn cell by cell

constexpr int kDepth = 4;
constexpr int kSide = 1 << kDepth;

/// How far a cell lies inside the cube of cells from `low` to `high`; negative outside.
int Inside(int low, int high, int x, int y, int z) {
    return std::min({x - low, y - low, z - low, high - x, high - y, high - z});
}

Cells Shell(int low, int high) {
    return [=](int x, int y, int z) { return Inside(low, high, x, y, z) == 0; };
}

Cells Block(int low, int high) {
    return [=](int x, int y, int z) { return Inside(low, high, x, y, z) >= 0; };
}

Cells Both(const Cells& a, const Cells& b) {
    return [=](int x, int y, int z) { return a(x, y, z) || b(x, y, z); };
}

/// All but one cell.
Cells Holed(const Cells& a, int atX, int atY, int atZ) {
    return [=](int x, int y, int z) { return a(x, y, z) && (x != atX || y != atY || z != atZ); };
}

// clang-format off
const struct {
    const char* name;
    Cells wall;
    Cells solid;  ///< null when nothing but the wall is
} kCases[] = {
    {"closed shell",           Shell(4, 11), Block(4, 11)},
    {"one cell inside",        Shell(6, 8),  Block(6, 8)},
    {"hole towards -X",        Holed(Shell(4, 11), 4, 7, 7),   nullptr},
    {"hole towards +X",        Holed(Shell(4, 11), 11, 8, 8),  nullptr},
    {"hole towards -Y",        Holed(Shell(4, 11), 8, 4, 7),   nullptr},
    {"hole towards +Y",        Holed(Shell(4, 11), 5, 11, 5),  nullptr},
    {"hole towards -Z",        Holed(Shell(4, 11), 10, 10, 4), nullptr},
    {"hole towards +Z",        Holed(Shell(4, 11), 5, 10, 11), nullptr},
    {"gap of an edge",         Holed(Shell(4, 11), 11, 11, 7), Holed(Block(4, 11), 11, 11, 7)},
    {"gap of a corner",        Holed(Shell(4, 11), 4, 4, 4),   Holed(Block(4, 11), 4, 4, 4)},
    {"nested, outer is open",  Both(Holed(Shell(2, 13), 13, 8, 8), Shell(5, 10)), Both(Holed(Shell(2, 13), 13, 8, 8), Block(5, 10))},
    {"no free border cell",    Shell(0, 15), Block(0, 15)},
    {"border hole towards -X", Holed(Shell(0, 15), 0, 7, 7),  nullptr},
    {"border hole towards -Y", Holed(Shell(0, 15), 9, 0, 4),  nullptr},
    {"border hole towards -Z", Holed(Shell(0, 15), 9, 4, 0),  nullptr},
    {"border hole towards +X", Holed(Shell(0, 15), 15, 7, 7), Block(0, 15)},
    {"border hole towards +Y", Holed(Shell(0, 15), 9, 15, 4), Block(0, 15)},
    {"border hole towards +Z", Holed(Shell(0, 15), 9, 4, 15), Block(0, 15)},
};
// clang-format on

}  // namespace

TEST(SolidGeometry, CellsWithinWalls) {
    const Cells corners = Both(Block(0, 0), Block(15, 15));
    for (const auto& row : kCases) {
        const Cells expected = Both(corners, row.solid ? row.solid : row.wall);
        const std::vector<bool> solid = Build(CellMesh(kSide, Both(corners, row.wall)), kDepth);
        for (int i = 0; i < kSide * kSide * kSide; ++i)
            ASSERT_EQ(
                solid[static_cast<std::size_t>(i)],
                expected(i % kSide, i / kSide % kSide, i / kSide / kSide))
                << row.name << ", cell " << i;
    }
}

TEST(SolidGeometry, BoxesWithFaces) {
    for (int depth = 2; depth <= 5; ++depth) {
        const auto solid = [depth](unsigned int openFaces) {
            const Mesh mesh = BoxMesh({1e5f, -1e5f, 0}, {1e5f + 64, -1e5f + 64, 64}, openFaces);
            const std::vector<bool> cells = Build(mesh, depth);
            return std::count(cells.begin(), cells.end(), true);
        };
        const int n = 1 << depth;
        EXPECT_EQ(solid(0), n * n * n);
        EXPECT_EQ(solid(kLowY), n * n * n - (n - 2) * (n - 2) * (n - 1)) << "a cup";
        EXPECT_EQ(solid(kHighZ), n * n * n) << "a cup that is taken as solid";
        EXPECT_EQ(solid(kLowY | kHighY), n * n * n - (n - 2) * (n - 2) * n) << "a tube";
        const std::vector<bool> sheet = Build(BoxMesh({0, 0, 0}, {1, 1, 1}, 0x3F & ~kLowX), depth);
        EXPECT_EQ(std::count(sheet.begin(), sheet.end(), true), 2 * n * n) << "on the mid-plane";
    }
}
