#ifndef FlatFile_h
#define FlatFile_h

#include <algorithm>
#include <array>
#include <cstddef>
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

    /// What a process wrote, whether it was told that the bytes were taken or refused.
    void Write(std::size_t offset, const std::string& data, bool taken = true) {
        ForEach(offset, data.size(), [&](Byte& byte, std::size_t i) {
            byte = taken ? Byte{data[i], Held} : Byte{byte.value, Open};
        });
        _held.emplace_back(offset, data.size());
        _farEnd = std::max(_farEnd, offset + data.size());
        if (taken) _end = std::max(_end, offset + data.size());
    }

    /// What stands on the disk for sure.
    void Set(std::size_t offset, const std::string& data) {
        ForEach(offset, data.size(), [&](Byte& byte, std::size_t i) { byte = {data[i], 0}; });
        _end = std::max(_end, offset + data.size());
        _farEnd = std::max(_farEnd, _end);
    }

    /// What another process wrote within the file. Where it met bytes that may wait in memory, all is open.
    void WriteForeign(std::size_t offset, const std::string& data) {
        ForEach(offset, data.size(), [&](Byte& byte, std::size_t i) {
            const bool waits = (byte.marks & (Held | Open)) != 0;
            byte = waits ? Byte{byte.value, Open} : Byte{data[i], Foreign};
        });
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
            for (std::size_t at = (offset + i) % kPage; at < kPage && i < data.size(); ++at, ++i) {
                if (page[at].value != data[i] && (page[at].marks & except) == 0) return offset + i;
            }
        }
        return kNone;
    }

    /// Whether the disk may hold this.
    bool Allows(const std::string& content) const {
        return content.size() >= _end && content.size() <= _farEnd &&
               FirstDifference(0, content, Held | Open) == kNone;
    }

    /// Whether nothing but what is on the disk can be there.
    bool IsSure(std::size_t offset) const {
        const auto page = _pages.find(offset / kPage);
        return page == _pages.end() || (page->second[offset % kPage].marks & (Held | Open)) == 0;
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
    struct Byte {
        char value = 0;
        unsigned char marks = 0;
    };
    using Page = std::array<Byte, kPage>;

    template <class Function>
    void ForEach(std::size_t offset, std::size_t size, const Function& function) {
        for (std::size_t i = 0; i < size;) {
            Page& page = _pages[(offset + i) / kPage];
            for (std::size_t at = (offset + i) % kPage; at < kPage && i < size; ++at, ++i) {
                function(page[at], i);
            }
        }
    }

    void Clear(std::size_t offset, std::size_t size, int mark) {
        ForEach(offset, size, [&](Byte& byte, std::size_t) {
            byte.marks = static_cast<unsigned char>(byte.marks & ~mark);
        });
    }

    std::map<std::size_t, Page> _pages;                      ///< by number
    std::vector<std::pair<std::size_t, std::size_t>> _held;  ///< offsets and sizes
    std::size_t _end = 0;
    std::size_t _farEnd = 0;
};

#endif
