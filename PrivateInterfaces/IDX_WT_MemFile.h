#ifndef IDX_WT_MemFile_h
#define IDX_WT_MemFile_h

#include "GridloomExport.h"
#include "IDX_WT_File.h"

#include <cstdio>

/// A file that is held in memory as a whole: read at open, changed there, and written back in one go at
/// Close(). A process that ends without Close() loses its changes. Stands in wherever an IDX_WT_File* is
/// taken; reads and writes are copies without a system call.
///
/// Nothing is shared: two objects on one path are two copies, and the later Close() wins on the disk,
/// as far as its content goes: a file is never cut.
/// IsOpened() and IsReadWrite() know files that are open by path, and so give IDX_False here.
///
/// Every write that moves the end pads the content with zero bytes up to a multiple of 4, and they reach
/// the disk. Content stays below 2^31 bytes. Owns its block and its stream. One thread at a time.
class GRIDLOOM_API IDX_WT_MemFile : public IDX_WT_File {
public:
    /// Bytes of the block that a new file starts with, 33 MiB. Not a limit.
    static const unsigned int FILE_MAX_SIZE = 0x02100000;

    /// A file that isn't open, without a block.
    IDX_WT_MemFile();

    // The order of the virtual operations is part of the interface.

    /// Close(false), whatever its result: what can't be written then is lost.
    ~IDX_WT_MemFile() override;

    /// Loads an existing file, for reading alone: with all that an IDX_WT_File of the process has written to it.
    /// What is open is closed first.
    /// Tags: those of ReadFile, then "IDX_WT_MemFile.OpenRead.ReadFile".
    IDX_Bool OpenRead(const char* iPath) override;

    /// Loads a file, or makes an empty one where there is none. What is open is closed first.
    /// Tags: those of ReadFile, then "IDX_WT_MemFile.OpenWrite.ReadFile"; for a new file
    /// "IDX_WT_MemFile.OpenWrite.fopen" or "IDX_WT_MemFile.OpenWrite.VEXUnsecuredMemAlloc failed".
    IDX_Bool OpenWrite(const char* iPath) override;

    /// Close(false).
    IDX_Bool Close() override;

    /// Does nothing: only Close() writes to the disk.
    void Flush() override;

    /// Bytes of content; 0 when closed.
    unsigned int GetSize() const override;

    /// Reads bytes that lie within the content as a whole. Reading none there is IDX_True.
    /// Tags: "IDX_WT_MemFile.ReadAt.Offset overflow: iOffset %u, iDataSize %u, m_writtenSize %u",
    /// "IDX_WT_MemFile.ReadAt.InvalidInputData" (null).
    IDX_Bool ReadAt(unsigned int iOffset, void* oData, unsigned int iDataSize) override;

    /// Appends. Null data or none is IDX_True and adds nothing. Without a tag when not open for writing.
    /// Tags: "IDX_WT_MemFile.Write.ResizeIfNeeded" (2^31 bytes, or no memory; nothing is written),
    /// "IDX_WT_MemFile.Write (alignment)" (the data stands, its padding is missing).
    IDX_Bool Write(const void* iData, unsigned int iDataSize) override;

    /// Writes at `iOffset`. What lies between the old end and `iOffset` becomes zero.
    /// Without a tag when not open for writing.
    /// Tags: "IDX_WT_MemFile.WriteAt.InvalidData" (null data with a size),
    /// "IDX_WT_MemFile.WriteAt.ResizeIfNeeded", "IDX_WT_MemFile.Write (alignment)".
    IDX_Bool WriteAt(unsigned int iOffset, const void* iData, unsigned int iDataSize) override;

    /// Writes the content back if open for writing, and closes. An IDX_WT_File of the process that has the file
    /// open reads it from then on. When it can't be written all stays
    /// as it was, so that Close can be tried again.
    /// Tag: "IDX_WT_MemoryFile.Close.fwrite".
    /// @param iKeepBuffer  true keeps the block for the next open
    virtual IDX_Bool Close(bool iKeepBuffer);

    /// IDX_E_OUT_OF_MEMORY when the last open found no memory to load the file, else IDX_S_OK.
    virtual long int GetErrorCode();

    /// GetSize().
    unsigned int GetFileSize() const { return m_writtenSize; }

    // The forms for values go through the operations above.
    using IDX_WT_File::ReadAt;
    using IDX_WT_File::Write;
    using IDX_WT_File::WriteAt;

protected:
    /// Opens a file and loads it. A block that was kept is used again where it is large enough.
    /// Tags: "IDX_WT_MemFile.OpenWrite.fopen", "IDX_WT_MemFile.ReadFile : Failed to allocate file in
    /// memory!" (or 2^31 bytes and more; sets the error code), "IDX_WT_MemFile.ReadFile.fread".
    virtual IDX_Bool ReadFile(const char* iPath, bool iForWriting);

private:
    friend class CachedBlock;

    enum Mode : unsigned int { NotOpened = 0, ReadOnly = 1, ReadWrite = 2 };

    IDX_Bool CreateFile(const char* iPath);

    /// The part of WriteAt for a write that moves the end.
    IDX_Bool WriteBeyond(unsigned int iOffset, const void* iData, unsigned int iDataSize);

    /// Makes room for a write; IDX_False when the end reaches 2^31 or memory is short.
    IDX_Bool ResizeIfNeeded(unsigned int iOffset, unsigned int iDataSize);

    IDX_Bool Align();      ///< appends zero bytes up to a multiple of 4
    IDX_Bool WriteBack();  ///< all content to the stream
    void ReleaseBlock();
    void CloseStream();

    FILE* m_stream;  ///< open from open to close
    Mode m_mode;
    unsigned char* m_buffer;       ///< the block; only the content in it has a defined value
    unsigned int m_writtenSize;    ///< bytes of content
    unsigned int m_allocatedSize;  ///< bytes that the block is known to hold
    long int m_errorCode;          ///< of the last open
};

#endif
