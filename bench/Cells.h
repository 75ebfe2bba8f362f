#ifndef Cells_h
#define Cells_h

#include <cstdint>
#include <span>

/// A cell of the last level.
struct Cell {
    uint32_t x, y, z;
};

/// Child number, `iLevel` levels above the bottom, on the way to a cell.
inline unsigned int ChildOf(const Cell& iCell, unsigned int iLevel) {
    return (iCell.x >> iLevel & 1) | (iCell.y >> iLevel & 1) << 1 | (iCell.z >> iLevel & 1) << 2;
}

/// FNV-1a, 64 bits (Fowler, Noll, Vo).
inline uint64_t HashOf(std::span<const unsigned char> iBytes) {
    uint64_t hash = 14695981039346656037ull;
    for (const unsigned char byte : iBytes) hash = (hash ^ byte) * 1099511628211ull;
    return hash;
}

#endif
