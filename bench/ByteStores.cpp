#include "ByteStores.h"

#include "IDX_WT_File.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class IndexFileStore final : public ByteStore {
public:
    bool Open(const char* iPath) override { return _file->OpenWrite(iPath) == IDX_True; }
    bool Append(const void* iData, unsigned int iSize) override {
        return _file->Write(iData, iSize) == IDX_True;
    }
    bool ReadAt(unsigned int iOffset, void* oData, unsigned int iSize) override {
        return _file->ReadAt(iOffset, oData, iSize) == IDX_True;
    }
    bool WriteAt(unsigned int iOffset, const void* iData, unsigned int iSize) override {
        return _file->WriteAt(iOffset, iData, iSize) == IDX_True;
    }
    void Close() override { _file->Close(); }

private:
    std::unique_ptr<IDX_WT_File> _file = std::make_unique<IDX_WT_File>();
};

class StreamStore final : public ByteStore {
public:
    ~StreamStore() override { StreamStore::Close(); }
    bool Open(const char* iPath) override {
        _stream = std::fopen(iPath, "rb+");
        if (_stream == nullptr) _stream = std::fopen(iPath, "wb+");
        if (_stream == nullptr || std::fseek(_stream, 0, SEEK_END) != 0) return false;
        _end = std::ftell(_stream);
        return true;
    }
    bool Append(const void* iData, unsigned int iSize) override {
        if (!WriteAt(static_cast<unsigned int>(_end), iData, iSize)) return false;
        _end += iSize;
        return true;
    }
    bool ReadAt(unsigned int iOffset, void* oData, unsigned int iSize) override {
        return std::fseek(_stream, static_cast<long>(iOffset), SEEK_SET) == 0 &&
               std::fread(oData, 1, iSize, _stream) == iSize;
    }
    bool WriteAt(unsigned int iOffset, const void* iData, unsigned int iSize) override {
        return std::fseek(_stream, static_cast<long>(iOffset), SEEK_SET) == 0 &&
               std::fwrite(iData, 1, iSize, _stream) == iSize;
    }
    void Close() override {
        if (_stream != nullptr) std::fclose(_stream);
        _stream = nullptr;
    }

private:
    FILE* _stream = nullptr;
    long _end = 0;
};

/// A descriptor and the end of the file.
class DescriptorStore : public ByteStore {
public:
    ~DescriptorStore() override {
        if (_descriptor >= 0) close(_descriptor);
    }
    bool Open(const char* iPath) override {
        _descriptor = open(iPath, O_RDWR | O_CREAT, 0666);
        struct stat status = {};
        if (_descriptor < 0 || fstat(_descriptor, &status) != 0) return false;
        _end = static_cast<unsigned int>(status.st_size);
        return true;
    }
    bool Append(const void* iData, unsigned int iSize) override {
        return WriteAt(_end, iData, iSize);
    }
    void Close() override {
        if (_descriptor >= 0) close(_descriptor);
        _descriptor = -1;
    }

protected:
    int _descriptor = -1;
    unsigned int _end = 0;
};

class PositionedStore final : public DescriptorStore {
public:
    bool ReadAt(unsigned int iOffset, void* oData, unsigned int iSize) override {
        return pread(_descriptor, oData, iSize, iOffset) == static_cast<ssize_t>(iSize);
    }
    bool WriteAt(unsigned int iOffset, const void* iData, unsigned int iSize) override {
        if (pwrite(_descriptor, iData, iSize, iOffset) != static_cast<ssize_t>(iSize)) return false;
        _end = std::max(_end, iOffset + iSize);
        return true;
    }
};

class MappedStore final : public DescriptorStore {
public:
    ~MappedStore() override { MappedStore::Close(); }
    bool Open(const char* iPath) override {
        return DescriptorStore::Open(iPath) && Map(std::max(_end, 1U << 20U));
    }
    bool ReadAt(unsigned int iOffset, void* oData, unsigned int iSize) override {
        if (iOffset + iSize > _end) return false;
        std::memcpy(oData, _map + iOffset, iSize);
        return true;
    }
    bool WriteAt(unsigned int iOffset, const void* iData, unsigned int iSize) override {
        const unsigned int end = iOffset + iSize;
        if (end > _mapped && !Map(2 * std::max(_mapped, end))) return false;
        std::memcpy(_map + iOffset, iData, iSize);
        _end = std::max(_end, end);
        return true;
    }
    void Close() override {
        if (_map == nullptr) return;
        munmap(_map, _mapped);
        _map = nullptr;
        _mapped = 0;
        if (ftruncate(_descriptor, _end) != 0) _end = 0;
        DescriptorStore::Close();
    }

private:
    bool Map(unsigned int iSize) {
        if (_map != nullptr) munmap(_map, _mapped);
        _map = nullptr;
        if (ftruncate(_descriptor, iSize) != 0) return false;
        void* map = mmap(nullptr, iSize, PROT_READ | PROT_WRITE, MAP_SHARED, _descriptor, 0);
        if (map == MAP_FAILED) return false;
        _map = static_cast<unsigned char*>(map);
        _mapped = iSize;
        return true;
    }

    unsigned char* _map = nullptr;
    unsigned int _mapped = 0;
};

}  // namespace

std::unique_ptr<ByteStore> MakeIndexFileStore() {
    return std::make_unique<IndexFileStore>();
}

std::unique_ptr<ByteStore> MakeStreamStore() {
    return std::make_unique<StreamStore>();
}

std::unique_ptr<ByteStore> MakePositionedStore() {
    return std::make_unique<PositionedStore>();
}

std::unique_ptr<ByteStore> MakeMappedStore() {
    return std::make_unique<MappedStore>();
}
