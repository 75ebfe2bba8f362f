#include "IDX_Base_GeometryServices.h"

#include "ExactNumber.h"

#include <algorithm>
#include <cmath>

// Triangle against box by the separating axis test. Two closed convex bodies are apart exactly when
// their projections on one of these axes are apart: the 3 normals of the box, the normal of the
// triangle, and the 9 cross products of an edge of the triangle with an edge of the box. A triangle
// that is a segment or a point, and a box that is flat, need no other axes.
//
// The box normals are decided first, without error. The other ten axes are computed in double
// precision with a bound on the rounding errors (a floating-point filter: J. R. Shewchuk, "Adaptive
// Precision Floating-Point Arithmetic and Fast Robust Geometric Predicates", 1997). Where the bound
// leaves an axis open, it is computed again in integers.
//
// The bound. Let u = 2^-53, the relative error of one operation. Vertices, centre and half-sizes
// are floats and have no error. A difference of two of them has the relative error u, and each
// product or sum adds u. Nothing overflows in double precision (3 factors below 2^129) or
// underflows (3 factors from 2^-149).
//  - An edge axis compares e_a w_b - e_b w_a with |e_a| t_b + |e_b| t_a. Let M be the sum of the
//    absolute values of all these products. The left side is off by at most 4u M, the right side by
//    3u M, and their difference rounds by u M: 8u M in all. The code takes 16u M, since M itself is
//    rounded.
//  - The normal compares n . w with |n| . t, where n = e0 x e1. Let N be the sum of the absolute
//    values of the two products of a component of n. The component is off by 4u N, both sides
//    together by less than 16u (N . (|w| + t)). The code takes 32u of it.
//
// When an edge, or the plane of the triangle, is parallel to a coordinate axis, some of the ten
// axes are parallel to a box normal. These are left out: they are decided already. So the faces of
// axis-aligned parts, which touch cells exactly, never need the integers.

namespace {

constexpr double kUnit = 0x1p-53;
constexpr double kEdgeBound = 16 * kUnit;
constexpr double kNormalBound = 32 * kUnit;

/// What an axis in double precision says.
enum class Verdict {
    Apart,    ///< certainly apart
    Meeting,  ///< certainly not apart
    Open      ///< rounding may have changed the answer
};

/// The arguments of one question: a box and a triangle.
struct Query {
    const float* centre;
    const float* halfSize;
    const float (*vertices)[3];
};

bool AllFinite(const float* iCoordinates) {
    return std::all_of(
        iCoordinates, iCoordinates + 3, [](float iValue) { return std::isfinite(iValue); });
}

bool AllFinite(const Query& iQuery) {
    return AllFinite(iQuery.centre) && AllFinite(iQuery.halfSize) &&
           AllFinite(iQuery.vertices[0]) && AllFinite(iQuery.vertices[1]) &&
           AllFinite(iQuery.vertices[2]);
}

/// True when iA - iB is above iLimit. Exact: the rounded difference decides unless it equals the
/// limit. Then its rounding error decides, which is a double itself (TwoDiff: D. E. Knuth, "The Art
/// of Computer Programming", volume 2, 4.2.2).
bool DifferenceExceeds(float iA, float iB, float iLimit) {
    const double a = iA;
    const double b = iB;
    const double difference = a - b;
    if (difference != iLimit) return difference > iLimit;
    const double bRounded = a - difference;
    const double aRounded = difference + bRounded;
    return (a - aRounded) + (bRounded - b) > 0.0;
}

/// The box normals, decided without error: the bounds of the triangle against the sides of the box.
bool ApartOnBoxNormal(const Query& iQuery) {
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const float a = iQuery.vertices[0][axis];
        const float b = iQuery.vertices[1][axis];
        const float c = iQuery.vertices[2][axis];
        const float low = std::min({a, b, c});
        const float high = std::max({a, b, c});
        const float centre = iQuery.centre[axis];
        const float halfSize = iQuery.halfSize[axis];
        if (DifferenceExceeds(low, centre, halfSize)) return true;
        if (DifferenceExceeds(centre, high, halfSize)) return true;
    }
    return false;
}

/// True when some vertex is in the box. Decided without error, too. So most contacts of a part
/// whose vertices are on the faces of cells never get to the ten other axes, where rounding would
/// leave them open.
bool BoxHoldsVertex(const Query& iQuery) {
    for (unsigned int vertex = 0; vertex < 3; ++vertex) {
        bool inside = true;
        for (unsigned int axis = 0; axis < 3 && inside; ++axis) {
            const float place = iQuery.vertices[vertex][axis];
            const float centre = iQuery.centre[axis];
            const float halfSize = iQuery.halfSize[axis];
            inside = !DifferenceExceeds(place, centre, halfSize) &&
                     !DifferenceExceeds(centre, place, halfSize);
        }
        if (inside) return true;
    }
    return false;
}

