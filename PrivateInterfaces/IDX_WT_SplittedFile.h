#ifndef IDX_WT_SplittedFile_h
#define IDX_WT_SplittedFile_h

#include "GridloomExport.h"
#include "IDX_Bool.h"

#include "formats/SplitFile.h"

#include <memory>

class IDX_Base_ByteArray;
class IDX_Base_String;
class IDX_WT_File;

/// A store that spreads appended data over numbered piece files and holds only a few of them open. A
/// datum's place is its piece and the offset in it; whoever appends is told and keeps it.
/// Names and content of the files: docs/file-formats.md, "Split file".
///
/// An append lands whole in one piece: in the current one, or in the next one below the size limit where
/// that has reached it. So a piece may end above the limit by its last append. Each piece is an
/// IDX_WT_File: its rules of alignment, of 2^31 bytes and of sharing within the process hold.
///
/// Open pieces stand in slots. A piece that is asked for and isn't open takes the slot behind the last
/// one used, whatever was there. Open for writing, a piece that doesn't exist is made by the asking.
///
/// Lock files tell other processes which pieces a writer holds open. They are markers and keep nobody
/// out; a process that dies leaves them.
///
/// Operations that give IDX_Bool trace a tag and give IDX_False when they fail; the object stays usable.
/// Bringing a piece into a slot fails with "IDX_WT_SplittedFile._TestAndOpen.NotOpened", ".InvalidPart"
/// (0xFFFFFFFF, which is no piece), ".snprintf" (a name of 2048 characters or more), ".OpenRead" or
/// ".OpenWrite", and the operation's own tag behind it. One thread at a time.
class GRIDLOOM_API IDX_WT_SplittedFile {
public:
    /// @param iMaxFileSize  bytes of a piece at which appends move on to the next; 0 for no limit
    /// @param iCacheSize    number of slots, brought into 1 to 10
    /// @param iUseLockFiles whether lock files are made and removed
    IDX_WT_SplittedFile(unsigned int iMaxFileSize, unsigned int iCacheSize, bool iUseLockFiles);

    IDX_WT_SplittedFile(const IDX_WT_SplittedFile&) = delete;
    IDX_WT_SplittedFile& operator=(const IDX_WT_SplittedFile&) = delete;

    ~IDX_WT_SplittedFile();  ///< Close()

    /// Opens for reading, behind a Close() of what is open. Piece 0 must exist: without it the result is
    /// IDX_False without a tag. Even so IsOpened() gives IDX_True then.
    /// Tags: "IDX_WT_SplittedFile.OpenRead.snprintf", "IDX_WT_SplittedFile.OpenRead._TestAndOpen".
    IDX_Bool OpenRead(const char* iPath);

    /// Opens for writing, behind a Close() of what is open. Always IDX_True; touches nothing on the disk.
    IDX_Bool OpenWrite(const char* iPath);

    /// Brings the open pieces to the disk, removes their lock files and closes them.
    void Close();

    /// Brings all that was written to the files.
    void Flush();

    IDX_Bool IsOpened() const;

    /// The size of a piece as IDX_WT_File::GetSize gives it; 0 when the piece can't be had.
    unsigned int GetSize(unsigned int iPart);

    /// Makes the lock file of a piece. IDX_True without doing so when lock files aren't used; IDX_False
    /// when it is there already (without a tag), or can't be made.
    /// Tag: "IDX_WT_SplittedFile.Lock.snprintf".
    IDX_Bool Lock(unsigned int iPart);

    /// Removes the lock file of a piece. IDX_True without doing so when lock files aren't used; IDX_False
    /// when it isn't there or can't be removed.
    /// Tag: "IDX_WT_SplittedFile.Unlock.snprintf".
    IDX_Bool Unlock(unsigned int iPart);

    /// Whether the lock file of a piece exists, whoever made it.
    /// Tag: "IDX_WT_SplittedFile.HasLock.snprintf".
    IDX_Bool HasLock(unsigned int iPart) const;

    /// Reads `iSize` bytes. Tags: "IDX_WT_SplittedFile.ReadAt.InvalidData" (null or nothing to read),
    /// "IDX_WT_SplittedFile.ReadAt._TestAndOpen", "IDX_WT_SplittedFile.ReadAt.IDX_WT_File.ReadAt".
    IDX_Bool ReadAt(unsigned int iPart, unsigned int iOffset, void* oData, unsigned int iSize);
    IDX_Bool ReadAt(unsigned int iPart, unsigned int iOffset, unsigned short& oValue);
    IDX_Bool ReadAt(unsigned int iPart, unsigned int iOffset, unsigned int& oValue);
    IDX_Bool ReadAt(unsigned int iPart, unsigned int iOffset, float& oValue);

    /// Reads a length-prefixed value.
    /// Tags: "IDX_WT_SplittedFile.ReadAt(ByteArray)._TestAndOpen" and ".IDX_WT_File.ReadAt", or (String).
    IDX_Bool ReadAt(unsigned int iPart, unsigned int iOffset, IDX_Base_ByteArray& oValue);
    IDX_Bool ReadAt(unsigned int iPart, unsigned int iOffset, IDX_Base_String& oValue);

    /// Reads `iSize` bytes without a prefix; none is refused. Tags as for bytes.
    IDX_Bool ReadAt(
        unsigned int iPart, unsigned int iOffset, unsigned int iSize, IDX_Base_ByteArray& oValue);

    /// Appends, and gives the place; piece 0 and offset 0 on failure.
    /// Tags: "IDX_WT_SplittedFile.Write.InvalidData" (null or nothing to write),
    /// "IDX_WT_SplittedFile.Write._TestAndOpen (1)" (current piece), " (2)" (a further one),
    /// "IDX_WT_SplittedFile.Write.IDX_WT_File.Write".
    IDX_Bool Write(
        const void* iData, unsigned int iSize, unsigned int& oPart, unsigned int& oOffset);
    IDX_Bool Write(const void* iData, unsigned int iSize);
    IDX_Bool Write(unsigned int iValue, unsigned int& oPart, unsigned int& oOffset);
    IDX_Bool Write(unsigned int iValue);

    /// Writes at a place, without regard to the size limit.
    /// Tags: "IDX_WT_SplittedFile.WriteAt.InvalidData" (null or nothing to write),
    /// "IDX_WT_SplittedFile.WriteAt._TestAndOpen", "IDX_WT_SplittedFile.WriteAt.IDX_WT_File.WriteAt".
    IDX_Bool WriteAt(
        unsigned int iPart, unsigned int iOffset, const void* iData, unsigned int iSize);
    IDX_Bool WriteAt(unsigned int iPart, unsigned int iOffset, unsigned short iValue);
    IDX_Bool WriteAt(unsigned int iPart, unsigned int iOffset, unsigned int iValue);
    IDX_Bool WriteAt(unsigned int iPart, unsigned int iOffset, float iValue);

private:
    enum Mode : unsigned int { NotOpened = 0, ReadOnly = 1, ReadWrite = 2 };

    /// The way by which every operation reaches a piece: brings it into a slot and gives its file.
    IDX_Bool _TestAndOpen(unsigned int iPart, IDX_WT_File*& oFile);

    IDX_Bool OpenSlot(unsigned int iSlot, unsigned int iPart);
    void EvictSlot(unsigned int iSlot);
    void FreeSlot(unsigned int iSlot);
    void StartOn(const char* iPath, Mode iMode);

    /// Writes the name of a piece, with `iSuffix` behind it; false when it doesn't fit, or when no base path
    /// is set.
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
