#include "TriangleCells.h"

#include "BlockOfCells.h"

#include "IDX_Base_GeometryServices.h"

#include <bit>

namespace {

constexpr float kEdgeBound = 16 * kFloatUnit;
constexpr float kNormalBound = 64 * kFloatUnit;

/// How far the faces of a cell's box can be off their ideal place, as part of the largest
/// coordinate. The centre of a cell is rounded twice on the way from its node set; this is twice as
/// much.
constexpr float kCellSlack = 4 * kFloatUnit;

/// How far a position in a node set relative to vertex 0 can be off, as part of the extents that it
/// is computed from.
constexpr float kLatticeBound = 8 * kFloatUnit;

/// A component of the normal is at most this many products of two extents.
constexpr float kNormalTerms = 2.5f;
constexpr float kUnderflow = 0x1p-100f;

/// The smallest half-size, other than 0, from which the bounds hold down to the last level.
constexpr float kMinHalfSize = 0x1p-80f;

/// Of the eight children of a cell, those in its low half along an axis when the span there is 0,
/// and all when it is 1.
unsigned int ChildrenOfSpan(unsigned int iAxis, unsigned int iSpan) {
    return iSpan == 0 ? kChildrenInHalf[iAxis][0] : kAllChildren;
}

/// From a mask of eight cells, two along each axis, to the same cells of a block.
struct BlockOfChildrenTable {
    std::uint64_t cells[256];
    constexpr BlockOfChildrenTable() : cells() {
        for (unsigned int mask = 0; mask < 256; ++mask) {
            for (unsigned int c = 0; c < kChildren; ++c) {
                const unsigned int bit = BitOfCell(HalfOf(c, 0), HalfOf(c, 1), HalfOf(c, 2));
                cells[mask] |= static_cast<std::uint64_t>(mask >> c & 1u) << bit;
            }
        }
    }
};
constexpr BlockOfChildrenTable kBlockOfChildren;

bool InRange(FourFloats iValue) {
    return AxesOf(_mm_cmple_ps(Absolute(iValue), _mm_set1_ps(kMaxCoordinate))) == kAllAxes;
}

bool IsFineSize(FourFloats iHalfSize) {
    const FourFloats large = _mm_cmpge_ps(iHalfSize, _mm_set1_ps(kMinHalfSize));
    return AxesOf(_mm_or_ps(large, _mm_cmpeq_ps(iHalfSize, _mm_setzero_ps()))) == kAllAxes;
}

FourFloats Infinite() {
    return _mm_set1_ps(kInfinity);
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
    // `minps` and `maxps` give their second operand when a coordinate is a NaN.
    _low = _mm_min_ps(_points[2], _mm_min_ps(_points[1], _points[0]));
    _high = _mm_max_ps(_points[2], _mm_max_ps(_points[1], _points[0]));
}

TriangleCells::TriangleCells(
    const float (*iVertices)[3],
    FourFloats iCentre,
    FourFloats iHalfSize,
    float iFactor,
    bool iExactOnly)
    : TriangleCells(iVertices) {
    SetFactor(iFactor);
    SetReach(_low, _high);
    _slack = (Absolute(iCentre) + iHalfSize) * _mm_set1_ps(kCellSlack);
    // A NaN is in no range, so it leaves everything to the exact test.
    _usable = !iExactOnly && InRange(_points[0]) && InRange(_points[1]) && InRange(_points[2]) &&
              InRange(iCentre) && InRange(iHalfSize) && IsFineSize(iHalfSize);
}

/// Works out the ten axes of stage 3: the normal, and for each coordinate plane the three edge
/// axes. An axis that repeats a normal of the box gets an infinite radius, so that nothing is apart
/// on it.
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

/// On an edge axis the two ends of the edge project to one point, and the third vertex to another
/// one: the projection of the triangle is the interval between the two. Relative to vertex 0 its
/// ends are 0 and the component of the normal. For edge 1, which doesn't hold vertex 0, they are 0
/// and the negative of it.
/// @param iA, iB  a lane for each edge: its extents along a and b
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
    // An edge without extent along a or b gives an axis that is parallel to a coordinate axis.
    const FourFloats redundant = _mm_or_ps(_mm_cmpeq_ps(iA, zero), _mm_cmpeq_ps(iB, zero));
    _radii[iPlane] = Select(redundant, Infinite(), Absolute(half));
}

