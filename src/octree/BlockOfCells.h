#ifndef BlockOfCells_h
#define BlockOfCells_h

#include <cstdint>

// A block is 4 x 4 x 4 cells; a node set is one. A slab is a column, a row or a layer: 16 cells. A
// set of slabs along an axis is a mask of 4 bits, a set of cells is one of 64 bits.

constexpr unsigned int kSlabs = 4;
constexpr unsigned int kAllSlabs = 0xF;

/// The bit of the cell in column x, row y and layer z.
constexpr unsigned int BitOfCell(unsigned int iX, unsigned int iY, unsigned int iZ) {
    return iX + kSlabs * iY + kSlabs * kSlabs * iZ;
}

/// The column, row or layer (axis 0, 1 or 2) of the cell of a bit.
constexpr unsigned int SlabOfBit(unsigned int iBit, unsigned int iAxis) {
    return iBit >> (2 * iAxis) & (kSlabs - 1);
}

/// From a column, row or layer of the octree to that in its node set.
constexpr unsigned int SlabInNodeSet(unsigned int iSlab) {
    return iSlab & (kSlabs - 1);
}

/// For each axis, the cells of a set of slabs.
struct CellsOfSlabsTable {
    std::uint64_t cells[3][16];
    constexpr CellsOfSlabsTable() : cells() {
        for (unsigned int mask = 0; mask < 16; ++mask) {
            for (unsigned int cell = 0; cell < 64; ++cell) {
                for (unsigned int axis = 0; axis < 3; ++axis) {
                    const unsigned int isIn = mask >> SlabOfBit(cell, axis) & 1u;
                    cells[axis][mask] |= static_cast<std::uint64_t>(isIn) << cell;
                }
            }
        }
    }
};
inline constexpr CellsOfSlabsTable kCellsOfSlabs;

/// The cells that are in one of the columns, in one of the rows and in one of the layers.
inline std::uint64_t CellsOfSlabs(unsigned int iColumns, unsigned int iRows, unsigned int iLayers) {
    return kCellsOfSlabs.cells[0][iColumns] & kCellsOfSlabs.cells[1][iRows] &
           kCellsOfSlabs.cells[2][iLayers];
}

/// Exchanges each bit of a mask with the bit that is higher by a shift (delta swap: D. E. Knuth,
/// "The Art of Computer Programming", volume 4A, 7.1.3).
inline std::uint64_t SwapBits(std::uint64_t iBits, std::uint64_t iMask, unsigned int iShift) {
    const std::uint64_t change = (iBits ^ iBits >> iShift) & iMask;
    return iBits ^ change ^ change << iShift;
}

/// From a set of cells of a node set as above to the order of its leaf groups: bit 8 g + j is cell
/// j of leaf group g. This is the Morton order of the cells. A bit moves to the place whose number
/// has the bits of its own number in another order. Each step exchanges two of them, highest first:
///
///   z1 z0 y1 y0 x1 x0  ->  z1 z0 y1 x1 y0 x0  ->  z1 x1 y1 z0 y0 x0  ->  z1 y1 x1 z0 y0 x0
///
/// The mask of a step has the bits whose number has the lower one of the two set and the higher one
/// not.
inline std::uint64_t CellsByLeafGroup(std::uint64_t iCells) {
    iCells = SwapBits(iCells, 0x0C0C0C0C0C0C0C0Cu, 2);
    iCells = SwapBits(iCells, 0x0000F0F00000F0F0u, 12);
    return SwapBits(iCells, 0x0000FF000000FF00u, 8);
}

#endif
