#ifndef ImportProcess_h
#define ImportProcess_h

#include "Mesh.h"

#include <string>

/// What the import of one file may use before it is given up.
struct ImportLimits {
    unsigned int memoryMiB = 4096;  ///< address space
    unsigned int seconds = 120;     ///< processor time
};

/// ImportMeshFile in a process of its own, so that a file on which the importer crashes, hangs or
/// runs out of memory is refused with a reason like any other. The calling process must have one
/// thread only.
ImportedFile ImportInChild(const std::string& iPath, const ImportLimits& iLimits);

#endif
