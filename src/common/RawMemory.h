#ifndef RawMemory_h
#define RawMemory_h

#include "formats/UnalignedMemory.h"

/// Copies bytes. The sizes of a tree's accesses, 4 to 8 bytes and 16 to 32, without a call.
inline void CopyBytes(void* oTo, const void* iFrom, std::size_t iSize) {
    auto* to = static_cast<unsigned char*>(oTo);
    const auto* from = static_cast<const unsigned char*>(iFrom);
    if (iSize - 4 <= 4) {
        const auto first = LoadAt<unsigned int>(from, 0);
        const auto last = LoadAt<unsigned int>(from, iSize - 4);
        StoreAt(to, 0, first);
        StoreAt(to, iSize - 4, last);
    } else if (iSize - 16 <= 16) {
        unsigned char first[16];
        unsigned char last[16];
        std::memcpy(first, from, 16);
        std::memcpy(last, from + iSize - 16, 16);
        std::memcpy(to, first, 16);
        std::memcpy(to + iSize - 16, last, 16);
    } else {
        std::memcpy(to, from, iSize);
    }
}

#endif
