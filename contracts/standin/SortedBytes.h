#ifndef SortedBytes_h
#define SortedBytes_h

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>

/// The first 8 bytes as a number. Its order is that of the bytes: the first byte is the most
/// significant one.
inline std::uint64_t FirstBytes(const unsigned char* iBytes) {
    std::uint64_t number;
    std::memcpy(&number, iBytes, sizeof number);
    return std::endian::native == std::endian::little ? __builtin_bswap64(number) : number;
}

/// The order of all identifiers: as memcmp over the shorter length; when that is equal, the shorter
/// one is first.
/// @return -1, 0 or 1
inline short CompareBytes(
    const unsigned char* iFirst,
    unsigned int iFirstSize,
    const unsigned char* iSecond,
    unsigned int iSecondSize) {
    // Most identifiers differ in their first 8 bytes. One comparison of numbers saves the call of
    // memcmp.
    const unsigned int shorter = std::min(iFirstSize, iSecondSize);
    if (shorter >= sizeof(std::uint64_t)) {
        const std::uint64_t first = FirstBytes(iFirst);
        const std::uint64_t second = FirstBytes(iSecond);
        if (first != second) return first < second ? short{-1} : short{1};
    }
    // memcmp must not get a null pointer, even for 0 bytes.
    const int order = shorter > 0 ? std::memcmp(iFirst, iSecond, shorter) : 0;
    if (order != 0) return order < 0 ? short{-1} : short{1};
    if (iFirstSize == iSecondSize) return 0;
    return iFirstSize < iSecondSize ? short{-1} : short{1};
}

#endif
