#ifndef FileSync_h
#define FileSync_h

#include "Status.h"

#include <string>

/// Forces a file, or the names in a folder, to the disk. A failure names the path.
Status SyncPath(const std::string& iPath);

#endif
