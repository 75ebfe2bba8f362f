// Boxes that are enlarged by what is seen through a matrix, against boxes worked out by hand and
// a plain loop over all occupied cells.

#include "Images.h"

#include "IDX_WT_GeometryServices.h"
#include "PLMIdxWTOctreeServices.h"

#include "formats/OctreeImage.h"

#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace {

using Services = IDX_WT_GeometryServices;

/// Coordinate by coordinate, low before high.
using Box = std::array<float, 6>;

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr Box kStart = {0, 0, 0, 4, 5, 6};

/// A quarter turn about Z with a doubling along Z, then a shift: (x, y, z) to (10 - y, x, 2 z + 1).
PLMIdxMatrix QuarterTurn() {
    PLMIdxMatrix matrix;
    const float rows[12] = {0, -1, 0, 10, 1, 0, 0, 0, 0, 0, 2, 1};
    std::copy(rows, rows + 12, &matrix.coefficients[0][0]);
    return matrix;
}

Box ExpandedBy(const PLMIdxIBaseOctree& octree, const Box& box, const PLMIdxMatrix& matrix) {
    IDX_Point low = {box[0], box[1], box[2]};
    IDX_Point high = {box[3], box[4], box[5]};
    EXPECT_EQ(PLMIdxWTOctreeServices(octree).ExpandBox(low, high, matrix), IDX_S_OK);
    return {low.x, low.y, low.z, high.x, high.y, high.z};
}

/// A full octree over the cube from 0 to 4 that counts how often it is asked.
struct CountingOctree : PLMIdxWTOptimOctree_0 {
    CountingOctree() { ConstructFullOctree({0, 0, 0}, {4, 4, 4}); }
    IDX_Base_Octree_TestResult Test(
        const IDX_Base_Octree_Iterator& iterator, unsigned int child) const override {
        ++nTests;
        return PLMIdxWTOptimOctree_0::Test(iterator, child);
    }

    mutable int nTests = 0;
};

}  // namespace

TEST(GeometryServices, EnlargeByPointsCornersAndSpheres) {
    const PLMIdxMatrix identity;
    const PLMIdxMatrix turn = QuarterTurn();
    enum Kind { kPoint, kBox, kSphere };
    // clang-format off
    const struct {
        Kind kind;
        const PLMIdxMatrix& matrix;
        IDX_Point first, last;  ///< of a sphere: its centre, and its radius as x
        Box expected;
    } kCases[] = {
        {kPoint,  identity, {4, 0, 2},    {},         kStart},
        {kPoint,  identity, {5, 2, -1},   {},         {0, 0, -1, 5, 5, 6}},
        {kPoint,  identity, {kNaN, 9, 2}, {},         kStart},
        {kPoint,  turn,     {5, 8, 3},    {},         {0, 0, 0, 4, 5, 7}},
        {kBox,    identity, {0, 1, 2},    {4, 3, 6},  kStart},
        {kBox,    identity, {-1, 1, 1},   {2, 6, 7},  {-1, 0, 0, 4, 6, 7}},
        {kBox,    turn,     {-2, 1, 1},   {2, 12, 3}, {-2, -2, 0, 9, 5, 7}},
        {kBox,    identity, {5, 6, 7},    {1, 1, 1},  {0, 0, 0, 5, 6, 7}},
        {kSphere, identity, {2, 2, 2},    {2, 0, 0},  kStart},
        {kSphere, identity, {2, 2, 3},    {3.5f, 0, 0}, {-1.5f, -1.5f, -0.5f, 5.5f, 5.5f, 6.5f}},
        {kSphere, turn,     {0, 8, 2},    {3, 0, 0},  {-1, -3, 0, 5, 5, 8}},
        {kSphere, identity, {2, kNaN, 9}, {1, 0, 0},  kStart},
        {kSphere, identity, {2, 2, 2},    {-3, 0, 0}, kStart},
    };
    // clang-format on
    for (const auto& row : kCases) {
        SCOPED_TRACE(&row - kCases);
        const PLMIdxMatrix& m = row.matrix;
        const IDX_Point& p = row.first;
        IDX_Point low = {kStart[0], kStart[1], kStart[2]};
        IDX_Point high = {kStart[3], kStart[4], kStart[5]};
        IDX_Bool enlarged = IDX_True;
        switch (row.kind) {
            case kPoint:
                EXPECT_TRUE(Services::IsBoxEnlarged(low, high, p, m, enlarged));
                EXPECT_TRUE(Services::EnlargeBox(low, high, p, m));
                break;
            case kBox:
                EXPECT_TRUE(Services::IsBoxEnlarged(low, high, p, row.last, m, enlarged));
                EXPECT_TRUE(Services::EnlargeBox(low, high, p, row.last, m));
                break;
            case kSphere:
                EXPECT_TRUE(Services::IsBoxEnlargedSphere(low, high, p, row.last.x, m, enlarged));
                EXPECT_TRUE(Services::EnlargeBoxSphere(low, high, p, row.last.x, m));
                break;
        }
        EXPECT_EQ((Box{low.x, low.y, low.z, high.x, high.y, high.z}), row.expected);
        EXPECT_EQ(enlarged == IDX_True, row.expected != kStart);
    }
}

