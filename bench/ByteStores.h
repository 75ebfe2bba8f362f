#ifndef ByteStores_h
#define ByteStores_h

#include <memory>

/// A file of bytes as the contestants keep it. All go through the same virtual operations.
class ByteStore {
public:
    virtual ~ByteStore() = default;

    /// Opens a file for reading and writing, or makes it.
    virtual bool Open(const char* iPath) = 0;
    virtual bool Append(const void* iData, unsigned int iSize) = 0;
    virtual bool ReadAt(unsigned int iOffset, void* oData, unsigned int iSize) = 0;
    virtual bool WriteAt(unsigned int iOffset, const void* iData, unsigned int iSize) = 0;

    /// All that was written is then in the file. A second call does nothing.
    virtual void Close() = 0;
};

std::unique_ptr<ByteStore> MakeIndexFileStore();   ///< IDX_WT_File
std::unique_ptr<ByteStore> MakeStreamStore();      ///< a stream with a seek before each call
std::unique_ptr<ByteStore> MakePositionedStore();  ///< pread and pwrite
std::unique_ptr<ByteStore> MakeMappedStore();      ///< a shared map that doubles

#endif