/// The limits on each axis: the sum of the radii of triangle and box, and the bound on the rounding
/// errors that the class comment derives.
void TriangleCells::PrepareLevel(Level& oLevel, FourFloats iHalfBox, FourFloats iSlack) const {
    const FourFloats halves[3] = {
        Broadcast<0>(iHalfBox), Broadcast<1>(iHalfBox), Broadcast<2>(iHalfBox)};
    for (unsigned int plane = 0; plane < 3; ++plane) {
        const FourFloats halfA = halves[(plane + 1) % 3];
        const FourFloats halfB = halves[(plane + 2) % 3];
        const FourFloats limits =
            _radii[plane] + (_extentA[plane] * halfB + _extentB[plane] * halfA);
        for (unsigned int edge = 0; edge < 3; ++edge) {
            oLevel.edgeLimits[plane][edge] = Lane(limits, edge);
        }
    }
    const FourFloats extents = _high - _low;
    const FourFloats reach = extents * _mm_set1_ps(2.0f) + iHalfBox * _mm_set1_ps(3.0f);
    const FourFloats extentB = Rotate(extents);
    const FourFloats extentC = Rotate(extentB);
    // A box that is off by the slack changes both sides by no more than a radius larger by the
    // slack.
    const FourFloats edgeReach = reach * _mm_set1_ps(kEdgeBound) + iSlack;
    const FourFloats normalReach =
        reach * _mm_set1_ps(kNormalBound) + iSlack * _mm_set1_ps(kNormalTerms);
    const FourFloats edgeErrors =
        extentB * Rotate(Rotate(edgeReach)) + extentC * Rotate(edgeReach) + _mm_set1_ps(kUnderflow);
    for (unsigned int plane = 0; plane < 3; ++plane) {
        oLevel.edgeErrors[plane] = Lane(edgeErrors, plane);
    }
    oLevel.normalLimit = _mm_set1_ps(SumOfAxes(_absNormal * iHalfBox));
    oLevel.normalError = _mm_set1_ps(SumOfAxes(extentB * extentC * normalReach) + kUnderflow);
}

TriangleCells::Lanes TriangleCells::LanesBelow(FourFloats iGaps, FourFloats iError) {
    return {LanesOf(_mm_cmpngt_ps(iGaps, iError)), LanesOf(_mm_cmplt_ps(iGaps, Negative(iError)))};
}

/// The lattice of the 4 x 4 x 4 cells of a node set. The slack covers the rounded boxes and the
/// rounding of the positions here.
TriangleCells::Lattice TriangleCells::LatticeOf(FourFloats iCentre, FourFloats iHalfSize) const {
    const FourFloats quarters = _mm_setr_ps(-0.75f, -0.25f, 0.25f, 0.75f);
    const FourFloats centre = iCentre - _points[0];
    Lattice lattice;
    lattice.along[0] = Broadcast<0>(centre) + Broadcast<0>(iHalfSize) * quarters;
    lattice.along[1] = Broadcast<1>(centre) + Broadcast<1>(iHalfSize) * quarters;
    lattice.along[2] = Broadcast<2>(centre) + Broadcast<2>(iHalfSize) * quarters;
    lattice.halfCell = iHalfSize * _mm_set1_ps(0.25f);
    const FourFloats extents = (_high - _low) + iHalfSize * _mm_set1_ps(2.0f);
    lattice.slack = _slack + extents * _mm_set1_ps(kLatticeBound);
    return lattice;
}

/// Finds the slabs that the triangle's bounds meet on each axis, which is stage 2. If these leave
/// only a few cells, and each of them holds a vertex, all is decided. Else stage 3 runs row by row.
CellMask TriangleCells::CellsOfNodeSet(FourFloats iCentre, FourFloats iHalfSize) {
    if (!_usable || !_plain) return {0, false};
    const Lattice lattice = LatticeOf(iCentre, iHalfSize);
    const FourFloats low = _low - _points[0];
    const FourFloats high = _high - _points[0];
    Lanes axes[3];
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const FourFloats& along = lattice.along[axis];
        const FourFloats gaps = _mm_max_ps(Lane(low, axis) - along, along - Lane(high, axis));
        axes[axis] = LanesBelow(gaps - Lane(lattice.halfCell, axis), Lane(lattice.slack, axis));
    }
    const std::uint64_t near = CellsOfSlabs(axes[0].near, axes[1].near, axes[2].near);
    if (std::popcount(near) <= 3) {
        const std::uint64_t holding = CellsHoldingVertex(lattice);
        if ((near & ~holding) == 0) return {CellsByLeafGroup(near), true};
    }
    const CellMask mask = RowsOfBlock(lattice, axes);
    return {CellsByLeafGroup(mask.cells), mask.decided};
}

