#ifndef TriangleCells_h
#define TriangleCells_h

#include <emmintrin.h>

/// The eight children of one cell against one triangle. A bit of a mask is a child number.
struct ChildCells {
    __m128 halfSize;       ///< of the children: x, y, z, unused
    __m128 centres[2];     ///< of the low and of the high halves along each axis
    unsigned int reached;  ///< children whose half is reached by the triangle's bounds on each axis
    unsigned int touched;  ///< of these, certainly touched
    unsigned int open;     ///< of these, to be decided exactly
};

/// A triangle made ready to be held against many cells: decides for all eight children of a cell at
/// once, in single precision, which ones it certainly touches and which ones it certainly doesn't. What
/// rounding leaves open is few, and left to the exact test.
///
/// The answers are those of the exact test, since they are given only where a bound on the rounding
/// errors proves them. The bound is derived in the source file.
class TriangleCells {
public:
    /// @param iVertices  3 vertices of 3 coordinates; must stay in place
    /// @param iFactor    enlarges the boxes of the children, but not the cells
    TriangleCells(const float (*iVertices)[3], float iFactor);

    /// The bounds of the triangle on each axis, taken by the reach test.
    void SetBounds(__m128 iLow, __m128 iHigh) {
        _low = iLow;
        _high = iHigh;
    }

    void SetFactor(float iFactor) { _factor = _mm_set1_ps(iFactor); }

    /// Holds the children of a cell against the triangle.
    /// @param iCentre    centre of the cell
    /// @param iHalfSize  distance from there to its faces
    /// @param iPassed    children that need no test; they are neither in `touched` nor in `open`
    ChildCells Children(__m128 iCentre, __m128 iHalfSize, unsigned int iPassed);

    /// The exact test for one child, through IDX_Base_GeometryServices::TriangleToBox.
    /// @param oTouched  whether triangle and box have a point in common
    /// @return false when it couldn't be decided
    bool DecideExactly(const ChildCells& iCells, unsigned int iChild, bool& oTouched) const;

private:
    /// What an edge axis compares, for the axes a and b of one coordinate plane. Lanes are edges.
    struct EdgeAxes {
        __m128 a;          ///< extent of the edge along a
        __m128 b;          ///< and along b
        __m128 middle;     ///< middle of the triangle's projection
        __m128 radius;     ///< half of its length, infinite where the axis repeats a box normal
        __m128 magnitude;  ///< bound on the terms that went into both
    };

    /// Children that are apart from the triangle on an axis, and children that certainly aren't on any.
    struct Verdict {
        unsigned int apart;
        unsigned int meeting;
    };

    void PrepareAxes();
    void PrepareEdgeAxes(EdgeAxes& oAxes, __m128 iA, __m128 iB, __m128 iNormal, __m128 iMagnitude);
    bool IsUsable(__m128 iHalfSize) const;
    unsigned int HoldingVertex(const ChildCells& iCells, __m128 iBoxSize) const;
    Verdict OnBoxNormals(const ChildCells& iCells, __m128 iBoxSize) const;
    Verdict OnEdgesAndNormal(const ChildCells& iCells, __m128 iBoxSize);
    void OnEdges(
        const EdgeAxes& iAxes,
        const __m128 (&iA)[2],
        const __m128 (&iB)[2],
        __m128 iSizeA,
        __m128 iSizeB,
        const unsigned int* iChildrenOfA,
        const unsigned int* iChildrenOfB,
        Verdict& ioVerdict) const;
    void OnNormal(
        const __m128 (&iCentres)[2], __m128 iBoxSize, __m128 iReach, Verdict& ioVerdict) const;

    const float (*_vertices)[3];
    __m128 _points[3];  ///< the vertices: x, y, z, 0
    __m128 _low;        ///< bounds of the triangle
    __m128 _high;
    __m128 _factor;       ///< box size of a child / half-size of the cell
    bool _finite;         ///< all vertices are finite
    bool _prepared;       ///< the fields below are worked out
    EdgeAxes _edges[3];   ///< for the planes (y, z), (z, x), (x, y)
    __m128 _normal;       ///< x, y, z, 0
    __m128 _absNormal;    ///< infinite where the plane repeats a box normal
    __m128 _normalTerms;  ///< bound on the terms that went into each component
};

#endif
