#include "ExactOverlap.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <gmpxx.h>
#include <vector>

namespace {

using Rational = std::array<mpq_class, 3>;
using Vector = std::array<double, 3>;

bool AllFinite(const float centre[3], const float half[3], const float triangle[3][3]) {
    for (int a = 0; a < 3; ++a) {
        if (!std::isfinite(centre[a]) || !std::isfinite(half[a])) return false;
        for (int v = 0; v < 3; ++v)
            if (!std::isfinite(triangle[v][a])) return false;
    }
    return true;
}

/// The part of a convex polygon on which sign * (coordinate - limit) isn't negative.
std::vector<Rational> Clip(
    const std::vector<Rational>& polygon, std::size_t axis, int sign, const mpq_class& limit) {
    std::vector<Rational> kept;
    for (std::size_t i = 0; i < polygon.size(); ++i) {
        const Rational& p = polygon[i];
        const Rational& q = polygon[(i + 1) % polygon.size()];
        const mpq_class dp = sign * (p[axis] - limit);
        const mpq_class dq = sign * (q[axis] - limit);
        if (dp >= 0) kept.push_back(p);
        if (sgn(dp) * sgn(dq) >= 0) continue;
        const mpq_class t = dp / (dp - dq);
        Rational crossing;
        for (std::size_t a = 0; a < 3; ++a) crossing[a] = p[a] + t * (q[a] - p[a]);
        kept.push_back(crossing);
    }
    return kept;
}

Vector Cross(const Vector& a, const Vector& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

enum Verdict { kApart, kMeet, kUnsure };

/// Looks along one axis; `tolerance` is far above the rounding error of the projections.
Verdict AlongAxis(const Vector& axis, const Vector u[3], const float half[3], double tolerance) {
    double radius = 0;
    double p[3] = {0, 0, 0};
    for (std::size_t a = 0; a < 3; ++a) {
        radius += std::fabs(axis[a]) * double{half[a]};
        for (std::size_t v = 0; v < 3; ++v) p[v] += axis[a] * u[v][a];
    }
    const double low = std::min({p[0], p[1], p[2]}) - radius;
    const double high = std::max({p[0], p[1], p[2]}) + radius;
    if (low > tolerance || high < -tolerance) return kApart;
    return low < -tolerance && high > tolerance ? kMeet : kUnsure;
}

/// Separating axes of a triangle and a box: 3 faces of the box, the plane, 9 pairs of edges. Both
/// are seen from the box's centre; `size` bounds all coordinates.
Verdict Filter(const float centre[3], const float half[3], const float triangle[3][3]) {
    Vector u[3];
    double size = 0;
    for (std::size_t a = 0; a < 3; ++a) {
        if (half[a] < 0) return kApart;
        size = std::max(size, double{half[a]});
        for (std::size_t v = 0; v < 3; ++v) {
            u[v][a] = double{triangle[v][a]} - double{centre[a]};
            size = std::max(size, std::fabs(u[v][a]));
        }
    }
    const double margin = 1e-12 * size;
    const Vector units[3] = {
        {1, 0, 0},
        {0, 1, 0},
        {0, 0, 1}
    };
    Vector edges[3];
    for (std::size_t v = 0; v < 3; ++v)
        for (std::size_t a = 0; a < 3; ++a)
            edges[v][a] = double{triangle[(v + 1) % 3][a]} - double{triangle[v][a]};
    bool unsure = false;
    const auto look = [&](const Vector& axis, double tolerance) {
        const Verdict verdict = AlongAxis(axis, u, half, tolerance);
        unsure |= verdict == kUnsure;
        return verdict == kApart;
    };
    for (const Vector& unit : units)
        if (look(unit, margin)) return kApart;
    if (look(Cross(edges[0], edges[1]), margin * size * size)) return kApart;
    for (const Vector& unit : units) {
        for (const Vector& edge : edges) {
            const Vector axis = Cross(unit, edge);  // exact but for one rounding of the edge
            const bool parallel = axis == Vector{0, 0, 0};
            if (!parallel && look(axis, margin * size)) return kApart;
        }
    }
    return unsure ? kUnsure : kMeet;
}

}  // namespace

bool OverlapByClipping(const float centre[3], const float half[3], const float triangle[3][3]) {
    if (!AllFinite(centre, half, triangle)) return false;
    std::vector<Rational> polygon(3);
    for (std::size_t v = 0; v < 3; ++v)
        for (std::size_t a = 0; a < 3; ++a) polygon[v][a] = double{triangle[v][a]};
    for (std::size_t a = 0; a < 3; ++a) {
        const mpq_class middle(double{centre[a]});
        const mpq_class reach(double{half[a]});
        polygon = Clip(polygon, a, 1, middle - reach);
        polygon = Clip(polygon, a, -1, middle + reach);
    }
    return !polygon.empty();
}

bool Overlap(const float centre[3], const float half[3], const float triangle[3][3]) {
    static unsigned calls = 0;
    if (!AllFinite(centre, half, triangle)) return false;
    const Verdict verdict = Filter(centre, half, triangle);
    if (verdict != kUnsure && ++calls % 4096 != 0) return verdict == kMeet;
    const bool overlap = OverlapByClipping(centre, half, triangle);
    if (verdict != kUnsure && overlap != (verdict == kMeet)) {
        std::fputs("the double filter and clipping disagree\n", stderr);
        std::abort();
    }
    return overlap;
}
