// The builder: depth and box, small and far objects, tags, odd input, overridden slots.

#include "AdjustableConstants.h"
#include "Images.h"
#include "TraceRecorder.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <sys/mman.h>

namespace {

constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr float kMax = std::numeric_limits<float>::max();

// clang-format off
const struct {
    const char* name;
    IDX_Point extent;
    int maxDepth;
    float voxelSize;
    IDX_Bool useVoxelSize;
    int ofStream, ofMesh;
} kDepthCases[] = {
    {"side met exactly",          {16, 16, 16},    6,  1,    IDX_True,  4,  4},
    {"one halving too far",       {10, 10, 10},    6,  1,    IDX_True,  3,  4},
    {"coarsest",                  {10, 10, 10},    1,  0,    IDX_True,  2,  2},
    {"negative depth",            {10, 10, 10},   -3,  0,    IDX_True,  2,  2},
    {"side above the whole box",  {1, 1, 1},       6,  100,  IDX_True,  2,  2},
    {"X alone decides a stream",  {1, 1000, 1},    6,  0.3f, IDX_True,  2,  6},
    {"depth alone",               {10, 10, 10},    5,  1,    IDX_False, 5,  4},
    {"smallest cell",             {0.016f, 1, 1},  6,  0.1f, IDX_False, 4,  4},
    {"nothing is large enough",   {1e-9f, 1, 1},   6,  0,    IDX_False, 2,  6},
    {"deepest",                   {1000, 1, 1},    19, 0,    IDX_False, 19, 19},
};
// clang-format on

TEST(Builder, ChoosesTheDepth) {
    for (const auto& row : kDepthCases) {
        SCOPED_TRACE(row.name);
        PLMIdxOctreeBuilder builder;
        builder.SetParameters(row.maxDepth, row.voxelSize, row.useVoxelSize);
        ASSERT_EQ(builder.Init({0, 0, 0}, row.extent), IDX_S_OK);
        EXPECT_EQ(builder.GetDepth(), row.ofStream);
        Mesh corners = CellMesh(1, [](int, int, int) { return true; });
        corners.points.push_back(row.extent);
        corners.AddFace(1, 1, 1);
        ASSERT_EQ(Draw(builder, corners), IDX_S_OK);
        EXPECT_EQ(builder.GetDepth(), row.ofMesh);
    }
    PLMIdxOctreeBuilder tooDeep;
    tooDeep.SetParameters(PLMIdxWTWorkingOctree::MAXDEPTH, 0, IDX_False);
    EXPECT_EQ(tooDeep.Init({0, 0, 0}, {1e6f, 1, 1}), IDX_E_FAIL);
}

// Small and far objects

const IDX_Point kFarLow = {1000000, 0, 0};
const IDX_Point kFarHigh = {1000000.5f, 1, 1};

TEST(SmallAndFar, BecomesOneFullBox) {
    OpenBuilder builder;
    builder.SetParameters(4, 0, IDX_False);
    ASSERT_EQ(Draw(builder, BoxMesh({0, 0, 0}, {1, 1, 1})), IDX_S_OK);
    testing::internal::CaptureStdout();
    EXPECT_EQ(builder.Init(kFarLow, kFarHigh), IDX_S_OK);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "small and far object\n");
    EXPECT_EQ(builder.End(), IDX_S_OK);
    EXPECT_EQ(ImageOf(builder).size(), 132u) << "nothing drawn gives the empty octree";
    EXPECT_EQ(builder.Init(kFarLow, kFarHigh), IDX_S_OK);
    EXPECT_EQ(builder.DrawTriangle({0, 0, 0}, {kNan, 0, 0}, {5, 5, 5}), IDX_S_OK);
    EXPECT_EQ(builder.End(), IDX_S_OK);
    EXPECT_EQ(RecordsOf(ImageOf(builder)), Bytes(8, 255));
    const IDX_Point low = builder.GetOctree()._bbOrigin;
    const IDX_Point size = builder.GetOctree()._bbSize;
    EXPECT_EQ(low.x, 999999.25f);
    EXPECT_EQ(low.y, -0.75000025f);
    EXPECT_EQ(size.x, 2.0f);
    EXPECT_EQ(size.z, 1.75000025f + 0.75000025f);
    EXPECT_EQ(builder.Init({0, 0, 0}, {1, 1, 1}), IDX_S_OK);
    EXPECT_EQ(builder.DrawTriangle({0, 0, 0}, {1, 0, 0}, {0, 1, 1}), IDX_S_OK);
    EXPECT_EQ(builder.End(), IDX_E_FAIL) << "needs a successor";
}

