#ifndef PartTreeCheck_h
#define PartTreeCheck_h

#include <cstddef>
#include <string>
#include <vector>

/// Whether a file is an identifier tree as PartTree writes it: nodes of one depth, identifiers that rise, and every
/// byte of the file in exactly one node or item. docs/file-formats.md, "Identifier tree file".
/// @param oItems  where the records stand, in rising order of their identifiers
/// @return empty, or what is wrong
std::string CheckPartTree(
    const unsigned char* iBytes, std::size_t iSize, std::vector<unsigned int>& oItems);

#endif
