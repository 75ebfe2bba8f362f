#ifndef CompactOctreeRecords_h
#define CompactOctreeRecords_h

#include "PLMIdxIBaseOctree.h"

#include "formats/OctreeImage.h"

// An octree and the header of its image have the same fields but for the type and the length.

/// Calls `iCopy(header's field, octree's field)` for each field that both have.
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

/// Sets the fields of an octree to those of a header. The caller sets its records.
inline void ApplyHeader(const OctreeHeader& iHeader, PLMIdxIBaseOctree& ioOctree) {
    ForEachSharedField(iHeader, ioOctree, [](const auto& iFrom, auto& oTo) { oTo = iFrom; });
}

#endif
