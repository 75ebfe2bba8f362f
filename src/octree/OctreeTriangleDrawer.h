#ifndef OctreeTriangleDrawer_h
#define OctreeTriangleDrawer_h

#include "OctreeLattice.h"
#include "TriangleCells.h"
#include "WorkingOctreeRecords.h"
#include "common/FourFloats.h"

#include "IDX_Triangle.h"
#include "PLMIdxWTWorkingOctree.h"

#include <array>
#include <bit>
#include <cstdint>

/// Draws triangles into a working octree. Every cell of the last level that a triangle touches
/// becomes OCTREE_SURFACE, and the records on the way to it are made.
///
/// A small triangle is drawn at once, with the cells that OctreeLattice finds. Any other goes down
/// in two stages. The first one follows the codes of the vertices, integers alone, as long as all
/// three are in the same child. The second one tests the children that the triangle's bounds reach.
/// When the second stage draws nothing, because the triangle is between two rounded boxes, it runs
/// once more with boxes larger by one ten-thousandth.
///
/// A drawer keeps the way down of the last triangle, since the next triangle of a mesh is often
/// close to it. What it keeps is valid as long as the octree keeps its box, depth and cells, and no
/// cell becomes full.
class OctreeTriangleDrawer {
public:
    /// @param ioOctree  has its root, and outlives the drawer
    explicit OctreeTriangleDrawer(PLMIdxWTWorkingOctree& ioOctree);
    OctreeTriangleDrawer(const OctreeTriangleDrawer&) = delete;
    OctreeTriangleDrawer& operator=(const OctreeTriangleDrawer&) = delete;

    /// False when the octree has changed, so that a new drawer is needed.
    bool IsCurrent() const;

    /// Draws one triangle.
    /// @param ioNDrawn  grows by 1 when the second stage has drawn the triangle
    /// @return IDX_S_OK, IDX_S_NOTHING_DONE when it touches no cell, or IDX_E_FAIL with its trace
    [[nodiscard]] long int Draw(
        const IDX_Point& iP1, const IDX_Point& iP2, const IDX_Point& iP3, int& ioNDrawn);

    /// The second stage below one cell.
    /// @param iCentre     of the cell
    /// @param iHalfSize   of the cell
    /// @param ioTriangle  carries the factor of the boxes
    /// @param iLastDepth  a cell of this depth is marked and not entered
    /// @return IDX_S_OK, IDX_S_NOTHING_DONE or IDX_E_FAIL, without a trace of its own
    [[nodiscard]] long int DrawBelow(
        const IDX_Base_Octree_Iterator& iIterator,
        FourFloats iCentre,
        FourFloats iHalfSize,
        TriangleCells& ioTriangle,
        unsigned int iLastDepth);

private:
    /// A node set that was drawn into, and the place of its record.
    struct VisitedNodeSet {
        std::uint64_t key;    ///< its column, row and layer among those of its level, 20 bits each
        unsigned int offset;  ///< of its record
    };

    /// Outcome of the first stage, and of each step of it.
    enum class Walk {
        Continue,  ///< the triangle isn't drawn yet: the second stage is next, or the next step
        Done,      ///< nothing is left to draw: the last level, or a full cell
        Failed     ///< no memory for a record
    };

    [[nodiscard]] long int DrawInStages(const FourFloats (&iVertices)[3], int& ioNDrawn);
    void DrawCells(const LatticeCells& iCells);
    void DrawInNodeSet(
        const unsigned int (&iLow)[3], const unsigned int (&iPlace)[3], std::uint64_t iCells);
    NodeSet& NodeSetOfCell(const unsigned int (&iCell)[3]);
    Walk WalkCommonPath(const VertexCode (&iCodes)[3], unsigned int& oLevel);
    Walk StepInto(unsigned int iChild, unsigned int iLevel);
    void Remember(const VertexCode& iCode, unsigned int iLevel);
    [[nodiscard]] long int DrawInLeafGroup(
        unsigned int iOffset, FourFloats iCentre, FourFloats iHalfSize, TriangleCells& ioTriangle);
    void MarkCells(NodeSet& ioNodeSet, std::uint64_t iCells);
    void MarkCellsOfGroup(unsigned short& ioWord, unsigned int iCells);
    [[nodiscard]] bool Enter(IDX_Base_Octree_Iterator& ioIterator, unsigned int iChild);
    unsigned int StateOfChild(const IDX_Base_Octree_Iterator& iIterator, unsigned int iChild) const;
    unsigned int FullChildren(unsigned int iOffset, unsigned int iLevelsBelow) const;

    PLMIdxWTWorkingOctree& _octree;
    unsigned int _changes;  ///< of the octree, when this drawer was made; so are the next three
    unsigned int _depth;
    IDX_Point _origin;
    IDX_Point _size;
    unsigned char* _arena;
    int* _nCellsByDepth;
    OctreeLattice _lattice;
    FourFloats _extents[PLMIdxWTWorkingOctree::MAXDEPTH];  ///< of a cell of each level
    bool _exactOnly;             ///< the overlap test isn't ours, and must be called for every cell
    bool _usesLattice;           ///< the overlap test is ours, and no cell is full
    unsigned int _roomForBlock;  ///< most bytes of the arena that a small triangle takes

    // The way down that the vertices of the last triangle have in common, by level. The next
    // triangle may use it again down to a node set. Not further: MoveCreate() counts a leaf group
    // that is still empty at each visit, and must see each visit.
    IDX_Base_Octree_Iterator _path[PLMIdxWTWorkingOctree::MAXDEPTH];
    FourFloats _lows[PLMIdxWTWorkingOctree::MAXDEPTH];  ///< low corner of the cell of each level
    VertexCode _lastCode;
    unsigned int _knownLevels;  ///< levels of the path that may be used again

    /// A cache of node sets: the entry of one is at the last two bits of its column, row and layer.
    VisitedNodeSet _visited[64];
};

/// Compares the bits: so a NaN equals itself, and 0 differs from -0.
inline bool HaveSameBits(const IDX_Point& iFirst, const IDX_Point& iSecond) {
    using Words = std::array<std::uint32_t, 3>;
    return std::bit_cast<Words>(iFirst) == std::bit_cast<Words>(iSecond);
}

inline bool OctreeTriangleDrawer::IsCurrent() const {
    return _changes == WorkingOctreeAccess::Changes(_octree) && _depth == _octree._depth &&
           HaveSameBits(_origin, _octree._bbOrigin) && HaveSameBits(_size, _octree._bbSize);
}

#endif
