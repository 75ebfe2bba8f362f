#ifndef OutputFile_h
#define OutputFile_h

#include <cstddef>
#include <string>

/// Writes a whole file: first under a temporary name beside it, then renamed, so that under the final
/// name there is the old content or the new one, never a part of it.
/// @return empty, or the reason of the failure; nothing is left behind then
std::string WriteWholeFile(const std::string& iPath, const void* iBytes, std::size_t iSize);

#endif
