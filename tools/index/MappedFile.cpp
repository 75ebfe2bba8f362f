#include "MappedFile.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

MappedFile::MappedFile(MappedFile&& ioOther) noexcept
    : _bytes(std::exchange(ioOther._bytes, nullptr)), _size(std::exchange(ioOther._size, 0)) {}

MappedFile& MappedFile::operator=(MappedFile&& ioOther) noexcept {
    std::swap(_bytes, ioOther._bytes);
    std::swap(_size, ioOther._size);
    return *this;
}

MappedFile::~MappedFile() {
    Unmap();
}

std::string MappedFile::Open(const std::string& iPath) {
    Unmap();
    const int file = open(iPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0) return std::strerror(errno);
    struct stat status = {};
    std::string failure;
    if (fstat(file, &status) != 0) {
        failure = std::strerror(errno);
    } else if (!S_ISREG(status.st_mode)) {
        failure = "isn't a file";
    } else if (status.st_size > 0) {
        const auto size = static_cast<std::size_t>(status.st_size);
        void* bytes = mmap(nullptr, size, PROT_READ, MAP_SHARED, file, 0);
        if (bytes == MAP_FAILED) {
            failure = std::strerror(errno);
        } else {
            _bytes = static_cast<unsigned char*>(bytes);
            _size = size;
        }
    }
    close(file);
    return failure;
}

void MappedFile::Unmap() {
    if (_bytes != nullptr) munmap(_bytes, _size);
    _bytes = nullptr;
    _size = 0;
}
