#ifndef TriangleCells_h
#define TriangleCells_h

#include "common/FourFloats.h"

#include "PLMIdxWTWorkingOctree.h"

#include <cfloat>
#include <cstdint>

/// The eight children of one cell against one triangle. A bit of a mask is a child number.
struct ChildCells {
    FourFloats halfSize;    ///< of the children
    FourFloats centres[2];  ///< of the low and of the high halves along each axis
    unsigned int reached;  ///< children whose half is reached by the triangle's bounds on each axis
    unsigned int touched;  ///< of these, certainly touched
    unsigned int open;     ///< of these, to be decided exactly
};

/// The cells of a block of 4 x 4 x 4 cells that a triangle touches.
struct CellMask {
    std::uint64_t cells;
    bool decided;  ///< false when rounding leaves a cell open; `cells` means nothing then
};

/// A triangle made ready to be held against the cells of an octree: decides for all eight children of
/// a cell at once, in single precision, which ones it certainly touches and which ones it certainly
/// doesn't. What rounding leaves open is few, and left to the exact test.
///
/// The answers are those of IDX_Base_GeometryServices::TriangleToBox, whose separating axis test this
/// is, for eight boxes at a time: the children of one cell share all that an axis needs but their
/// centres, and these take two values along each axis. An answer is given only where a bound on the
/// rounding errors proves it.
///
/// Three stages, each only for the children that the earlier ones leave open:
///  1. A child that holds a vertex is touched. For small triangles this decides nearly everything.
///  2. A child that the bounds of the triangle miss on some axis isn't touched.
///  3. The nine edge axes and the normal.
///
/// Rounding. Let u = 2^-24. Stages 1 and 2 compare a rounded difference of two floats with a float:
/// rounding is monotonic, so that a strict comparison holds for the true difference too, and equality is
/// left open. In stage 3 all is relative to vertex 0. With w the extents of the triangle's bounds and t the
/// half-sizes of a box that meets them, no edge is longer than w on an axis, and no centre is further away
/// than w + t. A difference of coordinates has the relative error u, and every operation adds u.
///  - An edge axis compares |e_a d_b - e_b d_a - middle| with radius + |e_a| t_b + |e_b| t_a, where middle and
///    radius are half a component of the normal, off by 4u times the two terms of that, at most 2 w_a w_b. Both
///    sides together are off by less than 8u (w_a (2 w_b + 3 t_b) + w_b (2 w_a + 3 t_a)).
///  - The normal compares |n . d| with |n| . t, off by less than 16u times the sum over the axes of
///    2 w_b w_c (2 w_a + 3 t_a).
/// Twice as much is taken, which covers the rounding of the bounds themselves, and 2^-100 for underflow, which
/// is more than what it adds as long as no coordinate is above 2^40. Nothing overflows up to there; a triangle
/// or a cell that goes beyond leaves everything open. So does a cell so tiny that halving it down to the last level
/// could end in sub-normal numbers, where halving rounds.
class TriangleCells {
public:
    /// @param iVertices  3 vertices of 3 coordinates; must stay in place
    /// @param iCentre    centre of the cell below which all further cells lie
    /// @param iHalfSize  distance from there to its faces
    /// @param iFactor    enlarges the boxes of the children, but not the cells
    /// @param iAsk       leaves everything to the exact test
    TriangleCells(
        const float (*iVertices)[3],
        FourFloats iCentre,
        FourFloats iHalfSize,
        float iFactor,
        bool iAsk);

    /// A triangle for CellsOfBlock alone, whose coordinates are known to be in the range above.
    explicit TriangleCells(const float (*iVertices)[3]);

    /// Replaces the bounds of the triangle that the reach test looks at.
    void SetReach(FourFloats iLow, FourFloats iHigh) {
        _reachLow = iLow;
        _reachHigh = iHigh;
    }

    void SetFactor(float iFactor) {
        _factor = _mm_set1_ps(iFactor);
        _plain = iFactor == 1.0f;
        _readyLevels = 0;
    }

    /// Holds the children of a cell against the triangle.
    /// @param iCentre    centre of the cell
    /// @param iHalfSize  distance from there to its faces, the same for all cells of a level
    /// @param iLevel     level of the cell, below PLMIdxWTWorkingOctree::MAXDEPTH
    /// @param iPassed    children that need no test; they are neither in `touched` nor in `open`
    ChildCells Children(
        FourFloats iCentre, FourFloats iHalfSize, unsigned int iLevel, unsigned int iPassed);

