#include "FileSync.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

Status SyncPath(const std::string& iPath) {
    const int file = open(iPath.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return Status::System(errno).In(iPath);
    const Status status = fsync(file) == 0 ? Status() : Status::System(errno).In(iPath);
    close(file);
    return status;
}
