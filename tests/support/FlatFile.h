#ifndef FlatFile_h
#define FlatFile_h

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

/// A file as plain bytes: what a process wrote to it, and how sure each byte is. Bytes that nobody wrote are 0.
class FlatFile {
public:
    /// Held: written, and maybe not on the disk yet. Open: a refused write left open what the byte is.
    /// Foreign: written by others; who has the file open may still read what was there before.
    enum Mark : unsigned char { Held = 1, Open = 2, Foreign = 4 };

    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

    /// What a process wrote, whether the bytes were taken or refused.
    void Write(std::size_t offset, const std::string& data, bool taken = true) {
        ForPages(
            offset, data.size(), [&](Page& page, std::size_t at, std::size_t i, std::size_t n) {
                if (taken) std::memcpy(&page.values[at], &data[i], n);
                std::memset(&page.marks[at], taken ? Held : Open, n);
            });
        _held.emplace_back(offset, data.size());
        _farEnd = std::max(_farEnd, offset + data.size());
        if (taken) _end = std::max(_end, offset + data.size());
    }

    /// What the disk has for sure.
    void Set(std::size_t offset, const std::string& data) {
        ForPages(
            offset, data.size(), [&](Page& page, std::size_t at, std::size_t i, std::size_t n) {
                std::memcpy(&page.values[at], &data[i], n);
                std::memset(&page.marks[at], 0, n);
            });
        _end = std::max(_end, offset + data.size());
        _farEnd = std::max(_farEnd, _end);
    }

    /// What another process wrote. Where it met bytes that may wait in memory, all is open.
    void WriteForeign(std::size_t offset, const std::string& data) {
        ForPages(
            offset, data.size(), [&](Page& page, std::size_t at, std::size_t i, std::size_t n) {
                for (const std::size_t end = at + n; at < end; ++at, ++i) {
                    const bool waits = (page.marks[at] & (Held | Open)) != 0;
                    page.marks[at] = waits ? Open : Foreign;
                    if (!waits) page.values[at] = data[i];
                }
            });
        _end = std::max(_end, offset + data.size());
        _farEnd = std::max(_farEnd, _end);
    }

    /// All that was taken is on the disk now.
    void Flushed() {
        for (const auto& [offset, size] : _held) Clear(offset, size, Held);
        _held.clear();
    }

    /// Nobody has the file open any more: what is on the disk is what is read next.
    void Closed() {
        Flushed();
        for (const auto& page : _pages) Clear(page.first * kPage, kPage, Foreign);
    }

    /// The first byte that differs from what was read, but for those with one of the marks; kNone when there is none.
    std::size_t FirstDifference(std::size_t offset, const std::string& data, int except) const {
        static const Page none = {};
        for (std::size_t i = 0; i < data.size();) {
            const auto found = _pages.find((offset + i) / kPage);
            const Page& page = found == _pages.end() ? none : found->second;
            const std::size_t at = (offset + i) % kPage;
            const std::size_t end = i + std::min(kPage - at, data.size() - i);
            if (std::memcmp(&page.values[at], &data[i], end - i) == 0) i = end;
            for (std::size_t j = at; i < end; ++i, ++j) {
                if (page.values[j] != data[i] && (page.marks[j] & except) == 0) return offset + i;
            }
        }
        return kNone;
    }

    /// Whether nothing but what is on the disk can be there.
    bool IsSure(std::size_t offset) const {
        const auto page = _pages.find(offset / kPage);
        return page == _pages.end() || (page->second.marks[offset % kPage] & (Held | Open)) == 0;
    }
    std::size_t End() const { return _end; }        ///< of what was taken
    std::size_t FarEnd() const { return _farEnd; }  ///< of what was refused too

    /// Offsets of the pages in which something was written.
    std::vector<std::size_t> Pages() const {
        std::vector<std::size_t> offsets;
        for (const auto& page : _pages) offsets.push_back(page.first * kPage);
        return offsets;
    }

    static constexpr std::size_t kPage = 4096;

private:
    struct Page {
        char values[kPage] = {};
        unsigned char marks[kPage] = {};
    };

    /// Calls a function with each page of a range: where the range starts in it, how much lay before, how much is in it.
    template <class Function>
    void ForPages(std::size_t offset, std::size_t size, const Function& function) {
        for (std::size_t i = 0; i < size;) {
            const std::size_t at = (offset + i) % kPage;
            const std::size_t n = std::min(kPage - at, size - i);
            function(_pages[(offset + i) / kPage], at, i, n);
            i += n;
        }
    }

    void Clear(std::size_t offset, std::size_t size, unsigned char mark) {
        ForPages(offset, size, [&](Page& page, std::size_t at, std::size_t, std::size_t n) {
            for (std::size_t i = at; i < at + n; ++i)
                page.marks[i] &= static_cast<unsigned char>(~mark);
        });
    }

    std::map<std::size_t, Page> _pages;                      ///< by number
    std::vector<std::pair<std::size_t, std::size_t>> _held;  ///< offsets and sizes
    std::size_t _end = 0;
    std::size_t _farEnd = 0;
};

#endif
