#include "ExactOverlap.h"

#include <algorithm>
#include <cmath>
#include <gmpxx.h>

namespace {

/// A convex polygon, seen from the box's centre: at most 9 corners, and room for what rounding adds.
template <class Number>
struct Polygon {
    std::array<std::array<Number, 3>, 16> corners;
    std::size_t count = 0;
};

/// Keeps the part on which sign * coordinate doesn't exceed `limit`.
template <class Number>
void Clip(Polygon<Number>& polygon, std::size_t axis, int sign, const Number& limit) {
    Polygon<Number> kept;
    for (std::size_t i = 0; i < polygon.count; ++i) {
        const auto& p = polygon.corners[i];
        const auto& q = polygon.corners[(i + 1) % polygon.count];
        const Number dp = limit - sign * p[axis];
        const Number dq = limit - sign * q[axis];
        if (dp >= 0) kept.corners[kept.count++] = p;
        if ((dp >= 0) == (dq >= 0) || dp == 0 || dq == 0) continue;
        const Number t = dp / (dp - dq);
        for (std::size_t a = 0; a < 3; ++a) kept.corners[kept.count][a] = p[a] + t * (q[a] - p[a]);
        ++kept.count;
    }
    polygon = kept;
}

using Margins = std::array<double, 3>;

/// Whether they meet once the box's faces have moved outward by the margins of the axes.
template <class Number>
bool Meet(
    const Triple& centre, const Triple& half, const Corners& triangle, const Margins& margins) {
    Polygon<Number> polygon;
    polygon.count = 3;
    for (std::size_t v = 0; v < 3; ++v)
        for (std::size_t a = 0; a < 3; ++a)
            polygon.corners[v][a] = Number(double{triangle[v][a]}) - Number(double{centre[a]});
    for (std::size_t a = 0; a < 3; ++a) {
        const Number reach = Number(double{half[a]}) + Number(margins[a]);
        Clip<Number>(polygon, a, 1, reach);
        Clip<Number>(polygon, a, -1, reach);
    }
    return polygon.count > 0;
}

/// The greatest coordinate as seen from the box's centre; infinite or NaN when any is.
double Size(const Triple& centre, const Triple& half, const Corners& triangle) {
    double size = 0;
    for (std::size_t a = 0; a < 3; ++a)
        for (std::size_t v = 0; v < 3; ++v)
            size += std::fabs(double{triangle[v][a]} - double{centre[a]}) + std::fabs(half[a]);
    return size;
}

/// True for two floats whose difference is a double.
bool HaveExactDifference(double p, double q) {
    const double difference = p - q;
    return q + difference == p && p - difference == q;
}

/// A margin for each axis on which clipping in doubles rounds: not where all vertices share one coordinate.
Margins RoundingMargins(const Triple& centre, const Corners& t, double margin) {
    Margins margins;
    for (std::size_t a = 0; a < 3; ++a) {
        const bool flat = t[0][a] == t[1][a] && t[1][a] == t[2][a];
        margins[a] = flat && HaveExactDifference(t[0][a], centre[a]) ? 0 : margin;
    }
    return margins;
}

}  // namespace

bool OverlapByClipping(const Triple& centre, const Triple& half, const Corners& triangle) {
    if (!std::isfinite(Size(centre, half, triangle))) return false;
    return Meet<mpq_class>(centre, half, triangle, {});
}

bool Overlap(const Triple& centre, const Triple& half, const Corners& triangle) {
    const double size = Size(centre, half, triangle);
    if (!std::isfinite(size)) return false;
    const double margin = 1e-12 * size;
    if (!Meet<double>(centre, half, triangle, RoundingMargins(centre, triangle, margin)))
        return false;
    if (Meet<double>(centre, half, triangle, RoundingMargins(centre, triangle, -margin)))
        return true;
    return Meet<mpq_class>(centre, half, triangle, {});
}
