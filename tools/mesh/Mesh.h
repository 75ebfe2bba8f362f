#ifndef Mesh_h
#define Mesh_h

#include "Status.h"

#include "IDX_Point.h"
#include "IDX_Triangle.h"

#include <cstdint>
#include <string>
#include <vector>

/// One placed part: a node of a mesh file that carries triangles, in the coordinates of its scene.
struct MeshPart {
    std::string nodePath;                 ///< names of the nodes from the root, unique in the file
    std::vector<IDX_Point> points;        ///< every coordinate is finite
    std::vector<IDX_Triangle> triangles;  ///< indices below points.size()
    std::uint64_t nSkipped = 0;           ///< faces and triangles that can't be drawn
};

/// What became of one mesh file.
struct ImportedFile {
    std::uint64_t nParts = 0;        ///< 0 after a failure
    std::vector<std::string> notes;  ///< what the importer found odd about the geometry
    Status status;                   ///< why the file can't be used, if it can't
};

#endif
