#ifndef OctreeImage_h
#define OctreeImage_h

#include "CellStates.h"
#include "Damage.h"
#include "FinitePoint.h"
#include "UnalignedMemory.h"

#include "IDXOctreeType.h"
#include "IDX_Base_4x4Matrix.h"
#include "IDX_Base_Octree_TestResult.h"
#include "IDX_Point.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <type_traits>

// The stored octree image: an OctreeHeader, and after it the OctreeBuffer, an array of records of 8
// bytes. Host byte order. docs/file-formats.md, "Octree image".

/// Header of a stored octree. 132 bytes without gaps.
struct OctreeHeader {
    unsigned int type;                //   0   4  IDXOctreeType
    unsigned int version;             //   4   4  format word
    unsigned int depth;               //   8   4  levels below the root; 0 is the empty octree
    IDX_Point bbOrigin;               //  12  12  low corner of the box
    IDX_Point bbSize;                 //  24  12  extents of the box
    int hasCuboid;                    //  36   4  1 when a cuboid is set, else 0
    IDX_Base_4x4Matrix cuboidMatrix;  //  40  64  its matrix, row by row
    IDX_Point cuboidPoint1;           // 104  12  its first point
    IDX_Point cuboidPoint2;           // 116  12  its second point
    unsigned int size;                // 128   4  bytes of the OctreeBuffer
};
constexpr unsigned int kOctreeHeaderSize = 132;
static_assert(sizeof(OctreeHeader) == kOctreeHeaderSize, "octree image: OctreeHeader");
static_assert(
    offsetof(OctreeHeader, depth) == 8 && offsetof(OctreeHeader, bbOrigin) == 12 &&
        offsetof(OctreeHeader, bbSize) == 24 && offsetof(OctreeHeader, hasCuboid) == 36 &&
        offsetof(OctreeHeader, cuboidMatrix) == 40 && offsetof(OctreeHeader, cuboidPoint1) == 104 &&
        offsetof(OctreeHeader, cuboidPoint2) == 116 && offsetof(OctreeHeader, size) == 128,
    "octree image: OctreeHeader");
static_assert(std::is_trivially_copyable<OctreeHeader>::value, "octree image: header is bytes");

constexpr unsigned int kOctreeImageVersion = 1;
constexpr unsigned int kDeepestOctreeImage = 19;  ///< the library builds no octree of more levels

/// Record of a cell that is three or more levels above the bottom. 8 bytes. The records of its
/// partial children follow each other in rising number of the child: its child set.
struct NodeOptim {
    unsigned short states;    //  0  2  state of child k in bits 2k and 2k+1
    unsigned short reserved;  //  2  2  zero
    unsigned int childSet;    //  4  4  offset of the first partial child's record, 0 when none
};
constexpr unsigned int kCompactRecordSize = 8;
static_assert(
    sizeof(NodeOptim) == kCompactRecordSize && offsetof(NodeOptim, childSet) == 4,
    "octree image: NodeOptim");
static_assert(std::is_trivially_copyable<NodeOptim>::value, "octree image: NodeOptim is bytes");

/// Record of a cell two levels above the bottom: one byte for each of its 8 leaf groups. 8 bytes.
struct NodeSetOptim {
    unsigned char groups[8];  //  0  8  leaf group k: bit j is cell j of the last level
};
static_assert(sizeof(NodeSetOptim) == kCompactRecordSize, "octree image: NodeSetOptim");

/// The bytes of leaf groups that are wholly empty or wholly full. Any other group is subdivided.
constexpr unsigned char kEmptyGroupByte = 0;
constexpr unsigned char kFullGroupByte = 255;

inline IDX_Base_Octree_TestResult StateOfGroupByte(unsigned char iByte) {
    if (iByte == kEmptyGroupByte) return OCTREE_EMPTY;
    return iByte == kFullGroupByte ? OCTREE_FULL : OCTREE_PARTIAL;
}

/// A cell of an octree image that isn't empty: the root, or a child of such a cell.
struct OctreeCell {
    unsigned int x;  ///< place among the cells of its level, from 0 at the box's low corner
    unsigned int y;
    unsigned int z;
    unsigned int level;   ///< levels below the root: its sides are those of the box / 2^level
    bool isFull;          ///< occupied as a whole; else some of its children may be
    unsigned int record;  ///< offset of its record or leaf group; means nothing in a full cell
};

/// The corners of a cell.
struct OctreeCellBox {
    double low[3];  ///< x, y, z
    double high[3];
};

