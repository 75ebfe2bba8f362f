#ifndef TriangleCells_h
#define TriangleCells_h

#include "common/FourFloats.h"

#include "PLMIdxWTWorkingOctree.h"

#include "formats/CellStates.h"

#include <cfloat>
#include <cstdint>

/// The relative error of one operation on 32-bit floats.
constexpr float kFloatUnit = 0x1p-24f;

/// The largest coordinate and the largest half-size for which TriangleCells decides.
constexpr float kMaxCoordinate = 0x1p40f;

/// What is known of the eight children of one cell and one triangle. The sets are masks of
/// children.
struct ChildCells {
    FourFloats halfSize;    ///< of the children
    FourFloats centres[2];  ///< of the low and of the high children along each axis
    unsigned int reached;   ///< children in whose half the triangle's bounds are, on each axis
    unsigned int touched;   ///< of these, certainly touched
    unsigned int open;      ///< of these, to be decided exactly
};

/// The cells of a block of 4 x 4 x 4 cells that a triangle touches.
struct CellMask {
    std::uint64_t cells;
    bool decided;  ///< false when rounding leaves some cell open; `cells` means nothing then
};

/// A triangle, prepared for comparison with many cells of an octree. For all eight children of a
/// cell at once it finds in single precision which ones the triangle certainly touches, and which
/// ones it certainly doesn't touch. Rounding leaves a few open. The exact test decides those.
///
/// The answers are those of IDX_Base_GeometryServices::TriangleToBox: this is the same separating
/// axis test, for eight boxes at a time. Two convex bodies are apart exactly when their projections
/// on some axis are apart. A triangle and a box need 13 axes: the three normals of the box, the
/// normal of the triangle, and the nine cross products of their edges (Akenine-Moller, "Fast 3D
/// Triangle-Box Overlap Testing", JGT 6(1), 2001). The children of one cell differ only in their
/// centres, and on each axis there are two centres. An answer is given only where a bound on the
/// rounding errors proves it.
///
/// There are three stages. Each looks only at the children that the ones before it left open:
///  1. A child that holds a vertex is touched. For small triangles this decides nearly everything.
///  2. A child that is apart from the triangle's bounds on some axis isn't touched. The bounds are
///     its projections on the normals of the box.
///  3. The nine edge axes and the normal.
///
/// Rounding. Let u = 2^-24, the relative error of one operation. Stages 1 and 2 compare a rounded
/// difference of two floats with a float. Rounding is monotonic: when the rounded difference is
/// strictly less or greater, so is the true one. Equal numbers leave the child open.
///
/// In stage 3 all coordinates are relative to vertex 0. Let w be the extents of the triangle's
/// bounds, t the half-sizes of a box that meets them, e an edge, d the centre of the box and n the
/// normal. Then no edge is longer than w on an axis, and no centre is further away than w + t.
///  - An edge axis compares |e_a d_b - e_b d_a - middle| with radius + |e_a| t_b + |e_b| t_a. The
///    middle and the radius of the triangle's projection are half a component of the normal. They
///    are off by 4u times the two terms of that component, at most 2 w_a w_b. Both sides together
///    are off by less than 8u (w_a (2 w_b + 3 t_b) + w_b (2 w_a + 3 t_a)).
///  - The normal compares |n . d| with |n| . t. Both sides together are off by less than 16u times
///    the sum over the axes of 2 w_b w_c (2 w_a + 3 t_a).
///
/// The code takes twice as much, since the bounds themselves are rounded, and adds 2^-100 for
/// underflow. That is enough as long as no coordinate is above 2^40, and up to there nothing
/// overflows. A triangle or a cell with a larger coordinate leaves everything open. So does a cell
/// so tiny that its halves become sub-normal numbers on the way to the last level: halving rounds
/// there.
class TriangleCells {
public:
    /// @param iVertices   3 vertices of 3 coordinates; must stay in place
    /// @param iCentre     centre of a cell that holds all cells that will be asked for
    /// @param iHalfSize   distance from there to its faces
    /// @param iFactor     enlarges the boxes that are tested, but not the cells that are walked
    /// @param iExactOnly  leaves everything to the exact test
    TriangleCells(
        const float (*iVertices)[3],
        FourFloats iCentre,
        FourFloats iHalfSize,
        float iFactor,
        bool iExactOnly);

