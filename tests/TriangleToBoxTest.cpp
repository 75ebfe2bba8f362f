// The overlap test of a triangle and a box against clipping in rational numbers.

#include "ExactOverlap.h"
#include "Meshes.h"

#include "IDX_Base_GeometryServices.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <gtest/gtest.h>
#include <limits>

namespace {

using Limits = std::numeric_limits<float>;
constexpr float kMax = Limits::max();
constexpr float kTiny = Limits::denorm_min();
constexpr float kInf = Limits::infinity();
constexpr float kNan = Limits::quiet_NaN();
constexpr float kUlp = Limits::epsilon();
constexpr float kAboveOne = 1 + kUlp;
constexpr float kAboveTwo = 2 + 2 * kUlp;
constexpr float kAboveThree = 3 + 2 * kUlp;

struct Question {
    float centre[3];
    float half[3];
    float triangle[3][3];
};

bool Clipped(const Question& q) {
    return OverlapByClipping(
        std::bit_cast<Triple>(q.centre), std::bit_cast<Triple>(q.half),
        std::bit_cast<Corners>(q.triangle));
}

bool Ask(const Question& q) {
    IDX_Bool overlap = IDX_False;
    const IDX_Bool decided =
        IDX_Base_GeometryServices::TriangleToBox(q.centre, q.half, q.triangle, overlap);
    EXPECT_EQ(decided, IDX_True);  // and `overlap` is left alone when there is none
    return overlap == IDX_True;
}

/// Calls `visit` with the question in all orders of the vertices and of the axes, and mirrored.
template <class Visit>
void ForEachSymmetry(const Question& q, Visit visit) {
    std::array<std::size_t, 3> axes = {0, 1, 2};
    do {
        std::array<std::size_t, 3> order = {0, 1, 2};
        do {
            for (unsigned int mirror = 0; mirror < 8; ++mirror) {
                Question turned;
                for (std::size_t a = 0; a < 3; ++a) {
                    const float sign = mirror >> a & 1 ? -1.0f : 1.0f;
                    turned.centre[a] = sign * q.centre[axes[a]];
                    turned.half[a] = q.half[axes[a]];
                    for (std::size_t v = 0; v < 3; ++v)
                        turned.triangle[v][a] = sign * q.triangle[order[v]][axes[a]];
                }
                visit(turned);
            }
        } while (std::next_permutation(order.begin(), order.end()));
    } while (std::next_permutation(axes.begin(), axes.end()));
}

struct Case {
    const char* name;
    Question question;
    bool overlap;
};

// clang-format off
const Case kCases[] = {
    {"vertex on a face",          {{0, 0, 0}, {1, 1, 1}, {{1, 0, 0}, {2, 1, 0}, {2, -1, .5f}}}, true},
    {"vertex one ulp off",        {{0, 0, 0}, {1, 1, 1}, {{kAboveOne, 0, 0}, {2, 1, 0}, {2, -1, .5f}}}, false},
    {"edge on an edge",           {{0, 0, 0}, {1, 1, 1}, {{2, 0, 0}, {0, 2, 0}, {2, 2, 0}}}, true},
    {"edge one ulp off",          {{0, 0, 0}, {1, 1, 1}, {{kAboveTwo, 0, 0}, {0, 2, 0}, {2, 2, 0}}}, false},
    {"plane on a corner",         {{0, 0, 0}, {1, 1, 1}, {{3, 0, 0}, {0, 3, 0}, {0, 0, 3}}}, true},
    {"plane one ulp off",         {{0, 0, 0}, {1, 1, 1}, {{kAboveThree, 0, 0}, {0, 3, 0}, {0, 0, 3}}}, false},
    {"in the plane of a face",    {{0, 0, 0}, {1, 1, 1}, {{-9, -9, 1}, {9, -9, 1}, {0, 9, 1}}}, true},
    {"above that plane",          {{0, 0, 0}, {1, 1, 1}, {{-9, -9, kAboveOne}, {9, -9, kAboveOne}, {0, 9, kAboveOne}}}, false},
    {"past a corner",             {{0, 0, 0}, {1, 1, 1}, {{2.5f, 0, -5}, {0, 2.5f, -5}, {1.5f, 1.5f, 5}}}, false},
    {"segment through an edge",   {{0, 0, 0}, {1, 1, 1}, {{2, 0, 0}, {1, 1, 0}, {0, 2, 0}}}, true},
    {"segment past an edge",      {{0, 0, 0}, {1, 1, 1}, {{kAboveTwo, 0, 0}, {0, 2, 0}, {0, 2, 0}}}, false},
    {"point on a corner",         {{0, 0, 0}, {1, 1, 1}, {{1, 1, 1}, {1, 1, 1}, {1, 1, 1}}}, true},
    {"point off a corner",        {{0, 0, 0}, {1, 1, 1}, {{1, 1, kAboveOne}, {1, 1, kAboveOne}, {1, 1, kAboveOne}}}, false},
    {"greatest floats",           {{0, 0, 0}, {1, 1, 1}, {{-kMax, -kMax, 1}, {kMax, -kMax, 1}, {0, kMax, 1}}}, true},
    {"greatest floats, above",    {{0, 0, 0}, {1, 1, 1}, {{-kMax, -kMax, kAboveOne}, {kMax, -kMax, kAboveOne}, {0, kMax, kAboveOne}}}, false},
    {"all the greatest",          {{kMax, kMax, kMax}, {kMax, kMax, kMax}, {{0, 0, 0}, {0, kMax, 0}, {0, 0, kMax}}}, true},
    {"one denormal off that",     {{kMax, kMax, kMax}, {kMax, kMax, kMax}, {{-kTiny, 0, 0}, {-kTiny, kMax, 0}, {-kTiny, 0, 0}}}, false},
    {"denormal triangle, plane",  {{0, 0, 0}, {kTiny, kTiny, kTiny}, {{3 * kTiny, 0, 0}, {0, 3 * kTiny, 0}, {0, 0, 3 * kTiny}}}, true},
    {"denormal triangle, off",    {{0, 0, 0}, {kTiny, kTiny, kTiny}, {{4 * kTiny, 0, 0}, {0, 3 * kTiny, 0}, {0, 0, 3 * kTiny}}}, false},
    {"face between two doubles",  {{0x1p60f, 0, 0}, {0x1p-10f, 1, 1}, {{0x1p60f, 0, 0}, {0x1p61f, 0, 0}, {0x1p61f, 1, 0}}}, true},
    {"point box in a plane",      {{1, 1, 1}, {0, 0, 0}, {{3, 0, 0}, {0, 3, 0}, {0, 0, 3}}}, true},
    {"point box off a plane",     {{1, 1, 1}, {0, 0, 0}, {{kAboveThree, 0, 0}, {0, 3, 0}, {0, 0, 3}}}, false},
    {"negative half-size",        {{0, 0, 0}, {-1, 9, 9}, {{-5, -5, 0}, {5, -5, 0}, {0, 5, 0}}}, false},
    {"a NaN vertex",              {{0, 0, 0}, {1, 1, 1}, {{0, 0, 0}, {.1f, 0, 0}, {kNan, 0, 0}}}, false},
    {"an infinite vertex",        {{0, 0, 0}, {1, 1, 1}, {{0, 0, 0}, {.1f, 0, 0}, {kInf, 0, 0}}}, false},
    {"an infinite box",           {{0, 0, 0}, {kInf, 1, 1}, {{0, 0, 0}, {.1f, 0, 0}, {0, .1f, 0}}}, false},
    {"a NaN centre",              {{kNan, 0, 0}, {1, 1, 1}, {{0, 0, 0}, {.1f, 0, 0}, {0, .1f, 0}}}, false},
};
// clang-format on

TEST(TriangleToBox, IsExactInEveryOrderAndMirrored) {
    for (const Case& row : kCases) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(Clipped(row.question), row.overlap);
        ForEachSymmetry(row.question, [&](const Question& q) { EXPECT_EQ(Ask(q), row.overlap); });
    }
}

