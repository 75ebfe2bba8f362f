#ifndef CachedBytes_h
#define CachedBytes_h

#include "PagedFile.h"

#include "IDX_WT_File.h"
#include "IDX_WT_MemFile.h"

#include <span>

// Views of the bytes of a file that are in memory already. A reader that needs a few bytes at many
// places reads them there, without a call and without a copy. It reads all other bytes from the
// file, which traces why a read fails.
//
// The views fit objects of exactly our two file classes. A class derived from them may read
// differently.

/// The view of any other file: no byte is in memory.
class NothingCached {
public:
    static constexpr bool kNeedsLookup = false;

    static std::span<const unsigned char> BytesFrom(unsigned int /*iOffset*/) { return {}; }
    static void Prefetch(unsigned int /*iOffset*/, unsigned int /*iSize*/) {}
};

/// The view of an IDX_WT_MemFile: all of its content, which is one block.
class CachedBlock {
public:
    static constexpr bool kNeedsLookup = false;

    explicit CachedBlock(const IDX_WT_MemFile& iFile) : _file(&iFile) {}

    /// The bytes from an offset to the end of the content. Valid until the next call to the file.
    std::span<const unsigned char> BytesFrom(unsigned int iOffset) const {
        if (iOffset >= _file->m_writtenSize) return {};
        return {_file->m_buffer + iOffset, _file->m_writtenSize - iOffset};
    }

    /// Asks the processor to load bytes that are read soon. Any offset is allowed.
    void Prefetch(unsigned int iOffset, unsigned int iSize) const {
        if (iOffset >= _file->m_writtenSize) return;
        __builtin_prefetch(_file->m_buffer + iOffset);
        __builtin_prefetch(_file->m_buffer + iOffset + iSize - 1);
    }

private:
    const IDX_WT_MemFile* _file;
};

/// The view of an IDX_WT_File: its pages in memory. Valid until the file is opened or closed.
class CachedPages {
public:
    /// Each access goes through the page table first, so an early prefetch pays.
    static constexpr bool kNeedsLookup = true;

    explicit CachedPages(const IDX_WT_File& iFile) : _pages(iFile.Pages()) {}

    /// The bytes from an offset to the end of its page. Valid until the next call to any file.
    std::span<const unsigned char> BytesFrom(unsigned int iOffset) const {
        if (_pages == nullptr) return {};
        return _pages->CachedFrom(iOffset);
    }

    /// Asks the processor to load bytes that are read soon. Any offset is allowed.
    void Prefetch(unsigned int iOffset, unsigned int iSize) const {
        if (_pages != nullptr) _pages->Prefetch(iOffset, iSize);
    }

private:
    const PagedFile* _pages;  ///< null for a file without pages
};

#endif