// clang-format off
const struct PrecisionCase {
    const char* value;  ///< of IDX_BBOX_SMALL_FAR_PRECISION, null when it isn't set
    IDX_Point low, high;
    bool smallAndFar;
} kPrecisionCases[] = {
    {nullptr,       kFarLow,    kFarHigh,        true},
    {nullptr,       {0, 0, 0},  {1, 1, 1},       false},
    {nullptr,       {0, 0, 5},  {1, 1, 5},       true},
    {nullptr,       {0, 0, 0},  {1, 1, 0},       false},
    {nullptr,       {-1, 0, 0}, {1, 1, 1},       false},
    {"0",           kFarLow,    kFarHigh,        false},
    {"-5",          kFarLow,    kFarHigh,        false},
    {"many",        kFarLow,    kFarHigh,        false},
    {"10",          {50, 0, 0}, {51, 1, 1},      true},
    {"10",          {4, 0, 0},  {6, 1, 1},       false},
    {"4294967306",  {50, 0, 0}, {51, 1, 1},      true},
    {"2147483647",  kFarLow,    kFarHigh,        false},
    {"2147483647",  {7, 0, 0},  {7, 1, 1},       true},
};
// clang-format on

/// Ends the process with 1 for a small and far box, else with 0.
void InitAndExit(const PrecisionCase& row) {
    if (row.value == nullptr) unsetenv("IDX_BBOX_SMALL_FAR_PRECISION");
    if (row.value != nullptr) setenv("IDX_BBOX_SMALL_FAR_PRECISION", row.value, 1);
    PLMIdxOctreeBuilder builder;
    builder.SetParameters(4, 0, IDX_False);
    const bool ok = builder.Init(row.low, row.high) == IDX_S_OK;
    std::_Exit(!ok ? 2 : builder.GetDepth() == 0 ? 1 : 0);
}

TEST(SmallAndFarDeathTest, FollowsThePrecisionOfTheProcess) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";  // a process that has built nothing yet
    for (const PrecisionCase& row : kPrecisionCases) {
        SCOPED_TRACE(testing::Message() << (row.value ? row.value : "unset") << ", " << row.low.x);
        EXPECT_EXIT(InitAndExit(row), testing::ExitedWithCode(row.smallAndFar), "");
    }
}

// Streams

TEST(Stream, WithoutARootNothingIsTouched) {
    TraceRecorder trace;
    const ArenaSize arena(100);
    PLMIdxOctreeBuilder builder;
    builder.SetParameters(2, 0, IDX_False);
    EXPECT_EQ(builder.DrawTriangle({0, 0, 0}, {1, 1, 1}, {0, 1, 0}), IDX_E_FAIL);
    EXPECT_EQ(builder.ReduceDepth(), IDX_E_FAIL);
    EXPECT_EQ(builder.Init({0, 0, 0}, {1, 1, 1}), IDX_E_FAIL);
    EXPECT_EQ(builder.DrawTriangle({0, 0, 0}, {1, 1, 1}, {0, 1, 0}), IDX_E_FAIL);
    EXPECT_EQ(builder.DrawTriangle({0, 0, 0}, {0, 0, 0}, {0, 0, 0}), IDX_E_FAIL);
    EXPECT_EQ(builder.ReduceDepth(), IDX_E_FAIL);
    EXPECT_EQ(builder.End(), IDX_S_OK);
    EXPECT_EQ(ImageOf(builder).size(), 132u);
}