/// A coordinate that is likely to lie on the box, one float beside it, or far away.
float NearBox(Random& random, float centre, float half, float scale) {
    const float marks[] = {centre - half, centre + half, centre, centre + 2 * half, 0.0f};
    float x = marks[random.Below(5)];
    if (random.OneIn(3)) x = std::nextafter(x, random.OneIn(2) ? kMax : -kMax);
    if (random.OneIn(6)) x = random.Between(-3, 3) * scale;
    return random.OneIn(40) ? x * 1e8f : x;
}

Question RandomQuestion(Random& random) {
    static constexpr float kScales[] = {1, 1e-3f, 1e6f, 1e30f, 1e-38f, 1e-44f};
    const float scale = kScales[random.Below(6)];
    Question q;
    for (std::size_t a = 0; a < 3; ++a) {
        q.centre[a] = static_cast<float>(random.Below(9)) * 0.25f * scale;
        q.half[a] = static_cast<float>(random.Below(4)) * 0.5f * scale;
        if (random.OneIn(5)) q.half[a] = random.Between(0, 1) * scale;
        for (auto& vertex : q.triangle) vertex[a] = NearBox(random, q.centre[a], q.half[a], scale);
        if (random.OneIn(10)) q.triangle[2][a] = q.triangle[1][a];
    }
    return q;
}

extern "C" const decltype(&IDX_Base_GeometryServices::TriangleToBox) gridloom_own_triangle_to_box;

TEST(TriangleToBox, IsKnownToTheLibraryAsItsOwn) {
    EXPECT_EQ(gridloom_own_triangle_to_box, &IDX_Base_GeometryServices::TriangleToBox);
}

TEST(TriangleToBox, AgreesWithClipping) {
    Random random(7);
    int overlaps = 0;
    for (int i = 0; i < 30000; ++i) {
        const Question q = RandomQuestion(random);
        const bool expected = Clipped(q);
        ASSERT_EQ(Ask(q), expected) << "question " << i;
        overlaps += expected;
    }
    EXPECT_GT(overlaps, 6000);
    EXPECT_LT(overlaps, 24000);
}

}  // namespace
