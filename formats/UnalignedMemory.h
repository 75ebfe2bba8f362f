#ifndef UnalignedMemory_h
#define UnalignedMemory_h

#include <cstddef>
#include <cstring>
#include <type_traits>

// All code reads and writes the fields of stored bytes with these two functions, since a field may
// be at any address. Compilers make one move instruction of each.

/// The T whose bytes start `iOffset` bytes after `iBase`.
template <class T>
T LoadAt(const unsigned char* iBase, std::size_t iOffset) {
    static_assert(std::is_trivially_copyable<T>::value, "only bytes are loaded");
    T value;
    std::memcpy(&value, iBase + iOffset, sizeof(T));
    return value;
}

/// Writes the bytes of `iValue` from `iOffset` bytes after `ioBase` on.
template <class T>
void StoreAt(unsigned char* ioBase, std::size_t iOffset, const T& iValue) {
    static_assert(std::is_trivially_copyable<T>::value, "only bytes are stored");
    std::memcpy(ioBase + iOffset, &iValue, sizeof(T));
}

#endif