    /// For CellsOfBlock() alone, with coordinates that are known to be in the range above.
    explicit TriangleCells(const float (*iVertices)[3]);

    /// Replaces the triangle's bounds, as `reached` depends on them.
    void SetReach(FourFloats iLow, FourFloats iHigh) {
        _reachLow = iLow;
        _reachHigh = iHigh;
    }

    /// Changes the factor for all further tests.
    void SetFactor(float iFactor) {
        _factor = _mm_set1_ps(iFactor);
        _plain = iFactor == 1.0f;
        _readyLevels = 0;
    }

    /// Compares the children of a cell with the triangle.
    /// @param iCentre    centre of the cell
    /// @param iHalfSize  distance from there to its faces, the same for all cells of a level
    /// @param iLevel     level of the cell, below PLMIdxWTWorkingOctree::MAXDEPTH
    /// @param iPassed    children that need no test; they are neither in `touched` nor in `open`
    ChildCells Children(
        FourFloats iCentre, FourFloats iHalfSize, unsigned int iLevel, unsigned int iPassed);

    /// Decides for all 64 cells of a node set at once, and so for its leaf groups, too: a group is
    /// touched when one of its cells is. The boxes of cells and groups are rounded, so that a cell
    /// may stick out of its group a little. Only where the triangle touches or misses each cell by
    /// more than that, the answer is given.
    /// @param iCentre    centre of the node set
    /// @param iHalfSize  distance from there to its faces
    /// @return bit 8 g + j for cell j of leaf group g
    CellMask CellsOfNodeSet(FourFloats iCentre, FourFloats iHalfSize);

    /// Decides for a block of cells that is as large as the bounds of the triangle. The answer is
    /// given only where the triangle touches or misses each cell by more than a slack. The factor
    /// is 1.
    /// @param iCorner   low corner of the block
    /// @param iExtents  extents of a cell
    /// @param iSpans    number of columns, rows and layers after the first, at most 3
    /// @param iSlack    how far the faces of a cell may be off, on each axis
    /// @return cells of the block, see BlockOfCells.h
    CellMask CellsOfBlock(
        FourFloats iCorner, FourFloats iExtents, const unsigned int* iSpans, FourFloats iSlack);

    /// The exact test for one child: IDX_Base_GeometryServices::TriangleToBox.
    /// @param oTouched  whether triangle and box have a point in common
    /// @return false when the test couldn't decide
    bool DecideExactly(const ChildCells& iCells, unsigned int iChild, bool& oTouched) const;

private:
    /// One edge crossed with one coordinate axis. a and b are the other two axes. All lanes are
    /// equal.
    struct EdgeAxis {
        FourFloats a;       ///< extent of the edge along a
        FourFloats b;       ///< and along b
        FourFloats middle;  ///< middle of the triangle's projection
    };

    /// Serves as the level of cells of a node set or a block, whose boxes have a slack.
    static constexpr unsigned int kLatticeLevel = PLMIdxWTWorkingOctree::MAXDEPTH;

    /// What stage 3 needs of a level: it depends on the size of the boxes, not on their centres.
    struct Level {
        FourFloats edgeLimits[3][3];  ///< for coordinate plane and edge; all lanes are equal
        FourFloats edgeErrors[3];     ///< for the planes
        FourFloats normalLimit;
        FourFloats normalError;
    };

    /// What some axes say of the children, as masks. Children in neither set stay open.
    struct Verdict {
        unsigned int apart;    ///< certainly apart from the triangle on some axis
        unsigned int meeting;  ///< certainly not apart on any of them
    };

