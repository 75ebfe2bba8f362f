#ifndef VoxelGrid_h
#define VoxelGrid_h

#include "PLMIdxIBaseOctree.h"

#include <array>
#include <cstddef>
#include <vector>

/// The cells of an octree as a plain cube of cells, for drawing. Octrees deeper than kDeepest are taken
/// down to that level, so that memory is bounded: 16 MiB.
class VoxelGrid {
public:
    enum Cell : unsigned char { Empty, Surface, Inside };
    using Position = std::array<int, 3>;

    static constexpr unsigned int kDeepest = 8;

    /// A stored octree holds surface and inside cells alike. A cell is shown as Surface when one of its
    /// six neighbours is empty, or when it is subdivided below the level of the grid, else as Inside.
    /// @param iHasInside  false: no inside is known, and every occupied cell is Surface
    VoxelGrid(const PLMIdxIBaseOctree& iOctree, bool iHasInside);

    int Side() const { return _side; }             ///< cells along an axis
    unsigned int Level() const { return _level; }  ///< level of the octree whose cells these are

    /// Empty outside the grid.
    Cell At(const Position& iPosition) const {
        for (const int index : iPosition) {
            if (index < 0 || index >= _side) return Empty;
        }
        return _cells[Index(iPosition)];
    }

    /// The smallest box of cells that holds all occupied ones, both ends included; the whole grid when
    /// none is.
    const Position& Low() const { return _low; }
    const Position& High() const { return _high; }

private:
    std::size_t Index(const Position& iPosition) const {
        const auto side = static_cast<std::size_t>(_side);
        return (static_cast<std::size_t>(iPosition[2]) * side +
                static_cast<std::size_t>(iPosition[1])) *
                   side +
               static_cast<std::size_t>(iPosition[0]);
    }
    void Walk(
        const PLMIdxIBaseOctree& iOctree,
        const IDX_Base_Octree_Iterator& iIterator,
        const Position& iPosition);
    void FillCube(const Position& iLow, int iSide, Cell iCell);
    void FindBounds();
    void FindInside();
    bool IsEnclosed(const Position& iPosition) const;

    unsigned int _level;
    int _side;
    std::vector<Cell> _cells;  ///< x runs fastest, then y
    Position _low;
    Position _high;
};

#endif
