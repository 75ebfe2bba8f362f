// The builder: depth and box, small and far objects, tags, odd input, overridden slots.

#include "AdjustableConstants.h"
#include "Images.h"
#include "Transcript.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>

namespace {

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kMax = std::numeric_limits<float>::max();

const Mesh kCube = BoxMesh({-1, -1, -1}, {1, 1, 1});
const IDX_Point kFarLow = {1000000, 0, 0};
const IDX_Point kFarHigh = {1000000.5f, 1, 1};

/// Draws the triangles of the cube into a stream, one by one.
void DrawCube(PLMIdxOctreeBuilder& builder) {
    for (const IDX_Triangle& triangle : kCube.triangles) {
        const auto p = kCube.CornersOf(triangle);
        EXPECT_EQ(builder.DrawTriangle(p[0], p[1], p[2]), IDX_S_OK);
    }
}

std::ptrdiff_t CountSolid(PLMIdxOctreeBuilder& builder) {
    const std::vector<bool> solid = SolidCells(builder.GetOctree());
    return std::count(solid.begin(), solid.end(), true);
}

// clang-format off
const struct {
    const char* name;
    IDX_Point extent;
    int maxDepth;
    float voxelSize;
    IDX_Bool useVoxelSize;
    int ofStream, ofMesh;
} kDepthCases[] = {
    {"side met exactly",         {16, 16, 16},   6,  1,    IDX_True,  4,  4},
    {"one halving too far",      {10, 10, 10},   6,  1,    IDX_True,  3,  4},
    {"negative depth",           {10, 10, 10},   -3, 0,    IDX_True,  2,  2},
    {"side above the whole box", {1, 1, 1},      6,  100,  IDX_True,  2,  2},
    {"X alone decides a stream", {1, 1000, 1},   6,  0.3f, IDX_True,  2,  6},
    {"depth alone",              {10, 10, 10},   5,  1,    IDX_False, 5,  4},
    {"smallest cell",            {0.016f, 1, 1}, 6,  0.1f, IDX_False, 4,  4},
    {"nothing is large enough",  {1e-9f, 1, 1},  6,  0,    IDX_False, 2,  6},
    {"deepest",                  {1000, 1, 1},   19, 0,    IDX_False, 19, 19},
};

const struct PrecisionCase {
    const char* value;  ///< of IDX_BBOX_SMALL_FAR_PRECISION, null when it isn't set
    IDX_Point low, high;
    bool smallAndFar;
} kPrecisionCases[] = {
    {nullptr,      kFarLow,    kFarHigh,  true},
    {nullptr,      {0, 0, 5},  {1, 1, 5}, true},
    {nullptr,      {0, 0, 0},  {1, 1, 0}, false},
    {"-5",         kFarLow,    kFarHigh,  false},
    {"10",         {50, 0, 0}, {51, 1, 1}, true},
    {"4294967306", {50, 0, 0}, {51, 1, 1}, true},
    {"2147483647", kFarLow,    kFarHigh,   false},
    {"2147483647", {7, 0, 0},  {7, 1, 1},  true},
};

const struct {
    const char* name;
    long int status;
    int depth;
    std::ptrdiff_t solid;
    void (*spoil)(Mesh& cube);
} kInputCases[] = {
    {"as it is",               IDX_S_OK,   3, 512, [](Mesh&) {}},
    {"no points",              IDX_S_OK,   0, 0,   [](Mesh& m) { m.points.clear(); }},
    {"no triangles",           IDX_S_OK,   0, 0,   [](Mesh& m) { m.triangles.clear(); }},
    {"index out of range",     IDX_E_FAIL, 3, 512, [](Mesh& m) { m.AddFace(0, 1, 8); }},
    {"unused point far away",  IDX_S_OK,   3, 512, [](Mesh& m) { m.points.push_back({9e9f, kInf, kNan}); }},
    {"triangles without area", IDX_S_OK,   3, 512, [](Mesh& m) { m.AddFace(0, 0, 1); m.AddFace(3, 3, 3); }},
    {"all points equal",       IDX_S_OK,   2, 1,   [](Mesh& m) { m.points.assign(8, {5, 6, 7}); }},
    {"the last point NaN",     IDX_S_OK,   3, 512, [](Mesh& m) { m.points.push_back({kNan, kNan, kNan}); m.AddFace(0, 7, 8); }},
    {"all points NaN",         IDX_S_OK,   2, 1,   [](Mesh& m) { m.points.assign(8, {kNan, kNan, kNan}); }},
    {"wider than a float",     IDX_S_OK,   3, 1,   [](Mesh& m) { m = BoxMesh({-kMax, -kMax, -kMax}, {kMax, kMax, kMax}); }},
    {"infinite",               IDX_S_OK,   3, 1,   [](Mesh& m) { m.points[7] = {kInf, 1, 1}; m.points[0] = {0, -kInf, 0}; }},
};
// clang-format on

/// Ends the process with 1 for a small and far box, else with 0.
void InitAndExit(const PrecisionCase& row) {
    if (row.value == nullptr) unsetenv("IDX_BBOX_SMALL_FAR_PRECISION");
    if (row.value != nullptr) setenv("IDX_BBOX_SMALL_FAR_PRECISION", row.value, 1);
    PLMIdxOctreeBuilder builder;
    const bool ok = builder.Init(row.low, row.high) == IDX_S_OK;
    std::_Exit(!ok ? 2 : builder.GetDepth() == 0 ? 1 : 0);
}

/// Draws as a subclass may: answers each triangle with one status, or throws at one of them.
struct Overriding : PLMIdxOctreeBuilder {
    using PLMIdxOctreeBuilder::DrawTriangles;
    long int DrawTriangle(IDX_Point const& a, IDX_Point const& b, IDX_Point const& c) override {
        if (++calls == throwsAt) throw calls;
        return throwsAt > 0 ? PLMIdxOctreeBuilder::DrawTriangle(a, b, c)
               : calls == 5 ? IDX_S_OK
                            : answer;
    }