    /// The four columns, rows and layers of cells of a block, relative to vertex 0.
    struct Lattice {
        FourFloats along[3];  ///< for each axis the four centres
        FourFloats halfCell;  ///< half-size of a cell
        FourFloats slack;     ///< how far the faces of its box may be off
    };

    /// The same for four columns, rows or layers, as bits.
    struct Lanes {
        unsigned int near;  ///< not certainly apart from the triangle
        unsigned int sure;  ///< certainly not apart from it
    };
    static Lanes LanesBelow(FourFloats iGaps, FourFloats iError);

    Lattice LatticeOf(FourFloats iCentre, FourFloats iHalfSize) const;
    std::uint64_t CellsHoldingVertex(const Lattice& iLattice) const;
    CellMask RowsOfBlock(const Lattice& iLattice, const Lanes (&iAxes)[3]);

    void PrepareAxes();
    void PreparePlane(unsigned int iPlane, FourFloats iA, FourFloats iB, FourFloats iNormal);
    const Level& LevelFor(unsigned int iLevel, FourFloats iHalfBox, FourFloats iSlack);
    void PrepareLevel(Level& oLevel, FourFloats iHalfBox, FourFloats iSlack) const;

    unsigned int HoldingVertex(const ChildCells& iCells, FourFloats iHalfBox) const;
    Verdict OnBounds(const ChildCells& iCells, FourFloats iHalfBox) const;
    Verdict OnAxes(const ChildCells& iCells, const Level& iLevel) const;
    FourFloats GapOnEdges(
        unsigned int iPlane, FourFloats iA, FourFloats iB, const Level& iLevel) const;

    const float (*_vertices)[3];  ///< the caller's
    FourFloats _points[3];        ///< the same
    FourFloats _low;              ///< bounds of the triangle
    FourFloats _high;
    FourFloats _reachLow;  ///< the bounds for `reached`
    FourFloats _reachHigh;
    FourFloats _slack;          ///< how far the box of a cell may be off
    FourFloats _factor;         ///< half-size of a child's box / half-size of the child
    bool _usable;               ///< false when all is left to the exact test
    bool _plain;                ///< the factor is 1
    bool _axesReady;            ///< the fields below are worked out
    unsigned int _readyLevels;  ///< bits of the levels whose limits are worked out

    EdgeAxis _edges[3][3];   ///< for the planes (y, z), (z, x), (x, y) and the edges
    FourFloats _radii[3];    ///< of the planes, a lane for each edge: infinite where redundant
    FourFloats _extentA[3];  ///< of the planes, a lane for each edge: length along a
    FourFloats _extentB[3];
    FourFloats _normal;     ///< of the triangle
    FourFloats _absNormal;  ///< infinite where the plane repeats a box normal
    Level _levels[kLatticeLevel + 1];
};

/// From a set of halves to the children all of whose three halves are in it. The set is an index of
/// six bits: the low halves along X, Y and Z, then the high ones.
struct ChildrenInHalvesTable {
    unsigned char children[64];
    constexpr ChildrenInHalvesTable() : children() {
        for (unsigned int index = 0; index < 64; ++index) {
            unsigned int mask = kAllChildren;
            for (unsigned int axis = 0; axis < 3; ++axis) {
                const unsigned int low = (index >> axis & 1u) != 0 ? kChildrenInHalf[axis][0] : 0;
                const unsigned int high =
                    (index >> (axis + 3) & 1u) != 0 ? kChildrenInHalf[axis][1] : 0;
                mask &= low | high;
            }
            children[index] = static_cast<unsigned char>(mask);
        }
    }
};
constexpr ChildrenInHalvesTable kChildrenInHalves;

