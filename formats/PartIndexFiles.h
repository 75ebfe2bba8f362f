#ifndef PartIndexFiles_h
#define PartIndexFiles_h

#include "IDX_Base_BoundingBox.h"

#include <cstddef>
#include <cstdint>

// The files of a part index, in the live sub-directory of an index directory.
// docs/file-formats.md, "Part index".

constexpr char kOctreesName[] = "Octrees";  ///< base of a split file: an octree image for each part
constexpr char kBoxesName[] = "Boxes";      ///< one R-tree image at offset 0
constexpr char kPartsName[] = "Parts";      ///< an identifier tree

/// The record of one part in the identifier tree. 48 bytes.
struct PartRecord {
    std::uint32_t octreePiece;    //  0  4  piece of the octrees that holds the image
    std::uint32_t octreeOffset;   //  4  4  of the image in that piece
    std::uint32_t octreeSize;     //  8  4  bytes of the image
    std::uint32_t nTriangles;     // 12  4  triangles of the mesh
    IDX_Base_BoundingBox box;     // 16 24  of all points of the triangles
    std::uint32_t nOccupiedLow;   // 40  4  occupied cells of the last level: low half ...
    std::uint32_t nOccupiedHigh;  // 44  4  ... and high half

    std::uint64_t CountOccupied() const {
        return std::uint64_t{nOccupiedHigh} << 32U | nOccupiedLow;
    }
};
static_assert(sizeof(PartRecord) == 48 && offsetof(PartRecord, box) == 16, "part index: record");
static_assert(offsetof(PartRecord, nOccupiedLow) == 40, "part index: record");

/// The part index's own fields in the identifier tree's manifest, after its first 8 bytes. 8 bytes.
struct PartsManifest {
    std::uint32_t format;  // 0  4  kPartsFormat
    std::uint32_t nParts;  // 4  4  parts in the index
};
static_assert(sizeof(PartsManifest) == 8, "part index: manifest");

constexpr std::uint32_t kPartsFormat = 1;

#endif
