#ifndef Dump_h
#define Dump_h

#include "formats/Damage.h"

#include <cstddef>
#include <string>

/// Prints a file of an index field by field: octree images of a piece, boxes, identifiers, or a
/// redirecting file. The content says which it is. Each is checked before it is printed.
/// @return what is wrong with the file; nothing but what is before the damage is printed then
Damage DumpFile(
    const std::string& iPath, const unsigned char* iBytes, std::size_t iSize, bool iAsJson);

#endif
