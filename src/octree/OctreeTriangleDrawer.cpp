#include "OctreeTriangleDrawer.h"

#include "BlockOfCells.h"
#include "OverlapTest.h"
#include "WorkingOctreeRecords.h"
#include "common/TraceFailure.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

// Two kinds of numbers name a cell here. A position of the octree (IDX_Base_Octree_Iterator) is the
// offset of a record, and is needed to read or write the cell. Column, row and layer among the
// cells of a level say where the cell is; their bits are the way down from the root.

namespace {

constexpr float kFirstFactor = 1.0f;
constexpr float kSecondFactor = 1.0001f;
constexpr unsigned int kCodeBits = 32;

/// A block of 4 x 4 x 4 cells is in at most so many node sets.
constexpr unsigned int kNodeSetsOfBlock = 8;
constexpr unsigned int kNodeSize = sizeof(Node);
constexpr unsigned int kNodeSetSize = sizeof(NodeSet);

/// From a mask of children to eight states: OCTREE_SURFACE for these children, else OCTREE_EMPTY.
constexpr std::array<unsigned short, 256> kSurfaceStates = [] {
    std::array<unsigned short, 256> table = {};
    for (unsigned int mask = 0; mask < 256; ++mask) {
        unsigned int states = 0;
        for (unsigned int c = 0; c < kChildren; ++c) {
            states |= StateAt((mask >> c & 1u) * OCTREE_SURFACE, c);
        }
        table[mask] = static_cast<unsigned short>(states);
    }
    return table;
}();

/// For each child a mask of the lanes x, y, z: set where the child is in the high half of the axis.
const __m128i kHighHalves[kChildren] = {
    _mm_setr_epi32(0, 0, 0, 0),   _mm_setr_epi32(-1, 0, 0, 0),   _mm_setr_epi32(0, -1, 0, 0),
    _mm_setr_epi32(-1, -1, 0, 0), _mm_setr_epi32(0, 0, -1, 0),   _mm_setr_epi32(-1, 0, -1, 0),
    _mm_setr_epi32(0, -1, -1, 0), _mm_setr_epi32(-1, -1, -1, 0),
};

/// Along one axis, a mask of the slabs of a block that are in the same node set as one of them. A
/// new node set begins where the number of a slab in the octree is a multiple of 4. So a block is
/// in one or two node sets along an axis.
/// @param iLow   number of the block's first slab in the octree
/// @param iSlab  number of a slab in the block
unsigned int SlabsOfOneNodeSet(unsigned int iLow, unsigned int iSlab) {
    const unsigned int first = kAllSlabs >> SlabInNodeSet(iLow);
    return (first >> iSlab & 1u) != 0 ? first : kAllSlabs & ~first;
}

/// The child that the way down to a code enters from a cell of a level.
unsigned int ChildAt(const unsigned int (&iCode)[3], unsigned int iLevel) {
    const unsigned int bit = kCodeBits - 1 - iLevel;
    return ChildNumber(iCode[0] >> bit, iCode[1] >> bit, iCode[2] >> bit);
}

/// The number of steps from the root that the ways down to two codes have in common: the leading
/// bits in which the codes agree on all three axes.
unsigned int CommonLevels(const unsigned int (&iA)[3], const unsigned int (&iB)[3]) {
    const unsigned int differences = (iA[0] ^ iB[0]) | (iA[1] ^ iB[1]) | (iA[2] ^ iB[2]);
    return static_cast<unsigned int>(std::countl_zero(differences));
}

/// True for an octree that has no cell but the root.
bool IsEmpty(const PLMIdxWTWorkingOctree& iOctree) {
    unsigned char* arena = WorkingOctreeAccess::Arena(iOctree);
    if (iOctree._depth != 2) return NodeAt(arena, 0).states == 0;
    const auto& words = NodeSetAt(arena, 0).words;
    return std::all_of(words, words + kChildren, [](auto iWord) { return iWord == kEmptyGroup; });
}

/// Whether one of the 64 cells is OCTREE_FULL. Looks at the states of 32 cells at once.
bool HoldsFullCell(const NodeSet& iNodeSet) {
    std::uint64_t words[2];
    std::memcpy(words, iNodeSet.words, sizeof(words));
    constexpr std::uint64_t kLowBitsOfFour = kLowBits * 0x0001000100010001u;  // of four words
    const std::uint64_t full = (words[0] >> 1 & ~words[0]) | (words[1] >> 1 & ~words[1]);
    return (full & kLowBitsOfFour) != 0;
}

/// Of eight states, a mask of the children that are OCTREE_FULL.
unsigned int FullOf(unsigned int iStates) {
    const unsigned int full = FullChildren(iStates);
    return full == 0 ? 0 : MaskOfChildren(full);  // while drawing there is hardly ever one
}

}  // namespace

