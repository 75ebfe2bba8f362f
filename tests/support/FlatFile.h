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
        for (std::size_t i = 0; i < data.size(); ++i) {
            Byte& byte = At(offset + i);
            if (taken) byte.value = data[i];
            byte.marks = taken ? Held : Open;
        }
        _held.emplace_back(offset, offset + data.size());
        if (taken) _end = std::max(_end, offset + data.size());
        _farEnd = std::max(_farEnd, offset + data.size());
    }

    /// What stands on the disk for sure.
    void Set(std::size_t offset, const std::string& data, unsigned char marks = 0) {
        for (std::size_t i = 0; i < data.size(); ++i) At(offset + i) = {data[i], marks};
        _end = std::max(_end, offset + data.size());
        _farEnd = std::max(_farEnd, _end);
    }

    /// All that was taken is on the disk now.
    void Flushed() {
        for (const auto& [from, to] : _held) Clear(from, to, Held);
        _held.clear();
    }

    /// Nobody has the file open any more: what is on the disk is what is read next.
    void Closed() {
        Flushed();
        for (auto& [number, page] : _pages) Clear(number * kPage, number * kPage + kPage, Foreign);
    }

    /// The first byte that differs from what was read, but for those with one of the marks; kNone when there is none.
    std::size_t FirstDifference(
        std::size_t offset, const std::string& data, unsigned char except) const {
        for (std::size_t i = 0; i < data.size(); ++i) {
            const Byte byte = Get(offset + i);
            if ((byte.marks & except) == 0 && byte.value != data[i]) return offset + i;
        }
        return kNone;
    }

    /// Whether the disk may hold this.
    bool Allows(const std::string& content) const {
        return content.size() >= _end && content.size() <= _farEnd &&
               FirstDifference(0, content, Held | Open) == kNone;
    }

    unsigned char MarksAt(std::size_t offset) const { return Get(offset).marks; }
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

    Byte& At(std::size_t offset) { return _pages[offset / kPage][offset % kPage]; }

    Byte Get(std::size_t offset) const {
        const auto page = _pages.find(offset / kPage);
        return page == _pages.end() ? Byte() : page->second[offset % kPage];
    }

    void Clear(std::size_t from, std::size_t to, unsigned char mark) {
        for (std::size_t i = from; i < to; ++i) {
            At(i).marks = static_cast<unsigned char>(At(i).marks & ~mark);
        }
    }

    std::map<std::size_t, Page> _pages;  ///< by number
    std::vector<std::pair<std::size_t, std::size_t>> _held;
    std::size_t _end = 0;
    std::size_t _farEnd = 0;
};

#endif
