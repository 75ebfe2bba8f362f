#ifndef RawMemory_h
#define RawMemory_h

#include "formats/UnalignedMemory.h"

#include <array>

/// Copies `iSize` bytes, n bytes from the start and n bytes up to the end. The two parts overlap
/// where `iSize` is less than 2n, and write the same bytes there.
/// @tparam Part  a type of n bytes; `iSize` is from n to 2n
template <class Part>
inline void CopyBothEnds(unsigned char* oTo, const unsigned char* iFrom, std::size_t iSize) {
    const std::size_t lastPart = iSize - sizeof(Part);
    // Both loads come before the first store, which may overwrite bytes of the second load.
    const Part first = LoadAt<Part>(iFrom, 0);
    const Part last = LoadAt<Part>(iFrom, lastPart);
    StoreAt(oTo, 0, first);
    StoreAt(oTo, lastPart, last);
}

/// Copies bytes. The accesses of an identifier tree are of 4 to 8 bytes (numbers) and of 16 to 32
/// bytes (identifiers, records, nodes). For these sizes two loads and two stores are faster than
/// the call of memcpy.
inline void CopyBytes(void* oTo, const void* iFrom, std::size_t iSize) {
    using Bytes16 = std::array<unsigned char, 16>;
    auto* to = static_cast<unsigned char*>(oTo);
    const auto* from = static_cast<const unsigned char*>(iFrom);
    if (4 <= iSize && iSize <= 8) {
        CopyBothEnds<unsigned int>(to, from, iSize);
    } else if (16 <= iSize && iSize <= 32) {
        CopyBothEnds<Bytes16>(to, from, iSize);
    } else {
        std::memcpy(to, from, iSize);
    }
}

#endif