OctreeTriangleDrawer::OctreeTriangleDrawer(PLMIdxWTWorkingOctree& ioOctree)
    : _octree(ioOctree),
      _changes(WorkingOctreeAccess::Changes(ioOctree)),
      _depth(ioOctree._depth),
      _origin(ioOctree._bbOrigin),
      _size(ioOctree._bbSize),
      _arena(WorkingOctreeAccess::Arena(ioOctree)),
      _nCellsByDepth(WorkingOctreeAccess::Counts(ioOctree)),
      _lattice(ioOctree),
      _exactOnly(!OverlapTestIsOurs()),
      _usesLattice(!_exactOnly && IsEmpty(ioOctree)),
      _roomForBlock(kNodeSetsOfBlock * (_depth * kNodeSize + kNodeSetSize)),
      _lastCode{},
      _knownLevels(0) {
    _extents[0] = AxesFrom(_size);
    for (unsigned int level = 1; level <= _depth; ++level) {
        _extents[level] = _extents[level - 1] * _mm_set1_ps(0.5f);
    }
    std::fill(std::begin(_visited), std::end(_visited), VisitedNodeSet{~std::uint64_t{0}, 0});
    _lows[0] = AxesFrom(_origin);
}

/// Marks the cells of a small triangle, one node set after the other. The arena has room for all
/// records that this may make.
void OctreeTriangleDrawer::DrawCells(const LatticeCells& iCells) {
    const unsigned int(&low)[3] = iCells.low;
    if (iCells.inOneNodeSet) {
        const unsigned int shift =
            BitOfCell(SlabInNodeSet(low[0]), SlabInNodeSet(low[1]), SlabInNodeSet(low[2]));
        MarkCells(NodeSetOfCell(low), CellsByLeafGroup(iCells.touched << shift));
        return;
    }
    for (std::uint64_t rest = iCells.touched; rest != 0;) {
        const auto bit = static_cast<unsigned int>(std::countr_zero(rest));
        const unsigned int place[3] = {SlabOfBit(bit, 0), SlabOfBit(bit, 1), SlabOfBit(bit, 2)};
        const std::uint64_t cells =
            rest & CellsOfSlabs(
                       SlabsOfOneNodeSet(low[0], place[0]), SlabsOfOneNodeSet(low[1], place[1]),
                       SlabsOfOneNodeSet(low[2], place[2]));
        rest &= ~cells;
        DrawInNodeSet(low, place, cells);
    }
}

/// Marks cells of a block that lie in one node set.
/// @param iLow    low corner of the block
/// @param iPlace  column, row and layer of one of the cells in the block
/// @param iCells  cells of the block
void OctreeTriangleDrawer::DrawInNodeSet(
    const unsigned int (&iLow)[3], const unsigned int (&iPlace)[3], std::uint64_t iCells) {
    const unsigned int cell[3] = {iLow[0] + iPlace[0], iLow[1] + iPlace[1], iLow[2] + iPlace[2]};
    int offset = 0;  // from the bits of the block to those of the node set
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const auto slab = static_cast<int>(SlabInNodeSet(cell[axis]));
        offset += (slab - static_cast<int>(iPlace[axis])) * (1 << (2 * axis));
    }
    // A shift moves all cells at once. Bits that it moves out of the node set belong to no cell of
    // `iCells`, which are all in it.
    const std::uint64_t moved = offset >= 0 ? iCells << offset : iCells >> -offset;
    MarkCells(NodeSetOfCell(cell), CellsByLeafGroup(moved));
}

