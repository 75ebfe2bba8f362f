#include "TriangleCells.h"

#include "IDX_Base_GeometryServices.h"

#include <array>
#include <cfloat>
#include <limits>

// The separating axis test of IDX_Base_GeometryServices::TriangleToBox, for eight boxes at a time and in
// single precision. Children of one cell share all that an axis needs but their centres, and these take
// two values along each axis.
//
// Three stages, each only for the children that the earlier ones leave open:
//  1. A child that holds a vertex is touched. For small triangles this decides nearly everything.
//  2. A child that the bounds of the triangle miss on some axis is not touched.
//  3. The nine edge axes, four pairs of centres for each coordinate plane; the normal, eight sums.
//
// Rounding. Let u = 2^-24. Stages 1 and 2 compare a rounded difference of two floats with a float:
// rounding is monotonic, so that a strict comparison holds for the true difference too, and equality is
// left open. In stage 3 all is relative to vertex 0. Differences of coordinates have the relative error
// u, and every operation adds u.
//  - An edge axis compares |e_a d_b - middle - e_b d_a| with radius + |e_a| t_b + |e_b| t_a, where middle and
//    radius are half a component n of the normal, off by 4u times the sum N of the absolute values of its
//    two terms. Both sides together are off by less than 6u (|e_a| (|d_b| + t_b) + |e_b| (|d_a| + t_a) + N);
//    16u is taken, which covers the rounding of the bound itself.
//  - The normal compares |n . d| with |n| . t, off by less than 16u (N . (|d| + t)); 32u is taken.
// Underflow adds less than 2^-140 to either and to each N, and FLT_MIN is added for it. Overflow makes the
// bound infinite or no number, and every comparison with it false: the child stays open.

namespace {

constexpr float kUnit = 0x1p-24f;
constexpr float kEdgeBound = 16 * kUnit;
constexpr float kNormalBound = 32 * kUnit;

/// Largest half-size that the stages are used for: nothing derived from it overflows.
constexpr float kMaxHalfSize = FLT_MAX / 4;

constexpr unsigned int kAxes = 7;  ///< lanes x, y, z of a mask
constexpr unsigned int kAll = 0xFF;

/// Children on the low and on the high side along X, Y and Z.
constexpr unsigned int kSide[3][2] = {
    {0x55, 0xAA},
    {0x33, 0xCC},
    {0x0F, 0xF0}
};

/// The children c for which, on every axis, the bit of the half that c lies in is set in an index made of
/// three bits for the low halves and three for the high halves.
constexpr std::array<unsigned char, 64> kChildrenInHalves = [] {
    std::array<unsigned char, 64> table = {};
    for (unsigned int index = 0; index < 64; ++index) {
        unsigned int children = kAll;
        for (unsigned int axis = 0; axis < 3; ++axis) {
            const unsigned int low = (index >> axis & 1u) != 0 ? kSide[axis][0] : 0;
            const unsigned int high = (index >> (axis + 3) & 1u) != 0 ? kSide[axis][1] : 0;
            children &= low | high;
        }
        table[index] = static_cast<unsigned char>(children);
    }
    return table;
}();

unsigned int LanesOf(__m128 iMask) {
    return static_cast<unsigned int>(_mm_movemask_ps(iMask));
}

/// Children whose halves are set in the lanes of both masks.
unsigned int ChildrenInHalves(__m128 iLowHalves, __m128 iHighHalves) {
    return kChildrenInHalves[(LanesOf(iLowHalves) & kAxes) | (LanesOf(iHighHalves) & kAxes) << 3];
}

__m128 Absolute(__m128 iValue) {
    return _mm_andnot_ps(_mm_set1_ps(-0.0f), iValue);
}

template <int kLane>
__m128 Broadcast(__m128 iValue) {
    return _mm_shuffle_ps(iValue, iValue, _MM_SHUFFLE(kLane, kLane, kLane, kLane));
}

/// From x, y, z, w to y, z, x, w.
__m128 Rotate(__m128 iValue) {
    return _mm_shuffle_ps(iValue, iValue, _MM_SHUFFLE(3, 0, 2, 1));
}

float SumOfAxes(__m128 iValue) {
    alignas(16) float lanes[4];
    _mm_store_ps(lanes, iValue);
    return lanes[0] + lanes[1] + lanes[2];
}

__m128 Select(__m128 iMask, __m128 iWhenSet, __m128 iElse) {
    return _mm_or_ps(_mm_and_ps(iMask, iWhenSet), _mm_andnot_ps(iMask, iElse));
}

__m128 Infinite() {
    return _mm_set1_ps(std::numeric_limits<float>::infinity());
}

}  // namespace

TriangleCells::TriangleCells(const float (*iVertices)[3], float iFactor)
    : _vertices(iVertices), _factor(_mm_set1_ps(iFactor)), _prepared(false) {
    for (unsigned int i = 0; i < 3; ++i) {
        _points[i] = _mm_setr_ps(iVertices[i][0], iVertices[i][1], iVertices[i][2], 0.0f);
    }
    _low = _mm_min_ps(_mm_min_ps(_points[0], _points[1]), _points[2]);
    _high = _mm_max_ps(_mm_max_ps(_points[0], _points[1]), _points[2]);
    // 0 for a finite number, else no number.
    const __m128 zeros =
        (_points[0] - _points[0]) + (_points[1] - _points[1]) + (_points[2] - _points[2]);
    _finite = LanesOf(_mm_cmpord_ps(zeros, zeros)) == 0xF;
}