TEST(Stream, ASecondEndFillsNothing) {
    TraceRecorder trace;
    PLMIdxOctreeBuilder builder;
    builder.SetParameters(5, 0, IDX_True);
    const Mesh ball = SphereMesh({0, 0, 0}, 1, 8);
    ASSERT_EQ(builder.Init({-1, -1, -1}, {1, 1, 1}), IDX_S_OK);
    Bytes once;
    for (const float scale : {1.0f, 0.5f}) {
        for (const IDX_Triangle& triangle : ball.triangles) {
            auto p = ball.CornersOf(triangle);
            for (IDX_Point& point : p) point = {point.x * scale, point.y * scale, point.z * scale};
            ASSERT_EQ(builder.DrawTriangle(p[0], p[1], p[2]), IDX_S_OK);
        }
        EXPECT_EQ(builder.End(), IDX_S_OK);
        if (once.empty()) once = ImageOf(builder);
    }
    EXPECT_EQ(ImageOf(builder), once) << "the second ball is in the solid of the first";
    EXPECT_EQ(trace.Take(), Lines{"PLMIdxOctreeBuilder.DrawGeometry.PLMIdxOctreeFiller.Fill"});
}

/// Draws as a subclass may, and throws in the middle of a mesh.
struct Throwing : PLMIdxOctreeBuilder {
    using PLMIdxOctreeBuilder::DrawTriangles;
    long int DrawTriangle(IDX_Point const& a, IDX_Point const& b, IDX_Point const& c) override {
        if (++calls == 5) throw calls;
        return PLMIdxOctreeBuilder::DrawTriangle(a, b, c);
    }

    int calls = 0;
};

/// Draws from further down the stack than later calls come by themselves.
[[gnu::noinline]] long int DrawDeepDown(Throwing& builder, const Mesh& mesh) {
    [[maybe_unused]] volatile unsigned char bytes[1 << 14];
    const long int status = builder.DrawTriangles(mesh.points.data(), 8, mesh.triangles.data(), 12);
    bytes[0] = 0;  // so that the call above isn't made in this frame's place
    return status;
}

/// Writes over what earlier calls have left on the stack.
[[gnu::noinline]] void WipeStack() {
    volatile unsigned char bytes[1 << 15];
    for (volatile unsigned char& byte : bytes) byte = 0xEE;
}

TEST(Stream, GoesOnBehindAnOverrideThatThrew) {
    const Mesh cube = BoxMesh({-1, -1, -1}, {1, 1, 1});
    Bytes images[2];
    for (const bool throws : {false, true}) {
        Throwing builder;
        builder.SetParameters(4, 0, IDX_False);
        ASSERT_EQ(builder.Init({-1, -1, -1}, {1, 1, 1}), IDX_S_OK);
        if (throws) {
            EXPECT_THROW((void)DrawDeepDown(builder, cube), int);
        }
        WipeStack();
        builder.calls = 5;
        for (const IDX_Triangle& triangle : cube.triangles) {
            const auto p = cube.CornersOf(triangle);
            EXPECT_EQ(builder.DrawTriangle(p[0], p[1], p[2]), IDX_S_OK);
        }
        EXPECT_EQ(builder.End(), IDX_S_OK);
        images[throws] = ImageOf(builder);
    }
    EXPECT_EQ(images[0], images[1]);
}

// Whole meshes

