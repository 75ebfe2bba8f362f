#ifndef OctreeImageCheck_h
#define OctreeImageCheck_h

#include "PLMIdxIBaseOctree.h"

#include <cstddef>
#include <cstdint>
#include <string>

/// Whether bytes are an octree image as the library writes it: header, and every record in its place in the order
/// of the walk. From then on no walk over the image leaves it, and every walk ends.
/// docs/file-formats.md, "Octree image". Linear time, no memory.
/// @param iBytes      any alignment
/// @param iSize       bytes of the image
/// @param oOccupied   occupied cells of the last level
/// @return empty, or what is wrong
std::string CheckOctreeImage(
    const unsigned char* iBytes, std::size_t iSize, std::uint64_t& oOccupied);

#endif