/// From a set of columns of children to the children in them. The columns stand on a coordinate
/// plane of the axes a and b: bit 0 is low a, low b, bit 1 is high a, low b, and so on. The planes
/// are (y, z), (z, x), (x, y).
struct ChildrenInPairsTable {
    unsigned char children[3][16];
    constexpr ChildrenInPairsTable() : children() {
        for (unsigned int plane = 0; plane < 3; ++plane) {
            const unsigned int a = (plane + 1) % 3;
            const unsigned int b = (plane + 2) % 3;
            for (unsigned int index = 0; index < 16; ++index) {
                unsigned int mask = 0;
                for (unsigned int pair = 0; pair < 4; ++pair) {
                    if ((index >> pair & 1u) == 0) continue;
                    mask |= kChildrenInHalf[a][pair & 1u] & kChildrenInHalf[b][pair >> 1];
                }
                children[plane][index] = static_cast<unsigned char>(mask);
            }
        }
    }
};
constexpr ChildrenInPairsTable kChildrenInPairs;

/// The children whose half on each axis is set in the mask of the low or of the high halves.
inline unsigned int ChildrenInHalves(FourFloats iLowHalves, FourFloats iHighHalves) {
    return kChildrenInHalves.children[AxesOf(iLowHalves) | AxesOf(iHighHalves) << 3];
}

/// Stage 1: the children that certainly hold a vertex.
inline unsigned int TriangleCells::HoldingVertex(
    const ChildCells& iCells, FourFloats iHalfBox) const {
    unsigned int holding = 0;
    for (const FourFloats point : _points) {
        holding |= ChildrenInHalves(
            _mm_cmplt_ps(Absolute(point - iCells.centres[0]), iHalfBox),
            _mm_cmplt_ps(Absolute(point - iCells.centres[1]), iHalfBox));
    }
    return holding;
}

/// Stage 2. The gap on an axis is the distance from the centre to the bounds: negative inside them.
inline TriangleCells::Verdict TriangleCells::OnBounds(
    const ChildCells& iCells, FourFloats iHalfBox) const {
    const FourFloats gaps[2] = {
        _mm_max_ps(_low - iCells.centres[0], iCells.centres[0] - _high),
        _mm_max_ps(_low - iCells.centres[1], iCells.centres[1] - _high)};
    return {
        ~ChildrenInHalves(_mm_cmple_ps(gaps[0], iHalfBox), _mm_cmple_ps(gaps[1], iHalfBox)),
        ChildrenInHalves(_mm_cmplt_ps(gaps[0], iHalfBox), _mm_cmplt_ps(gaps[1], iHalfBox))};
}

/// The three edge axes of a coordinate plane, for four pairs of centres at once.
/// @param iA, iB  the centres along a and b
/// @return the greatest of the three gaps. A gap above 0 means that the two are apart, but for
///         rounding.
inline FourFloats TriangleCells::GapOnEdges(
    unsigned int iPlane, FourFloats iA, FourFloats iB, const Level& iLevel) const {
    FourFloats greatest = _mm_set1_ps(-FLT_MAX);
    for (unsigned int edge = 0; edge < 3; ++edge) {
        const EdgeAxis& axis = _edges[iPlane][edge];
        const FourFloats distance = Absolute(axis.a * iB - axis.b * iA - axis.middle);
        greatest = _mm_max_ps(greatest, distance - iLevel.edgeLimits[iPlane][edge]);
    }
    return greatest;
}

