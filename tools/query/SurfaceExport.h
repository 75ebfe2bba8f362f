#ifndef SurfaceExport_h
#define SurfaceExport_h

#include "Pixels.h"
#include "Projection.h"
#include "Status.h"

#include "PLMIdxIBaseOctree.h"

#include <cstdio>
#include <functional>

/// One part whose surface is written.
struct ExportedPart {
    const PLMIdxIBaseOctree* octree;
    Colour colour;
    unsigned int number;  ///< of the part in the file
};

/// The parts that are written. Each may be asked for several times.
struct ExportedParts {
    std::size_t count;
    std::function<Status(std::size_t iNumber, ExportedPart& oPart)> get;  ///< from 0
};

/// Writes the outer faces of the occupied cells as a binary PLY file: four vertices with the colour
/// of their part for each face. Octrees deeper than VoxelGrid::kDeepest are taken down to that
/// level. Fails for more than 2^31 vertices and with a failure of ExportedParts::get. A failure of
/// the stream stays in the stream.
Status WritePly(const ExportedParts& iParts, std::FILE* ioFile);

/// The same as a legacy VTK file of polygons, big-endian, with the number of its part for each
/// face.
Status WriteVtk(const ExportedParts& iParts, std::FILE* ioFile);

#endif
