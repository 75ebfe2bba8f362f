#ifndef IdxFile_h
#define IdxFile_h

#include "GridloomExport.h"
#include "VEXHashDico.h"

#include <cstdio>

class VEXUnicodeString;
class PagedStream;

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

    /// Brings what is held to the disk and closes the stream; no effect without one.
    void CloseStream();

    static IdxFileHash HashFiles;

    unsigned int
        m_size;      ///< logical size in bytes, as GetSize gives it; kept when the file is closed
    FILE* m_stream;  ///< null when closed
    Mode m_mode;
    PagedStream*
        m_pages;  ///< the stream's pages; null when closed and for what isn't a regular file
};

#endif