/// The node set that holds a cell of the last level, made where it is missing.
NodeSet& OctreeTriangleDrawer::NodeSetOfCell(const unsigned int (&iCell)[3]) {
    const unsigned int x = iCell[0] / kSlabs;
    const unsigned int y = iCell[1] / kSlabs;
    const unsigned int z = iCell[2] / kSlabs;
    const std::uint64_t key = x | std::uint64_t{y} << 20 | std::uint64_t{z} << 40;
    VisitedNodeSet& visited = _visited[BitOfCell(x % 4, y % 4, z % 4)];
    // Triangles that follow each other are often in the same few node sets: no way down is needed
    // then.
    if (visited.key == key) return NodeSetAt(_arena, visited.offset);
    // The way down goes through codes, so that it may share steps with the last triangle's.
    const unsigned int shift = kCodeBits - _depth;
    const VertexCode code = {
        {iCell[0] << shift, iCell[1] << shift, iCell[2] << shift}
    };
    const unsigned int end = _depth - 2;
    unsigned int level = std::min(CommonLevels(code.axes, _lastCode.axes), _knownLevels);
    for (; level < end; ++level) (void)StepInto(ChildAt(code.axes, level), level);  // there is room
    Remember(code, end);
    visited = {key, _path[end].offset};
    return NodeSetAt(_arena, visited.offset);
}

/// Draws a small triangle at once, and any other one in stages. A triangle counts as drawn by the
/// second stage when it touches several cells: the vertices separate somewhere above them.
long int OctreeTriangleDrawer::Draw(
    const IDX_Point& iP1, const IDX_Point& iP2, const IDX_Point& iP3, int& ioNDrawn) {
    const FourFloats vertices[3] = {AxesFrom(iP1), AxesFrom(iP2), AxesFrom(iP3)};
    // When the arena is nearly full, the order in which records are made decides which ones are
    // made. Only the stages make them in the order of the cells.
    if (!_usesLattice || WorkingOctreeAccess::Room(_octree) < _roomForBlock) {
        return DrawInStages(vertices, ioNDrawn);
    }
    const LatticeCells cells = _lattice.CellsOf(vertices);
    if (!cells.decided) return DrawInStages(vertices, ioNDrawn);
    DrawCells(cells);
    const bool several = (cells.touched & (cells.touched - 1)) != 0;
    ioNDrawn += several ? 1 : 0;
    return IDX_S_OK;
}

/// The two stages, and the second attempt with larger boxes.
long int OctreeTriangleDrawer::DrawInStages(const FourFloats (&iVertices)[3], int& ioNDrawn) {
    const VertexCode codes[3] = {
        _lattice.CodeOf(iVertices[0]), _lattice.CodeOf(iVertices[1]),
        _lattice.CodeOf(iVertices[2])};
    unsigned int level = 0;
    switch (WalkCommonPath(codes, level)) {
        case Walk::Done:
            return IDX_S_OK;
        case Walk::Failed:
            return TraceStatus(
                "PLMIdxOctreeBuilder.DrawTriangle.PLMIdxWorkingOctree.MoveCreate", IDX_E_FAIL);
        case Walk::Continue:
            break;
    }
    float vertices[3][3];
    for (unsigned int i = 0; i < 3; ++i) StoreAxes(iVertices[i], vertices[i]);
    const FourFloats halfSize = _extents[level] * _mm_set1_ps(0.5f);
    const FourFloats centre = _lows[level] + halfSize;
    TriangleCells triangle(vertices, centre, halfSize, kFirstFactor, _exactOnly);
    long int status = DrawBelow(_path[level], centre, halfSize, triangle, _depth);
    if (IDX_Failed(status)) {
        return TraceStatus(
            "PLMIdxOctreeBuilder.DrawTriangle.PLMIdxWorkingOctree.DrawTriangle2", IDX_E_FAIL);
    }
    if (status == IDX_S_NOTHING_DONE) {
        triangle.SetFactor(kSecondFactor);
        status = DrawBelow(_path[level], centre, halfSize, triangle, _depth);
        if (IDX_Failed(status)) {
            return TraceStatus(
                "PLMIdxOctreeBuilder.DrawTriangle.PLMIdxWorkingOctree.DrawTriangle2 - Second "
                "attempt",
                IDX_E_FAIL);
        }
    }
    if (status == IDX_S_OK) ++ioNDrawn;
    return status;
}

