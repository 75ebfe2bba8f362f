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

/// A file of bytes with 32-bit offsets. It has an append, a positioned read and a positioned write.
/// The caller decides what the bytes mean; the file has no header of its own.
///
/// An object has only a path. Stream, mode and size belong to the path. All objects of the process
/// with that path share them, without a reference count: the first Close() or destructor closes the
/// stream for all. A path can't be open for reading and for writing at the same time.
///
/// Every append starts at a multiple of 4. The padding before it is never written; it reads as
/// zero. A file is smaller than 2^31 bytes: an access at a higher offset fails like a failed seek.
/// Numbers have the byte order of the machine.
///
/// A length-prefixed value is a 32-bit number of bytes and then these bytes, without a terminator.
///
/// Operations that return IDX_Bool trace a tag and return IDX_False when they fail. The object
/// stays usable.
///
/// A small write may stay in memory until Flush(), Close() or the end of the process. This happens
/// only where the disk has reserved its block already, so that a full disk can't refuse it later.
/// The file on the disk lacks less than 4096 bytes at its end. Only written bytes reach the file. A
/// child process doesn't write the delayed bytes of its parent. docs/internals.md, "Files", lists
/// which event brings which bytes to the file.
///
/// One thread at a time for all files of the process.
class GRIDLOOM_API IDX_WT_File {
public:
    /// A file without a path. Opens nothing.
    IDX_WT_File();

    IDX_WT_File(const IDX_WT_File&) = delete;
    IDX_WT_File& operator=(const IDX_WT_File&) = delete;

    // The order of the virtual operations is part of the interface.

    /// Closes the stream of the path, for all objects that share it.
    virtual ~IDX_WT_File();

    /// Opens an existing file for reading, or joins the objects that have it open for reading. A
    /// file that this object had open before stays open. Fatal stop when the path is open for
    /// writing.
    /// Tags: "IDX_WT_File.OpenRead.fopen", "IDX_WT_File.OpenRead.fseek". After the second the
    /// stream stays open for reading, so the next OpenRead() returns IDX_True.
    virtual IDX_Bool OpenRead(const char* iPath);

    /// Opens a file for reading and writing, and creates it when it doesn't exist. Never makes a
    /// file shorter. Closes the file that this object has open first. Fatal stop when the path is
    /// open for reading.
    /// Tags: "IDX_WT_File.OpenWrite.fopen", "IDX_WT_File.OpenRead.fseek".
    virtual IDX_Bool OpenWrite(const char* iPath);

    /// Closes the stream of the path, for all objects that share it. Always IDX_True. GetSize()
    /// keeps its value.
    virtual IDX_Bool Close();

    /// Writes all delayed bytes to the file, so that other processes see them.
    virtual void Flush();

    /// The logical size in bytes. While open for writing: the end of the data, rounded up to a
    /// multiple of 4. While open for reading: the size at the first open. When closed: the last
    /// size; 0 when never opened.
    virtual unsigned int GetSize() const;

    /// Reads `iDataSize` bytes at `iOffset`. They must not go past the end of the last write.
    /// GetSize(), which is rounded up, doesn't count.
    /// Tags: "IDX_WT_File.ReadAt.InvalidFile", ".InvalidInputData" (null or nothing to read),
    /// ".fseek[%d]", ".InvalidOffset[fOffset=%d,fSize=%d,dSize=%d]" (past the end), ".fread[%d]".
    virtual IDX_Bool ReadAt(unsigned int iOffset, void* oData, unsigned int iDataSize);

    /// Appends at GetSize(), which then becomes the new end of the data, rounded up to a multiple
    /// of 4. After a failure GetSize() is unchanged.
    /// Tags: "IDX_WT_File.Write.InvalidFile", ".InvalidData" (null or nothing to write), ".fseek"
    /// (would end at 2^31 or past it), ".fwrite".
    virtual IDX_Bool Write(const void* iData, unsigned int iDataSize);

    /// Writes at `iOffset`. When the data end past GetSize(), GetSize() grows first and keeps the
    /// new value even after a failure. A size of 0 is allowed, null data isn't.
    /// Tags: "IDX_WT_File.Write.InvalidFile", "IDX_WT_File.Write.InvalidData",
    /// "IDX_WT_File.WriteAt.fseek" (would end at 2^31 or past it), "IDX_WT_File.WriteAt.fwrite".
    virtual IDX_Bool WriteAt(unsigned int iOffset, const void* iData, unsigned int iDataSize);

    // All operations below call the virtual ones.

    IDX_Bool IsOpened() const;     ///< the path is open in this process
    IDX_Bool IsReadWrite() const;  ///< the path is open for writing in this process

    IDX_Bool ReadAt(unsigned int iOffset, unsigned short& oValue);
    IDX_Bool ReadAt(unsigned int iOffset, unsigned int& oValue);
    IDX_Bool ReadAt(unsigned int iOffset, float& oValue);

    /// Reads a length-prefixed value. After a failure the output is empty. Up to 1024 bytes need no
    /// allocation here.
    IDX_Bool ReadAt(unsigned int iOffset, IDX_Base_ByteArray& oValue);
    IDX_Bool ReadAt(unsigned int iOffset, IDX_Base_String& oValue);
    IDX_Bool ReadAt(unsigned int iOffset, IDX_WT_Identifier& oValue);

    /// Reads `iSize` bytes without a prefix. A size of 0 gives IDX_True and an empty output.
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

    /// What the process knows of the path, from the registry of all paths.
    IdxFile& Entry() const;

    /// The pages of the file in memory; null when closed, and for a device or pipe.
    const PagedFile* Pages() const;

    void SetPath(const char* iPath);

    /// Forgets the path and leaves its stream open: a later Close() closes nothing.
    void ForgetPath();

    VEXUnicodeString m_path;   ///< empty until the first open
    mutable IdxFile* m_entry;  ///< of that path; null before the first look-up
};

#endif
