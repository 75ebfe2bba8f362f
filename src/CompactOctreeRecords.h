#ifndef CompactOctreeRecords_h
#define CompactOctreeRecords_h

#include "IDX_Base_4x4Matrix.h"
#include "IDX_Base_Octree_TestResult.h"
#include "IDX_Point.h"
#include "PLMIdxIBaseOctree.h"

#include <cstddef>
#include <type_traits>

// The stored octree image: an OctreeHeader, and directly behind it the OctreeBuffer, an array of
// 8-byte records. Host byte order. docs/file-formats.md, "Octree image".

/// Header of a stored octree. 132 bytes without gaps.
struct OctreeHeader {
    unsigned int type;                //   0   4  IDXOctreeType
    unsigned int version;             //   4   4  format word
    unsigned int depth;               //   8   4  levels below the root
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

/// Passes what a header and an octree both say to `iCopy`, pair by pair, the header's first. The type and the
/// records aren't among them.
template <class Header, class Octree, class Copy>
void ForEachSharedField(Header& ioHeader, Octree& ioOctree, const Copy& iCopy) {
    iCopy(ioHeader.version, ioOctree._version);
    iCopy(ioHeader.depth, ioOctree._depth);
    iCopy(ioHeader.bbOrigin, ioOctree._bbOrigin);
    iCopy(ioHeader.bbSize, ioOctree._bbSize);
    iCopy(ioHeader.hasCuboid, ioOctree._hasCuboid);
    iCopy(ioHeader.cuboidMatrix, ioOctree._cuboidMatrix);
    iCopy(ioHeader.cuboidPoint1, ioOctree._cuboidPoint1);
    iCopy(ioHeader.cuboidPoint2, ioOctree._cuboidPoint2);
}

/// The header of an octree's image.
/// @param iSize  bytes of its records
inline OctreeHeader HeaderOf(const PLMIdxIBaseOctree& iOctree, unsigned int iSize) {
    OctreeHeader header = {};
    header.type = iOctree._type;
    header.size = iSize;
    ForEachSharedField(header, iOctree, [](auto& oTo, const auto& iFrom) { oTo = iFrom; });
    return header;
}

/// Gives an octree what the header says of it; its type and its records are the caller's concern.
inline void TakeHeader(PLMIdxIBaseOctree& ioOctree, const OctreeHeader& iHeader) {
    ForEachSharedField(iHeader, ioOctree, [](const auto& iFrom, auto& oTo) { oTo = iFrom; });
}

/// Record of a cell that lies three or more levels above the bottom. 8 bytes.
struct NodeOptim {
    unsigned short states;    //  0  2  state of child k in bits 2k and 2k+1
    unsigned short reserved;  //  2  2  zero
    unsigned int childSet;    //  4  4  offset of the first partial child's record, 0 when none
};
static_assert(
    sizeof(NodeOptim) == 8 && offsetof(NodeOptim, childSet) == 4, "octree image: NodeOptim");
static_assert(std::is_trivially_copyable<NodeOptim>::value, "octree image: NodeOptim is bytes");

/// Record of a cell two levels above the bottom: one byte for each of its 8 leaf groups. 8 bytes.
struct NodeSetOptim {
    unsigned char groups[8];  //  0  8  leaf group k: bit j is cell j of the last level
};
static_assert(sizeof(NodeSetOptim) == 8, "octree image: NodeSetOptim");

constexpr unsigned int kCompactRecordSize = 8;

/// Bytes of leaf groups that are one cell as a whole; any other is subdivided.
constexpr unsigned char kEmptyGroupByte = 0;
constexpr unsigned char kFullGroupByte = 255;

inline IDX_Base_Octree_TestResult StateOfGroupByte(unsigned char iByte) {
    if (iByte == kEmptyGroupByte) return OCTREE_EMPTY;
    return iByte == kFullGroupByte ? OCTREE_FULL : OCTREE_PARTIAL;
}

#endif