/// The first stage: goes down as long as all three vertices are in the same child. Begins where the
/// way of the last triangle leaves this one.
/// @param oLevel  level of the last cell that holds all three vertices
OctreeTriangleDrawer::Walk OctreeTriangleDrawer::WalkCommonPath(
    const VertexCode (&iCodes)[3], unsigned int& oLevel) {
    const auto& code = iCodes[0].axes;
    const unsigned int common =
        std::min(CommonLevels(code, iCodes[1].axes), CommonLevels(code, iCodes[2].axes));
    const unsigned int end = std::min(common, _depth);
    unsigned int level = std::min({CommonLevels(code, _lastCode.axes), _knownLevels, end});
    _knownLevels = level;  // a trace sink may throw on the way: what is known until then
    for (; level < end; ++level) {
        const Walk walk = StepInto(ChildAt(code, level), level);
        if (walk != Walk::Continue) {
            Remember(iCodes[0], level);
            return walk;
        }
    }
    Remember(iCodes[0], level);
    oLevel = level;
    return level == _depth ? Walk::Done : Walk::Continue;
}

/// Keeps the way down to a code, as far as its records are made, for the next triangle.
void OctreeTriangleDrawer::Remember(const VertexCode& iCode, unsigned int iLevel) {
    _lastCode = iCode;
    _knownLevels = std::min(iLevel, _depth - 2);
}

/// One step of the first stage, from the cell of a level into a child. A full child holds the
/// triangle already.
OctreeTriangleDrawer::Walk OctreeTriangleDrawer::StepInto(
    unsigned int iChild, unsigned int iLevel) {
    IDX_Base_Octree_Iterator& child = _path[iLevel + 1];
    child = _path[iLevel];
    if (StateOfChild(child, iChild) == OCTREE_FULL) return Walk::Done;
    if (!Enter(child, iChild)) return Walk::Failed;
    const FourFloats step = _mm_and_ps(_mm_castsi128_ps(kHighHalves[iChild]), _extents[iLevel + 1]);
    _lows[iLevel + 1] = _lows[iLevel] + step;
    return Walk::Continue;
}

unsigned int OctreeTriangleDrawer::StateOfChild(
    const IDX_Base_Octree_Iterator& iIterator, unsigned int iChild) const {
    if (_depth - iIterator.depth != 2) return StateOf(WordAt(_arena, iIterator.offset), iChild);
    return StateOfGroup(NodeSetAt(_arena, iIterator.offset).words[iChild]);
}

/// Does what MoveCreate() does. Where the child's record exists, no call is needed.
bool OctreeTriangleDrawer::Enter(IDX_Base_Octree_Iterator& ioIterator, unsigned int iChild) {
    const unsigned int levelsBelow = _depth - ioIterator.depth;
    if (levelsBelow >= 3) {
        const Node& node = NodeAt(_arena, ioIterator.offset);
        if (StateOf(node.states, iChild) == OCTREE_PARTIAL) {
            ioIterator = {node.children[iChild], ioIterator.depth + 1};
            return true;
        }
    }
    return !IDX_Failed(_octree.MoveCreate(ioIterator, iChild));
}

/// A mask of the children that are OCTREE_FULL. They need no drawing, and a triangle that reaches
/// one of them counts as drawn.
unsigned int OctreeTriangleDrawer::FullChildren(
    unsigned int iOffset, unsigned int iLevelsBelow) const {
    if (iLevelsBelow != 2) return FullOf(WordAt(_arena, iOffset));
    const NodeSet& nodeSet = NodeSetAt(_arena, iOffset);
    unsigned int children = 0;
    for (unsigned int c = 0; c < kChildren; ++c) {
        children |= static_cast<unsigned int>(nodeSet.words[c] == kFullGroup) << c;
    }
    return children;
}

