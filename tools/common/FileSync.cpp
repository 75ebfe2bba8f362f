#include "FileSync.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

std::string SyncPath(const std::string& iPath) {
    const int file = open(iPath.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return iPath + ": " + std::strerror(errno);
    std::string failure = fsync(file) == 0 ? "" : iPath + ": " + std::strerror(errno);
    close(file);
    return failure;
}