// An edge axis is edge `iEdge` (from vertex iEdge to the next) crossed with the axis that is
// neither a nor b. Its components along a and b are the edge's along b and a, one of them negated.

/// Whether the axis is parallel to a box normal.
bool IsRedundant(const Query& iQuery, unsigned int iEdge, unsigned int iA, unsigned int iB) {
    const float* from = iQuery.vertices[iEdge];
    const float* to = iQuery.vertices[(iEdge + 1) % 3];
    return from[iA] == to[iA] || from[iB] == to[iB];
}

/// An edge axis with the error bound. The two ends of the edge project to one point, so the
/// triangle is the interval between that point and the one of the third vertex.
Verdict EdgeInDoubles(const Query& iQuery, unsigned int iEdge, unsigned int iA, unsigned int iB) {
    const float* from = iQuery.vertices[iEdge];
    const float* to = iQuery.vertices[(iEdge + 1) % 3];
    const float* third = iQuery.vertices[(iEdge + 2) % 3];
    const double edgeA = static_cast<double>(to[iA]) - from[iA];
    const double edgeB = static_cast<double>(to[iB]) - from[iB];
    const double centreA = iQuery.centre[iA];
    const double centreB = iQuery.centre[iB];
    const double fromAB = edgeA * (from[iB] - centreB);
    const double fromBA = edgeB * (from[iA] - centreA);
    const double thirdAB = edgeA * (third[iB] - centreB);
    const double thirdBA = edgeB * (third[iA] - centreA);
    const double radius =
        std::fabs(edgeA) * iQuery.halfSize[iB] + std::fabs(edgeB) * iQuery.halfSize[iA];
    const double first = fromAB - fromBA;
    const double opposite = thirdAB - thirdBA;
    const double gap = std::max(std::min(first, opposite), -std::max(first, opposite)) - radius;
    const double magnitude =
        std::fabs(fromAB) + std::fabs(fromBA) + std::fabs(thirdAB) + std::fabs(thirdBA) + radius;
    const double bound = kEdgeBound * magnitude;
    if (gap > bound) return Verdict::Apart;
    return gap < -bound ? Verdict::Meeting : Verdict::Open;
}

ExactNumber Difference(float iA, float iB) {
    return ExactNumber(iA) - ExactNumber(iB);
}

/// The same without any rounding. All terms are products of two differences, in one unit.
bool ApartOnEdgeExactly(const Query& iQuery, unsigned int iEdge, unsigned int iA, unsigned int iB) {
    const float* from = iQuery.vertices[iEdge];
    const float* to = iQuery.vertices[(iEdge + 1) % 3];
    const float* third = iQuery.vertices[(iEdge + 2) % 3];
    const float* centre = iQuery.centre;
    const ExactNumber edgeA = Difference(to[iA], from[iA]);
    const ExactNumber edgeB = Difference(to[iB], from[iB]);
    const ExactNumber first =
        edgeA * Difference(from[iB], centre[iB]) - edgeB * Difference(from[iA], centre[iA]);
    const ExactNumber opposite =
        edgeA * Difference(third[iB], centre[iB]) - edgeB * Difference(third[iA], centre[iA]);
    const ExactNumber radius = edgeA.Absolute() * ExactNumber(iQuery.halfSize[iB]) +
                               edgeB.Absolute() * ExactNumber(iQuery.halfSize[iA]);
    const ExactNumber minusRadius = ExactNumber() - radius;
    return (radius < first && radius < opposite) || (first < minusRadius && opposite < minusRadius);
}

/// True when the triangle lies in a plane of one constant coordinate.
bool LiesInCoordinatePlane(const Query& iQuery) {
    const float(*v)[3] = iQuery.vertices;
    for (unsigned int axis = 0; axis < 3; ++axis) {
        if (v[0][axis] == v[1][axis] && v[1][axis] == v[2][axis]) return true;
    }
    return false;
}

/// The triangle's normal with the error bound. The triangle projects to one point.
Verdict NormalInDoubles(const Query& iQuery) {
    const float(*v)[3] = iQuery.vertices;
    double offset = 0.0;
    double radius = 0.0;
    double magnitude = 0.0;
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const unsigned int a = (axis + 1) % 3;
        const unsigned int b = (axis + 2) % 3;
        const double ab =
            (static_cast<double>(v[1][a]) - v[0][a]) * (static_cast<double>(v[2][b]) - v[1][b]);
        const double ba =
            (static_cast<double>(v[1][b]) - v[0][b]) * (static_cast<double>(v[2][a]) - v[1][a]);
        const double normal = ab - ba;
        const double toVertex = static_cast<double>(v[0][axis]) - iQuery.centre[axis];
        const double halfSize = iQuery.halfSize[axis];
        offset += normal * toVertex;
        radius += std::fabs(normal) * halfSize;
        magnitude += (std::fabs(ab) + std::fabs(ba)) * (std::fabs(toVertex) + halfSize);
    }
    const double gap = std::fabs(offset) - radius;
    const double bound = kNormalBound * magnitude;
    if (gap > bound) return Verdict::Apart;
    return gap < -bound ? Verdict::Meeting : Verdict::Open;
}