/// In a node set all 64 cells are tried at once. Otherwise, or when that leaves a cell open, the
/// children are sorted into touched, not touched and open; the exact test decides the open ones,
/// one by one in rising number; and the walk goes on in those that are touched.
long int OctreeTriangleDrawer::DrawBelow(
    const IDX_Base_Octree_Iterator& iIterator,
    FourFloats iCentre,
    FourFloats iHalfSize,
    TriangleCells& ioTriangle,
    unsigned int iLastDepth) {
    const unsigned int levelsBelow = _depth - iIterator.depth;
    if (levelsBelow == 1) return DrawInLeafGroup(iIterator.offset, iCentre, iHalfSize, ioTriangle);

    if (levelsBelow == 2 && iLastDepth == _depth) {
        NodeSet& nodeSet = NodeSetAt(_arena, iIterator.offset);
        const CellMask marked = ioTriangle.CellsOfNodeSet(iCentre, iHalfSize);
        if (marked.decided && !HoldsFullCell(nodeSet)) {
            MarkCells(nodeSet, marked.cells);
            return marked.cells != 0 ? IDX_S_OK : IDX_S_NOTHING_DONE;
        }
    }
    const unsigned int full = FullChildren(iIterator.offset, levelsBelow);
    const ChildCells cells = ioTriangle.Children(iCentre, iHalfSize, iIterator.depth, full);
    bool drawn = (cells.reached & full) != 0;
    for (unsigned int rest = cells.touched | cells.open; rest != 0; rest &= rest - 1) {
        const auto c = static_cast<unsigned int>(std::countr_zero(rest));
        bool touched = (cells.touched >> c & 1u) != 0;
        if (!touched && !ioTriangle.DecideExactly(cells, c, touched)) return IDX_E_FAIL;
        if (!touched) continue;
        IDX_Base_Octree_Iterator child = iIterator;
        if (!Enter(child, c)) return IDX_E_FAIL;
        if (child.depth == iLastDepth) {
            drawn = true;
            continue;
        }
        const FourFloats high = _mm_castsi128_ps(kHighHalves[c]);
        const FourFloats centre = Select(high, cells.centres[1], cells.centres[0]);
        const long int status = DrawBelow(child, centre, cells.halfSize, ioTriangle, iLastDepth);
        if (IDX_Failed(status)) return IDX_E_FAIL;
        drawn = drawn || status == IDX_S_OK;
    }
    return drawn ? IDX_S_OK : IDX_S_NOTHING_DONE;
}

/// Makes cells of a leaf group OCTREE_SURFACE and counts those that were empty.
/// @param iCells  bit j for cell j
void OctreeTriangleDrawer::MarkCellsOfGroup(unsigned short& ioWord, unsigned int iCells) {
    const unsigned int states = kSurfaceStates[iCells];
    const unsigned int fresh = states & kLowBits & ~(ioWord | ioWord >> 1);  // both bits were 0
    _nCellsByDepth[_depth] += static_cast<int>(CountBits(fresh));
    ioWord = static_cast<unsigned short>(ioWord | states);
}

/// The same for cells of a node set. A leaf group that was empty is counted as a cell of its own
/// level.
/// @param iCells  bit 8 g + j for cell j of leaf group g
void OctreeTriangleDrawer::MarkCells(NodeSet& ioNodeSet, std::uint64_t iCells) {
    for (std::uint64_t rest = iCells; rest != 0;) {
        const auto group = static_cast<unsigned int>(std::countr_zero(rest)) / kChildren;
        const unsigned int shift = kChildren * group;
        unsigned short& word = ioNodeSet.words[group];
        if (word == kEmptyGroup) ++_nCellsByDepth[_depth - 1];
        MarkCellsOfGroup(word, iCells >> shift & kAllChildren);
        rest &= ~(std::uint64_t{kAllChildren} << shift);
    }
}

/// The second stage in a leaf group: its children are cells of the last level, and are marked and
/// not entered. When the exact test fails at a child, the children before it are marked and those
/// after it aren't, as in a walk that goes from child to child.
long int OctreeTriangleDrawer::DrawInLeafGroup(
    unsigned int iOffset, FourFloats iCentre, FourFloats iHalfSize, TriangleCells& ioTriangle) {
    unsigned short& word = WordAt(_arena, iOffset);
    const unsigned int full = FullOf(word);
    const ChildCells cells = ioTriangle.Children(iCentre, iHalfSize, _depth - 1, full);
    unsigned int marked = cells.touched;
    bool decided = true;
    for (unsigned int rest = cells.open; rest != 0 && decided; rest &= rest - 1) {
        const auto c = static_cast<unsigned int>(std::countr_zero(rest));
        bool touched = false;
        decided = ioTriangle.DecideExactly(cells, c, touched);
        if (touched) marked |= 1u << c;
        if (!decided) marked &= (1u << c) - 1;  // the children before it
    }
    MarkCellsOfGroup(word, marked);
    if (!decided) return IDX_E_FAIL;
    return (marked | (cells.reached & full)) != 0 ? IDX_S_OK : IDX_S_NOTHING_DONE;
}
