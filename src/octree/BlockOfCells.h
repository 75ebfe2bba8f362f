#ifndef BlockOfCells_h
#define BlockOfCells_h

#include <cstdint>

// A block of 4 x 4 x 4 cells as 64 bits: cell x + 4 y + 16 z for column x, row y and layer z.

/// For each axis and each mask of slabs (columns, rows, layers), the cells in them.
struct CellsOfSlabsTable {
    std::uint64_t cells[3][16];
    constexpr CellsOfSlabsTable() : cells() {
        for (unsigned int mask = 0; mask < 16; ++mask) {
            for (unsigned int cell = 0; cell < 64; ++cell) {
                for (unsigned int axis = 0; axis < 3; ++axis) {
                    const unsigned int slab = cell >> (2 * axis) & 3u;
                    cells[axis][mask] |= static_cast<std::uint64_t>(mask >> slab & 1u) << cell;
                }
            }
        }
    }
};
inline constexpr CellsOfSlabsTable kCellsOfSlabs;

/// The cells in some of the columns, the rows and the layers.
inline std::uint64_t CellsOfSlabs(unsigned int iColumns, unsigned int iRows, unsigned int iLayers) {
    return kCellsOfSlabs.cells[0][iColumns] & kCellsOfSlabs.cells[1][iRows] &
           kCellsOfSlabs.cells[2][iLayers];
}

/// Exchanges the bits of a mask with those that lie higher by a shift.
inline std::uint64_t SwapBits(std::uint64_t iBits, std::uint64_t iMask, unsigned int iShift) {
    const std::uint64_t change = (iBits ^ iBits >> iShift) & iMask;
    return iBits ^ change ^ change << iShift;
}

/// The cells of a block that is a node set, as cell j of leaf group g at bit 8 g + j. The bits of a cell's
/// place go, highest first,
///   z1 z0 y1 y0 x1 x0  ->  z1 z0 y1 x1 y0 x0  ->  z1 x1 y1 z0 y0 x0  ->  z1 y1 x1 z0 y0 x0
inline std::uint64_t CellsByLeafGroup(std::uint64_t iCells) {
    iCells = SwapBits(iCells, 0x0C0C0C0C0C0C0C0Cu, 2);
    iCells = SwapBits(iCells, 0x0000F0F00000F0F0u, 12);
    return SwapBits(iCells, 0x0000FF000000FF00u, 8);
}

#endif
