#ifndef IdxFile_h
#define IdxFile_h

#include "GridloomExport.h"
#include "VEXHashDico.h"

#include <cstdio>

class VEXUnicodeString;
class PagedFile;

/// What the process knows of one path: its open stream, its mode and its size. All IDX_WT_File
/// objects with that path share this entry. Two spellings of one path are two paths.
class GRIDLOOM_API IdxFile {
public:
    /// Copies the fields.
    IdxFile& operator=(const IdxFile& iOther) = default;

    /// The entry of a path, created at the first request. The pointer is valid until the process
    /// ends. Never null: without memory the process ends with "AssertionFailed:Ret".
    static IdxFile* GetFile(const VEXUnicodeString& iPath);

    /// Sets how many bytes of file content the process may have in memory, over all files; 256 MiB
    /// unless set. Content above the limit is written to its file and dropped.
    static void SetPageMemory(std::size_t iBytes);

    /// Writes the delayed bytes of all files, as IDX_WT_File::Flush() does for one file.
    /// @return false when some bytes can't be written
    static bool FlushAll();

private:
    friend class IDX_WT_File;

    enum Mode : unsigned int { NotOpened = 0, ReadOnly = 1, ReadWrite = 2 };

    /// The registry of all paths. Owns the entries. Closes the open files when the process ends.
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

    /// Sets the stream, which was just opened, and its mode.
    void Attach(FILE* iStream, Mode iMode);

    /// The position of the stream's end. False when it is unknown, or 2^31 or more.
    bool FindEnd(unsigned int& oPosition);

    /// Checks an offset and, for a stream without pages, moves it there. False when the offset, or
    /// the end of `iWrittenSize` bytes at it, is 2^31 or more, and when the stream can't move.
    bool Seek(unsigned int iOffset, unsigned int iWrittenSize = 0);

    /// Reads at the offset of the last Seek(). `oAtEnd` is true when the file ended too early.
    bool Read(unsigned int iOffset, void* oData, unsigned int iSize, bool& oAtEnd);

    /// Writes at the offset of the last Seek().
    bool Write(unsigned int iOffset, const void* iData, unsigned int iSize);

    /// Writes the delayed bytes to the file; false when some can't be written.
    bool Flush();

    /// Writes the delayed bytes to the file and closes the stream, if there is one.
    /// @return false when some bytes can't be written
    bool CloseStream();

    static IdxFileHash HashFiles;

    unsigned int m_size;  ///< logical size in bytes; kept when the file is closed
    FILE* m_stream;       ///< null when closed
    Mode m_mode;
    PagedFile* m_pages;  ///< pages in memory; null when closed, and for a device or pipe
};

#endif