    long int answer = IDX_S_NOTHING_DONE;
    int throwsAt = 0;
    int calls = 0;
};

/// Draws a block of 64 cells a side that is solid but for `rooms` single cells, none of which touch
/// each other or the border: each needs a tag of its own.
long int DrawRooms(PLMIdxOctreeBuilder& builder, int rooms) {
    builder.SetParameters(6, 0, IDX_False);
    return Draw(builder, CellMesh(64, [rooms](int x, int y, int z) mutable {
                    const bool border = std::min({x, y, z}) == 0 || std::max({x, y, z}) == 63;
                    return border || (x + y + z) % 2 == 1 || rooms-- <= 0;
                }));
}

}  // namespace

TEST(Builder, ChoosesTheDepth) {
    for (const auto& row : kDepthCases) {
        SCOPED_TRACE(row.name);
        PLMIdxOctreeBuilder builder;
        builder.SetParameters(row.maxDepth, row.voxelSize, row.useVoxelSize);
        ASSERT_EQ(builder.Init({0, 0, 0}, row.extent), IDX_S_OK);
        EXPECT_EQ(builder.GetDepth(), row.ofStream);
        Mesh corners = CellMesh(1, [](int, int, int) { return true; });
        corners.AddTriangle(row.extent, row.extent, row.extent);
        ASSERT_EQ(Draw(builder, corners), IDX_S_OK);
        EXPECT_EQ(builder.GetDepth(), row.ofMesh);
    }
    PLMIdxOctreeBuilder tooDeep;
    tooDeep.SetParameters(PLMIdxWTWorkingOctree::MAXDEPTH, 0, IDX_False);
    EXPECT_EQ(tooDeep.Init({0, 0, 0}, {1e6f, 1, 1}), IDX_E_FAIL);
}

TEST(Builder, MakesSmallAndFarOneFullBox) {
    PLMIdxOctreeBuilder builder;
    testing::internal::CaptureStdout();
    EXPECT_EQ(builder.Init(kFarLow, kFarHigh), IDX_S_OK);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "small and far object\n");
    EXPECT_EQ(builder.DrawTriangle({0, 0, 0}, {kNan, 0, 0}, {5, 5, 5}), IDX_S_OK);
    EXPECT_EQ(builder.End(), IDX_S_OK);
    EXPECT_EQ(RecordsOf(ImageOf(builder)), Bytes(8, 255));
    const IDX_Point low = builder.GetOctree()._bbOrigin;
    const IDX_Point size = builder.GetOctree()._bbSize;
    EXPECT_EQ(low.x, 999999.25f);
    EXPECT_EQ(low.y, -0.75000025f);
    EXPECT_EQ(size.x, 2.0f);
    EXPECT_EQ(size.z, 1.75000025f + 0.75000025f);
    EXPECT_EQ(builder.Init(kFarLow, kFarHigh), IDX_S_OK);
    EXPECT_EQ(builder.End(), IDX_S_OK);
    EXPECT_EQ(ImageOf(builder).size(), 132u) << "nothing drawn gives the empty octree";
    EXPECT_EQ(builder.Init({-1, -1, -1}, {1, 1, 1}), IDX_S_OK);
    DrawCube(builder);
    EXPECT_EQ(builder.End(), IDX_E_FAIL) << "needs a successor";
}

