#ifndef PLMIdxOctreeFiller_h
#define PLMIdxOctreeFiller_h

#include "PLMIdxOctreeCode.h"
#include "PLMIdxWTWorkingOctree.h"
#include "VEXRawCollPV.h"
#include "VEXRawCollint.h"

/// Tells the inside of a drawn surface from its outside: every empty cell that isn't linked to the
/// outside becomes OCTREE_FULL.
///
/// The fill labels the connected components of empty cells in one pass over the leaves of the tree,
/// depth first, with a table of tag equivalences. Surface cells are walls, and cells are joined through
/// faces alone. Tag 1 is the outside, and goes to a cell on the border of the box that is still untagged
/// when its turn comes. Each cell is joined with its neighbours on the +X, +Y and +Z side; beyond the
/// high side of the box they are the cells of the low side, as if the box closed on itself. A link of
/// the table is simply overwritten. All this decides which cells come out full, and is kept to the
/// letter: no proper union-find gives the same octrees.
///
/// Made on the stack after drawing, for one Fill on a tree whose tags are all 0 (or 1, for a cell that is told to
/// be outside). Linear in the leaves.
class PLMIdxOctreeFiller {
public:
    explicit PLMIdxOctreeFiller(PLMIdxWTWorkingOctree& ioOctree);
    PLMIdxOctreeFiller(const PLMIdxOctreeFiller&) = delete;
    PLMIdxOctreeFiller& operator=(const PLMIdxOctreeFiller&) = delete;

    /// @return IDX_S_OK; IDX_E_FAIL when more than 65535 tags are needed (no cell has been made full then, and
    ///         the tags that were written stay behind), and for a tree with the tags of an earlier fill
    long int Fill();

private:
    /// A cell as it is seen by the cells beside it: either subdivided, with its record (or its word, for
    /// a leaf group), or one unit, with its tag. A wall has neither.
    struct Place {
        unsigned char* record;
        unsigned short* tag;
    };

    /// A subdivided cell in the course of a walk: its own record, and the places on its +X, +Y, +Z side.
    struct Cell {
        unsigned char* record;
        Place beyond[3];
        PLMIdxOctreeCode code;
    };

    // What a record is follows from kLevels, the levels below it: 1 a leaf group, 2 a node set, 3 a node.
    // A node stands 3 or more levels above the bottom: iLevels tells how many.

    template <unsigned int kLevels>
    Place ChildOf(unsigned char* iRecord, unsigned int iChild) const;

    /// The place on the high side of a child along an axis: the cell of the child's own level, or the
    /// larger unit that holds it.
    template <unsigned int kLevels>
    Place NeighbourOf(const Cell& iCell, unsigned int iChild, unsigned int iAxis) const;

    /// Visits every unit below a cell, children from 0 to 7, and joins it with its neighbours.
    template <unsigned int kLevels>
    bool _TagConnectedComponents(
        const Cell& iCell, unsigned int iLevels, VEXRawCollint& ioTagTable);
    template <unsigned int kLevels>
    bool _TagBelow(
        const Cell& iCell,
        unsigned int iChild,
        unsigned char* iRecord,
        unsigned int iLevels,
        VEXRawCollint& ioTagTable);

    /// Gathers the tags of all empty units that touch the +X, then the +Y, then the +Z face of a unit.
    template <unsigned int kLevels>
    void AddNeighbourCellsTags(const Cell& iCell, unsigned int iChild, unsigned int iLevels);
    template <unsigned int kLevels>
    void _ExpandOverFace(unsigned int iAxis, const Place& iPlace, unsigned int iLevels);

    /// The same for a leaf group, whose cells have at most three neighbours.
    bool _TagLeafGroup(const Cell& iCell, VEXRawCollint& ioTagTable);

    /// A unit that hasn't been reached and touches the border of the box gets the tag of the outside.
    static void TagOnBorder(unsigned short& ioTag, const Cell& iCell, unsigned int iChild);

    /// Joins a unit with its neighbours: all of them get one tag.
    /// @param iTags  positions from 1 to Size() hold pointers to the neighbours' tags
    template <class Tags>
    bool _Propagate(unsigned short& ioTag, const Tags& iTags, VEXRawCollint& ioTagTable);

    /// Makes every unit below a record full whose tag isn't linked to the outside.
    template <unsigned int kLevels>
    void _SetAsEmptyOrFull(unsigned char* iRecord, unsigned int iLevels, VEXRawCollint& iTagTable);

    /// The same for the record of one of its children.
    template <unsigned int kLevels>
    void _SetBelow(unsigned char* iRecord, unsigned int iLevels, VEXRawCollint& iTagTable);

    PLMIdxWTWorkingOctree& _octree;
    unsigned char* _arena;  ///< of the octree, which doesn't move
    VEXRawCollPV
        _tagPointers;  ///< tags of one cell's neighbours, as unsigned short*; empty between cells
};

#endif