bool TriangleCells::IsUsable(__m128 iHalfSize) const {
    const __m128 inRange = _mm_and_ps(
        _mm_cmpge_ps(iHalfSize, _mm_setzero_ps()),
        _mm_cmple_ps(iHalfSize, _mm_set1_ps(kMaxHalfSize)));
    return _finite && (LanesOf(inRange) & kAxes) == kAxes;
}

ChildCells TriangleCells::Children(__m128 iCentre, __m128 iHalfSize, unsigned int iPassed) {
    ChildCells cells;
    cells.halfSize = iHalfSize * _mm_set1_ps(0.5f);
    cells.centres[0] = iCentre - cells.halfSize;
    cells.centres[1] = iCentre + cells.halfSize;
    cells.reached = ChildrenInHalves(_mm_cmpngt_ps(_low, iCentre), _mm_cmpngt_ps(iCentre, _high));
    cells.touched = 0;
    cells.open = cells.reached & ~iPassed;
    if (cells.open == 0 || !IsUsable(iHalfSize)) return cells;

    const __m128 boxSize = cells.halfSize * _factor;
    cells.touched = cells.open & HoldingVertex(cells, boxSize);
    cells.open &= ~cells.touched;
    if (cells.open == 0) return cells;

    const Verdict bounds = OnBoxNormals(cells, boxSize);
    cells.open &= ~bounds.apart;
    if (cells.open == 0) return cells;

    const Verdict axes = OnEdgesAndNormal(cells, boxSize);
    cells.touched |= cells.open & bounds.meeting & axes.meeting;
    cells.open &= ~(axes.apart | cells.touched);
    return cells;
}

unsigned int TriangleCells::HoldingVertex(const ChildCells& iCells, __m128 iBoxSize) const {
    unsigned int holding = 0;
    for (const __m128 point : _points) {
        holding |= ChildrenInHalves(
            _mm_cmplt_ps(Absolute(point - iCells.centres[0]), iBoxSize),
            _mm_cmplt_ps(Absolute(point - iCells.centres[1]), iBoxSize));
    }
    return holding;
}

TriangleCells::Verdict TriangleCells::OnBoxNormals(
    const ChildCells& iCells, __m128 iBoxSize) const {
    __m128 near[2];
    __m128 clear[2];
    for (unsigned int side = 0; side < 2; ++side) {
        const __m128 below = _low - iCells.centres[side];
        const __m128 above = iCells.centres[side] - _high;
        const __m128 gap = _mm_max_ps(below, above);
        near[side] = _mm_cmple_ps(gap, iBoxSize);
        clear[side] = _mm_cmplt_ps(gap, iBoxSize);
    }
    return {
        kAll & ~ChildrenInHalves(near[0], near[1]),
        ChildrenInHalves(clear[0], clear[1]),
    };
}

void TriangleCells::PrepareEdgeAxes(
    EdgeAxes& oAxes, __m128 iA, __m128 iB, __m128 iNormal, __m128 iMagnitude) {
    const __m128 zero = _mm_setzero_ps();
    // The edge and the opposite vertex project to 0 and n, in an order that turns for edge 1.
    oAxes.a = iA;
    oAxes.b = iB;
    oAxes.middle = iNormal * _mm_setr_ps(0.5f, -0.5f, 0.5f, 0.0f);
    oAxes.radius = Absolute(iNormal) * _mm_set1_ps(0.5f);
    oAxes.magnitude = iMagnitude;
    const __m128 redundant = _mm_or_ps(_mm_cmpeq_ps(iA, zero), _mm_cmpeq_ps(iB, zero));
    oAxes.radius = Select(redundant, Infinite(), oAxes.radius);
}

void TriangleCells::PrepareAxes() {
    const __m128 first = _points[1] - _points[0];
    const __m128 second = _points[2] - _points[0];

    const __m128 left = Rotate(first) * Rotate(Rotate(second));
    const __m128 right = Rotate(Rotate(first)) * Rotate(second);
    _normal = left - right;
    _normalTerms = Absolute(left) + Absolute(right) + _mm_set1_ps(FLT_MIN);
    const __m128 zero = _mm_setzero_ps();
    const __m128 flat = _mm_and_ps(_mm_cmpeq_ps(first, zero), _mm_cmpeq_ps(second, zero));
    const bool redundant = (LanesOf(flat) & kAxes) != 0;
    _absNormal = redundant ? Infinite() : Absolute(_normal);

    __m128 x = first;
    __m128 y = _points[2] - _points[1];
    __m128 z = zero - second;
    __m128 unused = zero;
    _MM_TRANSPOSE4_PS(x, y, z, unused);  // from one edge a vector to one axis a vector
    PrepareEdgeAxes(_edges[0], y, z, Broadcast<0>(_normal), Broadcast<0>(_normalTerms));
    PrepareEdgeAxes(_edges[1], z, x, Broadcast<1>(_normal), Broadcast<1>(_normalTerms));
    PrepareEdgeAxes(_edges[2], x, y, Broadcast<2>(_normal), Broadcast<2>(_normalTerms));
    _prepared = true;
}

