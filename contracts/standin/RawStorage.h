#ifndef RawStorage_h
#define RawStorage_h

#include "VEXFatalError.h"

#include <cstdlib>
#include <limits>
#include <new>

/// Ends the process: the operations of collections and values can't report a failure.
[[noreturn]] inline void StopForMemory() {
    VEXFatalError(
        "AssertionFailed: memory for a collection", nullptr, nullptr, nullptr, __FILE__, __LINE__);
}

/// A block of `iSize` bytes, which the caller frees by free(). Never null, even for 0 bytes.
inline void* AllocateOrStop(std::size_t iSize) {
    void* block = std::malloc(iSize > 0 ? iSize : 1);
    if (block == nullptr) StopForMemory();
    return block;
}

/// Enlarges the memory of a collection to at least `iCount` entries, and to at least twice its
/// capacity, so that an append takes amortised constant time. Ends the process without memory.
template <class T>
void GrowRawStorage(T*& ioEntries, int& ioCapacity, int iCount) {
    const int doubled = ioCapacity > std::numeric_limits<int>::max() / 2 ? iCount : 2 * ioCapacity;
    const int capacity = doubled > iCount ? doubled : iCount;
    void* entries = std::realloc(ioEntries, static_cast<std::size_t>(capacity) * sizeof(T));
    if (entries == nullptr) StopForMemory();
    ioEntries = static_cast<T*>(entries);
    ioCapacity = capacity;
}

#endif
