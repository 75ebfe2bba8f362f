#include "TriangleCells.h"

#include "BlockOfCells.h"

#include "IDX_Base_GeometryServices.h"

#include <bit>
#include <limits>

namespace {

constexpr float kUnit = 0x1p-24f;
constexpr float kEdgeBound = 16 * kUnit;
constexpr float kNormalBound = 64 * kUnit;
/// How far the faces of a cell's box can be off their ideal place, as part of the largest coordinate: the
/// centre of a cell is rounded twice on the way from its node set. Twice as much is taken.
constexpr float kCellSlack = 4 * kUnit;

/// For positions in a node set relative to vertex 0, as part of the extents that they are made of.
constexpr float kLatticeBound = 8 * kUnit;

/// A component of the normal is at most this many products of two extents.
constexpr float kNormalTerms = 2.5f;
constexpr float kUnderflow = 0x1p-100f;

/// The largest coordinate and the largest half-size for which the bounds hold.
constexpr float kMaxCoordinate = 0x1p40f;

/// The smallest half-size, other than 0, from which the bounds hold down to the last level.
constexpr float kMinHalfSize = 0x1p-80f;

/// Of eight cells, two along each axis, those that a span of 0 or 1 along an axis fills.
constexpr unsigned int kFilledPairs[2][3] = {
    {0x55, 0x33, 0x0F},
    {0xFF, 0xFF, 0xFF}
};

/// From eight cells, two along each axis, to the same cells x + 4 y + 16 z of a block.
struct BlockOfChildrenTable {
    std::uint64_t cells[256];
    constexpr BlockOfChildrenTable() : cells() {
        for (unsigned int mask = 0; mask < 256; ++mask) {
            for (unsigned int c = 0; c < 8; ++c) {
                const unsigned int bit = (c & 1u) + 4 * (c >> 1 & 1u) + 16 * (c >> 2);
                cells[mask] |= static_cast<std::uint64_t>(mask >> c & 1u) << bit;
            }
        }
    }
};
constexpr BlockOfChildrenTable kBlockOfChildren;

bool InRange(FourFloats iValue) {
    return AxesOf(_mm_cmple_ps(Absolute(iValue), _mm_set1_ps(kMaxCoordinate))) == 7;
}

bool IsFineSize(FourFloats iHalfSize) {
    const FourFloats large = _mm_cmpge_ps(iHalfSize, _mm_set1_ps(kMinHalfSize));
    return AxesOf(_mm_or_ps(large, _mm_cmpeq_ps(iHalfSize, _mm_setzero_ps()))) == 7;
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

TriangleCells::TriangleCells(const float (*iVertices)[3])
    : _vertices(iVertices), _usable(true), _axesReady(false) {
    SetFactor(1.0f);
    for (unsigned int i = 0; i < 3; ++i) _points[i] = AxesFrom(iVertices[i]);
    // The second one where a coordinate is no number.
    _low = _mm_min_ps(_points[2], _mm_min_ps(_points[1], _points[0]));
    _high = _mm_max_ps(_points[2], _mm_max_ps(_points[1], _points[0]));
}

TriangleCells::TriangleCells(
    const float (*iVertices)[3], FourFloats iCentre, FourFloats iHalfSize, float iFactor, bool iAsk)
    : TriangleCells(iVertices) {
    SetFactor(iFactor);
    SetReach(_low, _high);
    _slack = (Absolute(iCentre) + iHalfSize) * _mm_set1_ps(kCellSlack);
    // A coordinate that isn't a number is in no range.
    _usable = !iAsk && InRange(_points[0]) && InRange(_points[1]) && InRange(_points[2]) &&
              InRange(iCentre) && InRange(iHalfSize) && IsFineSize(iHalfSize);
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

void TriangleCells::PrepareLevel(Level& oLevel, FourFloats iBoxSize, FourFloats iSlack) const {
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
    // A box that is off by the slack moves both sides by no more than it moves the radius.
    const FourFloats edgeReach = reach * _mm_set1_ps(kEdgeBound) + iSlack;
    const FourFloats normalReach =
        reach * _mm_set1_ps(kNormalBound) + iSlack * _mm_set1_ps(kNormalTerms);
    const FourFloats edgeErrors =
        extentB * Rotate(Rotate(edgeReach)) + extentC * Rotate(edgeReach) + _mm_set1_ps(kUnderflow);
    for (unsigned int plane = 0; plane < 3; ++plane) {
        oLevel.edgeErrors[plane] = Lane(edgeErrors, plane);
    }
    oLevel.normalLimit = _mm_set1_ps(SumOfAxes(_absNormal * iBoxSize));
    oLevel.normalError = _mm_set1_ps(SumOfAxes(extentB * extentC * normalReach) + kUnderflow);
}

TriangleCells::Lanes TriangleCells::LanesBelow(FourFloats iGaps, FourFloats iError) {
    return {LanesOf(_mm_cmpngt_ps(iGaps, iError)), LanesOf(_mm_cmplt_ps(iGaps, Negative(iError)))};
}

TriangleCells::Lattice TriangleCells::LatticeOf(FourFloats iCentre, FourFloats iHalfSize) const {
    const FourFloats quarters = _mm_setr_ps(-0.75f, -0.25f, 0.25f, 0.75f);
    const FourFloats centre = iCentre - _points[0];
    Lattice lattice;
    lattice.along[0] = Broadcast<0>(centre) + Broadcast<0>(iHalfSize) * quarters;
    lattice.along[1] = Broadcast<1>(centre) + Broadcast<1>(iHalfSize) * quarters;
    lattice.along[2] = Broadcast<2>(centre) + Broadcast<2>(iHalfSize) * quarters;
    lattice.cellSize = iHalfSize * _mm_set1_ps(0.25f);
    const FourFloats extents = (_high - _low) + iHalfSize * _mm_set1_ps(2.0f);
    lattice.slack = _slack + extents * _mm_set1_ps(kLatticeBound);
    return lattice;
}

CellMask TriangleCells::CellsOfNodeSet(FourFloats iCentre, FourFloats iHalfSize) {
    if (!_usable || !_plain) return {0, false};
    const Lattice lattice = LatticeOf(iCentre, iHalfSize);
    const FourFloats low = _low - _points[0];
    const FourFloats high = _high - _points[0];
    Lanes axes[3];
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const FourFloats& along = lattice.along[axis];
        const FourFloats gaps = _mm_max_ps(Lane(low, axis) - along, along - Lane(high, axis));
        axes[axis] = LanesBelow(gaps - Lane(lattice.cellSize, axis), Lane(lattice.slack, axis));
    }
    const std::uint64_t near = CellsOfSlabs(axes[0].near, axes[1].near, axes[2].near);
    if (std::popcount(near) <= 3) {
        const std::uint64_t holding = CellsHoldingVertex(lattice);
        if ((near & ~holding) == 0) return {CellsByLeafGroup(near), true};
    }
    const CellMask mask = RowsOfBlock(lattice, axes);
    return {CellsByLeafGroup(mask.cells), mask.decided};
}

CellMask TriangleCells::CellsOfBlock(
    FourFloats iCorner, FourFloats iCell, const unsigned int* iSpans, FourFloats iSlack) {
    const FourFloats size = iCell * _mm_set1_ps(0.5f);
    if ((iSpans[0] | iSpans[1] | iSpans[2]) <= 1) {
        const FourFloats first = iCorner + size;
        const ChildCells cells = {
            size, {first, first + iCell},
             0, 0, 0
        };
        const Verdict axes = OnAxes(cells, LevelFor(kLatticeLevel, size, iSlack));
        const unsigned int near = kFilledPairs[iSpans[0]][0] & kFilledPairs[iSpans[1]][1] &
                                  kFilledPairs[iSpans[2]][2] & ~axes.apart;
        return {kBlockOfChildren.cells[near], (near & ~axes.meeting) == 0};
    }
    const FourFloats places = _mm_setr_ps(0.5f, 1.5f, 2.5f, 3.5f);
    const FourFloats corner = iCorner - _points[0];
    Lattice lattice;
    lattice.along[0] = Broadcast<0>(corner) + Broadcast<0>(iCell) * places;
    lattice.along[1] = Broadcast<1>(corner) + Broadcast<1>(iCell) * places;
    lattice.along[2] = Broadcast<2>(corner) + Broadcast<2>(iCell) * places;
    lattice.cellSize = size;
    lattice.slack = iSlack;
    Lanes axes[3];
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const unsigned int filled = (2u << iSpans[axis]) - 1;
        axes[axis] = {filled, filled};
    }
    return RowsOfBlock(lattice, axes);
}

/// Cells x + 4 y + 16 z of a node set that certainly hold a vertex.
std::uint64_t TriangleCells::CellsHoldingVertex(const Lattice& iLattice) const {
    const FourFloats size = iLattice.cellSize - iLattice.slack;
    std::uint64_t cells = 0;
    for (const FourFloats vertex : _points) {
        const FourFloats place = vertex - _points[0];
        unsigned int slabs[3];
        for (unsigned int axis = 0; axis < 3; ++axis) {
            const FourFloats distance = Absolute(iLattice.along[axis] - Lane(place, axis));
            slabs[axis] = LanesOf(_mm_cmplt_ps(distance, Lane(size, axis)));
        }
        cells |= CellsOfSlabs(slabs[0], slabs[1], slabs[2]);
    }
    return cells;
}

CellMask TriangleCells::RowsOfBlock(const Lattice& iLattice, const Lanes (&iAxes)[3]) {
    const Level& level = LevelFor(kLatticeLevel, iLattice.cellSize, iLattice.slack);
    const FourFloats& columns = iLattice.along[0];
    alignas(16) float rows[4];
    alignas(16) float layers[4];
    _mm_store_ps(rows, iLattice.along[1]);
    _mm_store_ps(layers, iLattice.along[2]);

    Lanes inRow[4];  // columns, by row: the plane (x, y)
    for (unsigned int y = 0; y < 4; ++y) {
        if ((iAxes[1].near >> y & 1u) == 0) continue;
        const FourFloats gaps = GapOnEdges(2, columns, _mm_set1_ps(rows[y]), level);
        inRow[y] = LanesBelow(gaps, level.edgeErrors[2]);
    }
    const FourFloats alongX = Broadcast<0>(_normal) * columns;
    std::uint64_t touched = 0;
    for (unsigned int z = 0; z < 4; ++z) {
        if ((iAxes[2].near >> z & 1u) == 0) continue;
        const FourFloats layer = _mm_set1_ps(layers[z]);
        const Lanes inLayer =  // columns: the plane (z, x)
            LanesBelow(GapOnEdges(1, layer, columns, level), level.edgeErrors[1]);
        const Lanes rowsOfLayer =  // rows: the plane (y, z)
            LanesBelow(GapOnEdges(0, iLattice.along[1], layer, level), level.edgeErrors[0]);
        const FourFloats alongXZ = alongX + Broadcast<2>(_normal) * layer;
        for (unsigned int y = 0; y < 4; ++y) {
            if ((iAxes[1].near & rowsOfLayer.near & 1u << y) == 0) continue;
            unsigned int near = iAxes[0].near & inLayer.near & inRow[y].near;
            if (near == 0) continue;
            const FourFloats distance =
                Absolute(alongXZ + Broadcast<1>(_normal) * _mm_set1_ps(rows[y]));
            const Lanes onNormal = LanesBelow(distance - level.normalLimit, level.normalError);
            near &= onNormal.near;
            if (near == 0) continue;
            const bool rowIsSure =
                (iAxes[1].sure & rowsOfLayer.sure & 1u << y) != 0 && (iAxes[2].sure >> z & 1u) != 0;
            const unsigned int sure = iAxes[0].sure & inLayer.sure & inRow[y].sure & onNormal.sure;
            if (!rowIsSure || (near & ~sure) != 0) return {0, false};
            touched |= static_cast<std::uint64_t>(near) << (4 * y + 16 * z);
        }
    }
    return {touched, true};
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
    return decided != IDX_False;
}