/// The bounds of the triangle meet every slab of the block, so stage 3 alone decides. A block of at
/// most two cells along each axis is like the children of one cell.
CellMask TriangleCells::CellsOfBlock(
    FourFloats iCorner, FourFloats iExtents, const unsigned int* iSpans, FourFloats iSlack) {
    const FourFloats halfCell = iExtents * _mm_set1_ps(0.5f);
    if ((iSpans[0] | iSpans[1] | iSpans[2]) <= 1) {
        const FourFloats first = iCorner + halfCell;
        const ChildCells cells = {
            halfCell, {first, first + iExtents},
             0, 0, 0
        };
        const Verdict axes = OnAxes(cells, LevelFor(kLatticeLevel, halfCell, iSlack));
        const unsigned int filled = ChildrenOfSpan(0, iSpans[0]) & ChildrenOfSpan(1, iSpans[1]) &
                                    ChildrenOfSpan(2, iSpans[2]);
        const unsigned int near = filled & ~axes.apart;
        return {kBlockOfChildren.cells[near], (near & ~axes.meeting) == 0};
    }
    const FourFloats places = _mm_setr_ps(0.5f, 1.5f, 2.5f, 3.5f);
    const FourFloats corner = iCorner - _points[0];
    Lattice lattice;
    lattice.along[0] = Broadcast<0>(corner) + Broadcast<0>(iExtents) * places;
    lattice.along[1] = Broadcast<1>(corner) + Broadcast<1>(iExtents) * places;
    lattice.along[2] = Broadcast<2>(corner) + Broadcast<2>(iExtents) * places;
    lattice.halfCell = halfCell;
    lattice.slack = iSlack;
    Lanes axes[3];
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const unsigned int filled = (2u << iSpans[axis]) - 1;
        axes[axis] = {filled, filled};
    }
    return RowsOfBlock(lattice, axes);
}

/// Stage 1 for a node set: the cells that certainly hold a vertex.
std::uint64_t TriangleCells::CellsHoldingVertex(const Lattice& iLattice) const {
    const FourFloats inside = iLattice.halfCell - iLattice.slack;
    std::uint64_t cells = 0;
    for (const FourFloats vertex : _points) {
        const FourFloats place = vertex - _points[0];
        unsigned int slabs[3];
        for (unsigned int axis = 0; axis < 3; ++axis) {
            const FourFloats distance = Absolute(iLattice.along[axis] - Lane(place, axis));
            slabs[axis] = LanesOf(_mm_cmplt_ps(distance, Lane(inside, axis)));
        }
        cells |= CellsOfSlabs(slabs[0], slabs[1], slabs[2]);
    }
    return cells;
}

/// Stage 3 for a block, four cells at a time: the columns of one row of one layer. What depends on
/// the layer alone, or on the row alone, is worked out once for each of them.
/// @param iAxes  what stage 2 found: the columns, rows and layers
CellMask TriangleCells::RowsOfBlock(const Lattice& iLattice, const Lanes (&iAxes)[3]) {
    const Level& level = LevelFor(kLatticeLevel, iLattice.halfCell, iLattice.slack);
    const FourFloats& columns = iLattice.along[0];
    alignas(16) float rows[4];
    alignas(16) float layers[4];
    _mm_store_ps(rows, iLattice.along[1]);
    _mm_store_ps(layers, iLattice.along[2]);

    Lanes inRow[kSlabs];  // columns, by row: the plane (x, y)
    for (unsigned int y = 0; y < kSlabs; ++y) {
        if ((iAxes[1].near >> y & 1u) == 0) continue;
        const FourFloats gaps = GapOnEdges(2, columns, _mm_set1_ps(rows[y]), level);
        inRow[y] = LanesBelow(gaps, level.edgeErrors[2]);
    }
    const FourFloats alongX = Broadcast<0>(_normal) * columns;
    std::uint64_t touched = 0;
    for (unsigned int z = 0; z < kSlabs; ++z) {
        if ((iAxes[2].near >> z & 1u) == 0) continue;
        const FourFloats layer = _mm_set1_ps(layers[z]);
        const Lanes inLayer =  // columns: the plane (z, x)
            LanesBelow(GapOnEdges(1, layer, columns, level), level.edgeErrors[1]);
        const Lanes rowsOfLayer =  // rows: the plane (y, z)
            LanesBelow(GapOnEdges(0, iLattice.along[1], layer, level), level.edgeErrors[0]);
        const FourFloats alongXZ = alongX + Broadcast<2>(_normal) * layer;
        for (unsigned int y = 0; y < kSlabs; ++y) {
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
            if (!rowIsSure || (near & ~sure) != 0) return {0, false};  // a cell is open
            touched |= static_cast<std::uint64_t>(near) << BitOfCell(0, y, z);
        }
    }
    return {touched, true};
}

/// One child is one box: its centre on each axis is one of the two that the children have there.
bool TriangleCells::DecideExactly(
    const ChildCells& iCells, unsigned int iChild, bool& oTouched) const {
    alignas(16) float centres[2][4];
    alignas(16) float halfBox[4];
    _mm_store_ps(centres[0], iCells.centres[0]);
    _mm_store_ps(centres[1], iCells.centres[1]);
    _mm_store_ps(halfBox, iCells.halfSize * _factor);
    const float centre[3] = {
        centres[HalfOf(iChild, 0)][0], centres[HalfOf(iChild, 1)][1],
        centres[HalfOf(iChild, 2)][2]};
    IDX_Bool overlap = IDX_False;
    const IDX_Bool decided =
        IDX_Base_GeometryServices::TriangleToBox(centre, halfBox, _vertices, overlap);
    oTouched = overlap == IDX_True;
    return decided != IDX_False;  // a program may bring its own test: any other value is an answer
}
