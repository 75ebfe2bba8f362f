#ifndef WrittenBytes_h
#define WrittenBytes_h

#include <algorithm>
#include <bit>
#include <cstdint>

/// Which bytes of a page this process has written, and which of these still wait to go to the file.
///
/// One bit for each byte tells exactly what was written since the page was last emptied of it: a byte that
/// this process didn't write may be another process's, and must not go to the file. Those that wait lie in
/// one range. In it, all that was written goes: to write again what the file has already does no harm
/// until others may rely on it, which is when the file is flushed.
class WrittenBytes {
public:
    /// Bytes that follow on each other, from `from` to before `to`; none when both are equal.
    struct Run {
        unsigned int from;
        unsigned int to;

        bool IsEmpty() const { return from == to; }
    };

    /// Bytes that the bits of a page take.
    static constexpr unsigned int SizeOfBits(unsigned int iPageSize) { return iPageSize / 8; }

    WrittenBytes() = default;

    /// @param ioBits  one for each byte of the page, of any value; they stay the caller's
    WrittenBytes(std::uint64_t* ioBits, unsigned int iPageSize) : _bits(ioBits) {
        Forget(iPageSize);
    }

    /// True when bytes wait.
    bool Wait() const { return _from != _to; }

    /// Forgets what was written. Nothing may wait.
    void Forget(unsigned int iPageSize) { std::fill_n(_bits, iPageSize / kWordBits, 0); }

    /// Adds bytes that wait, at least one.
    void AddWaiting(unsigned int iFrom, unsigned int iTo) {
        AddInFile(iFrom, iTo);
        _from = static_cast<std::uint16_t>(Wait() ? std::min<unsigned int>(_from, iFrom) : iFrom);
        _to = static_cast<std::uint16_t>(std::max<unsigned int>(_to, iTo));
    }

    /// Adds bytes that were written to the file at once, at least one.
    void AddInFile(unsigned int iFrom, unsigned int iTo) {
        unsigned int word = iFrom / kWordBits;
        const unsigned int lastWord = (iTo - 1) / kWordBits;
        std::uint64_t mask = kAllBits << iFrom % kWordBits;
        for (; word < lastWord; ++word) {
            _bits[word] |= mask;
            mask = kAllBits;
        }
        _bits[word] |= mask & kAllBits >> (kWordBits - 1 - (iTo - 1) % kWordBits);
    }

    /// The first run to go to the file at or after a byte.
    Run NextRun(unsigned int iAt) const {
        const unsigned int from = Find(std::max<unsigned int>(iAt, _from), true);
        return {from, Find(from, false)};
    }

    /// Takes note that a run reached the file. What lies in the middle of those that wait stays with them.
    void SetInFile(Run iRun) {
        if (iRun.from <= _from && iRun.to > _from) {
            _from = static_cast<std::uint16_t>(Find(std::min<unsigned int>(iRun.to, _to), true));
        }
        if (_from == _to) _from = _to = 0;
    }

private:
    static constexpr unsigned int kWordBits = 64;
    static constexpr std::uint64_t kAllBits = ~std::uint64_t{0};

    /// The first byte from `iFrom` on that was written, or wasn't; `_to` when there is none before it.
    unsigned int Find(unsigned int iFrom, bool iIsWritten) const {
        unsigned int at = iFrom;
        while (at < _to) {
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
    std::uint16_t _from = 0;  ///< the first byte that waits
    std::uint16_t _to = 0;    ///< no byte from here on waits
};

#endif
