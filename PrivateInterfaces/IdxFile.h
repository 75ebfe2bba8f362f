#ifndef IdxFile_h
#define IdxFile_h

#include "GridloomExport.h"
#include "VEXHashDico.h"

#include <cstdio>

class VEXUnicodeString;
class PagedFile;

/// What the process knows of one path: its open stream, the mode and the size. Every IDX_WT_File on that
/// path works on this one entry. Paths are told apart as they are spelled.
class GRIDLOOM_API IdxFile {
public:
    /// Copies the fields.
    IdxFile& operator=(const IdxFile& iOther) = default;

    /// The entry of a path, made at the first request. Entries stay until the process ends, so that the
    /// pointer stays good. Never null: without memory the process ends with "AssertionFailed:Ret".
    static IdxFile* GetFile(const VEXUnicodeString& iPath);

    /// Sets how many bytes of file content the process may hold in memory, over all files; what is held
    /// beyond that is written or dropped as further pages are needed. 256 MiB unless set.
    static void SetPageMemory(std::size_t iBytes);

    /// Brings to the files of the process what was written to them and waits in memory, as IDX_WT_File::Flush
    /// does for one.
    /// @return false when something can't reach its file
    static bool FlushAll();

private:
    friend class IDX_WT_File;

    enum Mode : unsigned int { NotOpened = 0, ReadOnly = 1, ReadWrite = 2 };

    /// The registry. Owns its entries; closes what is still open when the process ends.
    class IdxFileHash {
    public:
        IdxFileHash();
        ~IdxFileHash();
        IdxFileHash(const IdxFileHash&) = delete;
        IdxFileHash& operator=(const IdxFileHash&) = delete;

        VEXHashDico dico;  ///< path to IdxFile*
    };

    IdxFile();
    ~IdxFile();

    /// Takes a stream that was just opened.
    void Attach(FILE* iStream, Mode iMode);

    /// The position of the stream's end; false when it can't be told or isn't below 2^31.
    bool FindEnd(unsigned int& oPosition);

    /// Goes to an offset; false from 2^31 on, when as many bytes as are to be written there would end at 2^31
    /// or past it, or when a stream that serves itself can't.
    bool Seek(unsigned int iOffset, unsigned int iWrittenSize = 0);

    /// Reads at the offset of the last Seek; `oAtEnd` when the file ended too early.
    bool Read(unsigned int iOffset, void* oData, unsigned int iSize, bool& oAtEnd);

    /// Writes at the offset of the last Seek.
    bool Write(unsigned int iOffset, const void* iData, unsigned int iSize);

    /// Brings what is held to the file; false when it can't be done.
    bool Flush();

    /// Brings what is held to the file and closes the stream, if there is one.
    /// @return false when bytes that were written can't reach the file
    bool CloseStream();

    static IdxFileHash HashFiles;

    unsigned int m_size;  ///< logical size in bytes; kept when the file is closed
    FILE* m_stream;       ///< null when closed
    Mode m_mode;
    PagedFile* m_pages;  ///< where the bytes are held; null when closed and for a device or pipe
};

#endif
