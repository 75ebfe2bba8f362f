#ifndef OctreePicture_h
#define OctreePicture_h

#include "Projection.h"
#include "Status.h"

#include "PLMIdxIBaseOctree.h"

#include <cstdint>
#include <string>

/// What a sheet says about its part beside what the octree itself holds.
struct SheetFacts {
    std::string name;              ///< the title
    std::string source;            ///< where the mesh comes from
    std::uint64_t nTriangles = 0;  ///< triangles drawn
    std::uint64_t nSolid = 0;      ///< occupied cells of the last level
    std::uint64_t nInside = 0;     ///< those that no triangle touches
    UpAxis up = UpAxis::Z;
};

/// Draws an octree on one sheet: a shaded view of its cells, and the three slices through the
/// middle of what is occupied, with surface and inside told apart by colour, scale bars, axes and
/// facts. The time and memory it takes are bounded, whatever the depth (see VoxelGrid).
/// @param iOctree  a working octree that is filled
/// @param oPng     the sheet as the bytes of a PNG file
Status DrawSheet(const PLMIdxIBaseOctree& iOctree, const SheetFacts& iFacts, std::string& oPng);

#endif
