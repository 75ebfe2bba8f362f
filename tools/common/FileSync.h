#ifndef FileSync_h
#define FileSync_h

#include <string>

/// Forces a file, or the names in a folder, to the disk.
/// @return empty, or the path and the reason of the failure
std::string SyncPath(const std::string& iPath);

#endif
