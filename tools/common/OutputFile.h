#ifndef OutputFile_h
#define OutputFile_h

#include "Status.h"

#include <cstddef>
#include <cstdio>
#include <functional>
#include <string>

// A whole file is written under a temporary name beside it, forced to the disk, and then renamed:
// under the final name there is the old content or the new one, never a part of it. After a
// failure, which doesn't name the file, the temporary file is gone.

Status WriteWholeFile(const std::string& iPath, const void* iBytes, std::size_t iSize);

/// The same for a file that is written bit by bit.
/// @param iWrite  writes all of it; it needn't look for failures of the stream
Status WriteWholeFile(const std::string& iPath, const std::function<Status(std::FILE*)>& iWrite);

#endif
