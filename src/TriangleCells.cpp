#include "TriangleCells.h"

#include "IDX_Base_GeometryServices.h"

#include <limits>

namespace {

constexpr float kUnit = 0x1p-24f;
constexpr float kEdgeBound = 16 * kUnit;
constexpr float kNormalBound = 64 * kUnit;
constexpr float kUnderflow = 0x1p-100f;

/// The largest coordinate and the largest half-size for which the bounds hold.
constexpr float kMaxCoordinate = 0x1p40f;

bool InRange(FourFloats iValue) {
    return AxesOf(_mm_cmple_ps(Absolute(iValue), _mm_set1_ps(kMaxCoordinate))) == 7;
}

FourFloats Infinite() {
    return _mm_set1_ps(std::numeric_limits<float>::infinity());
}

/// One lane of a vector, in all lanes.
FourFloats Lane(FourFloats iValue, unsigned int iLane) {
    switch (iLane) {
        case 0:
            return Broadcast<0>(iValue);
        case 1:
            return Broadcast<1>(iValue);
        default:
            return Broadcast<2>(iValue);
    }
}

}  // namespace

TriangleCells::TriangleCells(
    const float (*iVertices)[3], FourFloats iCentre, FourFloats iHalfSize, float iFactor)
    : _vertices(iVertices), _factor(_mm_set1_ps(iFactor)), _axesReady(false), _readyLevels(0) {
    for (unsigned int i = 0; i < 3; ++i) _points[i] = AxesFrom(iVertices[i]);
    _low = _mm_min_ps(_mm_min_ps(_points[0], _points[1]), _points[2]);
    _high = _mm_max_ps(_mm_max_ps(_points[0], _points[1]), _points[2]);
    _reachLow = _low;
    _reachHigh = _high;
    // A coordinate that isn't a number is in no range.
    _usable = InRange(_points[0]) && InRange(_points[1]) && InRange(_points[2]) &&
              InRange(iCentre) && InRange(iHalfSize) &&
              AxesOf(_mm_cmpge_ps(iHalfSize, _mm_setzero_ps())) == 7;
}

void TriangleCells::PrepareAxes() {
    const FourFloats zero = _mm_setzero_ps();
    const FourFloats first = _points[1] - _points[0];
    const FourFloats second = _points[2] - _points[0];
    _normal = Rotate(first) * Rotate(Rotate(second)) - Rotate(Rotate(first)) * Rotate(second);
    const FourFloats flat = _mm_and_ps(_mm_cmpeq_ps(first, zero), _mm_cmpeq_ps(second, zero));
    _absNormal = AxesOf(flat) != 0 ? Infinite() : Absolute(_normal);

    FourFloats x = first;
    FourFloats y = _points[2] - _points[1];
    FourFloats z = zero - second;
    FourFloats unused = zero;
    _MM_TRANSPOSE4_PS(x, y, z, unused);  // from a vector for each edge to a vector for each axis
    PreparePlane(0, y, z, Broadcast<0>(_normal));
    PreparePlane(1, z, x, Broadcast<1>(_normal));
    PreparePlane(2, x, y, Broadcast<2>(_normal));
    _axesReady = true;
}

/// The lanes of iA and iB are edges. Relative to vertex 0, an edge and its opposite vertex project to 0
/// and to the component of the normal; for edge 1, which doesn't hold vertex 0, to 0 and its negative.
void TriangleCells::PreparePlane(
    unsigned int iPlane, FourFloats iA, FourFloats iB, FourFloats iNormal) {
    const FourFloats zero = _mm_setzero_ps();
    const FourFloats half = iNormal * _mm_set1_ps(0.5f);
    const FourFloats middles[3] = {half, Negative(half), half};
    for (unsigned int edge = 0; edge < 3; ++edge) {
        _edges[iPlane][edge] = {Lane(iA, edge), Lane(iB, edge), middles[edge]};
    }
    _extentA[iPlane] = Absolute(iA);
    _extentB[iPlane] = Absolute(iB);
    // An axis that is parallel to a coordinate axis repeats a box normal.
    const FourFloats redundant = _mm_or_ps(_mm_cmpeq_ps(iA, zero), _mm_cmpeq_ps(iB, zero));
    _radii[iPlane] = Select(redundant, Infinite(), Absolute(half));
}

void TriangleCells::PrepareLevel(Level& oLevel, FourFloats iBoxSize) const {
    const FourFloats sizes[3] = {
        Broadcast<0>(iBoxSize), Broadcast<1>(iBoxSize), Broadcast<2>(iBoxSize)};
    for (unsigned int plane = 0; plane < 3; ++plane) {
        const FourFloats sizeA = sizes[(plane + 1) % 3];
        const FourFloats sizeB = sizes[(plane + 2) % 3];
        const FourFloats limits =
            _radii[plane] + (_extentA[plane] * sizeB + _extentB[plane] * sizeA);
        for (unsigned int edge = 0; edge < 3; ++edge) {
            oLevel.edgeLimits[plane][edge] = Lane(limits, edge);
        }
    }
    const FourFloats extents = _high - _low;
    const FourFloats reach = extents * _mm_set1_ps(2.0f) + iBoxSize * _mm_set1_ps(3.0f);
    const FourFloats extentB = Rotate(extents);
    const FourFloats extentC = Rotate(extentB);
    const FourFloats edgeTerms = extentB * Rotate(Rotate(reach)) + extentC * Rotate(reach);
    const FourFloats underflow = _mm_set1_ps(kUnderflow);
    const FourFloats edgeErrors = edgeTerms * _mm_set1_ps(kEdgeBound) + underflow;
    for (unsigned int plane = 0; plane < 3; ++plane) {
        oLevel.edgeErrors[plane] = Lane(edgeErrors, plane);
    }
    oLevel.normalLimit = _mm_set1_ps(SumOfAxes(_absNormal * iBoxSize));
    oLevel.normalError =
        _mm_set1_ps(SumOfAxes(extentB * extentC * reach) * kNormalBound + kUnderflow);
}

bool TriangleCells::DecideExactly(
    const ChildCells& iCells, unsigned int iChild, bool& oTouched) const {
    alignas(16) float centres[2][4];
    alignas(16) float boxSize[4];
    _mm_store_ps(centres[0], iCells.centres[0]);
    _mm_store_ps(centres[1], iCells.centres[1]);
    _mm_store_ps(boxSize, iCells.halfSize * _factor);
    const float centre[3] = {
        centres[iChild & 1u][0], centres[iChild >> 1 & 1u][1], centres[iChild >> 2 & 1u][2]};
    IDX_Bool overlap = IDX_False;
    const IDX_Bool decided =
        IDX_Base_GeometryServices::TriangleToBox(centre, boxSize, _vertices, overlap);
    oTouched = overlap == IDX_True;
    return decided == IDX_True;
}