/// Stage 3. On a coordinate plane the eight children project to four columns, so one vector of four
/// lanes answers for all of them. `alternating` and `paired` put the two centres of an axis into
/// the lanes so that together they make the four columns of a plane.
inline TriangleCells::Verdict TriangleCells::OnAxes(
    const ChildCells& iCells, const Level& iLevel) const {
    const FourFloats low = iCells.centres[0] - _points[0];
    const FourFloats high = iCells.centres[1] - _points[0];
    const FourFloats xy = _mm_unpacklo_ps(low, high);  // x low, x high, y low, y high
    const FourFloats zz = _mm_unpackhi_ps(low, high);  // z low, z high
    const FourFloats alternating[3] = {
        _mm_movelh_ps(xy, xy), _mm_movehl_ps(xy, xy), _mm_movelh_ps(zz, zz)};
    const FourFloats paired[3] = {
        _mm_unpacklo_ps(xy, xy), _mm_unpackhi_ps(xy, xy), _mm_unpacklo_ps(zz, zz)};

    // Apart on one axis is enough. To meet, no axis may keep them apart.
    Verdict verdict = {0, kAllChildren};
    for (unsigned int plane = 0; plane < 3; ++plane) {
        const FourFloats gaps =
            GapOnEdges(plane, alternating[(plane + 1) % 3], paired[(plane + 2) % 3], iLevel);
        const FourFloats error = iLevel.edgeErrors[plane];
        const auto& children = kChildrenInPairs.children[plane];
        verdict.apart |= children[LanesOf(_mm_cmpgt_ps(gaps, error))];
        verdict.meeting &= children[LanesOf(_mm_cmplt_ps(gaps, Negative(error)))];
    }

    // The normal: children 0 to 3 (low z), then 4 to 7 (high z).
    const FourFloats alongXY =
        Broadcast<0>(_normal) * alternating[0] + Broadcast<1>(_normal) * paired[1];
    const FourFloats normalZ = Broadcast<2>(_normal);
    const FourFloats distances[2] = {
        Absolute(alongXY + normalZ * Broadcast<2>(low)),
        Absolute(alongXY + normalZ * Broadcast<2>(high))};
    for (unsigned int layer = 0; layer < 2; ++layer) {
        const FourFloats gaps = distances[layer] - iLevel.normalLimit;
        const unsigned int shift = 4 * layer;
        verdict.apart |= LanesOf(_mm_cmpgt_ps(gaps, iLevel.normalError)) << shift;
        verdict.meeting &= ~(LanesOf(_mm_cmpnlt_ps(gaps, Negative(iLevel.normalError))) << shift);
    }
    return verdict;
}

/// The limits of a level, worked out when a cell first needs them: most triangles are decided by
/// the first two stages, and never get here.
inline const TriangleCells::Level& TriangleCells::LevelFor(
    unsigned int iLevel, FourFloats iHalfBox, FourFloats iSlack) {
    Level& level = _levels[iLevel];
    if ((_readyLevels >> iLevel & 1u) == 0) {
        if (!_axesReady) PrepareAxes();
        PrepareLevel(level, iHalfBox, iSlack);
        _readyLevels |= 1u << iLevel;
    }
    return level;
}

/// The three stages. Each ends the work when it leaves no child open. `reached` comes first and
/// doesn't depend on rounding bounds: a child counts when the triangle's bounds reach its half on
/// each axis.
inline ChildCells TriangleCells::Children(
    FourFloats iCentre, FourFloats iHalfSize, unsigned int iLevel, unsigned int iPassed) {
    ChildCells cells;
    cells.halfSize = iHalfSize * _mm_set1_ps(0.5f);
    cells.centres[0] = iCentre - cells.halfSize;
    cells.centres[1] = iCentre + cells.halfSize;
    cells.reached =
        ChildrenInHalves(_mm_cmpngt_ps(_reachLow, iCentre), _mm_cmpngt_ps(iCentre, _reachHigh));
    cells.touched = 0;
    cells.open = cells.reached & ~iPassed;
    if (!_usable) return cells;

    const FourFloats halfBox = cells.halfSize * _factor;
    cells.touched = cells.open & HoldingVertex(cells, halfBox);
    cells.open &= ~cells.touched;
    if (cells.open == 0) return cells;

    const Verdict bounds = OnBounds(cells, halfBox);
    cells.open &= ~bounds.apart;
    if (cells.open == 0) return cells;

    const Verdict axes = OnAxes(cells, LevelFor(iLevel, halfBox, _mm_setzero_ps()));
    cells.touched |= cells.open & bounds.meeting & axes.meeting;
    cells.open &= ~(axes.apart | cells.touched);
    return cells;
}

#endif
