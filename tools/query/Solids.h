#ifndef Solids_h
#define Solids_h

#include "IDX_Base_BoundingBox.h"

#include "formats/OctreeImage.h"

#include <array>

// A part is solid in the occupied cells of its octree, cut to its box: this is what queries ask
// about. Boxes and cells are closed, so that parts which touch meet.

/// A point of the model's space, in model units.
using Point = std::array<double, 3>;

/// A closed box.
struct Box {
    Point low;
    Point high;
};

Box BoxOf(const IDX_Base_BoundingBox& iBox);

bool Meet(const Box& iFirst, const Box& iSecond);

/// The square of the distance from a point to the nearest one of a box; 0 inside.
double SquaredDistance(const Box& iBox, const Point& iPoint);

/// A cell of a part's octree in which the part is solid somewhere.
struct SolidCell {
    OctreeCell cell;
    Box box;  ///< of the cell, cut to the box of the part
};

/// A part's octree, seen as the cells in which it is solid.
class Solid {
public:
    /// @param iOctree  its bytes must outlive this object
    /// @param iBox     the part's box
    Solid(const OctreeImage& iOctree, const Box& iBox) : _octree(iOctree), _partBox(iBox) {}

    /// The whole octree as one cell; false when nothing is in it.
    bool Root(SolidCell& oRoot) const;

    /// The children of a cell that isn't full, in rising number, without those that are empty or
    /// outside the part's box.
    /// @return how many of `oChildren` are set
    unsigned int Children(const SolidCell& iCell, std::array<SolidCell, 8>& oChildren) const;

    /// Whether the part is solid somewhere in a box, or at a point when both its corners are that
    /// point.
    bool Meets(const Box& iBox) const;

private:
    bool CellMeets(const SolidCell& iCell, const Box& iBox) const;

    /// The box of a cell, cut to that of the part; may be inside out when nothing is left.
    Box CutBoxOf(const OctreeCell& iCell) const;

    OctreeImage _octree;
    Box _partBox;
};

/// Whether two solids have a point in common. Both octrees are walked together.
bool Meet(const Solid& iFirst, const Solid& iSecond);

#endif