TEST(WholeMesh, PointsThatNoTriangleUsesAreNotRead) {
    constexpr std::size_t kPage = 4096;
    const int flags = MAP_PRIVATE | MAP_ANONYMOUS;
    void* const pages = mmap(nullptr, 2 * kPage, PROT_READ | PROT_WRITE, flags, -1, 0);
    ASSERT_EQ(mprotect(static_cast<char*>(pages) + kPage, kPage, PROT_NONE), 0);
    auto* const points = static_cast<IDX_Point*>(pages);
    points[1].x = points[2].y = 1;
    const IDX_Triangle triangle = {
        {0, 1, 2}
    };
    PLMIdxOctreeBuilder builder;
    EXPECT_EQ(builder.DrawGeometry(points, 2 * kPage / sizeof(IDX_Point), &triangle, 1), IDX_S_OK);
    munmap(pages, 2 * kPage);
}

// clang-format off
const struct {
    const char* name;
    long int status;
    int depth;
    std::ptrdiff_t solid;
    void (*spoil)(Mesh& cube);
} kInputCases[] = {
    {"as it is",                 IDX_S_OK,   3, 512, [](Mesh&) {}},
    {"no points",                IDX_S_OK,   0, 0,   [](Mesh& m) { m.points.clear(); }},
    {"no triangles",             IDX_S_OK,   0, 0,   [](Mesh& m) { m.triangles.clear(); }},
    {"index out of range, last", IDX_E_FAIL, 3, 512, [](Mesh& m) { m.AddFace(0, 1, 8); }},
    {"index far out of range",   IDX_E_FAIL, 3, 512, [](Mesh& m) { m.AddFace(~0u, 1, 2); }},
    {"unused point far away",    IDX_S_OK,   3, 512, [](Mesh& m) { m.points.push_back({9e9f, kInf, kNan}); }},
    {"triangles without area",   IDX_S_OK,   3, 512, [](Mesh& m) { m.AddFace(0, 0, 1); m.AddFace(3, 3, 3); m.AddFace(0, 7, 0); }},
    {"all points equal",         IDX_S_OK,   2, 1,   [](Mesh& m) { m.points.assign(8, {5, 6, 7}); }},
    {"all points NaN",           IDX_S_OK,   2, 1,   [](Mesh& m) { m.points.assign(8, {kNan, kNan, kNan}); }},
    {"1e9 in size",              IDX_S_OK,   3, 512, [](Mesh& m) { m = BoxMesh({-1e9f, -1e9f, -1e9f}, {1e9f, 1e9f, 1e9f}); }},
    {"1e30 in size",             IDX_S_OK,   3, 512, [](Mesh& m) { m = BoxMesh({-1e30f, -1e30f, -1e30f}, {1e30f, 1e30f, 1e30f}); }},
    {"denormal size",            IDX_S_OK,   3, 512, [](Mesh& m) { m = BoxMesh({0, 0, 0}, {1e-38f, 1e-38f, 1e-38f}); }},
    {"wider than a float",       IDX_S_OK,   3, 1,   [](Mesh& m) { m = BoxMesh({-kMax, -kMax, -kMax}, {kMax, kMax, kMax}); }},
    {"infinite",                 IDX_S_OK,   3, 1,   [](Mesh& m) { m.points[7] = {kInf, 1, 1}; m.points[0] = {0, -kInf, 0}; }},
};
// clang-format on

TEST(WholeMesh, OddInputHasItsStatusAndTheBuilderGoesOn) {
    TraceRecorder trace;
    const Mesh cube = BoxMesh({0, 0, 0}, {1, 1, 1});
    for (const auto& row : kInputCases) {
        SCOPED_TRACE(row.name);
        PLMIdxOctreeBuilder builder;
        builder.SetParameters(3, 0, IDX_False);
        ASSERT_EQ(Draw(builder, cube), IDX_S_OK);
        const Bytes before = ImageOf(builder);
        Mesh mesh = cube;
        row.spoil(mesh);
        EXPECT_EQ(Draw(builder, mesh), row.status);
        EXPECT_EQ(builder.GetDepth(), row.depth);
        const std::vector<bool> solid = SolidCells(builder.GetOctree());
        EXPECT_EQ(std::count(solid.begin(), solid.end(), true), row.solid);
        ASSERT_EQ(Draw(builder, cube), IDX_S_OK);
        EXPECT_EQ(ImageOf(builder), before);
    }
    PLMIdxOctreeBuilder builder;
    EXPECT_EQ(builder.DrawGeometry(nullptr, 8, cube.triangles.data(), 12), IDX_S_OK);
    EXPECT_EQ(builder.DrawGeometry(cube.points.data(), 8, nullptr, 12), IDX_S_OK);
    EXPECT_EQ(ImageOf(builder).size(), 132u);
}

