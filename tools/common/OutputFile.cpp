#include "OutputFile.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

Status WriteAll(int iFile, const char* iBytes, std::size_t iSize) {
    while (iSize > 0) {
        const ssize_t nWritten = write(iFile, iBytes, iSize);
        if (nWritten < 0 && errno == EINTR) continue;
        if (nWritten < 0) return Status::System(errno);
        iBytes += nWritten;
        iSize -= static_cast<std::size_t>(nWritten);
    }
    return {};
}

/// A full disk may only show when the bytes are forced out or the file is closed: both are asked,
/// and the first failure counts.
Status WriteNewFile(const std::string& iPath, const void* iBytes, std::size_t iSize) {
    constexpr mode_t kReadableByAll = 0666;  // less what the user's mask takes away
    const int file = open(iPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kReadableByAll);
    if (file < 0) return Status::System(errno);
    Status status = WriteAll(file, static_cast<const char*>(iBytes), iSize);
    if (!status.Failed() && fsync(file) != 0) status = Status::System(errno);
    if (close(file) != 0 && !status.Failed()) status = Status::System(errno);
    return status;
}

/// The same for a stream.
Status WriteNewFile(const std::string& iPath, const std::function<Status(std::FILE*)>& iWrite) {
    std::FILE* file = std::fopen(iPath.c_str(), "wbe");
    if (file == nullptr) return Status::System(errno);
    Status status = iWrite(file);
    if (!status.Failed()) {
        const bool isWritten = std::fflush(file) == 0 && std::ferror(file) == 0;
        if (!isWritten || fsync(fileno(file)) != 0) status = Status::System(errno);
    }
    if (std::fclose(file) != 0 && !status.Failed()) status = Status::System(errno);
    return status;
}

/// Writes under a temporary name, and then gives the file its own name.
template <class Write>
Status WriteBeside(const std::string& iPath, const Write& iWrite) {
    const std::string temporary = iPath + ".tmp";
    Status status = iWrite(temporary);
    if (!status.Failed() && rename(temporary.c_str(), iPath.c_str()) != 0) {
        status = Status::System(errno);
    }
    if (status.Failed()) (void)unlink(temporary.c_str());  // it may not be there
    return status;
}

}  // namespace

Status WriteWholeFile(const std::string& iPath, const void* iBytes, std::size_t iSize) {
    return WriteBeside(iPath, [&](const std::string& temporary) {
        return WriteNewFile(temporary, iBytes, iSize);
    });
}

Status WriteWholeFile(const std::string& iPath, const std::function<Status(std::FILE*)>& iWrite) {
    return WriteBeside(
        iPath, [&](const std::string& temporary) { return WriteNewFile(temporary, iWrite); });
}
