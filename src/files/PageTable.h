#ifndef PageTable_h
#define PageTable_h

#include "PagePool.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>

/// The page table of one file: for each page number the frame that holds the page in memory.
/// Look-up takes one array access. The table has an entry of 16 bytes for each page up to the
/// highest one that was ever in memory.
class PageTable {
public:
    /// The address of the bytes is kept beside the frame, so that a reader can prefetch the bytes
    /// before the frame itself is loaded.
    struct Entry {
        PageFrame* frame = nullptr;  ///< null when the page isn't in memory
        unsigned char* bytes = nullptr;
    };

    PageTable() = default;
    PageTable(const PageTable&) = delete;
    PageTable& operator=(const PageTable&) = delete;
    ~PageTable() { std::free(_entries); }

    Entry Find(std::size_t iPage) const { return iPage < _nEntries ? _entries[iPage] : Entry{}; }

    /// Makes room for an entry. The table at least doubles, so that a growing file costs amortised
    /// constant time for each page. False without memory.
    bool Reserve(std::size_t iPage) {
        if (iPage < _nEntries) return true;
        const std::size_t nEntries = std::max(iPage + 1, 2 * _nEntries);
        auto* entries = static_cast<Entry*>(std::realloc(_entries, nEntries * sizeof(Entry)));
        if (entries == nullptr) return false;
        std::fill(entries + _nEntries, entries + nEntries, Entry{});
        _entries = entries;
        _nEntries = nEntries;
        return true;
    }

    /// Sets an entry for which Reserve() made room.
    void Set(std::size_t iPage, PageFrame* iFrame) { _entries[iPage] = {iFrame, iFrame->bytes}; }
    void Clear(std::size_t iPage) { _entries[iPage] = {}; }

    /// Pages from this number on aren't in memory.
    std::size_t End() const { return _nEntries; }

    /// Forgets all pages without freeing the array: for a new process, where another thread of the
    /// parent may have been enlarging it at the moment of the fork.
    void Abandon() { _nEntries = 0; }

private:
    Entry* _entries = nullptr;
    std::size_t _nEntries = 0;
};

#endif
