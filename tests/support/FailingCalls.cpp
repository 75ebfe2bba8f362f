#include "FailingCalls.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

FailingCalls failingCalls;

std::size_t BytesWithBlocks(int descriptor, std::size_t offset, std::size_t size) {
    constexpr std::size_t kBlock = 4096;
    const off_t before = lseek(descriptor, 0, SEEK_CUR);
    std::size_t end = offset;
    while (end < offset + size) {
        const auto block = static_cast<off_t>(end / kBlock * kBlock);
        if (lseek(descriptor, block, SEEK_DATA) != block) break;
        end = static_cast<std::size_t>(block) + kBlock;
    }
    lseek(descriptor, before, SEEK_SET);
    return std::min(end - offset, size);
}

namespace {

/// What the disk is for this call.
Disk Count() {
    ++failingCalls.calls;
    const bool fails =
        failingCalls.calls >= failingCalls.first && failingCalls.calls <= failingCalls.last;
    return fails ? failingCalls.disk : Disk::Sound;
}

/// How much of a write can be done.
std::size_t Possible(int descriptor, std::size_t size, off_t at) {
    switch (Count()) {
        case Disk::Dead:
            return 0;
        case Disk::Full:
            return BytesWithBlocks(descriptor, static_cast<std::size_t>(at), size);
        case Disk::Short:
            return (size + 1) / 2;
        default:
            return size;
    }
}

int Refuse(int error) {
    errno = error;
    return -1;
}

}  // namespace

/// Declares `genuine`, the function of that name that this program has replaced.
#define GENUINE(name) auto* genuine = reinterpret_cast<decltype(&name)>(dlsym(RTLD_NEXT, #name))

#pragma GCC visibility push(default)
extern "C" {

ssize_t pread(int descriptor, void* data, size_t size, off_t at) {
    static GENUINE(pread);
    return Count() == Disk::Dead ? Refuse(EIO) : genuine(descriptor, data, size, at);
}

ssize_t pwrite(int descriptor, const void* data, size_t size, off_t at) {
    static GENUINE(pwrite);
    const std::size_t possible = Possible(descriptor, size, at);
    const bool isRefused = possible == 0 && size != 0;
    return isRefused ? Refuse(ENOSPC) : genuine(descriptor, data, possible, at);
}

ssize_t pwritev(int descriptor, const struct iovec* pieces, int nPieces, off_t at) {
    static GENUINE(pwritev);
    iovec cut[1024];
    std::size_t size = 0;
    for (int i = 0; i < nPieces; ++i) size += pieces[i].iov_len;
    std::size_t possible = Possible(descriptor, size, at);
    if (possible == 0 && size != 0) return Refuse(ENOSPC);
    for (int i = 0; i < nPieces; ++i) {
        cut[i] = {pieces[i].iov_base, std::min(pieces[i].iov_len, possible)};
        possible -= cut[i].iov_len;
    }
    return genuine(descriptor, cut, nPieces, at);
}

int fallocate(int descriptor, int mode, off_t at, off_t size) {
    static GENUINE(fallocate);
    const Disk disk = Count();
    const bool isRefused = disk == Disk::Dead || disk == Disk::Full;
    return isRefused ? Refuse(ENOSPC) : genuine(descriptor, mode, at, size);
}

int fseek(FILE* stream, long offset, int whence) {
    static GENUINE(fseek);
    return Count() == Disk::Dead ? Refuse(EIO) : genuine(stream, offset, whence);
}

/// Only files in a folder of a test.
FILE* fopen(const char* path, const char* mode) {
    static GENUINE(fopen);
    const bool isOurs = std::strstr(path, "gridloom-") != nullptr;
    if (!isOurs || Count() != Disk::Dead) return genuine(path, mode);
    errno = EIO;
    return nullptr;
}

}  // extern "C"
#pragma GCC visibility pop
