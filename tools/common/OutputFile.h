#ifndef OutputFile_h
#define OutputFile_h

#include <cstddef>
#include <cstdio>
#include <functional>
#include <string>

/// Writes a whole file: first under a temporary name beside it, then renamed, so that under the final
/// name there is the old content or the new one, never a part of it.
/// @return empty, or the reason of the failure; nothing is left behind then
std::string WriteWholeFile(const std::string& iPath, const void* iBytes, std::size_t iSize);

/// The same for a file that is written bit by bit.
/// @param iWrite  false when it can't be written, with the reason in errno
std::string WriteWholeFile(const std::string& iPath, const std::function<bool(std::FILE*)>& iWrite);

#endif