/// A view of an octree image, for reading in place: nothing is parsed or copied. Check an image
/// that comes from a file with Check() first. In a checked image no walk leaves the image, and
/// every walk ends.
///
///     const OctreeImage octree(bytes);
///     octree.ForEachOccupied([&](const OctreeCell& cell) { Use(octree.BoxOf(cell)); });
class OctreeImage {
public:
    /// @param iBytes  the first byte of the header, at any alignment. Stays the caller's and must
    ///                outlive this object.
    explicit OctreeImage(const unsigned char* iBytes)
        : _records(iBytes + kOctreeHeaderSize), _header(LoadAt<OctreeHeader>(iBytes, 0)) {}

    /// Checks whether bytes are an image as the library writes it: the header, and each record in
    /// its place in the order of the walk. Linear time, no memory.
    /// @param iSize      bytes of the image
    /// @param oOccupied  number of occupied cells of the last level
    static Damage Check(const unsigned char* iBytes, std::size_t iSize, std::uint64_t& oOccupied);

    const OctreeHeader& Header() const { return _header; }
    unsigned int Depth() const { return _header.depth; }

    /// The octree as one cell. isFull is false, even when all of it is occupied.
    OctreeCell Root() const { return {0, 0, 0, 0, false, 0}; }

    /// Calls `iVisit(child)` for each child that isn't empty, in rising number.
    /// @param iCell  a cell that isn't full
    template <class Visit>
    void ForEachChild(const OctreeCell& iCell, const Visit& iVisit) const {
        for (unsigned int number = 0; number < kChildren; ++number) {
            OctreeCell child = {
                2 * iCell.x + HalfOf(number, 0),
                2 * iCell.y + HalfOf(number, 1),
                2 * iCell.z + HalfOf(number, 2),
                iCell.level + 1,
                false,
                0};
            const unsigned int state = EnterChild(iCell, number, child.record);
            child.isFull = state == OCTREE_FULL;
            if (state != OCTREE_EMPTY) iVisit(child);
        }
    }

    /// Calls `iVisit(cell)` for each full cell, at the level on which it is stored. The cells touch
    /// but don't overlap, and together they are all that is occupied. Depth first, children in
    /// rising number.
    template <class Visit>
    void ForEachOccupied(const Visit& iVisit) const {
        if (Depth() != 0) ForEachOccupied(Root(), iVisit);
    }

    /// The same below a cell that isn't full.
    template <class Visit>
    void ForEachOccupied(const OctreeCell& iCell, const Visit& iVisit) const {
        ForEachChild(iCell, [&](const OctreeCell& child) {
            if (child.isFull) {
                iVisit(child);
            } else {
                ForEachOccupied(child, iVisit);
            }
        });
    }

    /// Number of occupied cells of the last level.
    std::uint64_t CountOccupied() const { return Depth() == 0 ? 0 : CountBelow(0, Depth()); }

    /// Whether the cell at a place of the last level is occupied. Goes down from the root.
    bool IsOccupied(unsigned int iX, unsigned int iY, unsigned int iZ) const {
        OctreeCell cell = Root();
        for (unsigned int below = Depth(); below-- > 0;) {
            const unsigned int number = ChildNumber(iX >> below, iY >> below, iZ >> below);
            const unsigned int state = EnterChild(cell, number, cell.record);
            if (state != OCTREE_PARTIAL) return state == OCTREE_FULL;
            ++cell.level;
        }
        return false;
    }

    /// The corners of a cell, in model units and in double precision.
    OctreeCellBox BoxOf(const OctreeCell& iCell) const {
        OctreeCellBox box;
        GetRange(iCell.x, iCell.level, _header.bbOrigin.x, _header.bbSize.x, box, 0);
        GetRange(iCell.y, iCell.level, _header.bbOrigin.y, _header.bbSize.y, box, 1);
        GetRange(iCell.z, iCell.level, _header.bbOrigin.z, _header.bbSize.z, box, 2);
        return box;
    }

private:
    /// The two sides of a cell along one axis.
    static void GetRange(
        unsigned int iPlace,
        unsigned int iLevel,
        float iOrigin,
        float iExtent,
        OctreeCellBox& oBox,
        unsigned int iAxis) {
        const double side = std::ldexp(double{iExtent}, -static_cast<int>(iLevel));
        oBox.low[iAxis] = double{iOrigin} + side * iPlace;
        oBox.high[iAxis] = double{iOrigin} + side * (iPlace + 1.0);
    }

    /// Number of occupied cells of the last level in the cell of a record. A full child has 8 to
    /// the power of the levels below it.
    /// @param iLevels  levels below that cell, 2 or more
    std::uint64_t CountBelow(unsigned int iRecord, unsigned int iLevels) const {
        if (iLevels == 2) return CountBits(LoadAt<std::uint64_t>(_records, iRecord));
        const auto node = LoadAt<NodeOptim>(_records, iRecord);
        std::uint64_t count = std::uint64_t{CountBits(FullChildren(node.states))}
                              << 3 * (iLevels - 1);
        const unsigned int nChildren = CountBits(PartialChildren(node.states));
        for (unsigned int child = 0; child < nChildren; ++child) {
            count += CountBelow(node.childSet + child * kCompactRecordSize, iLevels - 1);
        }
        return count;
    }

