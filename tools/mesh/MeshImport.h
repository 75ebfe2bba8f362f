#ifndef MeshImport_h
#define MeshImport_h

#include "Mesh.h"

#include <string>

/// True for a file name whose ending is that of a mesh format that can be imported: STL, OBJ, PLY,
/// glTF and GLB, OFF, 3MF, each also packed as ".gz". Upper and lower case don't matter.
bool IsMeshFileName(const std::string& iPath);

/// True for the formats in which Z usually points upwards, as on machines and printers: STL and
/// 3MF. In the others it is Y.
bool IsZUpFileName(const std::string& iPath);

/// Receives what a mesh file holds, piece by piece.
class MeshReceiver {
public:
    MeshReceiver() = default;
    MeshReceiver(const MeshReceiver&) = delete;
    MeshReceiver& operator=(const MeshReceiver&) = delete;
    virtual ~MeshReceiver() = default;

    /// Called once, first.
    virtual void ReceiveFile(const ImportedFile& iFile) = 0;

    /// Called for each part, in the order of the scene's nodes.
    virtual void ReceivePart(const MeshPart& iPart) = 0;
};

/// Imports a mesh file. Every node that carries meshes becomes a part, placed by its world
/// transform; polygons become triangles; equal vertices are joined.
///
/// The path of a node is made of the names from the root down, with '/' between them:
/// "root/arm/bolt". A node without a name is called after its number among its siblings, as in
/// "node2". A path that comes again ends with "~2", "~3", ...
///
/// A file is refused, with a reason and no parts, when it can't be read, holds no triangle, has an
/// index out of range or a number that the importer couldn't hold: nothing is silently repaired.
///
/// A hostile file may crash the importer, or hold it for ever: call this in a child process.
/// std::bad_alloc may come out after the first call back, when there is no memory left.
void ImportMeshFile(const std::string& iPath, MeshReceiver& ioReceiver);

#endif
