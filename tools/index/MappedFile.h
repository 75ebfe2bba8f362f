#ifndef MappedFile_h
#define MappedFile_h

#include "Status.h"

#include <cstddef>
#include <string>

/// The bytes of a file where they lie: a read-only memory map. It can be moved, and not be copied.
class MappedFile {
public:
    MappedFile() = default;
    MappedFile(MappedFile&& ioOther) noexcept;
    MappedFile& operator=(MappedFile&& ioOther) noexcept;
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;
    ~MappedFile();

    /// Maps a regular file, in the place of what was mapped before. A failure doesn't name the
    /// file.
    Status Open(const std::string& iPath);

    /// Null for an empty file.
    const unsigned char* Bytes() const { return _bytes; }
    std::size_t Size() const { return _size; }

private:
    Status Map(int iFile);
    void Unmap();

    unsigned char* _bytes = nullptr;
    std::size_t _size = 0;
};

#endif