TriangleCells::Verdict TriangleCells::OnEdgesAndNormal(const ChildCells& iCells, __m128 iBoxSize) {
    if (!_prepared) PrepareAxes();
    const __m128 centres[2] = {iCells.centres[0] - _points[0], iCells.centres[1] - _points[0]};
    const __m128 x[2] = {Broadcast<0>(centres[0]), Broadcast<0>(centres[1])};
    const __m128 y[2] = {Broadcast<1>(centres[0]), Broadcast<1>(centres[1])};
    const __m128 z[2] = {Broadcast<2>(centres[0]), Broadcast<2>(centres[1])};
    const __m128 sizeX = Broadcast<0>(iBoxSize);
    const __m128 sizeY = Broadcast<1>(iBoxSize);
    const __m128 sizeZ = Broadcast<2>(iBoxSize);
    Verdict verdict = {0, kAll};
    OnEdges(_edges[0], y, z, sizeY, sizeZ, kSide[1], kSide[2], verdict);
    OnEdges(_edges[1], z, x, sizeZ, sizeX, kSide[2], kSide[0], verdict);
    OnEdges(_edges[2], x, y, sizeX, sizeY, kSide[0], kSide[1], verdict);
    const __m128 reach = _mm_max_ps(Absolute(centres[0]), Absolute(centres[1])) + iBoxSize;
    OnNormal(centres, iBoxSize, reach, verdict);
    return verdict;
}

void TriangleCells::OnEdges(
    const EdgeAxes& iAxes,
    const __m128 (&iA)[2],
    const __m128 (&iB)[2],
    __m128 iSizeA,
    __m128 iSizeB,
    const unsigned int* iChildrenOfA,
    const unsigned int* iChildrenOfB,
    Verdict& ioVerdict) const {
    const __m128 absA = Absolute(iAxes.a);
    const __m128 absB = Absolute(iAxes.b);
    const __m128 reachA = _mm_max_ps(Absolute(iA[0]), Absolute(iA[1])) + iSizeA;
    const __m128 reachB = _mm_max_ps(Absolute(iB[0]), Absolute(iB[1])) + iSizeB;
    const __m128 limit = iAxes.radius + (absA * iSizeB + absB * iSizeA);
    const __m128 terms = absA * reachB + absB * reachA + iAxes.magnitude;
    const __m128 error = terms * _mm_set1_ps(kEdgeBound) + _mm_set1_ps(FLT_MIN);
    const __m128 beyond = limit + error;
    const __m128 within = limit - error;
    for (unsigned int i = 0; i < 2; ++i) {
        const __m128 alongB = iAxes.a * iB[i] - iAxes.middle;
        for (unsigned int j = 0; j < 2; ++j) {
            const __m128 distance = Absolute(alongB - iAxes.b * iA[j]);
            const unsigned int children = iChildrenOfB[i] & iChildrenOfA[j];
            if (LanesOf(_mm_cmpgt_ps(distance, beyond)) != 0) ioVerdict.apart |= children;
            if (LanesOf(_mm_cmplt_ps(distance, within)) != 0xF) ioVerdict.meeting &= ~children;
        }
    }
}

void TriangleCells::OnNormal(
    const __m128 (&iCentres)[2], __m128 iBoxSize, __m128 iReach, Verdict& ioVerdict) const {
    const __m128 low = _normal * iCentres[0];
    const __m128 high = _normal * iCentres[1];
    // Children 0 to 3 and 4 to 7: x alternates, y in pairs.
    const __m128 lowHigh = _mm_unpacklo_ps(low, high);  // xl xh yl yh
    const __m128 alongX = _mm_movelh_ps(lowHigh, lowHigh);
    const __m128 alongY = _mm_shuffle_ps(lowHigh, lowHigh, _MM_SHUFFLE(3, 3, 2, 2));
    const __m128 alongXY = alongX + alongY;
    const __m128 distances[2] = {
        Absolute(alongXY + Broadcast<2>(low)), Absolute(alongXY + Broadcast<2>(high))};

    const float limit = SumOfAxes(_absNormal * iBoxSize);
    const float error = SumOfAxes(_normalTerms * iReach) * kNormalBound + FLT_MIN;
    const __m128 beyond = _mm_set1_ps(limit + error);
    const __m128 within = _mm_set1_ps(limit - error);
    const unsigned int apart = LanesOf(_mm_cmpgt_ps(distances[0], beyond)) |
                               LanesOf(_mm_cmpgt_ps(distances[1], beyond)) << 4;
    const unsigned int meeting = LanesOf(_mm_cmplt_ps(distances[0], within)) |
                                 LanesOf(_mm_cmplt_ps(distances[1], within)) << 4;
    ioVerdict.apart |= apart;
    ioVerdict.meeting &= meeting;
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
