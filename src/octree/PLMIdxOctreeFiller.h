#ifndef PLMIdxOctreeFiller_h
#define PLMIdxOctreeFiller_h

#include "PLMIdxOctreeCode.h"
#include "PLMIdxWTWorkingOctree.h"
#include "VEXRawCollPV.h"
#include "VEXRawCollint.h"

/// Finds the inside of a drawn surface: every empty cell that isn't linked to the outside becomes
/// OCTREE_FULL.
///
/// The method is connected-component labelling (A. Rosenfeld, J. L. Pfaltz, "Sequential operations
/// in digital picture processing", JACM 1966; on trees: H. Samet, "Connected component labeling
/// using quadtrees", JACM 1981). One pass over the leaves of the tree, depth first, gives each
/// empty cell a tag; a table notes which tags are the same component. A second pass fills the
/// components that aren't the outside.
///  - Surface cells are walls. Two empty cells are connected when they share a face.
///  - Tag 1 is the outside. A cell on the border of the box gets it, if it has no tag when the pass
///    reaches it.
///  - Each cell is joined with its neighbours on the +X, +Y and +Z side. Past the high side of the
///    box these are the cells of the low side, as if the box closed on itself.
///  - Where two tags meet, the table gets a link from the higher to the lower one. A link replaces
///    the one before it.
///
/// These rules decide which cells become full, also where a flood from outside would decide
/// otherwise. Readers rely on the result, so the code keeps to the rules exactly. A proper
/// union-find would give other octrees.
///
/// Made on the stack after drawing, for one Fill() of a tree whose tags are all 0, or 1 for cells
/// that the caller has named as outside. Linear in the leaves.
class PLMIdxOctreeFiller {
public:
    explicit PLMIdxOctreeFiller(PLMIdxWTWorkingOctree& ioOctree);
    PLMIdxOctreeFiller(const PLMIdxOctreeFiller&) = delete;
    PLMIdxOctreeFiller& operator=(const PLMIdxOctreeFiller&) = delete;

    /// @return IDX_S_OK; IDX_E_FAIL when more than 65535 tags are needed, and for a tree with the
    ///         tags of an earlier fill. After a failure no cell is full, but tags may have been
    ///         written.
    long int Fill();

private:
    /// A cell as its neighbours see it. There are three kinds: a subdivided cell has a record (or
    /// the word of a leaf group), a unit has a tag, a wall has neither. A unit is an empty or full
    /// cell of any size, or a leaf group that is wholly one or the other.
    struct Region {
        unsigned char* record;
        unsigned short* tag;
    };

    /// A subdivided cell in the course of a walk.
    struct Cell {
        unsigned char* record;
        Region beyond[3];       ///< past its high faces along X, Y and Z
        PLMIdxOctreeCode code;  ///< its position
    };

    // The kind of a record follows from kLevels, the levels below it: 1 for a leaf group, 2 for a
    // node set, 3 for a node. A node may have more levels below it: iLevels is their number.

    template <unsigned int kLevels>
    Region ChildOf(unsigned char* iRecord, unsigned int iChild) const;

    /// What is past the high face of a child along an axis: the cell of the child's own level, or
    /// the larger unit or wall that holds it.
    template <unsigned int kLevels>
    Region NeighbourOf(const Cell& iCell, unsigned int iChild, unsigned int iAxis) const;

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

    /// Appends the tags of all units that touch the +X, then the +Y, then the +Z face of a unit to
    /// _tagPointers.
    template <unsigned int kLevels>
    void AddNeighbourCellsTags(const Cell& iCell, unsigned int iChild, unsigned int iLevels);
    template <unsigned int kLevels>
    void _ExpandOverFace(unsigned int iAxis, const Region& iRegion, unsigned int iLevels);

    /// Joins each cell of a leaf group with its neighbours, of which there are at most three.
    bool _TagLeafGroup(const Cell& iCell, VEXRawCollint& ioTagTable);

    /// Gives a unit the tag of the outside if it has no tag yet and touches the border of the box.
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
    unsigned char* _arena;      ///< of the octree; it doesn't move
    VEXRawCollPV _tagPointers;  ///< the tags of one unit's neighbours, as unsigned short*
};

#endif
