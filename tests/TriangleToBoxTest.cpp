// The overlap test of a triangle and a box against clipping in rational numbers.

#include "Meshes.h"

#include "IDX_Base_GeometryServices.h"

#include <array>
#include <cmath>
#include <gmpxx.h>
#include <gtest/gtest.h>
#include <limits>
#include <vector>

namespace {

using Limits = std::numeric_limits<float>;
constexpr float kMax = Limits::max();
constexpr float kTiny = Limits::denorm_min();
constexpr float kInf = Limits::infinity();
constexpr float kNan = Limits::quiet_NaN();
constexpr float kAboveTwo = 2 + 2 * Limits::epsilon();
constexpr float kAboveThree = 3 + 2 * Limits::epsilon();

struct Question {
    float centre[3];
    float half[3];
    float triangle[3][3];
};

bool Ask(const Question& q) {
    IDX_Bool overlap = IDX_False;
    const IDX_Bool decided =
        IDX_Base_GeometryServices::TriangleToBox(q.centre, q.half, q.triangle, overlap);
    EXPECT_EQ(decided, IDX_True);
    return overlap == IDX_True;
}

/// Corners of a convex polygon, seen from the box's centre.
using Polygon = std::vector<std::array<mpq_class, 3>>;

/// The part on which sign * coordinate doesn't exceed `limit`.
Polygon Clip(const Polygon& polygon, std::size_t axis, int sign, const mpq_class& limit) {
    Polygon kept;
    for (std::size_t i = 0; i < polygon.size(); ++i) {
        const auto& p = polygon[i];
        const auto& q = polygon[(i + 1) % polygon.size()];
        const mpq_class dp = limit - sign * p[axis];
        const mpq_class dq = limit - sign * q[axis];
        if (dp >= 0) kept.push_back(p);
        if ((dp >= 0) == (dq >= 0) || dp == 0 || dq == 0) continue;
        const mpq_class t = dp / (dp - dq);
        std::array<mpq_class, 3> between;
        for (std::size_t a = 0; a < 3; ++a) between[a] = p[a] + t * (q[a] - p[a]);
        kept.push_back(between);
    }
    return kept;
}

/// Whether something is left of the triangle when it is clipped against the box. No overlap for a coordinate that
/// isn't finite.
bool AskByClipping(const Question& q) {
    float sum = 0;  // isn't finite when one of them isn't
    for (std::size_t a = 0; a < 3; ++a) {
        for (const float x :
             {q.centre[a], q.half[a], q.triangle[0][a], q.triangle[1][a], q.triangle[2][a]})
            sum += x * 0;
    }
    if (!std::isfinite(sum)) return false;
    Polygon polygon(3);
    for (std::size_t v = 0; v < 3; ++v)
        for (std::size_t a = 0; a < 3; ++a)
            polygon[v][a] = mpq_class(q.triangle[v][a]) - mpq_class(q.centre[a]);
    for (std::size_t a = 0; a < 3; ++a)
        polygon = Clip(Clip(polygon, a, 1, q.half[a]), a, -1, q.half[a]);
    return !polygon.empty();
}

// clang-format off
const struct {
    const char* name;
    Question question;
    bool overlap;
} kCases[] = {
    {"edge on an edge",          {{0, 0, 0}, {1, 1, 1}, {{2, 0, 0}, {0, 2, 0}, {2, 2, 0}}}, true},
    {"edge one ulp off",         {{0, 0, 0}, {1, 1, 1}, {{kAboveTwo, 0, 0}, {0, 2, 0}, {2, 2, 0}}}, false},
    {"plane on a corner",        {{0, 0, 0}, {1, 1, 1}, {{3, 0, 0}, {0, 3, 0}, {0, 0, 3}}}, true},
    {"plane one ulp off",        {{0, 0, 0}, {1, 1, 1}, {{kAboveThree, 0, 0}, {0, 3, 0}, {0, 0, 3}}}, false},
    {"past a corner",            {{0, 0, 0}, {1, 1, 1}, {{2.5f, 0, -5}, {0, 2.5f, -5}, {1.5f, 1.5f, 5}}}, false},
    {"segment past an edge",     {{0, 0, 0}, {1, 1, 1}, {{kAboveTwo, 0, 0}, {0, 2, 0}, {0, 2, 0}}}, false},
    {"all the greatest",         {{kMax, kMax, kMax}, {kMax, kMax, kMax}, {{0, 0, 0}, {0, kMax, 0}, {0, 0, kMax}}}, true},
    {"one denormal off that",    {{kMax, kMax, kMax}, {kMax, kMax, kMax}, {{-kTiny, 0, 0}, {-kTiny, kMax, 0}, {-kTiny, 0, 0}}}, false},
    {"denormal triangle, plane", {{0, 0, 0}, {kTiny, kTiny, kTiny}, {{3 * kTiny, 0, 0}, {0, 3 * kTiny, 0}, {0, 0, 3 * kTiny}}}, true},
    {"denormal triangle, off",   {{0, 0, 0}, {kTiny, kTiny, kTiny}, {{4 * kTiny, 0, 0}, {0, 3 * kTiny, 0}, {0, 0, 3 * kTiny}}}, false},
    {"face between two doubles", {{0x1p60f, 0, 0}, {0x1p-10f, 1, 1}, {{0x1p60f, 0, 0}, {0x1p61f, 0, 0}, {0x1p61f, 1, 0}}}, true},
    {"negative half-size",       {{0, 0, 0}, {-1, 9, 9}, {{-5, -5, 0}, {5, -5, 0}, {0, 5, 0}}}, false},
    {"a NaN vertex",             {{0, 0, 0}, {1, 1, 1}, {{0, 0, 0}, {.1f, 0, 0}, {kNan, 0, 0}}}, false},
    {"an infinite box",          {{0, 0, 0}, {kInf, 1, 1}, {{0, 0, 0}, {.1f, 0, 0}, {0, .1f, 0}}}, false},
};
// clang-format on

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

}  // namespace

TEST(TriangleToBox, IsKnownToTheLibraryAsItsOwn) {
    EXPECT_EQ(gridloom_own_triangle_to_box, &IDX_Base_GeometryServices::TriangleToBox);
}

TEST(TriangleToBox, AgreesWithClipping) {
    for (const auto& row : kCases) {
        EXPECT_EQ(AskByClipping(row.question), row.overlap) << row.name;
        EXPECT_EQ(Ask(row.question), row.overlap) << row.name;
    }
    Random random(7);
    int overlaps = 0;
    for (int i = 0; i < 30000; ++i) {
        const Question q = RandomQuestion(random);
        const bool expected = AskByClipping(q);
        ASSERT_EQ(Ask(q), expected) << "question " << i;
        overlaps += expected;
    }
    EXPECT_GT(overlaps, 6000);
    EXPECT_LT(overlaps, 24000);
}
