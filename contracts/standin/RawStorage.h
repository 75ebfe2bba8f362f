#ifndef RawStorage_h
#define RawStorage_h

#include "VEXFatalError.h"

#include <cstdlib>
#include <limits>
#include <new>

/// Ends the process: a collection or a value has no failure that its users could see.
[[noreturn]] inline void StopForMemory() {
    VEXFatalError(
        "AssertionFailed: memory for a collection", nullptr, nullptr, nullptr, __FILE__, __LINE__);
}

/// A block of `iSize` bytes for free(), never null.
inline void* AllocateOrStop(std::size_t iSize) {
    void* block = std::malloc(iSize > 0 ? iSize : 1);
    if (block == nullptr) StopForMemory();
    return block;
}

/// Enlarges the storage of a raw collection to at least `iCount` entries, at least doubling it, so
/// that appending takes amortised constant time. Ends the process when there is no memory.
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
