// Boxes that are enlarged by what is seen through a matrix, against boxes worked out by hand and
// a plain loop over all occupied cells.

#include "Images.h"

#include "IDX_WT_GeometryServices.h"
#include "PLMIdxWTOctreeServices.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>
#include <vector>

namespace {

using Services = IDX_WT_GeometryServices;

struct Box {
    IDX_Point low;
    IDX_Point high;
};

Box Cube(float iLow, float iHigh) {
    const IDX_Point low = {iLow, iLow, iLow};
    const IDX_Point high = {iHigh, iHigh, iHigh};
    return {low, high};
}

/// Coordinate by coordinate, low before high; zeros of either sign are one.
std::array<float, 6> Numbers(const Box& box) {
    return {box.low.x, box.low.y, box.low.z, box.high.x, box.high.y, box.high.z};
}

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

/// A quarter turn about Z with a doubling along Z, then a shift: (x, y, z) to (10 - y, x, 2 z + 1).
PLMIdxMatrix QuarterTurn() {
    PLMIdxMatrix matrix;
    const float rows[12] = {0, -1, 0, 10, 1, 0, 0, 0, 0, 0, 2, 1};
    std::copy(rows, rows + 12, &matrix.coefficients[0][0]);
    return matrix;
}

/// An octree that counts how often it is asked, cell by cell.
class CountingOctree : public PLMIdxIBaseOctree {
public:
    explicit CountingOctree(const PLMIdxIBaseOctree& octree)
        : PLMIdxIBaseOctree(octree), _octree(octree) {}
    IDX_Base_Octree_TestResult Test(
        const IDX_Base_Octree_Iterator& iterator, unsigned int child) const override {
        ++nTests;
        return _octree.Test(iterator, child);
    }
    long int Move(IDX_Base_Octree_Iterator& iterator, unsigned int child) const override {
        return _octree.Move(iterator, child);
    }
    int GetSizeInFiles() const override { return 0; }
    long int Save(IDX_WT_SplittedFile&, unsigned int&, unsigned int&) const override { return 0; }
    long int Load(void*) override { return 0; }

    mutable int nTests = 0;

private:
    const PLMIdxIBaseOctree& _octree;
};

/// Enlarges a box by the spheres around the occupied cells, one by one, each found on its own level.
/// @param radius  of the sphere around the cell of which `centre` is the middle
void EnlargeByCells(
    const PLMIdxIBaseOctree& octree,
    const IDX_Base_Octree_Iterator& iterator,
    const IDX_Point& centre,
    const IDX_Point& size,
    float radius,
    Box& box) {
    const IDX_Point half = {size.x / 2, size.y / 2, size.z / 2};
    for (unsigned int child = 0; child < 8; ++child) {
        const IDX_Point middle = {
            centre.x + (child & 1 ? half.x : -half.x) / 2,
            centre.y + (child & 2 ? half.y : -half.y) / 2,
            centre.z + (child & 4 ? half.z : -half.z) / 2};
        const IDX_Base_Octree_TestResult state = octree.Test(iterator, child);
        IDX_Base_Octree_Iterator inner = iterator;
        if (state == OCTREE_FULL) {
            Services::EnlargeBoxSphere(box.low, box.high, middle, radius / 2, QuarterTurn());
        } else if (state == OCTREE_PARTIAL && octree.Move(inner, child) == IDX_S_OK) {
            EnlargeByCells(octree, inner, middle, half, radius / 2, box);
        }
    }
}

}  // namespace