    /// State of a child. For a partial child also the offset of its record.
    unsigned int EnterChild(
        const OctreeCell& iCell, unsigned int iNumber, unsigned int& oRecord) const {
        switch (Depth() - iCell.level) {
            case 1:
                return _records[iCell.record] >> iNumber & 1U ? OCTREE_FULL : OCTREE_EMPTY;
            case 2:
                oRecord = iCell.record + iNumber;
                return StateOfGroupByte(_records[oRecord]);
            default:
                break;
        }
        const auto node = LoadAt<NodeOptim>(_records, iCell.record);
        oRecord = node.childSet + kCompactRecordSize * CountPartialBefore(node.states, iNumber);
        return StateOf(node.states, iNumber);
    }

    const unsigned char* _records;
    OctreeHeader _header;
};

namespace octree_image_check {

/// Whether a header is sound and fits the number of bytes of records that follow it.
inline Damage CheckHeader(const OctreeHeader& iHeader, std::size_t iRecordSize) {
    const IDX_Point& extents = iHeader.bbSize;
    const std::size_t smallest = iHeader.depth == 0 ? 0 : kCompactRecordSize;
    if (iHeader.type != IDX_OPTIM_OCTREE_0) return Damage("another type of octree");
    if (iHeader.version != kOctreeImageVersion) return Damage("another version");
    if (iHeader.depth == 1 || iHeader.depth > kDeepestOctreeImage) {
        return Damage("depth out of range");
    }
    if (!HasFiniteCoordinates(iHeader.bbOrigin) || !HasFiniteCoordinates(extents))
        return Damage("box not finite");
    if (extents.x < 0 || extents.y < 0 || extents.z < 0) return Damage("box inside out");
    if (iHeader.size != iRecordSize) return Damage("header tells another length");
    if (iRecordSize % kCompactRecordSize != 0 || iRecordSize < smallest) {
        return Damage("length not that of whole records");
    }
    if (iHeader.depth <= 2 && iRecordSize != smallest) {
        return Damage("length not that of its depth");
    }
    return {};
}

/// Walks the records in the order in which they were written. Each child set must begin where the
/// one before it ended. So no record is shared, missing or left over, and no walk goes in a circle.
struct RecordWalk {
    const unsigned char* records;
    std::size_t size;
    std::size_t next;         ///< where the next child set belongs
    std::uint64_t nOccupied;  ///< cells of the last level

    /// @param iLevels  levels below the record's cell, 2 or more
    bool Visit(std::size_t iRecord, unsigned int iLevels) {
        if (iLevels == 2) {
            nOccupied += CountBits(LoadAt<std::uint64_t>(records, iRecord));
            return true;
        }
        const auto node = LoadAt<NodeOptim>(records, iRecord);
        const unsigned int partial = node.states & kLowBits;
        const unsigned int full = (node.states & kHighBits) >> 1;
        if ((partial & full) != 0 || node.reserved != 0) return false;  // OCTREE_SURFACE
        nOccupied += std::uint64_t{CountBits(full)} << 3 * (iLevels - 1);
        const std::size_t nChildren = CountBits(partial);
        if (nChildren == 0) return node.childSet == 0;
        if (node.childSet != next || nChildren * kCompactRecordSize > size - next) return false;
        next += nChildren * kCompactRecordSize;
        for (std::size_t child = 0; child < nChildren; ++child) {
            if (!Visit(node.childSet + child * kCompactRecordSize, iLevels - 1)) return false;
        }
        return true;
    }
};

}  // namespace octree_image_check

inline Damage OctreeImage::Check(
    const unsigned char* iBytes, std::size_t iSize, std::uint64_t& oOccupied) {
    oOccupied = 0;
    if (iSize < kOctreeHeaderSize) return Damage("shorter than its header");
    const auto header = LoadAt<OctreeHeader>(iBytes, 0);
    const std::size_t size = iSize - kOctreeHeaderSize;
    Damage damage = octree_image_check::CheckHeader(header, size);
    if (damage || header.depth == 0) return damage;
    octree_image_check::RecordWalk walk = {iBytes + kOctreeHeaderSize, size, kCompactRecordSize, 0};
    if (!walk.Visit(0, header.depth) || walk.next != size) {
        return Damage("records don't fit together");
    }
    oOccupied = walk.nOccupied;
    return {};
}

#endif
