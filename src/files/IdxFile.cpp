#include "IdxFile.h"

#include "PagedFile.h"
#include "common/Require.h"

#include "IDX_Base_Trace.h"
#include "VEXHashCodeIter.h"
#include "VEXUnicodeString.h"

#include <new>

void IdxFile::SetPageMemory(std::size_t iBytes) {
    PagedFile::SetPageMemory(iBytes);
}

IdxFile::IdxFile() : m_size(0), m_stream(nullptr), m_mode(NotOpened), m_pages(nullptr) {}

IdxFile::~IdxFile() {
    if (!CloseStream()) IDX_Base_Trace::Debug("IDX_WT_File.Close.fclose");
}

// The registry of paths. Two spellings of one path are two entries, with a mode and a size each.
// Their bytes are shared all the same, by the PagedFile of the file.

IdxFile* IdxFile::GetFile(const VEXUnicodeString& iPath) {
    auto* entry = static_cast<IdxFile*>(HashFiles.dico.Locate(iPath));
    if (entry != nullptr) return entry;
    entry = new (std::nothrow) IdxFile;  // deleted by the registry when the process ends
    Require(entry != nullptr && HashFiles.dico.Insert(iPath, entry) != 0, "AssertionFailed:Ret");
    return entry;
}

void IdxFile::Attach(FILE* iStream, Mode iMode) {
    m_stream = iStream;
    m_mode = iMode;
    m_pages = PagedFile::Attach(iStream, iMode == ReadWrite);
}

bool IdxFile::FindEnd(unsigned int& oPosition) {
    if (std::fseek(m_stream, 0, SEEK_END) != 0) return false;
    // Offsets have 31 bits, so a longer file is refused here.
    const long position = std::ftell(m_stream);
    if (position < 0 || static_cast<std::size_t>(position) > kEndOfOffsets) return false;
    oPosition = static_cast<unsigned int>(position);
    return true;
}

bool IdxFile::Seek(unsigned int iOffset, unsigned int iWrittenSize) {
    if (std::size_t{iOffset} + iWrittenSize > kEndOfOffsets) return false;
    return m_pages != nullptr || std::fseek(m_stream, static_cast<long>(iOffset), SEEK_SET) == 0;
}

// A stream without pages (a device or pipe, or no memory) serves itself, from the position that
// Seek() has set.

bool IdxFile::Read(unsigned int iOffset, void* oData, unsigned int iSize, bool& oAtEnd) {
    if (m_pages == nullptr) {
        const bool all = std::fread(oData, 1, iSize, m_stream) == iSize;
        oAtEnd = std::feof(m_stream) != 0;
        return all;
    }
    // Too few bytes without an error mean that the file has ended.
    bool error = false;
    const bool all =
        m_pages->Read(iOffset, static_cast<unsigned char*>(oData), iSize, error) == iSize;
    oAtEnd = !error;
    return all;
}

bool IdxFile::Write(unsigned int iOffset, const void* iData, unsigned int iSize) {
    if (m_pages == nullptr) return std::fwrite(iData, 1, iSize, m_stream) == iSize;
    return m_pages->Write(iOffset, static_cast<const unsigned char*>(iData), iSize);
}

bool IdxFile::Flush() {
    return m_pages != nullptr ? m_pages->Flush() : std::fflush(m_stream) == 0;
}

bool IdxFile::FlushAll() {
    bool all = true;  // a failure of one file doesn't keep the others from their write back
    VEXHashCodeIter iterator(HashFiles.dico);
    while (iterator++ != nullptr) {
        auto* idxFile = static_cast<IdxFile*>(HashFiles.dico[iterator]);
        Require(idxFile != nullptr, "AssertionFailed:idxFile");
        if (idxFile->m_mode == ReadWrite && !idxFile->Flush()) all = false;
    }
    return all;
}

bool IdxFile::CloseStream() {
    if (m_stream == nullptr) return true;
    // The pages need the open stream for their write back, so they leave it first.
    const bool written = m_pages == nullptr || m_pages->Detach(m_stream);
    const bool closed = std::fclose(m_stream) == 0;
    m_stream = nullptr;
    m_pages = nullptr;
    m_mode = NotOpened;
    return written && closed;
}

IdxFile::IdxFileHash::IdxFileHash() : dico(10) {}

/// Files that are still open are closed here, at the end of the process, with a write back of their
/// dirty bytes.
IdxFile::IdxFileHash::~IdxFileHash() {
    VEXHashCodeIter iterator(dico);
    while (iterator++ != nullptr) {
        auto* idxFile = static_cast<IdxFile*>(dico[iterator]);
        Require(idxFile != nullptr, "AssertionFailed:idxFile");
        delete idxFile;
    }
    dico.RemoveAll();
}
