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

/// Draws triangles into a working octree: every cell of the last level that a triangle touches becomes
/// OCTREE_SURFACE, and the path to it is made.
///
/// A triangle goes down in two stages. On integers alone, as long as all three vertices lie in the same
/// child; from there on by the overlap test, for the children that its bounds reach. A triangle that the
/// overlap test loses altogether gets a second attempt with boxes larger by one ten-thousandth.
///
/// It remembers the path of the last triangle, since neighbours in a mesh are neighbours in space. What it
/// remembers holds while the octree keeps box, depth and cells, and no cell becomes full.
class OctreeTriangleDrawer {
public:
    /// @param ioOctree  has its root
    explicit OctreeTriangleDrawer(PLMIdxWTWorkingOctree& ioOctree);
    OctreeTriangleDrawer(const OctreeTriangleDrawer&) = delete;
    OctreeTriangleDrawer& operator=(const OctreeTriangleDrawer&) = delete;

    /// False when what is remembered of the octree may no longer hold.
    bool Stands() const;

    /// Draws one triangle.
    /// @param ioNDrawn  grows by 1 when the second stage has drawn the triangle
    /// @return IDX_S_OK, IDX_S_NOTHING_DONE when it touches no cell, or IDX_E_FAIL with its trace
    [[nodiscard]] long int Draw(
        const IDX_Point& iP1, const IDX_Point& iP2, const IDX_Point& iP3, int& ioNDrawn);

    /// The second stage below one cell.
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
    /// Where a node set stands.
    struct VisitedNodeSet {
        std::uint64_t key;  ///< its number along x, y and z among those of its level, 20 bits each
        unsigned int offset;
    };

    /// Outcome of the first stage.
    enum class Walk { Parted, Done, Failed };

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
    bool _asks;                  ///< the overlap test isn't ours and decides every cell
    bool _usesLattice;           ///< no cell is full, and the faster tests may decide
    unsigned int _roomForBlock;  ///< bytes of the arena that no triangle of the lattice goes beyond

    // The path that the triangle at hand shares with itself, and how much of it the next one may take
    // over: down to a node set, since a leaf group that is still empty is counted at each visit.
    IDX_Base_Octree_Iterator _path[PLMIdxWTWorkingOctree::MAXDEPTH];
    FourFloats _lows[PLMIdxWTWorkingOctree::MAXDEPTH];  ///< low corner of the cell of each level
    VertexCode _lastCode;
    unsigned int _known;  ///< levels of the path that stand

    VisitedNodeSet
        _visited[64];  ///< at the last two bits of x, y and z the last one of those visited
};

/// Bit for bit: a point that is no number is like itself.
inline bool HaveSameBits(const IDX_Point& iFirst, const IDX_Point& iSecond) {
    using Words = std::array<std::uint32_t, 3>;
    return std::bit_cast<Words>(iFirst) == std::bit_cast<Words>(iSecond);
}

inline bool OctreeTriangleDrawer::Stands() const {
    return _changes == WorkingOctreeAccess::Changes(_octree) && _depth == _octree._depth &&
           HaveSameBits(_origin, _octree._bbOrigin) && HaveSameBits(_size, _octree._bbSize);
}

#endif
