#ifndef SortedBytes_h
#define SortedBytes_h

#include <algorithm>
#include <cstring>

/// The order of all identifiers: as memcmp over the shorter length, then the shorter one first.
/// @return -1, 0 or 1
inline short CompareBytes(
    const unsigned char* iFirst,
    unsigned int iFirstSize,
    const unsigned char* iSecond,
    unsigned int iSecondSize) {
    const unsigned int shorter = std::min(iFirstSize, iSecondSize);
    // memcmp wants pointers even for nothing to compare.
    const int order = shorter > 0 ? std::memcmp(iFirst, iSecond, shorter) : 0;
    if (order != 0) return order < 0 ? short{-1} : short{1};
    if (iFirstSize == iSecondSize) return 0;
    return iFirstSize < iSecondSize ? short{-1} : short{1};
}

#endif