TEST(BuilderDeathTest, FollowsThePrecisionOfTheProcess) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";  // a process that has built nothing yet
    for (const PrecisionCase& row : kPrecisionCases) {
        SCOPED_TRACE(testing::Message() << (row.value ? row.value : "unset") << ", " << row.low.x);
        EXPECT_EXIT(InitAndExit(row), testing::ExitedWithCode(row.smallAndFar), "");
    }
}

TEST(Builder, StoresTheCuboidUntilTheNextStream) {
    struct {
        int isThere = 1;
        IDX_Base_4x4Matrix matrix;
        IDX_Point points[2] = {};
    } cuboid;
    cuboid.matrix.coefficients[1][2] = 7;
    cuboid.points[0] = {1, 2, 3};
    cuboid.points[1] = {4, 5, 6};
    PLMIdxOctreeBuilder builder;
    ASSERT_EQ(builder.Init({-1, -1, -1}, {1, 1, 1}), IDX_S_OK);
    builder.SetCuboid(cuboid.matrix, cuboid.points[0], cuboid.points[1]);
    for (; cuboid.isThere >= 0; --cuboid.isThere) {
        DrawCube(builder);
        ASSERT_EQ(builder.End(), IDX_S_OK);
        EXPECT_EQ(std::memcmp(&ImageOf(builder)[36], &cuboid, 92), 0) << cuboid.isThere;
        ASSERT_EQ(builder.Init({-1, -1, -1}, {1, 1, 1}), IDX_S_OK);
        cuboid.matrix = {};
        cuboid.points[0] = cuboid.points[1] = {};
    }
}

TEST(Builder, WithoutARootNothingIsTouched) {
    Transcript transcript;
    const ArenaSize arena(100);
    PLMIdxOctreeBuilder builder;
    builder.SetParameters(2, 0, IDX_False);
    for (const char* when : {"before Init", "after Init"}) {
        transcript.Title(when);
        NOTE(transcript, builder.DrawTriangle({0, 0, 0}, {1, 1, 1}, {0, 1, 0}));
        NOTE(transcript, builder.ReduceDepth());
        NOTE(transcript, builder.Init({0, 0, 0}, {1, 1, 1}));
    }
    NOTE(transcript, builder.End());
    EXPECT_EQ(ImageOf(builder).size(), 132u);
}

TEST(Builder, FullArenas) {
    Transcript transcript;
    const ArenaSize arena(2 * 52 + 160);
    PLMIdxOctreeBuilder builder;
    builder.SetParameters(4, 0, IDX_False);
    ASSERT_EQ(builder.Init({-1, -1, -1}, {1, 1, 1}), IDX_S_OK);
    const auto point = [&builder](float x) {
        return builder.DrawTriangle({x, x, x}, {x, x, x}, {x, x, x});
    };
    NOTE(transcript, point(-0.9f));  // takes all of it
    NOTE(transcript, point(0.9f));
    NOTE(transcript, builder.DrawTriangle({-1, -1, -1}, {1, 1, 1}, {1, -1, 1}));
    // Beyond the box, but not by more than its enlarged cells reach.
    const float x = 1.00203f;
    NOTE(transcript, builder.DrawTriangle({x, -0.9f, 0}, {x, 0.9f, 0}, {x, 0, 0.9f}));
    NOTE(transcript, Draw(builder, kCube));
    EXPECT_EQ(builder.GetDepth(), 2);
}