/// The same without any rounding.
bool ApartOnNormalExactly(const Query& iQuery) {
    const float(*v)[3] = iQuery.vertices;
    ExactNumber offset;
    ExactNumber radius;
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const unsigned int a = (axis + 1) % 3;
        const unsigned int b = (axis + 2) % 3;
        const ExactNumber normal = Difference(v[1][a], v[0][a]) * Difference(v[2][b], v[1][b]) -
                                   Difference(v[1][b], v[0][b]) * Difference(v[2][a], v[1][a]);
        offset = offset + normal * Difference(v[0][axis], iQuery.centre[axis]);
        radius = radius + normal.Absolute() * ExactNumber(iQuery.halfSize[axis]);
    }
    return radius < offset.Absolute();
}

/// A set of the ten axes that aren't box normals: bit 3 * edge + axis for an edge axis, bit 9 for
/// the normal.
constexpr unsigned int kNormalBit = 1u << 9;

/// The ten axes in double precision. Ends at the first one on which the two are apart.
/// @param oOpen  the axes that rounding leaves open
Verdict AxesInDoubles(const Query& iQuery, unsigned int& oOpen) {
    oOpen = 0;
    if (!LiesInCoordinatePlane(iQuery)) {
        const Verdict verdict = NormalInDoubles(iQuery);
        if (verdict == Verdict::Apart) return Verdict::Apart;
        if (verdict == Verdict::Open) oOpen |= kNormalBit;
    }
    for (unsigned int bit = 0; bit < 9; ++bit) {
        const unsigned int edge = bit / 3;
        const unsigned int a = (bit + 1) % 3;
        const unsigned int b = (bit + 2) % 3;
        if (IsRedundant(iQuery, edge, a, b)) continue;
        const Verdict verdict = EdgeInDoubles(iQuery, edge, a, b);
        if (verdict == Verdict::Apart) return Verdict::Apart;
        if (verdict == Verdict::Open) oOpen |= 1u << bit;
    }
    return oOpen == 0 ? Verdict::Meeting : Verdict::Open;
}

/// The open axes in integers.
bool ApartOnOpenAxis(const Query& iQuery, unsigned int iOpen) {
    for (unsigned int bit = 0; bit < 9; ++bit) {
        if ((iOpen >> bit & 1u) == 0) continue;
        if (ApartOnEdgeExactly(iQuery, bit / 3, (bit + 1) % 3, (bit + 2) % 3)) return true;
    }
    return (iOpen & kNormalBit) != 0 && ApartOnNormalExactly(iQuery);
}

bool Meet(const Query& iQuery) {
    if (ApartOnBoxNormal(iQuery)) return false;
    if (BoxHoldsVertex(iQuery)) return true;
    unsigned int open = 0;
    switch (AxesInDoubles(iQuery, open)) {
        case Verdict::Apart:
            return false;
        case Verdict::Meeting:
            return true;
        default:
            return !ApartOnOpenAxis(iQuery, open);
    }
}

bool HoldsNoPoint(const float* iHalfSize) {
    return iHalfSize[0] < 0.0f || iHalfSize[1] < 0.0f || iHalfSize[2] < 0.0f;
}

}  // namespace

IDX_Bool IDX_Base_GeometryServices::TriangleToBox(
    const float* const iCentre,
    const float* const iHalfSize,
    const float (*const iTriangle)[3],
    IDX_Bool& oOverlap) {
    const Query query = {iCentre, iHalfSize, iTriangle};
    if (AllFinite(query) && !HoldsNoPoint(iHalfSize) && Meet(query)) {
        oOverlap = IDX_True;
    }
    return IDX_True;
}

namespace {

/// The operation above, also in a program that replaces it by its own.
__attribute__((alias("_ZN25IDX_Base_GeometryServices13TriangleToBoxEPKfS1_PA3_S0_R8IDX_Bool")))
IDX_Bool
OwnTriangleToBox(const float*, const float*, const float (*)[3], IDX_Bool&);

}  // namespace

/// By this address the octree builder finds out whether the process uses the operation above, whose
/// answers are those of the builder's faster tests. Without this name the builder doesn't use them.
extern "C" GRIDLOOM_CONTRACTS_API decltype(&OwnTriangleToBox) const gridloom_own_triangle_to_box;
decltype(&OwnTriangleToBox) const gridloom_own_triangle_to_box = &OwnTriangleToBox;
