#ifndef RawMemory_h
#define RawMemory_h

#include <cstring>
#include <type_traits>

// The one way to fields of an image, which may lie at any address. Compilers make one move of it.

/// The T whose bytes start `iOffset` bytes behind `iBase`.
template <class T>
T LoadAt(const unsigned char* iBase, std::size_t iOffset) {
    static_assert(std::is_trivially_copyable<T>::value, "only bytes are loaded");
    T value;
    std::memcpy(&value, iBase + iOffset, sizeof(T));
    return value;
}

/// Writes the bytes of `iValue` from `iOffset` bytes behind `ioBase` on.
template <class T>
void StoreAt(unsigned char* ioBase, std::size_t iOffset, const T& iValue) {
    static_assert(std::is_trivially_copyable<T>::value, "only bytes are stored");
    std::memcpy(ioBase + iOffset, &iValue, sizeof(T));
}

#endif
