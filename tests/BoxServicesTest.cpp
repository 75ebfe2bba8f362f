// Boxes that are enlarged by what is seen through a matrix, against boxes worked out by hand and
// a plain loop over all occupied cells.

#include "Meshes.h"

#include "IDX_WT_GeometryServices.h"
#include "PLMIdxOctreeBuilder.h"
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

    bool operator==(const Box& other) const {
        const auto same = [](const IDX_Point& a, const IDX_Point& b) {
            return a.x == b.x && a.y == b.y && a.z == b.z;
        };
        return same(low, other.low) && same(high, other.high);
    }
};

std::ostream& operator<<(std::ostream& stream, const Box& box) {
    return stream << '(' << box.low.x << ", " << box.low.y << ", " << box.low.z << ") to ("
                  << box.high.x << ", " << box.high.y << ", " << box.high.z << ')';
}

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

/// A quarter turn about Z with a doubling along Z, then a shift: (x, y, z) to (10 - y, x, 2 z + 1).
PLMIdxMatrix QuarterTurn() {
    PLMIdxMatrix matrix;
    const float rows[3][4] = {
        {0, -1, 0, 10},
        {1, 0,  0, 0 },
        {0, 0,  2, 1 }
    };
    std::copy(&rows[0][0], &rows[0][0] + 12, &matrix.coefficients[0][0]);
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

/// The occupied cells of an octree on their own level, found from the root for each place.
void CollectCells(
    const PLMIdxIBaseOctree& octree,
    const IDX_Base_Octree_Iterator& iterator,
    const Box& cell,
    std::vector<Box>& cells) {
    for (unsigned int child = 0; child < 8; ++child) {
        Box part = cell;
        const auto half = [child](float& low, float& high, unsigned int axis) {
            const float middle = (low + high) * 0.5f;
            ((child >> axis & 1u) != 0 ? low : high) = middle;
        };
        half(part.low.x, part.high.x, 0);
        half(part.low.y, part.high.y, 1);
        half(part.low.z, part.high.z, 2);
        const IDX_Base_Octree_TestResult state = octree.Test(iterator, child);
        if (state == OCTREE_FULL) cells.push_back(part);
        if (state != OCTREE_PARTIAL) continue;
        IDX_Base_Octree_Iterator inner = iterator;
        octree.Move(inner, child);
        CollectCells(octree, inner, part, cells);
    }
}

}  // namespace

TEST(GeometryServices, EnlargeByPointsCornersAndSpheres) {
    const Box start = {
        {0, 0, 0},
        {4, 4, 4}
    };
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
        EXPECT_EQ(box, each.expected);
        EXPECT_EQ(enlarged == IDX_True, !(box == start));
    }
}

TEST(OctreeServices, AFullOctreeGivesTheCubesOfItsCells) {
    PLMIdxWTOptimOctree_0 octree;
    octree.ConstructFullOctree({0, 0, 0}, {4, 4, 4});
    CountingOctree counting(octree);
    PLMIdxWTOctreeServices services(counting);
    EXPECT_EQ(services.GetDepth(), 2u);
    const PLMIdxMatrix identity;
    const auto radius =
        static_cast<float>(std::sqrt(12.0));  // of the octree; half of it of a child
    const float low = 1 - radius * 0.5f;
    const float high = 3 + radius * 0.5f;
    Box box = {
        {2, 2, 2},
        {2, 2, 2}
    };
    EXPECT_EQ(services.ExpandBox(box.low, box.high, identity), IDX_S_OK);
    EXPECT_EQ(
        box, (Box{
                 {low,  low,  low },
                 {high, high, high}
    }));
    EXPECT_EQ(counting.nTests, 8);

    // A box that holds the sphere of the whole octree: nothing is asked.
    box = {
        {2 - radius, 2 - radius, 2 - radius},
        {2 + radius, 2 + radius, 2 + radius}
    };
    EXPECT_EQ(services.ExpandBox(box.low, box.high, identity), IDX_S_OK);
    EXPECT_EQ(counting.nTests, 8);
}

TEST(OctreeServices, AnOctreeWithNothingInItLeavesTheBox) {
    const PLMIdxMatrix identity;
    Box box = {
        {5, 5, 5},
        {6, 6, 6}
    };
    const Box before = box;
    const PLMIdxWTOptimOctree_0 none;
    EXPECT_EQ(PLMIdxWTOctreeServices(none).ExpandBox(box.low, box.high, identity), IDX_S_OK);
    PLMIdxWTWorkingOctree empty;
    empty.SetBB({0, 0, 0}, {8, 8, 8});
    empty._depth = 3;
    empty.Reset();
    EXPECT_EQ(PLMIdxWTOctreeServices(empty).ExpandBox(box.low, box.high, identity), IDX_S_OK);
    EXPECT_EQ(box, before);
}

TEST(OctreeServices, AgreeWithAllCellsOneByOneAndVisitFewer) {
    PLMIdxOctreeBuilder builder;
    builder.SetParameters(5, 0, IDX_False);
    const Mesh mesh = BoxMesh({-1, 2, 0}, {3, 5, 1});
    ASSERT_EQ(
        builder.DrawGeometry(
            mesh.points.data(), static_cast<unsigned int>(mesh.points.size()),
            mesh.triangles.data(), static_cast<unsigned int>(mesh.triangles.size())),
        IDX_S_OK);
    const PLMIdxIBaseOctree& octree = builder.GetOctree();
    IDX_Point origin;
    IDX_Point size;
    octree.GetBB(origin, size);
    const Box whole = {
        origin, {origin.x + size.x, origin.y + size.y, origin.z + size.z}
    };
    std::vector<Box> cells;
    CountingOctree all(octree);
    CollectCells(all, {}, whole, cells);
    ASSERT_GT(cells.size(), 100u);

    const PLMIdxMatrix turn = QuarterTurn();
    Box expected = {
        {8, 0, 2},
        {8, 0, 2}
    };
    for (const Box& cell : cells) {
        // Half the side of the octree's box times the root of three, halved once for each level.
        float radius = static_cast<float>(std::sqrt(3.0 * 0.25 * size.x * size.x));
        for (float side = size.x; side > cell.high.x - cell.low.x; side *= 0.5f) radius *= 0.5f;
        const IDX_Point centre = {
            (cell.low.x + cell.high.x) * 0.5f, (cell.low.y + cell.high.y) * 0.5f,
            (cell.low.z + cell.high.z) * 0.5f};
        Services::EnlargeBoxSphere(expected.low, expected.high, centre, radius, turn);
    }
    CountingOctree counting(octree);
    Box box = {
        {8, 0, 2},
        {8, 0, 2}
    };
    EXPECT_EQ(PLMIdxWTOctreeServices(counting).ExpandBox(box.low, box.high, turn), IDX_S_OK);
    for (float IDX_Point::*axis : {&IDX_Point::x, &IDX_Point::y, &IDX_Point::z}) {
        EXPECT_NEAR(box.low.*axis, expected.low.*axis, 1e-5f);
        EXPECT_NEAR(box.high.*axis, expected.high.*axis, 1e-5f);
    }
    EXPECT_GT(counting.nTests, 8);
    EXPECT_LT(counting.nTests, all.nTests);
}
