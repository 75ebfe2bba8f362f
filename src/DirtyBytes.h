#ifndef DirtyBytes_h
#define DirtyBytes_h

#include <algorithm>
#include <bit>
#include <cstdint>

/// Which bytes of a page were written and aren't in the file yet: one bit for each byte. The bits tell them
/// exactly, since a byte of the file that this process didn't write may be another process's.
class DirtyBytes {
public:
    static constexpr unsigned int kWordBits = 64;

    /// Bytes that follow on each other, from `from` to before `to`; none when both are equal.
    struct Run {
        unsigned int from;
        unsigned int to;
    };

    DirtyBytes() = default;

    /// @param ioBits  one for each byte of the page, all 0; they stay the caller's
    explicit DirtyBytes(std::uint64_t* ioBits) : _bits(ioBits) {}

    bool Any() const { return _from != _to; }

    /// Adds the bytes from `iFrom` to before `iTo`, at least one.
    void Add(unsigned int iFrom, unsigned int iTo) {
        _from = static_cast<std::uint16_t>(Any() ? std::min<unsigned int>(_from, iFrom) : iFrom);
        _to = static_cast<std::uint16_t>(std::max<unsigned int>(_to, iTo));
        ForWords(iFrom, iTo, [](std::uint64_t& ioWord, std::uint64_t iMask) { ioWord |= iMask; });
    }

    /// Takes these bytes out, whether they are in or not.
    void Remove(unsigned int iFrom, unsigned int iTo) {
        const unsigned int from = std::max<unsigned int>(iFrom, _from);
        const unsigned int to = std::min<unsigned int>(iTo, _to);
        if (from >= to) return;
        ForWords(from, to, [](std::uint64_t& ioWord, std::uint64_t iMask) { ioWord &= ~iMask; });
        if (from == _from) _from = static_cast<std::uint16_t>(Find(to, _to, true));
        if (_from == _to) _from = _to = 0;
    }

    void Clear() { Remove(_from, _to); }

    /// The first run at or after a byte.
    Run NextRun(unsigned int iAt) const {
        const unsigned int from = Find(std::max<unsigned int>(iAt, _from), _to, true);
        return {from, Find(from, _to, false)};
    }

private:
    /// Calls iDo for each word that has bits of the bytes, with a mask of these.
    template <class Do>
    void ForWords(unsigned int iFrom, unsigned int iTo, const Do& iDo) {
        unsigned int word = iFrom / kWordBits;
        const unsigned int lastWord = (iTo - 1) / kWordBits;
        std::uint64_t mask = ~std::uint64_t{0} << iFrom % kWordBits;
        for (; word < lastWord; ++word) {
            iDo(_bits[word], mask);
            mask = ~std::uint64_t{0};
        }
        iDo(_bits[word], mask & ~std::uint64_t{0} >> (kWordBits - 1 - (iTo - 1) % kWordBits));
    }

    /// The first byte from `iFrom` on that is dirty, or isn't; `iEnd` when there is none before it.
    unsigned int Find(unsigned int iFrom, unsigned int iEnd, bool iDirty) const {
        unsigned int at = iFrom;
        while (at < iEnd) {
            const std::uint64_t word = iDirty ? _bits[at / kWordBits] : ~_bits[at / kWordBits];
            const std::uint64_t rest = word >> at % kWordBits;
            if (rest != 0) {
                at += static_cast<unsigned int>(std::countr_zero(rest));
                break;
            }
            at = (at / kWordBits + 1) * kWordBits;
        }
        return std::min(at, iEnd);
    }

    std::uint64_t* _bits = nullptr;
    std::uint16_t _from = 0;  ///< the first dirty byte
    std::uint16_t _to = 0;    ///< no byte from here on is dirty
};

#endif
