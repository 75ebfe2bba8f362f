#ifndef OctreeLattice_h
#define OctreeLattice_h

#include "common/FourFloats.h"

#include "IDX_Point.h"
#include "PLMIdxIBaseOctree.h"

#include <cstdint>

/// Position of a vertex as 32-bit fractions of the box, the top bit telling the half. They wrap
/// for a vertex outside the box.
struct VertexCode {
    unsigned int axes[3];
};

/// The cells of the last level that a small triangle touches.
struct LatticeCells {
    unsigned int low[3];  ///< column, row and layer of the low corner of a block of 4 x 4 x 4 cells
    std::uint64_t touched;  ///< bit x + 4 y + 16 z of that block
    bool inOneNodeSet;      ///< all touched cells lie in one node set
    bool decided;  ///< false for a triangle that is too large, or too close to some face to tell
};

/// The cells of the last level of an octree as a regular lattice: where a vertex lies, and what a triangle
/// touches that spans at most four of them along each axis.
///
/// The lattice is where the cells ideally are. Their boxes are off it by what rounding does on the way down
/// from the root, and the answers here leave a margin for that: a vertex well inside a cell of the lattice is
/// inside the boxes of that cell and of all cells above it, and a triangle that touches or misses a cell by
/// more than the margin does so in the same way on every level. So the touched cells alone decide the whole
/// drawing of the triangle, and none of the cells above them has to be tested.
class OctreeLattice {
public:
    explicit OctreeLattice(const PLMIdxIBaseOctree& iOctree);

    /// Works in floats, in this order: less the origin, divided by the extent, times 2^32; then cut to a
    /// 64-bit integer, of which the low 32 bits stay. A float that has no such integer gives 0.
    VertexCode CodeOf(FourFloats iPoint) const;

    /// @param iVertices  corners of a triangle; one that reaches out of the box is left undecided
    LatticeCells CellsOf(const FourFloats (&iVertices)[3]) const;

private:
    FourFloats _origin;
    FourFloats _size;
    FourFloats _cell;        ///< extents of a cell
    FourFloats _slack;       ///< by how much the faces of its box may be off
    FourFloats _scale;       ///< from a length to a number of cells
    FourFloats _margin;      ///< distance from the low face of a cell, in cells,
    FourFloats _marginFree;  ///< and from there to where the margin of the high face begins
    __m128i _last;           ///< last column, row and layer
};

#endif
