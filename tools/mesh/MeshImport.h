#ifndef MeshImport_h
#define MeshImport_h

#include "Mesh.h"

#include <string>

/// True for a file name whose ending tells a mesh format that can be imported: STL, OBJ, PLY, glTF
/// and GLB, OFF, 3MF, each also packed as ".gz". Upper and lower case don't matter.
bool IsMeshFileName(const std::string& iPath);

/// True for the formats in which Z usually points upwards, as on machines and printers: STL and 3MF.
/// In the others it is Y.
bool IsZUpFileName(const std::string& iPath);

/// Imports a mesh file. Every node that carries meshes becomes a part, placed by its world transform;
/// polygons become triangles; equal vertices are joined.
///
/// A file is refused, with a reason and no parts, when it can't be read, holds no triangle, has an
/// index out of range or a number that the importer couldn't hold: nothing is silently repaired.
///
/// A hostile file may crash the importer, or hold it for ever: ImportInChild guards against this.
ImportedFile ImportMeshFile(const std::string& iPath);

#endif
