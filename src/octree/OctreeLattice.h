#ifndef OctreeLattice_h
#define OctreeLattice_h

#include "common/FourFloats.h"

#include "IDX_Point.h"
#include "PLMIdxIBaseOctree.h"

#include <cstdint>

/// The position of a vertex: on each axis a 32-bit fraction of the box. The top bit is the half of
/// the box, the next bit the half of that half, and so on. So the leading bits of all three axes
/// are the way down to the vertex. The fractions wrap for a vertex outside the box.
struct VertexCode {
    unsigned int axes[3];
};

/// The cells of the last level that a small triangle touches.
struct LatticeCells {
    unsigned int low[3];  ///< column, row and layer of the first cell of a block of 4 x 4 x 4 cells
    std::uint64_t touched;  ///< cells of that block, see BlockOfCells.h
    bool inOneNodeSet;      ///< all touched cells are in one node set
    bool decided;  ///< false for a triangle that is too large, or too close to some face of a cell
};

/// The cells of the last level of an octree as a regular lattice. Says where a vertex is, and what
/// a triangle touches that spans at most four cells along each axis.
///
/// The cells of the lattice have their ideal places. The boxes of the octree's cells are computed
/// on the way down from the root, with rounding, and are off these places by a little. The answers
/// here keep a margin for that. A vertex that is inside a cell of the lattice by more than the
/// margin is inside the box of that cell, and inside the boxes of all cells above it. A triangle
/// that touches or misses a cell by more than the margin does so for the boxes of every level. So
/// the touched cells of the last level decide the whole drawing of the triangle, and no cell above
/// them must be tested.
class OctreeLattice {
public:
    explicit OctreeLattice(const PLMIdxIBaseOctree& iOctree);

    /// The code of a vertex. Computed in floats, in this order: subtract the origin, divide by the
    /// extent, multiply by 2^32. The result is cut to a 64-bit integer, of which the low 32 bits
    /// stay. A float that has no such integer gives 0.
    VertexCode CodeOf(FourFloats iPoint) const;

    /// The cells that a triangle touches.
    /// @param iVertices  of the triangle; when one is outside the box, nothing is decided
    LatticeCells CellsOf(const FourFloats (&iVertices)[3]) const;

private:
    FourFloats PlacesOf(const FourFloats (&iVertices)[3], __m128i (&oPlaces)[3]) const;

    FourFloats _origin;
    FourFloats _size;
    FourFloats _cellExtents;  ///< sides of a cell
    FourFloats _slack;        ///< how far the faces of its box may be off, as a length
    FourFloats _scale;        ///< cells per unit of length; 0 where nothing is decided
    FourFloats _margin;       ///< how far a vertex must be from the faces of its cell, in cells
    FourFloats _marginFree;   ///< 1 - two margins
    __m128i _last;            ///< the last column, row and layer
};

#endif
