#ifndef VoxelGrid_h
#define VoxelGrid_h

#include "PLMIdxIBaseOctree.h"

#include <array>
#include <cstddef>
#include <vector>

/// The cells of an octree as a plain cube of cells, for drawing. Octrees deeper than kDeepest are
/// taken down to that level, so that memory is bounded: 16 MiB.
class VoxelGrid {
public:
    enum Cell : unsigned char { Empty, Surface, Inside };
    using Position = std::array<int, 3>;

    static constexpr unsigned int kDeepest = 8;

    /// @param iOctree  a working octree, which tells the cells that triangles touch (Surface) from
    ///                 those that the fill made full (Inside). A cell that is subdivided below the
    ///                 level of the grid is Surface when anything in it is occupied.
    /// @param iDeepest  the deepest level of the grid, at most kDeepest
    explicit VoxelGrid(const PLMIdxIBaseOctree& iOctree, unsigned int iDeepest = kDeepest);

    int Side() const { return _side; }             ///< cells along an axis
    unsigned int Level() const { return _level; }  ///< level of the octree whose cells these are

    /// Empty outside the grid.
    Cell At(const Position& iPosition) const {
        for (const int index : iPosition) {
            if (index < 0 || index >= _side) return Empty;
        }
        return _cells[Index(iPosition)];
    }

    /// The cells along the x axis through a position of the grid, from x = 0.
    const Cell* Row(int iY, int iZ) const { return &_cells[Index({0, iY, iZ})]; }

    /// Calls a function with the position of each occupied cell.
    template <typename Function>
    void ForEachCell(Function iFunction) const {
        for (int z = _low[2]; z <= _high[2]; ++z) {
            for (int y = _low[1]; y <= _high[1]; ++y) {
                for (int x = _low[0]; x <= _high[0]; ++x) {
                    const Position position = {x, y, z};
                    if (_cells[Index(position)] != Empty) iFunction(position);
                }
            }
        }
    }

    /// The smallest box of cells that holds all occupied ones, both ends included; the whole grid
    /// when none is.
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
    void FillCube(const Position& iLow, int iSide, Cell iCell);
    void FindBounds();

    unsigned int _level;
    int _side;
    std::vector<Cell> _cells;  ///< x runs fastest, then y
    Position _low;
    Position _high;
};

#endif