TEST(Builder, ASecondEndFillsNothing) {
    Transcript transcript;
    PLMIdxOctreeBuilder builder;
    ASSERT_EQ(builder.Init({-1, -1, -1}, {1, 1, 1}), IDX_S_OK);
    DrawCube(builder);
    NOTE(transcript, builder.End());
    const Bytes once = ImageOf(builder);
    EXPECT_EQ(
        builder.DrawTriangle({-0.9f, 0.1f, 0.1f}, {0.9f, 0.1f, 0.1f}, {0, 0.9f, 0.2f}), IDX_S_OK);
    NOTE(transcript, builder.End());
    EXPECT_EQ(ImageOf(builder), once) << "the triangle is in the solid of the cube";
    PLMIdxOctreeBuilder without;
    ASSERT_EQ(without.Init({-1, -1, -1}, {1, 1, 1}), IDX_S_OK);
    DrawCube(without);
    ASSERT_EQ(without.End(), IDX_S_OK);
    for (PLMIdxOctreeBuilder* each : {&builder, &without}) ASSERT_EQ(each->ReduceDepth(), IDX_S_OK);
    const int* const counts = builder.GetNCellsByDepth();
    EXPECT_TRUE(std::equal(counts, counts + 20, without.GetNCellsByDepth())) << "cells stay full";
}

TEST(Builder, DrawsThroughTheSlotOfDrawTriangle) {
    Transcript transcript;
    Overriding outside;
    NOTE(transcript, Draw(outside, kCube));
    EXPECT_EQ(outside.calls, 12);
    for (const long int failure : {IDX_E_FAIL, 0x80004005L}) {
        Overriding failing;
        failing.SetParameters(4, 0, IDX_False);
        failing.answer = failure;
        NOTE(transcript, Draw(failing, kCube));
        EXPECT_EQ(failing.calls, 3) << "once for each depth from 4 to 2";
        EXPECT_EQ(ImageOf(failing).size(), 132u) << "the packed octree isn't touched";
    }
    Bytes images[2];
    for (const int throwsAt : {99, 5}) {
        Overriding builder;
        builder.throwsAt = throwsAt;
        ASSERT_EQ(builder.Init({-1, -1, -1}, {1, 1, 1}), IDX_S_OK);
        const auto draw = [&builder] {
            (void)builder.DrawTriangles(kCube.points.data(), 8, kCube.triangles.data(), 12);
        };
        if (throwsAt == 5) {
            EXPECT_THROW(draw(), int);
        }
        DrawCube(builder);
        EXPECT_EQ(builder.End(), IDX_S_OK);
        images[throwsAt == 5] = ImageOf(builder);
    }
    EXPECT_EQ(images[0], images[1]);
}

TEST(Builder, OddInputHasItsStatusAndTheBuilderGoesOn) {
    for (const auto& row : kInputCases) {
        SCOPED_TRACE(row.name);
        PLMIdxOctreeBuilder builder;
        builder.SetParameters(3, 0, IDX_False);
        ASSERT_EQ(Draw(builder, kCube), IDX_S_OK);
        const Bytes before = ImageOf(builder);
        Mesh mesh = kCube;
        row.spoil(mesh);
        EXPECT_EQ(Draw(builder, mesh), row.status);
        EXPECT_EQ(builder.GetDepth(), row.depth);
        EXPECT_EQ(CountSolid(builder), row.solid);
        ASSERT_EQ(Draw(builder, kCube), IDX_S_OK);
        EXPECT_EQ(ImageOf(builder), before);
    }
    PLMIdxOctreeBuilder builder;
    const IDX_Point* points = kCube.points.data();
    EXPECT_EQ(builder.DrawGeometry(points, ~0u, kCube.triangles.data(), 12), IDX_S_OK)
        << "points that no triangle uses aren't read";
    EXPECT_EQ(builder.DrawGeometry(nullptr, 8, kCube.triangles.data(), 12), IDX_S_OK);
    EXPECT_EQ(ImageOf(builder).size(), 132u);
    EXPECT_EQ(builder.DrawGeometry(points, 8, nullptr, 12), IDX_S_OK);
}

TEST(Builder, HasTagsFor65534Rooms) {
    Transcript transcript;
    PLMIdxOctreeBuilder builder;
    NOTE(transcript, DrawRooms(builder, 65534));
    EXPECT_EQ(CountSolid(builder), 1 << 18);
    NOTE(transcript, DrawRooms(builder, 65535));
    EXPECT_EQ(CountSolid(builder), (1 << 18) - 65535) << "the surface alone";
}
