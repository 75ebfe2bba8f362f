#ifndef ImportJob_h
#define ImportJob_h

#include "ChildProcess.h"
#include "Mesh.h"

#include <string>
#include <vector>

/// What the import of one file may use before it is given up.
struct ImportLimits {
    unsigned int memoryMiB = 4096;  ///< address space
    unsigned int seconds = 120;     ///< processor time
};

/// The work of a child that imports mesh files one after the other: its messages are for each an
/// ImportedFile, then its parts one by one.
ChildProcess::Work ImportWork(const std::vector<std::string>& iPaths, const ImportLimits& iLimits);

// The messages, at the other end. False for bytes that can't be from a sound import.

bool DecodeFile(const std::string& iMessage, ImportedFile& oFile);
bool DecodePart(const std::string& iMessage, MeshPart& oPart);

#endif