    /// Decides for all cells of a node set, and thereby for its leaf groups, at once: a group is touched
    /// when one of its cells is. That is so for certain as long as no cell is touched or missed by less than
    /// what the rounded boxes of cells and groups can stick out from each other.
    /// @param iCentre    centre of the node set
    /// @param iHalfSize  distance from there to its faces
    /// @return bit 8 g + j for cell j of leaf group g
    CellMask CellsOfNodeSet(FourFloats iCentre, FourFloats iHalfSize);

    /// Decides for a block of cells that the bounds of the triangle fill, each of them touched or missed by
    /// more than a slack. The factor is 1.
    /// @param iCorner  low corner of the block
    /// @param iCell    extents of a cell
    /// @param iSpans   number of further columns, rows and layers behind the first, at most 3
    /// @param iSlack   by how much the faces of a cell may be off, on each axis
    /// @return bit x + 4 y + 16 z for the cell in column x, row y and layer z
    CellMask CellsOfBlock(
        FourFloats iCorner, FourFloats iCell, const unsigned int* iSpans, FourFloats iSlack);

    /// The exact test for one child.
    /// @param oTouched  whether triangle and box have a point in common
    /// @return false when it couldn't be decided
    bool DecideExactly(const ChildCells& iCells, unsigned int iChild, bool& oTouched) const;

private:
    /// One edge crossed with one coordinate axis; a and b are the other two axes. All lanes are equal.
    struct EdgeAxis {
        FourFloats a;       ///< extent of the edge along a
        FourFloats b;       ///< and along b
        FourFloats middle;  ///< middle of the triangle's projection
    };

    /// In place of a level: the cells of a node set, with the slack of their boxes.
    static constexpr unsigned int kLatticeLevel = PLMIdxWTWorkingOctree::MAXDEPTH;

    /// What depends on the size of the boxes alone.
    struct Level {
        FourFloats edgeLimits[3][3];  ///< for coordinate plane and edge; all lanes are equal
        FourFloats edgeErrors[3];     ///< for the planes
        FourFloats normalLimit;
        FourFloats normalError;
    };

    /// Children that are apart from the triangle on an axis, and children that certainly aren't on any.
    struct Verdict {
        unsigned int apart;
        unsigned int meeting;
    };

    /// The positions of the four columns, rows and layers of cells of a node set, relative to vertex 0.
    struct Lattice {
        FourFloats along[3];  ///< for each axis the four centres
        FourFloats cellSize;  ///< half-size of a cell
        FourFloats slack;     ///< by how much the faces of its box may be off
    };

    /// Of four lanes, those that aren't certainly apart from the triangle and those that certainly meet it.
    struct Lanes {
        unsigned int near;
        unsigned int sure;
    };
    static Lanes LanesBelow(FourFloats iGaps, FourFloats iError);

    Lattice LatticeOf(FourFloats iCentre, FourFloats iHalfSize) const;
    std::uint64_t CellsHoldingVertex(const Lattice& iLattice) const;
    CellMask RowsOfBlock(const Lattice& iLattice, const Lanes (&iAxes)[3]);

    void PrepareAxes();
    void PreparePlane(unsigned int iPlane, FourFloats iA, FourFloats iB, FourFloats iNormal);
    const Level& LevelFor(unsigned int iLevel, FourFloats iBoxSize, FourFloats iSlack);
    void PrepareLevel(Level& oLevel, FourFloats iBoxSize, FourFloats iSlack) const;

    unsigned int HoldingVertex(const ChildCells& iCells, FourFloats iBoxSize) const;
    Verdict OnBounds(const ChildCells& iCells, FourFloats iBoxSize) const;
    Verdict OnAxes(const ChildCells& iCells, const Level& iLevel) const;
    FourFloats GapOnEdges(
        unsigned int iPlane, FourFloats iA, FourFloats iB, const Level& iLevel) const;

