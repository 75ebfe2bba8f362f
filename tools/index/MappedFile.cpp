#include "MappedFile.h"

#include <cerrno>
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

Status MappedFile::Open(const std::string& iPath) {
    Unmap();
    const int file = open(iPath.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0) return Status::System(errno);
    const Status status = Map(file);
    close(file);  // the map stays
    return status;
}

/// An empty file has no map: the system refuses it.
Status MappedFile::Map(int iFile) {
    struct stat facts = {};
    if (fstat(iFile, &facts) != 0) return Status::System(errno);
    if (!S_ISREG(facts.st_mode)) return Status::Environment("isn't a file");
    if (facts.st_size == 0) return {};
    const auto size = static_cast<std::size_t>(facts.st_size);
    void* bytes = mmap(nullptr, size, PROT_READ, MAP_SHARED, iFile, 0);
    if (bytes == MAP_FAILED) return Status::System(errno);
    _bytes = static_cast<unsigned char*>(bytes);
    _size = size;
    return {};
}

void MappedFile::Unmap() {
    if (_bytes != nullptr) munmap(_bytes, _size);
    _bytes = nullptr;
    _size = 0;
}
