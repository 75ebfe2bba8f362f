#ifndef Mesh_h
#define Mesh_h

#include "IDX_Point.h"
#include "IDX_Triangle.h"

#include <filesystem>
#include <string>
#include <vector>

/// An indexed triangle mesh in model units.
struct Mesh {
    std::vector<IDX_Point> points;
    std::vector<IDX_Triangle> triangles;
};

/// The box of a grid: low corner and extents, the same on all axes.
struct GridBox {
    IDX_Point origin;
    IDX_Point size;
};

/// The cube that a whole-mesh build lays around a mesh of at least one triangle, every point of which is used:
/// the mesh in the middle, with a margin of a twentieth of a cell of the last level.
GridBox CubeAround(const Mesh& iMesh, unsigned int iDepth);

/// A mesh that every run can be given by its name.
struct Workload {
    std::string name;
    std::string origin;  ///< how it is made, or the file that it is read from
};

/// The workloads in the order of the tables, without those whose file isn't in the mesh folder.
/// @param iMeshFolder  searched with all its sub-folders; an empty path leaves all files out
std::vector<Workload> FindWorkloads(const std::filesystem::path& iMeshFolder);

/// Generates or reads the mesh of a workload. Throws std::runtime_error with file and reason.
Mesh MakeMesh(const Workload& iWorkload);

/// A mesh as its bytes are in memory, for handing it to another process of this build.
void SaveMesh(const Mesh& iMesh, const std::filesystem::path& iPath);
Mesh LoadMesh(const std::filesystem::path& iPath);

#endif
