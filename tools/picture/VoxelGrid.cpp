#include "VoxelGrid.h"

#include <algorithm>

namespace {

using Position = VoxelGrid::Position;

/// Low corner of a child, in cells of the child's level.
Position ChildPosition(const Position& iParent, unsigned int iChild) {
    return {
        2 * iParent[0] + static_cast<int>(iChild & 1U),
        2 * iParent[1] + static_cast<int>(iChild >> 1U & 1U),
        2 * iParent[2] + static_cast<int>(iChild >> 2U & 1U)};
}

Position Scaled(const Position& iPosition, int iFactor) {
    return {iPosition[0] * iFactor, iPosition[1] * iFactor, iPosition[2] * iFactor};
}

/// True when anything is occupied below a position: a subdivided cell may be empty all the way down.
bool HoldsCell(const PLMIdxIBaseOctree& iOctree, const IDX_Base_Octree_Iterator& iPosition) {
    for (unsigned int child = 0; child < 8; ++child) {
        const IDX_Base_Octree_TestResult state = iOctree.Test(iPosition, child);
        if (state == OCTREE_FULL || state == OCTREE_SURFACE) return true;
        if (state == OCTREE_EMPTY) continue;
        IDX_Base_Octree_Iterator below = iPosition;
        if (!IDX_Failed(iOctree.Move(below, child)) && HoldsCell(iOctree, below)) return true;
    }
    return false;
}

}  // namespace

VoxelGrid::VoxelGrid(const PLMIdxIBaseOctree& iOctree, unsigned int iDeepest)
    : _level(std::min({iOctree._depth, iDeepest, kDeepest})),
      _side(1 << _level),
      _cells(std::size_t{1} << (3 * _level), Empty),
      _low{0, 0, 0},
      _high{_side - 1, _side - 1, _side - 1} {
    if (_level == 0) return;
    Walk(iOctree, IDX_Base_Octree_Iterator(), {0, 0, 0});
    FindBounds();
}

void VoxelGrid::Walk(
    const PLMIdxIBaseOctree& iOctree,
    const IDX_Base_Octree_Iterator& iIterator,
    const Position& iPosition) {
    const unsigned int levelsBelow = _level - iIterator.depth - 1;
    for (unsigned int child = 0; child < 8; ++child) {
        const IDX_Base_Octree_TestResult state = iOctree.Test(iIterator, child);
        if (state == OCTREE_EMPTY) continue;
        const Position position = ChildPosition(iPosition, child);
        if (state != OCTREE_PARTIAL) {
            const Cell cell = state == OCTREE_FULL ? Inside : Surface;
            FillCube(Scaled(position, 1 << levelsBelow), 1 << levelsBelow, cell);
            continue;
        }
        IDX_Base_Octree_Iterator below = iIterator;
        if (IDX_Failed(iOctree.Move(below, child))) continue;
        if (levelsBelow > 0) {
            Walk(iOctree, below, position);
        } else if (HoldsCell(iOctree, below)) {
            FillCube(position, 1, Surface);
        }
    }
}

void VoxelGrid::FillCube(const Position& iLow, int iSide, Cell iCell) {
    for (int z = iLow[2]; z < iLow[2] + iSide; ++z) {
        for (int y = iLow[1]; y < iLow[1] + iSide; ++y) {
            std::fill_n(&_cells[Index({iLow[0], y, z})], iSide, iCell);
        }
    }
}

void VoxelGrid::FindBounds() {
    Position low = _high;
    Position high = _low;
    ForEachCell([&](const Position& position) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            low[axis] = std::min(low[axis], position[axis]);
            high[axis] = std::max(high[axis], position[axis]);
        }
    });
    if (low[0] > high[0]) return;
    _low = low;
    _high = high;
}
