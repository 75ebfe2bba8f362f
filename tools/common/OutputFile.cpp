#include "OutputFile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool WriteAll(int iFile, const char* iBytes, std::size_t iSize) {
    while (iSize > 0) {
        const ssize_t nWritten = write(iFile, iBytes, iSize);
        if (nWritten < 0 && errno == EINTR) continue;
        if (nWritten < 0) return false;
        iBytes += nWritten;
        iSize -= static_cast<std::size_t>(nWritten);
    }
    return true;
}

/// A full disk may only show when the bytes are forced out or the file is closed.
bool WriteNewFile(const std::string& iPath, const void* iBytes, std::size_t iSize) {
    constexpr mode_t kReadableByAll = 0666;  // less what the user's mask takes away
    const int file = open(iPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kReadableByAll);
    if (file < 0) return false;
    const bool written =
        WriteAll(file, static_cast<const char*>(iBytes), iSize) && fsync(file) == 0;
    const int error = errno;
    const bool closed = close(file) == 0;
    if (!written) errno = error;
    return written && closed;
}

bool WriteNewFile(const std::string& iPath, const std::function<bool(std::FILE*)>& iWrite) {
    std::FILE* file = std::fopen(iPath.c_str(), "wbe");
    if (file == nullptr) return false;
    const bool written = iWrite(file) && std::fflush(file) == 0 && fsync(fileno(file)) == 0;
    const int error = errno;
    const bool closed = std::fclose(file) == 0;
    if (!written) errno = error;
    return written && closed;
}

/// Calls a function with a temporary name, and gives the file its own name behind it.
template <class Write>
std::string WriteBeside(const std::string& iPath, const Write& iWrite) {
    const std::string temporary = iPath + ".tmp";
    if (iWrite(temporary) && rename(temporary.c_str(), iPath.c_str()) == 0) return {};
    std::string reason = std::strerror(errno);
    (void)unlink(temporary.c_str());  // it may not be there
    return reason;
}

}  // namespace

std::string WriteWholeFile(const std::string& iPath, const void* iBytes, std::size_t iSize) {
    return WriteBeside(iPath, [&](const std::string& temporary) {
        return WriteNewFile(temporary, iBytes, iSize);
    });
}

std::string WriteWholeFile(
    const std::string& iPath, const std::function<bool(std::FILE*)>& iWrite) {
    return WriteBeside(
        iPath, [&](const std::string& temporary) { return WriteNewFile(temporary, iWrite); });
}