TEST(OctreeServices, AskOnlyWhereTheBoxGrows) {
    const CountingOctree octree;
    EXPECT_EQ(PLMIdxWTOctreeServices(octree).GetDepth(), 2u);
    // The radius of the sphere around the octree. That of a child is half of it.
    const auto radius = static_cast<float>(std::sqrt(12.0));
    const float low = 1 - radius * 0.5f;
    const float high = 3 + radius * 0.5f;
    const Box cube = {low, low, low, high, high, high};
    EXPECT_EQ(ExpandedBy(octree, {2, 2, 2, 2, 2, 2}, PLMIdxMatrix()), cube);
    EXPECT_EQ(octree.nTests, 8);
    const float least = 2 - radius;
    const float most = 2 + radius;
    const Box whole = {least, least, least, most, most, most};
    EXPECT_EQ(ExpandedBy(octree, whole, PLMIdxMatrix()), whole);
    EXPECT_EQ(octree.nTests, 8) << "not asked";

    EXPECT_EQ(ExpandedBy(PLMIdxWTOptimOctree_0(), kStart, PLMIdxMatrix()), kStart);
    PLMIdxWTWorkingOctree empty;
    empty.SetDepth(3);
    empty.SetBB({0, 0, 0}, {80, 80, 80});
    EXPECT_EQ(ExpandedBy(empty, kStart, PLMIdxMatrix()), kStart);
}

TEST(OctreeServices, AgreeWithAllCellsOneByOne) {
    PLMIdxOctreeBuilder builder;
    builder.SetParameters(5, 0, IDX_False);
    ASSERT_EQ(Draw(builder, BoxMesh({-1, 2, 0}, {3, 5, 1})), IDX_S_OK);
    const double side = builder.GetOctree()._bbSize.x;
    const Bytes image = ImageOf(builder);
    const OctreeImage octree(image.data());
    const IDX_Point start = {8, 0, 2};
    IDX_Point low = start;
    IDX_Point high = start;
    octree.ForEachOccupied([&](const OctreeCell& cell) {
        const OctreeCellBox box = octree.BoxOf(cell);
        const auto middle = [&box](int axis) {
            return static_cast<float>((box.low[axis] + box.high[axis]) / 2);
        };
        const double radius = std::ldexp(std::sqrt(0.75) * side, -static_cast<int>(cell.level));
        Services::EnlargeBoxSphere(
            low, high, {middle(0), middle(1), middle(2)}, static_cast<float>(radius),
            QuarterTurn());
    });
    const Box box = ExpandedBy(
        builder.GetOctree(), {start.x, start.y, start.z, start.x, start.y, start.z}, QuarterTurn());
    const Box expected = {low.x, low.y, low.z, high.x, high.y, high.z};
    for (std::size_t i = 0; i < 6; ++i) EXPECT_NEAR(box[i], expected[i], 1e-5f);
}
