#include "VoxelGrid.h"

#include "formats/CellStates.h"

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

/// A cell of an octree that isn't empty.
struct GridCell {
    IDX_Base_Octree_TestResult state;
    IDX_Base_Octree_Iterator iterator;  ///< in the cell, when it is OCTREE_PARTIAL
    Position position;                  ///< in cells of its level
};

/// Calls back for each child of a cell that is OCTREE_PARTIAL, but for empty ones, in rising
/// number.
/// @param iVisit  false ends the visit
/// @return false when the visit was ended
template <class Visit>
bool VisitChildren(const PLMIdxIBaseOctree& iOctree, const GridCell& iCell, const Visit& iVisit) {
    for (unsigned int number = 0; number < kChildren; ++number) {
        GridCell child = {
            iOctree.Test(iCell.iterator, number), iCell.iterator,
            ChildPosition(iCell.position, number)};
        if (child.state == OCTREE_EMPTY) continue;
        const bool isEntered = child.state == OCTREE_PARTIAL;
        if (isEntered && IDX_Failed(iOctree.Move(child.iterator, number))) continue;
        if (!iVisit(child)) return false;
    }
    return true;
}

/// Whether anything is occupied in a cell: a subdivided one may be empty all the way down.
bool IsOccupied(const PLMIdxIBaseOctree& iOctree, const GridCell& iCell) {
    if (iCell.state != OCTREE_PARTIAL) return true;
    return !VisitChildren(
        iOctree, iCell, [&](const GridCell& child) { return !IsOccupied(iOctree, child); });
}

/// Calls back with a cube of the grid, by its low corner and side, for all that is occupied in a
/// cell.
/// @param iLevels  levels of the grid below the cell, at least 1
template <class Fill>
void FillChildren(
    const PLMIdxIBaseOctree& iOctree,
    const GridCell& iCell,
    unsigned int iLevels,
    const Fill& iFill) {
    const int side = 1 << (iLevels - 1);  // of a child, in cells of the grid
    VisitChildren(iOctree, iCell, [&](const GridCell& child) {
        if (child.state == OCTREE_FULL) {
            iFill(Scaled(child.position, side), side, VoxelGrid::Inside);
        } else if (child.state == OCTREE_SURFACE) {
            iFill(Scaled(child.position, side), side, VoxelGrid::Surface);
        } else if (iLevels > 1) {
            FillChildren(iOctree, child, iLevels - 1, iFill);
        } else if (IsOccupied(iOctree, child)) {
            iFill(child.position, 1, VoxelGrid::Surface);
        }
        return true;
    });
}

}  // namespace

VoxelGrid::VoxelGrid(const PLMIdxIBaseOctree& iOctree, unsigned int iDeepest)
    : _level(std::min({iOctree._depth, iDeepest, kDeepest})),
      _side(1 << _level),
      _cells(std::size_t{1} << (3 * _level), Empty),
      _low{0, 0, 0},
      _high{_side - 1, _side - 1, _side - 1} {
    if (_level == 0) return;
    const GridCell root = {
        OCTREE_PARTIAL, IDX_Base_Octree_Iterator(), {0, 0, 0}
    };
    FillChildren(iOctree, root, _level, [this](const Position& low, int side, Cell cell) {
        FillCube(low, side, cell);
    });
    FindBounds();
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
