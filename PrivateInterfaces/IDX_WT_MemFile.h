#ifndef IDX_WT_MemFile_h
#define IDX_WT_MemFile_h

#include "GridloomExport.h"
#include "IDX_WT_File.h"

#include <cstdio>

/// A file whose whole content is in memory. It is read at open, changed in memory, and written back
/// by Close(). A process that ends without Close() loses its changes. Usable wherever an
/// IDX_WT_File* is expected. Reads and writes copy memory, without a system call.
///
/// Objects share nothing: two objects on one path have two copies. The later Close() overwrites the
/// file, up to the length of its own content: a file never becomes shorter. IsOpened() and
/// IsReadWrite() ask for files that are open by path, so they return IDX_False here.
///
/// Every write that moves the end appends zero bytes up to a multiple of 4. They reach the disk.
/// Content is smaller than 2^31 bytes. Owns its block and its stream. One thread at a time.
class GRIDLOOM_API IDX_WT_MemFile : public IDX_WT_File {
public:
    /// Bytes of the block that a new file starts with, 33 MiB. Not a limit.
    static const unsigned int FILE_MAX_SIZE = 0x02100000;

    /// A file that isn't open, without a block.
    IDX_WT_MemFile();

    // The order of the virtual operations is part of the interface.

    /// Calls Close(false) and ignores its result: changes that can't be written are lost.
    ~IDX_WT_MemFile() override;

    /// Loads an existing file for reading, including all bytes that an IDX_WT_File of the process
    /// has written to it. An open file is closed first.
    /// Tags: those of ReadFile, then "IDX_WT_MemFile.OpenRead.ReadFile".
    IDX_Bool OpenRead(const char* iPath) override;

    /// Loads a file for reading and writing, or creates an empty one. An open file is closed first.
    /// Tags: those of ReadFile, then "IDX_WT_MemFile.OpenWrite.ReadFile"; for a new file
    /// "IDX_WT_MemFile.OpenWrite.fopen" or "IDX_WT_MemFile.OpenWrite.VEXUnsecuredMemAlloc failed".
    IDX_Bool OpenWrite(const char* iPath) override;

    /// Calls Close(false).
    IDX_Bool Close() override;

    /// Does nothing: only Close() writes to the disk.
    void Flush() override;

    /// Bytes of content; 0 when closed.
    unsigned int GetSize() const override;

    /// Reads bytes that are all inside the content. A size of 0 gives IDX_True.
    /// Tags: "IDX_WT_MemFile.ReadAt.Offset overflow: iOffset %u, iDataSize %u, m_writtenSize %u",
    /// "IDX_WT_MemFile.ReadAt.InvalidInputData" (null).
    IDX_Bool ReadAt(unsigned int iOffset, void* oData, unsigned int iDataSize) override;

    /// Appends. Null data, or a size of 0, gives IDX_True and adds nothing. Without a tag when not
    /// open for writing.
    /// Tags: "IDX_WT_MemFile.Write.ResizeIfNeeded" (2^31 bytes, or no memory; nothing is written),
    /// "IDX_WT_MemFile.Write (alignment)" (the data are written, their padding is missing).
    IDX_Bool Write(const void* iData, unsigned int iDataSize) override;

    /// Writes at `iOffset`. A gap between the old end and `iOffset` becomes zero. Without a tag
    /// when not open for writing.
    /// Tags: "IDX_WT_MemFile.WriteAt.InvalidData" (null data with a size),
    /// "IDX_WT_MemFile.WriteAt.ResizeIfNeeded", "IDX_WT_MemFile.Write (alignment)".
    IDX_Bool WriteAt(unsigned int iOffset, const void* iData, unsigned int iDataSize) override;

    /// Writes the content to the file if open for writing, and closes. An IDX_WT_File of the
    /// process that has the file open reads the new content from then on. After a failed write the
    /// file stays open with its content, so that Close() can be tried again.
    /// Tag: "IDX_WT_MemoryFile.Close.fwrite".
    /// @param iKeepBuffer  keep the block for the next open
    virtual IDX_Bool Close(bool iKeepBuffer);

    /// IDX_E_OUT_OF_MEMORY when the last open found no memory to load the file, else IDX_S_OK.
    virtual long int GetErrorCode();

    /// GetSize().
    unsigned int GetFileSize() const { return m_writtenSize; }

    // The forms for values call the operations above.
    using IDX_WT_File::ReadAt;
    using IDX_WT_File::Write;
    using IDX_WT_File::WriteAt;

protected:
    /// Opens a file and loads it, into the block that was kept if it is large enough.
    /// Tags: "IDX_WT_MemFile.OpenWrite.fopen", "IDX_WT_MemFile.ReadFile : Failed to allocate file
    /// in memory!" (or 2^31 bytes and more; sets the error code), "IDX_WT_MemFile.ReadFile.fread".
    virtual IDX_Bool ReadFile(const char* iPath, bool iForWriting);

private:
    friend class CachedBlock;

    enum Mode : unsigned int { NotOpened = 0, ReadOnly = 1, ReadWrite = 2 };

    IDX_Bool CreateFile(const char* iPath);

    /// WriteAt() for a write that ends past the content.
    IDX_Bool WriteBeyond(unsigned int iOffset, const void* iData, unsigned int iDataSize);

    /// Enlarges the block for a write, if necessary. IDX_False when the write would end at 2^31 or
    /// past it, and without memory.
    IDX_Bool ResizeIfNeeded(unsigned int iOffset, unsigned int iDataSize);

    IDX_Bool Align();      ///< appends zero bytes up to a multiple of 4
    IDX_Bool WriteBack();  ///< writes all content to the stream
    void ReleaseBlock();
    void CloseStream();

    FILE* m_stream;  ///< null when closed
    Mode m_mode;
    unsigned char* m_buffer;       ///< the block; its bytes past the content are undefined
    unsigned int m_writtenSize;    ///< bytes of content
    unsigned int m_allocatedSize;  ///< bytes of the block that may be used
    long int m_errorCode;          ///< of the last open; a status
};

#endif
