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

/// Whether they meet once the box's faces have moved outward by a margin.
template <class Number>
bool Meet(const Triple& centre, const Triple& half, const Corners& triangle, double margin) {
    Polygon<Number> polygon;
    polygon.count = 3;
    for (std::size_t v = 0; v < 3; ++v)
        for (std::size_t a = 0; a < 3; ++a)
            polygon.corners[v][a] = Number(double{triangle[v][a]}) - Number(double{centre[a]});
    for (std::size_t a = 0; a < 3; ++a) {
        const Number reach = Number(double{half[a]}) + Number(margin);
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

}  // namespace

bool OverlapByClipping(const Triple& centre, const Triple& half, const Corners& triangle) {
    if (!std::isfinite(Size(centre, half, triangle))) return false;
    return Meet<mpq_class>(centre, half, triangle, 0);
}

bool Overlap(const Triple& centre, const Triple& half, const Corners& triangle) {
    const double size = Size(centre, half, triangle);
    if (!std::isfinite(size)) return false;
    const double margin = 1e-12 * size;
    if (!Meet<double>(centre, half, triangle, margin)) return false;
    if (Meet<double>(centre, half, triangle, -margin)) return true;
    return Meet<mpq_class>(centre, half, triangle, 0);
}
