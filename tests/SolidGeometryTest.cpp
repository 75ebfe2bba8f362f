// Shapes whose solid cells follow from geometry alone.

#include "Images.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace {

using SolidSet = std::vector<bool>;

SolidSet Build(const Mesh& mesh, int depth) {
    PLMIdxOctreeBuilder builder;
    builder.SetParameters(depth, 0, IDX_False);
    EXPECT_EQ(Draw(builder, mesh), IDX_S_OK);
    EXPECT_EQ(builder.GetDepth(), depth);
    return SolidCells(builder.GetOctree());
}

std::size_t Count(const SolidSet& solid) {
    return static_cast<std::size_t>(std::count(solid.begin(), solid.end(), true));
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

Cells Cell(int atX, int atY, int atZ) {
    return [=](int x, int y, int z) { return x == atX && y == atY && z == atZ; };
}

/// The part of the cube from 3 to 12 between two columns.
Cells Slab(int lowX, int highX) {
    return
        [=](int x, int y, int z) { return Inside(3, 12, x, y, z) >= 0 && x >= lowX && x <= highX; };
}

Cells Both(const Cells& a, const Cells& b) {
    return [=](int x, int y, int z) { return a(x, y, z) || b(x, y, z); };
}

Cells Without(const Cells& a, const Cells& b) {
    return [=](int x, int y, int z) { return a(x, y, z) && !b(x, y, z); };
}

/// A shell without one cell of its wall.
Cells Holed(int low, int high, int x, int y, int z) {
    return Without(Shell(low, high), Cell(x, y, z));
}

// clang-format off
const struct {
    const char* name;
    Cells wall;
    Cells solid;  ///< null when nothing but the wall is
} kCellCases[] = {
    {"closed shell",             Shell(4, 11), Block(4, 11)},
    {"one cell inside",          Shell(6, 8),  Block(6, 8)},
    {"hole towards -X",          Holed(4, 11, 4, 7, 7),   nullptr},
    {"hole towards +X",          Holed(4, 11, 11, 8, 8),  nullptr},
    {"hole towards -Y",          Holed(4, 11, 8, 4, 7),   nullptr},
    {"hole towards +Y",          Holed(4, 11, 5, 11, 5),  nullptr},
    {"hole towards -Z",          Holed(4, 11, 10, 10, 4), nullptr},
    {"hole towards +Z",          Holed(4, 11, 5, 10, 11), nullptr},
    {"gap of an edge",           Holed(4, 11, 11, 11, 7), Without(Block(4, 11), Cell(11, 11, 7))},
    {"gap of a corner",          Holed(4, 11, 4, 4, 4),   Without(Block(4, 11), Cell(4, 4, 4))},
    {"nested shells",            Both(Shell(2, 13), Shell(5, 10)), Block(2, 13)},
    {"nested, outer has a hole", Both(Holed(2, 13, 13, 8, 8), Shell(5, 10)), Both(Holed(2, 13, 13, 8, 8), Block(5, 10))},
    {"two rooms, one open",      Both(Holed(2, 13, 2, 8, 8), Slab(7, 7)), Both(Holed(2, 13, 2, 8, 8), Slab(7, 12))},
    {"no free border cell",      Shell(0, 15), Block(0, 15)},
    {"border hole towards -X",   Holed(0, 15, 0, 7, 7),  nullptr},
    {"border hole towards -Y",   Holed(0, 15, 9, 0, 4),  nullptr},
    {"border hole towards -Z",   Holed(0, 15, 9, 4, 0),  nullptr},
    {"border hole towards +X",   Holed(0, 15, 15, 7, 7), Block(0, 15)},
    {"border hole towards +Y",   Holed(0, 15, 9, 15, 4), Block(0, 15)},
    {"border hole towards +Z",   Holed(0, 15, 9, 4, 15), Block(0, 15)},
    {"hole through the box",     Without(Holed(0, 15, 15, 7, 7), Cell(0, 7, 7)), nullptr},
};
// clang-format on

TEST(SolidGeometry, CellsBehindWalls) {
    for (const auto& row : kCellCases) {
        SCOPED_TRACE(row.name);
        const Cells corners = Both(Cell(0, 0, 0), Cell(15, 15, 15));
        const Cells expected = Both(corners, row.solid ? row.solid : row.wall);
        const SolidSet solid = Build(CellMesh(kSide, Both(corners, row.wall)), kDepth);
        for (int i = 0; i < kSide * kSide * kSide; ++i) {
            const int x = i % kSide;
            const int y = i / kSide % kSide;
            const int z = i / kSide / kSide;
            const bool isSolid = solid[static_cast<std::size_t>(i)];
            ASSERT_EQ(isSolid, expected(x, y, z)) << x << " " << y << " " << z;
        }
    }
}

// Boxes: their faces lie in the border cells

TEST(SolidGeometry, BoxesAndCups) {
    // Of n cells along each axis.
    using Number = std::size_t;
    const auto whole = [](Number n) { return n * n * n; };
    const auto cup = [](Number n) { return n * n * n - (n - 2) * (n - 2) * (n - 1); };
    const auto tube = [](Number n) { return n * n * n - (n - 2) * (n - 2) * n; };
    const auto sheet = [](Number n) { return 2 * n * n; };
    const struct {
        const char* name;
        unsigned int openFaces;
        Number (*solid)(Number side);
    } kCases[] = {
        {"closed",                        0,              whole},
        {"cup open to -X",                kLowX,          cup  },
        {"cup open to -Y",                kLowY,          cup  },
        {"cup open to -Z",                kLowZ,          cup  },
        {"cup open to +X is taken solid", kHighX,         whole},
        {"cup open to +Y is taken solid", kHighY,         whole},
        {"cup open to +Z is taken solid", kHighZ,         whole},
        {"tube along Y",                  kLowY | kHighY, tube },
        {"sheet on the mid-plane",        0x3F & ~kLowZ,  sheet},
        {"sheet across X",                0x3F & ~kLowX,  sheet},
    };
    for (const auto& row : kCases) {
        SCOPED_TRACE(row.name);
        for (int depth = 2; depth <= 5; ++depth) {
            const Number expected = row.solid(Number{1} << depth);
            const Mesh near = BoxMesh({0, 0, 0}, {1, 1, 1}, row.openFaces);
            EXPECT_EQ(Count(Build(near, depth)), expected) << depth;
            if (row.solid == +sheet) continue;  // there no cell border is exactly in the middle
            const Mesh far = BoxMesh({1e5f, -1e5f, 0}, {1e5f + 64, -1e5f + 64, 64}, row.openFaces);
            EXPECT_EQ(Count(Build(far, depth)), expected) << depth << ", far";
        }
    }
}

}  // namespace
