#ifndef IDX_WT_SplittedFile_h
#define IDX_WT_SplittedFile_h

#include "GridloomExport.h"
#include "IDX_Bool.h"

#include "formats/SplitFile.h"

#include <memory>

class IDX_Base_ByteArray;
class IDX_Base_String;
class IDX_WT_File;

/// A store that divides appended data into numbered files, its pieces, and keeps only a few of them
/// open. Data are found by the number of their piece and the offset in it. Write() returns both,
/// and the caller stores them. Names and content of the files: docs/file-formats.md, "Split file".
///
/// An append is never divided. It goes to the current piece, or, when that has reached the size
/// limit, to the next piece below the limit. So a piece exceeds the limit by at most one append.
/// Each piece is an IDX_WT_File, with its rules for alignment, for 2^31 bytes and for sharing in
/// the process.
///
/// An open piece occupies a slot. A piece that isn't open takes the slot after the one used last;
/// the piece in that slot is closed. When open for writing, a piece that doesn't exist is created
/// by any access to it.
///
/// Lock files show other processes which pieces a writer has open. They are markers and block
/// nobody. A process that is killed leaves them.
///
/// Operations that return IDX_Bool trace a tag and return IDX_False when they fail. The object
/// stays usable. An access to a piece may fail with "IDX_WT_SplittedFile._TestAndOpen.NotOpened",
/// ".InvalidPart" (0xFFFFFFFF, which is no piece), ".snprintf" (a name of 2048 characters or more),
/// ".OpenRead" or ".OpenWrite"; the operation's own tag follows. One thread at a time.
class GRIDLOOM_API IDX_WT_SplittedFile {
public:
    /// @param iMaxFileSize  bytes of a piece from which on appends go to the next one; 0 for no
    ///                      limit
    /// @param iCacheSize    number of slots, limited to 1 to 10
    /// @param iUseLockFiles whether lock files are made and removed
    IDX_WT_SplittedFile(unsigned int iMaxFileSize, unsigned int iCacheSize, bool iUseLockFiles);

    IDX_WT_SplittedFile(const IDX_WT_SplittedFile&) = delete;
    IDX_WT_SplittedFile& operator=(const IDX_WT_SplittedFile&) = delete;

    ~IDX_WT_SplittedFile();  ///< Close()

    /// Closes what is open, then opens for reading. Piece 0 must exist: without it the result is
    /// IDX_False without a tag. IsOpened() returns IDX_True even then.
    /// Tags: "IDX_WT_SplittedFile.OpenRead.snprintf", "IDX_WT_SplittedFile.OpenRead._TestAndOpen".
    IDX_Bool OpenRead(const char* iPath);

    /// Closes what is open, then opens for writing. Always IDX_True. Makes no access to the disk.
    IDX_Bool OpenWrite(const char* iPath);

    /// Writes all delayed bytes of the open pieces, removes their lock files and closes them.
    void Close();

    /// Writes all delayed bytes of the open pieces to their files.
    void Flush();

    IDX_Bool IsOpened() const;

    /// The size of a piece as IDX_WT_File::GetSize gives it; 0 when the piece can't be opened.
    unsigned int GetSize(unsigned int iPart);

    /// Creates the lock file of a piece. Does nothing and returns IDX_True when lock files aren't
    /// used. IDX_False when the lock file exists already (without a tag) or can't be created.
    /// Tag: "IDX_WT_SplittedFile.Lock.snprintf".
    IDX_Bool Lock(unsigned int iPart);

    /// Removes the lock file of a piece. Does nothing and returns IDX_True when lock files aren't
    /// used. IDX_False when the lock file doesn't exist or can't be removed.
    /// Tag: "IDX_WT_SplittedFile.Unlock.snprintf".
    IDX_Bool Unlock(unsigned int iPart);

    /// Whether the lock file of a piece exists, made by this or by another process.
    /// Tag: "IDX_WT_SplittedFile.HasLock.snprintf".
    IDX_Bool HasLock(unsigned int iPart) const;

