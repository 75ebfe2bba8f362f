#include "FileCalls.h"

#include <algorithm>
#include <cerrno>
#include <sys/resource.h>
#include <sys/types.h>
#include <unistd.h>

// One call may move fewer bytes than asked for, so each loop goes on with the rest.

std::size_t ReadFully(
    int iDescriptor, std::size_t iOffset, unsigned char* oData, std::size_t iSize, bool& oError) {
    std::size_t done = 0;
    while (done < iSize) {
        const ssize_t n =
            pread(iDescriptor, oData + done, iSize - done, static_cast<off_t>(iOffset + done));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) oError = true;
        if (n <= 0) break;  // 0: the file ends here
        done += static_cast<std::size_t>(n);
    }
    return done;
}

std::size_t WriteFully(
    int iDescriptor, std::size_t iOffset, const unsigned char* iData, std::size_t iSize) {
    std::size_t done = 0;
    while (done < iSize) {
        const ssize_t n =
            pwrite(iDescriptor, iData + done, iSize - done, static_cast<off_t>(iOffset + done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;  // an error; the caller sees it by the number of bytes
        done += static_cast<std::size_t>(n);
    }
    return done;
}

std::size_t AllowedFileEnd() {
    rlimit limit = {};
    if (getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) {
        return kEndOfOffsets;
    }
    return std::min<std::size_t>(limit.rlim_cur, kEndOfOffsets);
}
