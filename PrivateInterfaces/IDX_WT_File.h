#ifndef IDX_WT_File_h
#define IDX_WT_File_h

#include "GridloomExport.h"
#include "IDX_Bool.h"
#include "VEXUnicodeString.h"

class IDX_Base_ByteArray;
class IDX_Base_Identifier;
class IDX_Base_String;
class IDX_WT_Identifier;
class IdxFile;
class PagedFile;

/// A file of bytes under 32-bit offsets: an append, a positioned read and a positioned write. What the
/// bytes mean is up to the caller; the file has no header of its own.
///
/// An object holds a path only. Stream, mode and size belong to the path and are shared by all objects of
/// the process that name it, without a reference count: the first Close() or destructor closes the
/// stream for all of them. A path can't be open for reading and for writing at once.
///
/// Every append starts at a multiple of 4; the bytes of padding are never written and read as zero once
/// something lies behind them. A file stays below 2^31 bytes: an offset from there on fails like a
/// seek that fails. Numbers stand as they stand in memory.
///
/// A length-prefixed value is a 32-bit count of bytes and those bytes, without a terminator.
///
/// Operations that give IDX_Bool trace a tag and give IDX_False when they fail; the object stays usable.
///
/// A small write may wait in memory until Flush(), Close() or the end of the process: where the disk has
/// the room for it already, so that a write that gives IDX_True is in the file after Flush(). The size of
/// the file on the disk trails the end of the data by less than 4096 bytes. Nothing else than the bytes that
/// were written reaches the file, and a child process doesn't write what waited in its parent.
/// docs/internals.md, "Files", says what is in the file at which event.
///
/// One thread at a time for all files of the process.
class GRIDLOOM_API IDX_WT_File {
public:
    /// A file without a path. Opens nothing.
    IDX_WT_File();

    IDX_WT_File(const IDX_WT_File&) = delete;
    IDX_WT_File& operator=(const IDX_WT_File&) = delete;

    // The order of the virtual operations is part of the interface.

    /// Closes the stream of the path, for all who share it.
    virtual ~IDX_WT_File();

    /// Opens an existing file for reading, or joins those who have it open for reading. What this object
    /// had open before stays open. Fatal stop when the path is open for writing.
    /// Tags: "IDX_WT_File.OpenRead.fopen", "IDX_WT_File.OpenRead.fseek"; behind the latter the stream
    /// stays open for reading, so that the next OpenRead gives IDX_True.
    virtual IDX_Bool OpenRead(const char* iPath);

    /// Opens a file for reading and writing and makes it when it isn't there; never cuts it. Closes first
    /// what this object has open. Fatal stop when the path is open for reading.
    /// Tags: "IDX_WT_File.OpenWrite.fopen", "IDX_WT_File.OpenRead.fseek".
    virtual IDX_Bool OpenWrite(const char* iPath);

    /// Closes the stream of the path, for all who share it. Always IDX_True; GetSize() stays.
    virtual IDX_Bool Close();

    /// Brings all that was written to the file, so that other processes see it.
    virtual void Flush();

    /// The logical size in bytes. Open for writing: the end of the data rounded up to a multiple of 4. Open
    /// for reading: the size at the first open. Closed: the last one; 0 when never opened.
    virtual unsigned int GetSize() const;

    /// Reads `iDataSize` bytes at `iOffset`. The physical end of the file decides, not GetSize().
    /// Tags: "IDX_WT_File.ReadAt.InvalidFile", ".InvalidInputData" (null or nothing to read),
    /// ".fseek[%d]", ".InvalidOffset[fOffset=%d,fSize=%d,dSize=%d]" (behind the end), ".fread[%d]".
    virtual IDX_Bool ReadAt(unsigned int iOffset, void* oData, unsigned int iDataSize);

    /// Appends at GetSize(), which moves to the end of the data, rounded up to a multiple of 4.
    /// Tags: "IDX_WT_File.Write.InvalidFile", ".InvalidData" (null or nothing to write), ".fseek" (ends at
    /// 2^31 or past it), ".fwrite"; GetSize() stays then.
    virtual IDX_Bool Write(const void* iData, unsigned int iDataSize);

    /// Writes at `iOffset`. GetSize() grows first where the end lies behind it, and stays so on failure.
    /// Nothing to write is allowed, null data isn't.
    /// Tags: "IDX_WT_File.Write.InvalidFile", "IDX_WT_File.Write.InvalidData",
    /// "IDX_WT_File.WriteAt.fseek" (ends at 2^31 or past it), "IDX_WT_File.WriteAt.fwrite".
    virtual IDX_Bool WriteAt(unsigned int iOffset, const void* iData, unsigned int iDataSize);

    // All that follows goes through the virtual operations.

    IDX_Bool IsOpened() const;     ///< the path is open in this process
    IDX_Bool IsReadWrite() const;  ///< the path is open for writing in this process

    IDX_Bool ReadAt(unsigned int iOffset, unsigned short& oValue);
    IDX_Bool ReadAt(unsigned int iOffset, unsigned int& oValue);
    IDX_Bool ReadAt(unsigned int iOffset, float& oValue);

    /// Reads a length-prefixed value; on failure the output is empty. Up to 1024 bytes without an
    /// allocation of its own.
    IDX_Bool ReadAt(unsigned int iOffset, IDX_Base_ByteArray& oValue);
    IDX_Bool ReadAt(unsigned int iOffset, IDX_Base_String& oValue);
    IDX_Bool ReadAt(unsigned int iOffset, IDX_WT_Identifier& oValue);

    /// Reads `iSize` bytes without a prefix; none is IDX_True and an empty output.
    IDX_Bool ReadAt(unsigned int iOffset, unsigned int iSize, IDX_Base_ByteArray& oValue);
    IDX_Bool ReadAt(unsigned int iOffset, unsigned int iSize, IDX_Base_String& oValue);

    IDX_Bool Write(unsigned int iValue);

    /// Appends a length-prefixed value.
    IDX_Bool Write(const IDX_Base_ByteArray& iValue);
    IDX_Bool Write(const IDX_Base_String& iValue);
    IDX_Bool Write(const IDX_Base_Identifier& iValue);

    IDX_Bool WriteAt(unsigned int iOffset, unsigned short iValue);
    IDX_Bool WriteAt(unsigned int iOffset, unsigned int iValue);
    IDX_Bool WriteAt(unsigned int iOffset, float iValue);

    /// Writes a length-prefixed value. Fatal stop when it has a size but no data.
    IDX_Bool WriteAt(unsigned int iOffset, const IDX_Base_ByteArray& iValue);
    IDX_Bool WriteAt(unsigned int iOffset, const IDX_Base_String& iValue);
    IDX_Bool WriteAt(unsigned int iOffset, const IDX_Base_Identifier& iValue);

    /// Reverses the bytes of a number in the file.
    IDX_Bool Swap16At(unsigned int iOffset);
    IDX_Bool Swap32At(unsigned int iOffset);
    IDX_Bool SwapRealAt(unsigned int iOffset);

private:
    friend class CachedPages;
    friend class IDX_WT_SplittedFile;

    /// The registry's entry of the path.
    IdxFile& Entry() const;

    /// Where the bytes of the path are held; null when closed and for a device or pipe.
    const PagedFile* Pages() const;

    void SetPath(const char* iPath);

    /// Leaves the path without touching its stream: a later Close() closes nothing.
    void ForgetPath();

    VEXUnicodeString m_path;   ///< empty until the first open
    mutable IdxFile* m_entry;  ///< of that path, once looked up
};

#endif