    const float (*_vertices)[3];
    FourFloats _points[3];  ///< the vertices
    FourFloats _low;        ///< bounds of the triangle
    FourFloats _high;
    FourFloats _reachLow;  ///< what the reach test looks at
    FourFloats _reachHigh;
    FourFloats _slack;          ///< by how much the box of a cell may be off
    FourFloats _factor;         ///< box size of a child / its half-size
    bool _usable;               ///< not all is left to the exact test
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

/// Children on the low and on the high side along X, Y and Z.
constexpr unsigned int kSide[3][2] = {
    {0x55, 0xAA},
    {0x33, 0xCC},
    {0x0F, 0xF0}
};

/// The children c for which, on every axis, the bit of the half that c lies in is set in an index made of
/// three bits for the low halves and three for the high halves.
struct ChildrenInHalvesTable {
    unsigned char children[64];
    constexpr ChildrenInHalvesTable() : children() {
        for (unsigned int index = 0; index < 64; ++index) {
            unsigned int mask = 0xFF;
            for (unsigned int axis = 0; axis < 3; ++axis) {
                const unsigned int low = (index >> axis & 1u) != 0 ? kSide[axis][0] : 0;
                const unsigned int high = (index >> (axis + 3) & 1u) != 0 ? kSide[axis][1] : 0;
                mask &= low | high;
            }
            children[index] = static_cast<unsigned char>(mask);
        }
    }
};
constexpr ChildrenInHalvesTable kChildrenInHalves;

/// From four bits for the pairs of halves of the axes a and b (a alternating) of a coordinate plane to the
/// children in them. Planes: (y, z), (z, x), (x, y).
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
                    mask |= kSide[a][pair & 1u] & kSide[b][pair >> 1];
                }
                children[plane][index] = static_cast<unsigned char>(mask);
            }
        }
    }
};
constexpr ChildrenInPairsTable kChildrenInPairs;

/// Children whose halves are set in the lanes of both masks.
inline unsigned int ChildrenInHalves(FourFloats iLowHalves, FourFloats iHighHalves) {
    return kChildrenInHalves.children[AxesOf(iLowHalves) | AxesOf(iHighHalves) << 3];
}

inline unsigned int TriangleCells::HoldingVertex(
    const ChildCells& iCells, FourFloats iBoxSize) const {
    unsigned int holding = 0;
    for (const FourFloats point : _points) {
        holding |= ChildrenInHalves(
            _mm_cmplt_ps(Absolute(point - iCells.centres[0]), iBoxSize),
            _mm_cmplt_ps(Absolute(point - iCells.centres[1]), iBoxSize));
    }
    return holding;
}

inline TriangleCells::Verdict TriangleCells::OnBounds(
    const ChildCells& iCells, FourFloats iBoxSize) const {
    const FourFloats gaps[2] = {
        _mm_max_ps(_low - iCells.centres[0], iCells.centres[0] - _high),
        _mm_max_ps(_low - iCells.centres[1], iCells.centres[1] - _high)};
    return {
        ~ChildrenInHalves(_mm_cmple_ps(gaps[0], iBoxSize), _mm_cmple_ps(gaps[1], iBoxSize)),
        ChildrenInHalves(_mm_cmplt_ps(gaps[0], iBoxSize), _mm_cmplt_ps(gaps[1], iBoxSize))};
}

/// The greatest gap on the three edge axes of a coordinate plane, for four pairs of centres.
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

    Verdict verdict = {0, 0xFF};
    for (unsigned int plane = 0; plane < 3; ++plane) {
        const FourFloats gaps =
            GapOnEdges(plane, alternating[(plane + 1) % 3], paired[(plane + 2) % 3], iLevel);
        const FourFloats error = iLevel.edgeErrors[plane];
        const auto& children = kChildrenInPairs.children[plane];
        verdict.apart |= children[LanesOf(_mm_cmpgt_ps(gaps, error))];
        verdict.meeting &= children[LanesOf(_mm_cmplt_ps(gaps, Negative(error)))];
    }

    // The normal: children 0 to 3, then 4 to 7.
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

inline const TriangleCells::Level& TriangleCells::LevelFor(
    unsigned int iLevel, FourFloats iBoxSize, FourFloats iSlack) {
    Level& level = _levels[iLevel];
    if ((_readyLevels >> iLevel & 1u) == 0) {
        if (!_axesReady) PrepareAxes();
        PrepareLevel(level, iBoxSize, iSlack);
        _readyLevels |= 1u << iLevel;
    }
    return level;
}

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

    const FourFloats boxSize = cells.halfSize * _factor;
    cells.touched = cells.open & HoldingVertex(cells, boxSize);
    cells.open &= ~cells.touched;
    if (cells.open == 0) return cells;

    const Verdict bounds = OnBounds(cells, boxSize);
    cells.open &= ~bounds.apart;
    if (cells.open == 0) return cells;

    const Verdict axes = OnAxes(cells, LevelFor(iLevel, boxSize, _mm_setzero_ps()));
    cells.touched |= cells.open & bounds.meeting & axes.meeting;
    cells.open &= ~(axes.apart | cells.touched);
    return cells;
}

#endif