/// Answers each triangle with one status and draws none.
struct Refusing : PLMIdxOctreeBuilder {
    explicit Refusing(long int iAnswer) : answer(iAnswer) { SetParameters(4, 0, IDX_False); }
    long int DrawTriangle(IDX_Point const&, IDX_Point const&, IDX_Point const&) override {
        ++calls;
        return answer;
    }

    long int answer;
    int calls = 0;
};

TEST(WholeMesh, GoesThroughTheSlotOfDrawTriangle) {
    const Mesh cube = BoxMesh({0, 0, 0}, {1, 1, 1});
    TraceRecorder trace;
    Refusing outside(IDX_S_NOTHING_DONE);
    EXPECT_EQ(Draw(outside, cube), IDX_S_OK);
    EXPECT_EQ(outside.calls, 12);
    EXPECT_EQ(
        trace.Take(),
        Lines{"PLMIdxOctreeBuilder.DrawTriangles - 12 / 12 triangles outside initial BB!!"});
    for (const long int failure : {IDX_E_FAIL, 0x80004005L}) {
        Refusing failing(failure);
        EXPECT_EQ(Draw(failing, cube), IDX_E_FAIL);
        EXPECT_EQ(failing.calls, 3) << "once for each depth from 4 to 2";
        EXPECT_EQ(trace.Take(), Lines(3, "PLMIdxOctreeBuilder.DrawTriangles.DrawTriangle"));
        EXPECT_EQ(ImageOf(failing).size(), 132u) << "the packed octree isn't touched";
    }
}

/// Draws a block of 64 cells a side that is solid but for `rooms` single cells, none of which touch
/// each other or the border: each needs a tag of its own.
long int DrawRooms(PLMIdxOctreeBuilder& builder, int rooms) {
    builder.SetParameters(6, 0, IDX_False);
    return Draw(builder, CellMesh(64, [rooms](int x, int y, int z) mutable {
                    const bool border = std::min({x, y, z}) == 0 || std::max({x, y, z}) == 63;
                    return border || (x + y + z) % 2 == 1 || rooms-- <= 0;
                }));
}

TEST(WholeMesh, HasTagsFor65534Rooms) {
    TraceRecorder trace;
    PLMIdxOctreeBuilder builder;
    ASSERT_EQ(DrawRooms(builder, 65534), IDX_S_OK);
    EXPECT_EQ(trace.Take(), Lines());
    const std::vector<bool> solid = SolidCells(builder.GetOctree());
    EXPECT_EQ(std::count(solid.begin(), solid.end(), false), 0);

    ASSERT_EQ(DrawRooms(builder, 65535), IDX_S_OK);
    const std::string recursion =
        "PLMIdxOctreeFiller._FillOctrees._TagConnectedComponents.Recursive";
    EXPECT_EQ(
        trace.Take(), (Lines{
                          "PLMIdxOctreeFiller._Propagate. Too Many Tags !",
                          "PLMIdxOctreeFiller._FillOctrees._TagConnectedComponents._Propagate",
                          recursion, recursion, recursion, recursion, recursion,
                          "PLMIdxOctreeFiller._FillOctrees._TagConnectedComponents",
                          "PLMIdxOctreeBuilder.DrawGeometry.PLMIdxOctreeFiller.Fill"}));
    const std::vector<bool> shell = SolidCells(builder.GetOctree());
    EXPECT_EQ(std::count(shell.begin(), shell.end(), false), 65535) << "the surface alone";
}

}  // namespace
