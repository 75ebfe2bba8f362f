// The library beside the flat reference on random sequences of boxes: the same bytes, to the last.
// GRIDLOOM_RANDOM_TREES: how many sequences; GRIDLOOM_RANDOM_SEED: the seed of the first.

#include "FromEnvironment.h"
#include "OpenRTree.h"
#include "RTreeReference.h"

#include "formats/RTreeImage.h"

#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace {

using Box = IDX_Base_BoundingBox;

enum Kind { Uniform, Clustered, Flat, Lattice, Nested, Equal, Huge, Odd, Anything, KindCount };

/// Boxes of one kind, one after the other.
class Boxes : public Random {
public:
    Boxes(Kind kind, unsigned long seed) : Random(seed), _kind(kind) {}

    Box Next() { return Next(_kind == Anything ? static_cast<Kind>(Below(Anything)) : _kind); }

private:
    Box Next(Kind kind) {
        switch (kind) {
            case Clustered:
                return Around(static_cast<float>(Below(5)) * 10.0f, 1.0f, 0.1f);
            case Flat:
                return OnLattice(1);
            case Lattice:
                return OnLattice(4);
            case Nested:
                return Concentric(static_cast<float>(++_count));
            case Equal:
                return Box({0, 0, 0}, {static_cast<float>(Below(2)), 1, 1});
            case Huge:
                return Concentric(std::ldexp(1.0f, 30 + static_cast<int>(Below(97))));
            case Odd:
                return WithOddities(OnLattice(4));
            default:
                return Around(0.0f, 1.0f, 0.05f);
        }
    }

    Box Around(float centre, float spread, float size) {
        const IDX_Point low = PointIn(centre - spread / 2, centre + spread / 2);
        const IDX_Point extent = PointIn(0, size);
        return Box(low, {low.x + extent.x, low.y + extent.y, low.z + extent.z});
    }

    /// Its height is less than a limit.
    Box OnLattice(unsigned int heights) {
        const auto number = [this](unsigned int limit) { return static_cast<float>(Below(limit)); };
        const IDX_Point low = {number(7) - 3, number(7) - 3, number(7) - 3};
        return Box(low, {low.x + number(4), low.y + number(4), low.z + number(heights)});
    }

    static Box Concentric(float half) { return Box({-half, -half, -half}, {half, half, half}); }

    /// Some coordinates NaN, infinite, or zeros of either sign; low and high may have changed
    /// places.
    Box WithOddities(Box box) {
        const float nan = std::numeric_limits<float>::quiet_NaN();
        const float infinity = std::numeric_limits<float>::infinity();
        const float odd[] = {nan, infinity, -infinity, 0.0f, -0.0f, 0.0f, -0.0f, 3e38f, 1e-42f};
        float coordinates[6];
        std::memcpy(coordinates, &box, sizeof coordinates);
        for (float& coordinate : coordinates) {
            if (OneIn(4)) coordinate = odd[Below(9)];
            if (coordinate == 0.0f && OneIn(2)) coordinate = -coordinate;
        }
        std::memcpy(static_cast<void*>(&box), coordinates, sizeof coordinates);
        return box;
    }

    Kind _kind;
    unsigned int _count = 0;
};

void CompareSequence(Kind kind, unsigned long seed) {
    Boxes boxes(kind, seed);
    const unsigned int maxChildren = 2 + boxes.Below(boxes.OneIn(3) ? 63 : 15);
    const unsigned int minFill =
        boxes.OneIn(2) ? maxChildren * 3 / 10 : boxes.Below(maxChildren + 2);
    // Splits of one entry alone make a tree as high as a list is long, as do volumes without
    // bounds.
    const bool isThin = minFill >= maxChildren - 1;
    const bool isLong = kind < Huge && boxes.OneIn(15);
    const unsigned int count = boxes.Below(isThin ? 120 : isLong ? 2500 : 400);
    const unsigned int reloadAt = boxes.OneIn(3) ? boxes.Below(count + 1) : count + 1;
    RTreeReference reference(minFill, maxChildren);
    OpenRTree trees[] = {
        {minFill, maxChildren},
        {1,       9          }
    };
    OpenRTree* tree = &trees[0];
    InsertBars(trees[1], 0, boxes.Below(900));  // a larger or a smaller block is there already
    for (unsigned int i = 0; i < count; ++i) {
        const Box box = boxes.Next();
        if (i == reloadAt) {  // the tree goes out and comes back in, as it may
            ASSERT_EQ(LoadBytes(trees[1], ImageOf(trees[0])), IDX_True);
            tree = &trees[1];
        }
        reference.Insert(box, i);
        ASSERT_EQ(tree->Insert(box, i), IDX_True);
    }
    ASSERT_EQ(tree->m_root, reference.Root());
    ASSERT_TRUE(tree->Nodes() == reference.Nodes())
        << count << " boxes of kind " << kind << ", " << minFill << " to " << maxChildren;
    if (minFill < 2 || 2 * minFill > maxChildren + 1) return;  // may be higher than the check takes
    const Bytes image = ImageOf(*tree);
    EXPECT_EQ(RTreeImage::Check(image.data(), image.size()).Text(), "");
}

}  // namespace

TEST(RTreeRandom, SameBytesAsTheReference) {
    const unsigned long first = FromEnvironment("GRIDLOOM_RANDOM_SEED", 1);
    const unsigned long count = FromEnvironment("GRIDLOOM_RANDOM_TREES", 600);
    for (unsigned long seed = first; seed < first + count; ++seed) {
        SCOPED_TRACE("GRIDLOOM_RANDOM_SEED=" + std::to_string(seed));
        CompareSequence(static_cast<Kind>(seed % KindCount), seed);
        if (HasFatalFailure()) return;
    }
}