TEST(GeometryServices, EnlargeByPointsCornersAndSpheres) {
    const Box start = Cube(0, 4);
    const PLMIdxMatrix identity;
    const PLMIdxMatrix turn = QuarterTurn();
    const struct {
        const char* what;
        const PLMIdxMatrix& matrix;
        std::vector<IDX_Point> points;  ///< one: a point; two: a box
        float radius;                   ///< not 0: a sphere
        Box expected;
    } cases[] = {
        {"on a face",        identity, {{4, 0, 2}},              0,  start                   },
        {"beyond two faces", identity, {{5, 2, -1}},             0,  {{0, 0, -1}, {5, 4, 4}} },
        {"not a number",     identity, {{kNaN, 9, 2}},           0,  start                   },
        {"turned",           turn,     {{5, 8, 2}},              0,  {{0, 0, 0}, {4, 5, 5}}  },
        {"corners inside",   identity, {{0, 1, 2}, {4, 3, 4}},   0,  start                   },
        {"corners",          identity, {{-1, 1, 1}, {2, 6, 3}},  0,  {{-1, 0, 0}, {4, 6, 4}} },
        {"turned corners",   turn,     {{-2, 1, 1}, {2, 12, 3}}, 0,  {{-2, -2, 0}, {9, 4, 7}}},
        {"sphere inside",    identity, {{2, 2, 2}},              2,  start                   },
        {"sphere",           identity, {{2, 2, 3}},              2,  {{0, 0, 0}, {4, 4, 5}}  },
        {"turned sphere",    turn,     {{0, 8, 2}},              3,  {{-1, -3, 0}, {5, 4, 8}}},
        {"sphere, NaN",      identity, {{2, kNaN, 9}},           1,  start                   },
        {"inside out",       identity, {{2, 2, 2}},              -3, start                   },
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        Box box = start;
        IDX_Bool enlarged = IDX_True;
        const IDX_Point& first = each.points.front();
        const IDX_Point& last = each.points.back();
        if (each.radius != 0) {
            EXPECT_TRUE(Services::IsBoxEnlargedSphere(
                box.low, box.high, first, each.radius, each.matrix, enlarged));
            EXPECT_TRUE(
                Services::EnlargeBoxSphere(box.low, box.high, first, each.radius, each.matrix));
        } else if (each.points.size() == 1) {
            EXPECT_TRUE(Services::IsBoxEnlarged(box.low, box.high, first, each.matrix, enlarged));
            EXPECT_TRUE(Services::EnlargeBox(box.low, box.high, first, each.matrix));
        } else {
            EXPECT_TRUE(
                Services::IsBoxEnlarged(box.low, box.high, first, last, each.matrix, enlarged));
            EXPECT_TRUE(Services::EnlargeBox(box.low, box.high, first, last, each.matrix));
        }
        EXPECT_EQ(Numbers(box), Numbers(each.expected));
        EXPECT_EQ(enlarged == IDX_True, Numbers(box) != Numbers(start));
    }
}

TEST(OctreeServices, AFullOctreeGivesTheCubesOfItsCells) {
    PLMIdxWTOptimOctree_0 octree;
    octree.ConstructFullOctree({0, 0, 0}, {4, 4, 4});
    CountingOctree counting(octree);
    PLMIdxWTOctreeServices services(counting);
    EXPECT_EQ(services.GetDepth(), 2u);
    // The radius of the sphere around the octree. That of a child is half of it.
    const auto radius = static_cast<float>(std::sqrt(12.0));
    Box box = Cube(2, 2);
    EXPECT_EQ(services.ExpandBox(box.low, box.high, PLMIdxMatrix()), IDX_S_OK);
    EXPECT_EQ(Numbers(box), Numbers(Cube(1 - radius * 0.5f, 3 + radius * 0.5f)));
    EXPECT_EQ(counting.nTests, 8);

    // A box that holds the sphere of the whole octree: nothing is asked.
    box = Cube(2 - radius, 2 + radius);
    EXPECT_EQ(services.ExpandBox(box.low, box.high, PLMIdxMatrix()), IDX_S_OK);
    EXPECT_EQ(counting.nTests, 8);
}

TEST(OctreeServices, AnOctreeWithNothingInItLeavesTheBox) {
    Box box = Cube(5, 6);
    const PLMIdxWTOptimOctree_0 none;
    PLMIdxWTWorkingOctree empty;
    empty._depth = 3;
    empty.SetBB({0, 0, 0}, {8, 8, 8});
    for (const PLMIdxIBaseOctree* octree :
         std::initializer_list<const PLMIdxIBaseOctree*>{&none, &empty}) {
        PLMIdxWTOctreeServices services(*octree);
        EXPECT_EQ(services.ExpandBox(box.low, box.high, PLMIdxMatrix()), IDX_S_OK);
        EXPECT_EQ(Numbers(box), Numbers(Cube(5, 6)));
    }
}

TEST(OctreeServices, AgreeWithAllCellsOneByOneAndVisitFewer) {
    PLMIdxOctreeBuilder builder;
    builder.SetParameters(5, 0, IDX_False);
    ASSERT_EQ(Draw(builder, BoxMesh({-1, 2, 0}, {3, 5, 1})), IDX_S_OK);
    const PLMIdxIBaseOctree& octree = builder.GetOctree();
    IDX_Point low;
    IDX_Point size;
    octree.GetBB(low, size);
    const IDX_Point centre = {low.x + size.x / 2, low.y + size.y / 2, low.z + size.z / 2};
    const auto radius = static_cast<float>(std::sqrt(0.75 * size.x * size.x));

    const IDX_Point start = {8, 0, 2};
    Box expected = {start, start};
    CountingOctree all(octree);
    EnlargeByCells(all, {}, centre, size, radius, expected);
    Box box = {start, start};
    CountingOctree counting(octree);
    PLMIdxWTOctreeServices services(counting);
    EXPECT_EQ(services.ExpandBox(box.low, box.high, QuarterTurn()), IDX_S_OK);
    for (std::size_t i = 0; i < 6; ++i) {
        EXPECT_NEAR(Numbers(box)[i], Numbers(expected)[i], 1e-5f);
    }
    EXPECT_GT(counting.nTests, 8);
    EXPECT_LT(counting.nTests, all.nTests);
}
