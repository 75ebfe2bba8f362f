#ifndef BytesInHand_h
#define BytesInHand_h

#include "PagedFile.h"

#include "IDX_WT_File.h"
#include "IDX_WT_MemFile.h"

#include <span>

// The bytes of a file where they lie in memory, for readers that take a few of them at many places: neither call nor
// copy. What isn't in hand has to be read from the file, which then tells why it can't be.
//
// They are for files of exactly our two classes. A class derived from them has reads of its own.

/// Of any file: nothing.
class NothingInHand {
public:
    static constexpr bool kIsFar = false;

    static std::span<const unsigned char> From(unsigned int /*iOffset*/) { return {}; }
    static void Prefetch(unsigned int /*iOffset*/, unsigned int /*iSize*/) {}
};

/// Of a file in memory: all of it.
class BlockInHand {
public:
    static constexpr bool kIsFar = false;

    explicit BlockInHand(const IDX_WT_MemFile& iFile) : _file(&iFile) {}

    /// The bytes from an offset on. Valid until the next call to the file.
    std::span<const unsigned char> From(unsigned int iOffset) const {
        if (iOffset >= _file->m_writtenSize) return {};
        return {_file->m_buffer + iOffset, _file->m_writtenSize - iOffset};
    }

    /// Has the processor fetch a few bytes that are soon to be read. Any offset will do.
    void Prefetch(unsigned int iOffset, unsigned int iSize) const {
        if (iOffset >= _file->m_writtenSize) return;
        __builtin_prefetch(_file->m_buffer + iOffset);
        __builtin_prefetch(_file->m_buffer + iOffset + iSize - 1);
    }

private:
    const IDX_WT_MemFile* _file;
};

/// Of a file of the disk: the pages that are held.
class PagesInHand {
public:
    /// The way to a byte leads over a table, so that it pays to start early.
    static constexpr bool kIsFar = true;

    /// Good until the file is opened or closed.
    explicit PagesInHand(const IDX_WT_File& iFile) : _pages(iFile.Pages()) {}

    /// The bytes from an offset on, up to the end of its page. Valid until the next call to any file.
    std::span<const unsigned char> From(unsigned int iOffset) const {
        if (_pages == nullptr) return {};
        return _pages->HeldFrom(iOffset);
    }

    /// Has the processor fetch a few bytes that are soon to be read. Any offset will do.
    void Prefetch(unsigned int iOffset, unsigned int iSize) const {
        if (_pages != nullptr) _pages->Prefetch(iOffset, iSize);
    }

private:
    const PagedFile* _pages;
};

#endif
