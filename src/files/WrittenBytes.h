#ifndef WrittenBytes_h
#define WrittenBytes_h

#include <algorithm>
#include <bit>
#include <cstdint>

/// Which bytes of a page this process has written, and which of them are dirty: in memory alone,
/// not yet in the file.
///
/// Each byte of the page has one bit, set when this process writes the byte. A byte without its bit
/// may have been changed in the file by another process, so it must never be written back.
///
///     page     ....WWWW..WWWWWW....WWWW......       W: a byte whose bit is set
///     dirty          [_from         _to)           writes back WW, WWWWWW and WWWW as three runs
///
/// All dirty bytes are in one range [_from, _to). A write back of the range writes all bytes in it
/// whose bit is set. Some of them may be in the file already. To write these again does no harm
/// until the file is flushed, because only then may others rely on its content.
class WrittenBytes {
public:
    /// Consecutive bytes of the page: from `from` to before `to`. Empty when both are equal.
    struct Run {
        unsigned int from;
        unsigned int to;

        bool IsEmpty() const { return from == to; }
    };

    /// Bytes of memory for the bits of a page.
    static constexpr unsigned int SizeOfBits(unsigned int iPageSize) { return iPageSize / 8; }

    WrittenBytes() = default;

    /// @param ioBits  one bit for each byte of the page, of any value; owned by the caller
    WrittenBytes(std::uint64_t* ioBits, unsigned int iPageSize) : _bits(ioBits) {
        Clear(iPageSize);
    }

    /// True when some bytes are dirty.
    bool IsDirty() const { return _from != _to; }

    /// Clears all bits. No byte may be dirty.
    void Clear(unsigned int iPageSize) { std::fill_n(_bits, iPageSize / kWordBits, 0); }

    /// Records bytes, at least one, that were written to memory alone.
    void AddDirty(unsigned int iFrom, unsigned int iTo) {
        AddClean(iFrom, iTo);
        _from =
            static_cast<std::uint16_t>(IsDirty() ? std::min<unsigned int>(_from, iFrom) : iFrom);
        _to = static_cast<std::uint16_t>(std::max<unsigned int>(_to, iTo));
    }

    /// Records bytes, at least one, that were written to memory and to the file.
    void AddClean(unsigned int iFrom, unsigned int iTo) {
        // The first word takes the bits from iFrom on, the last one those before iTo, and each word
        // between them all 64. The two masks meet when the run lies in one word.
        unsigned int word = iFrom / kWordBits;
        const unsigned int lastWord = (iTo - 1) / kWordBits;
        std::uint64_t mask = kAllBits << iFrom % kWordBits;
        for (; word < lastWord; ++word) {
            _bits[word] |= mask;
            mask = kAllBits;
        }
        _bits[word] |= mask & kAllBits >> (kWordBits - 1 - (iTo - 1) % kWordBits);
    }

    /// The first run of bytes to write back, at or after a byte of the page.
    Run NextDirtyRun(unsigned int iAt) const {
        const unsigned int from = Find(std::max<unsigned int>(iAt, _from), true);
        return {from, Find(from, false)};
    }

    /// Records that a run has reached the file. The dirty range shrinks only from its start: a run
    /// in the middle stays in the range.
    void MarkClean(Run iRun) {
        if (iRun.from <= _from && iRun.to > _from) {
            _from = static_cast<std::uint16_t>(Find(std::min<unsigned int>(iRun.to, _to), true));
        }
        if (_from == _to) _from = _to = 0;
    }

private:
    static constexpr unsigned int kWordBits = 64;
    static constexpr std::uint64_t kAllBits = ~std::uint64_t{0};

    /// The first byte from `iFrom` on whose bit is set, or is clear; `_to` when there is none
    /// before it.
    unsigned int Find(unsigned int iFrom, bool iIsWritten) const {
        unsigned int at = iFrom;
        while (at < _to) {
            // Looks at 64 bits in one step: after the shift, bit 0 belongs to the byte `at`.
            const std::uint64_t word = iIsWritten ? _bits[at / kWordBits] : ~_bits[at / kWordBits];
            const std::uint64_t rest = word >> at % kWordBits;
            if (rest != 0) {
                at += static_cast<unsigned int>(std::countr_zero(rest));
                break;
            }
            at = (at / kWordBits + 1) * kWordBits;
        }
        return std::min<unsigned int>(at, _to);
    }

    std::uint64_t* _bits = nullptr;
    std::uint16_t _from = 0;  ///< the first dirty byte
    std::uint16_t _to = 0;    ///< after the last dirty byte; equal to `_from` when none is dirty
};

#endif
