#ifndef OctreeImage_h
#define OctreeImage_h

#include "IDX_Base_4x4Matrix.h"
#include "IDX_Point.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

// The stored octree image as the benchmarks read and write it by themselves, without the library.
// docs/file-formats.md, "Octree image".

/// Header of a stored octree; the records follow it.
struct ImageHeader {
    uint32_t type = 2;
    uint32_t version = 1;
    uint32_t depth = 0;
    IDX_Point bbOrigin{};
    IDX_Point bbSize{};
    uint32_t hasCuboid = 0;
    IDX_Base_4x4Matrix cuboidMatrix;
    IDX_Point cuboidPoints[2]{};
    uint32_t size = 0;  ///< bytes of the records
};
static_assert(
    sizeof(ImageHeader) == 132 && offsetof(ImageHeader, size) == 128, "octree image: header");

constexpr size_t kRecordSize = 8;

/// Record of a cell three or more levels above the bottom.
struct NodeRecord {
    uint16_t states;  ///< of child k in bits 2k and 2k+1
    uint16_t reserved;
    uint32_t childSet;  ///< offset of the first partial child's record
};
static_assert(sizeof(NodeRecord) == kRecordSize, "octree image: node");

/// States of a cell as they stand in a node record.
enum CellState : unsigned int { kEmpty = 0, kPartial = 1, kFull = 2 };

/// A cell of the last level.
struct Cell {
    uint32_t x, y, z;
};

/// Child number, `iLevel` levels above the bottom, on the way to a cell.
inline unsigned int ChildOf(const Cell& iCell, unsigned int iLevel) {
    return (iCell.x >> iLevel & 1) | (iCell.y >> iLevel & 1) << 1 | (iCell.z >> iLevel & 1) << 2;
}

/// A stored octree of depth 3 or more, walked where it lies by plain code: no virtual calls, no
/// iterator objects.
class OctreeImage {
public:
    explicit OctreeImage(std::span<const unsigned char> iImage)
        : _records(iImage.data() + sizeof(ImageHeader)) {
        std::memcpy(&_depth, iImage.data() + offsetof(ImageHeader, depth), sizeof _depth);
    }

    unsigned int Depth() const { return _depth; }

    /// Looks a cell of the last level up, from the root.
    bool IsOccupied(const Cell& iCell) const {
        uint32_t offset = 0;
        for (unsigned int level = _depth - 1; level >= 2; level--) {
            const NodeRecord node = Node(offset);
            const unsigned int shift = 2 * ChildOf(iCell, level);
            const unsigned int state = node.states >> shift & 3;
            if (state != kPartial) return state == kFull;
            offset = ChildRecord(node, shift);
        }
        return _records[offset + ChildOf(iCell, 1)] >> ChildOf(iCell, 0) & 1;
    }

    /// Calls `iVisit(corner, level)` for every full cell that isn't part of a larger one: the cell of
    /// the last level at its low corner, and its side as 2^level cells.
    template <class Visit>
    void VisitFull(const Visit& iVisit) const {
        VisitNode(0, _depth - 1, {0, 0, 0}, iVisit);
    }

    /// Number of occupied cells of the last level.
    uint64_t CountOccupied() const {
        uint64_t count = 0;
        VisitFull([&count](const Cell&, unsigned int iLevel) { count += 1ull << 3 * iLevel; });
        return count;
    }

private:
    NodeRecord Node(uint32_t iOffset) const {
        NodeRecord node;
        std::memcpy(&node, _records + iOffset, sizeof node);
        return node;
    }

    /// Offset of the record of the partial child at bits `iShift`: those before it are counted.
    static uint32_t ChildRecord(const NodeRecord& iNode, unsigned int iShift) {
        const unsigned int before = iNode.states & ((1u << iShift) - 1);
        const unsigned int partial = before & ~(before >> 1) & 0x5555u;
        return iNode.childSet +
               static_cast<uint32_t>(kRecordSize) * static_cast<uint32_t>(std::popcount(partial));
    }

    static Cell ChildCorner(const Cell& iCorner, unsigned int iChild, unsigned int iLevel) {
        return {
            iCorner.x + ((iChild & 1) << iLevel), iCorner.y + ((iChild >> 1 & 1) << iLevel),
            iCorner.z + ((iChild >> 2 & 1) << iLevel)};
    }

    /// @param iLevel  of the node's children above the bottom, 2 or more
    template <class Visit>
    void VisitNode(
        uint32_t iOffset, unsigned int iLevel, const Cell& iCorner, const Visit& iVisit) const {
        const NodeRecord node = Node(iOffset);
        for (unsigned int child = 0; child < 8; child++) {
            const unsigned int state = node.states >> 2 * child & 3;
            const Cell corner = ChildCorner(iCorner, child, iLevel);
            if (state == kFull) iVisit(corner, iLevel);
            if (state != kPartial) continue;
            const uint32_t record = ChildRecord(node, 2 * child);
            if (iLevel > 2) {
                VisitNode(record, iLevel - 1, corner, iVisit);
            } else {
                VisitNodeSet(_records + record, corner, iVisit);
            }
        }
    }

    template <class Visit>
    static void VisitNodeSet(
        const unsigned char* iGroups, const Cell& iCorner, const Visit& iVisit) {
        for (unsigned int bit = 0; bit < 64; bit++) {
            const unsigned char group = iGroups[bit / 8];
            const Cell corner = ChildCorner(iCorner, bit / 8, 1);
            if (group == 255 && bit % 8 == 0) iVisit(corner, 1u);
            if (group != 255 && (group >> bit % 8 & 1)) iVisit(ChildCorner(corner, bit % 8, 0), 0u);
        }
    }

    const unsigned char* _records;
    unsigned int _depth = 0;
};

/// FNV-1a, 64 bits (Fowler, Noll, Vo).
inline uint64_t HashOf(std::span<const unsigned char> iBytes) {
    uint64_t hash = 14695981039346656037ull;
    for (const unsigned char byte : iBytes) hash = (hash ^ byte) * 1099511628211ull;
    return hash;
}

#endif
