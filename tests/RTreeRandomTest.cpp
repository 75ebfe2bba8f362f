// The library beside the flat reference on random sequences of boxes: the same bytes, to the last.
// GRIDLOOM_RANDOM_TREES: how many sequences; GRIDLOOM_RANDOM_SEED: the seed of the first.

#include "OpenRTree.h"
#include "RTreeReference.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <limits>
#include <random>

namespace {

using Box = IDX_Base_BoundingBox;

unsigned long FromEnvironment(const char* name, unsigned long standard) {
    const char* text = std::getenv(name);
    return text == nullptr ? standard : std::strtoul(text, nullptr, 10);
}

enum Kind { Uniform, Clustered, Flat, Lattice, Nested, Equal, Huge, Odd, Anything, KindCount };

/// Boxes of one kind, one after the other.
class Boxes {
public:
    Boxes(Kind kind, unsigned long seed) : _kind(kind), _random(seed) {}

    unsigned int Below(unsigned int limit) {
        return static_cast<unsigned int>((_random() >> 32) * limit >> 32);
    }

    Box Next() { return Next(_kind == Anything ? static_cast<Kind>(Below(Anything)) : _kind); }

private:
    float Unit() { return static_cast<float>(Below(1u << 24)) / static_cast<float>(1u << 24); }

    Box Next(Kind kind) {
        switch (kind) {
            case Clustered:
                return Around(static_cast<float>(Below(5)) * 10.0f, 1.0f, 0.1f);
            case Flat:
                return Cut(Around(0.0f, 1.0f, 0.2f), 1u << Below(3));
            case Lattice:
                return OnLattice();
            case Nested:
                return Concentric(static_cast<float>(++_count));
            case Equal:
                return Box({0, 0, 0}, {static_cast<float>(Below(2)), 1, 1});
            case Huge:
                return Concentric(std::ldexp(1.0f, 30 + static_cast<int>(Below(97))));
            case Odd:
                return WithOddities(OnLattice());
            default:
                return Around(0.0f, 1.0f, 0.05f);
        }
    }

    Box Around(float centre, float spread, float size) {
        const auto next = [&] { return centre + (Unit() - 0.5f) * spread; };
        const IDX_Point low = {next(), next(), next()};
        return Box(low, {low.x + Unit() * size, low.y + Unit() * size, low.z + Unit() * size});
    }

    Box OnLattice() {
        const auto step = [this] { return static_cast<float>(Below(7)) - 3.0f; };
        const IDX_Point low = {step(), step(), step()};
        const auto edge = [this] { return static_cast<float>(Below(4)); };
        return Box(low, {low.x + edge(), low.y + edge(), low.z + edge()});
    }

    static Box Concentric(float half) { return Box({-half, -half, -half}, {half, half, half}); }

    /// No extent along the axes of a set.
    static Box Cut(const Box& box, unsigned int axes) {
        const IDX_Point low = box.GetLow();
        IDX_Point high = box.GetHigh();
        if (axes & 1) high.x = low.x;
        if (axes & 2) high.y = low.y;
        if (axes & 4) high.z = low.z;
        return Box(low, high);
    }

    /// Some coordinates NaN, infinite, or zeros of either sign; low and high may have changed places.
    Box WithOddities(const Box& box) {
        const float nan = std::numeric_limits<float>::quiet_NaN();
        const float infinity = std::numeric_limits<float>::infinity();
        const float odd[] = {nan, infinity, -infinity, 0.0f, -0.0f, 0.0f, -0.0f, 3e38f, 1e-42f};
        float coordinates[6];
        std::memcpy(coordinates, &box, sizeof coordinates);
        for (float& coordinate : coordinates) {
            if (Below(4) == 0) coordinate = odd[Below(9)];
            if (coordinate == 0.0f && Below(2) == 0) coordinate = -coordinate;
        }
        return Box(
            {coordinates[0], coordinates[1], coordinates[2]},
            {coordinates[3], coordinates[4], coordinates[5]});
    }

    Kind _kind;
    std::mt19937_64 _random;
    unsigned int _count = 0;
};

/// Some trees have been in use before: another fan-out, more nodes, a larger or a smaller block.
void MaybeUse(OpenRTree& tree, Boxes& boxes) {
    const unsigned int use = boxes.Below(4);
    if (use == 0) tree.Init(1, 9);
    if (use == 0) InsertBars(tree, 0, boxes.Below(900));
    OpenRTree small(0, 2);
    if (use == 1) (void)LoadBytes(tree, ImageOf(small));
}

void CompareSequence(Kind kind, unsigned long seed) {
    Boxes boxes(kind, seed);
    const unsigned int maxChildren = 2 + boxes.Below(boxes.Below(3) == 0 ? 63 : 15);
    const unsigned int minFill =
        boxes.Below(2) == 0 ? maxChildren * 3 / 10 : boxes.Below(maxChildren + 2);
    // Splits of one entry alone make a tree as high as a list is long.
    const bool isThin = minFill >= maxChildren - 1;
    const unsigned int count = boxes.Below(isThin ? 120 : boxes.Below(20) == 0 ? 2500 : 400);
    const unsigned int reloadAt = boxes.Below(3) == 0 ? boxes.Below(count + 1) : count + 1;
    RTreeReference reference(minFill, maxChildren);
    OpenRTree trees[2];
    for (OpenRTree& tree : trees) MaybeUse(tree, boxes);
    OpenRTree* tree = &trees[0];
    tree->Init(static_cast<unsigned short>(minFill), static_cast<unsigned short>(maxChildren));
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