    /// Reads `iSize` bytes. Tags: "IDX_WT_SplittedFile.ReadAt.InvalidData" (null or nothing to
    /// read), "IDX_WT_SplittedFile.ReadAt._TestAndOpen",
    /// "IDX_WT_SplittedFile.ReadAt.IDX_WT_File.ReadAt".
    IDX_Bool ReadAt(unsigned int iPart, unsigned int iOffset, void* oData, unsigned int iSize);
    IDX_Bool ReadAt(unsigned int iPart, unsigned int iOffset, unsigned short& oValue);
    IDX_Bool ReadAt(unsigned int iPart, unsigned int iOffset, unsigned int& oValue);
    IDX_Bool ReadAt(unsigned int iPart, unsigned int iOffset, float& oValue);

    /// Reads a length-prefixed value.
    /// Tags: "IDX_WT_SplittedFile.ReadAt(ByteArray)._TestAndOpen" and ".IDX_WT_File.ReadAt", or
    /// (String).
    IDX_Bool ReadAt(unsigned int iPart, unsigned int iOffset, IDX_Base_ByteArray& oValue);
    IDX_Bool ReadAt(unsigned int iPart, unsigned int iOffset, IDX_Base_String& oValue);

    /// Reads `iSize` bytes, at least 1, without a prefix. Tags as for bytes.
    IDX_Bool ReadAt(
        unsigned int iPart, unsigned int iOffset, unsigned int iSize, IDX_Base_ByteArray& oValue);

    /// Appends, and returns piece and offset of the data. Both are 0 after a failure.
    /// Tags: "IDX_WT_SplittedFile.Write.InvalidData" (null or nothing to write),
    /// "IDX_WT_SplittedFile.Write._TestAndOpen (1)" (current piece), " (2)" (a further one),
    /// "IDX_WT_SplittedFile.Write.IDX_WT_File.Write".
    IDX_Bool Write(
        const void* iData, unsigned int iSize, unsigned int& oPart, unsigned int& oOffset);
    IDX_Bool Write(const void* iData, unsigned int iSize);
    IDX_Bool Write(unsigned int iValue, unsigned int& oPart, unsigned int& oOffset);
    IDX_Bool Write(unsigned int iValue);

    /// Writes at an offset of a piece. The size limit doesn't apply.
    /// Tags: "IDX_WT_SplittedFile.WriteAt.InvalidData" (null or nothing to write),
    /// "IDX_WT_SplittedFile.WriteAt._TestAndOpen",
    /// "IDX_WT_SplittedFile.WriteAt.IDX_WT_File.WriteAt".
    IDX_Bool WriteAt(
        unsigned int iPart, unsigned int iOffset, const void* iData, unsigned int iSize);
    IDX_Bool WriteAt(unsigned int iPart, unsigned int iOffset, unsigned short iValue);
    IDX_Bool WriteAt(unsigned int iPart, unsigned int iOffset, unsigned int iValue);
    IDX_Bool WriteAt(unsigned int iPart, unsigned int iOffset, float iValue);

private:
    enum Mode : unsigned int { NotOpened = 0, ReadOnly = 1, ReadWrite = 2 };

    /// Opens a piece in a slot, unless it is open, and returns its file. Every access to a piece
    /// calls this.
    IDX_Bool _TestAndOpen(unsigned int iPart, IDX_WT_File*& oFile);

    IDX_Bool OpenSlot(unsigned int iSlot, unsigned int iPart);
    void EvictSlot(unsigned int iSlot);
    void FreeSlot(unsigned int iSlot);
    void StartOn(const char* iPath, Mode iMode);

    /// Formats the name of a piece, with `iSuffix` at its end. False when it is too long, and when
    /// there is no base path.
    bool FormatName(char (&oName)[kPieceNameSize], unsigned int iPart, const char* iSuffix) const;

    std::unique_ptr<char[]> m_fileBasePath;  ///< null when closed
    unsigned int m_currentFile;              ///< piece that appends go to
    unsigned int m_maxFileSize;              ///< bytes; 0 for no limit
    Mode m_openMode;
    unsigned int m_cacheSize;                    ///< number of slots
    unsigned int m_lastSlot;                     ///< the slot that was used last
    std::unique_ptr<unsigned int[]> m_slotFile;  ///< piece in each slot; 0xFFFFFFFF when free
    std::unique_ptr<unsigned char[]>
        m_slotLocked;  ///< whether the slot's lock file is to be removed
    std::unique_ptr<IDX_WT_File[]> m_slots;
    bool m_useLockFiles;
};

#endif
