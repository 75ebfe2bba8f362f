#ifndef MeshBytes_h
#define MeshBytes_h

#include "Status.h"

#include <string>

/// Reads a whole file into memory, unpacked when it is a gzip file.
/// Fails when it can't be opened, is damaged or is cut short.
Status ReadBytes(const std::string& iPath, std::string& oBytes);

/// True for a binary glTF file with a chunk whose length isn't a multiple of 4. Such files are
/// common though the format forbids them; the importer takes them for something else.
bool HasUnalignedChunk(const std::string& iPath);

/// Pads every chunk of a binary glTF file to a multiple of 4 bytes. What can't be read as chunks
/// stays as it is.
std::string AlignChunks(const std::string& iGlb);

#endif
