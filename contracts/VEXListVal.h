#ifndef VEXListVal_h
#define VEXListVal_h

#include "VEXAllocator.h"
#include "VEXCollec.h"
#include "VEXCollecRoot.h"

#include <cstddef>
#include <deque>

/// A list that owns copies of values. Positions count from 1. An element keeps its address while
/// others are appended. No operation fails.
template <class T>
class VEXListVal : public VEXCollecRoot {
public:
    /// Adds a copy at the end and returns its position. Constant time.
    int Append(const T& iValue) {
        _values.push_back(iValue);
        return Size();
    }

    int Size() const { return static_cast<int>(_values.size()); }

    /// The element at a position from 1 to Size().
    T& operator[](int iPosition) { return _values[static_cast<std::size_t>(iPosition - 1)]; }
    const T& operator[](int iPosition) const {
        return _values[static_cast<std::size_t>(iPosition - 1)];
    }

    void RemoveAll(VEXCollec::MemoryHandling iHandling) {
        _values.clear();
        if (iHandling == VEXCollec::ReleaseMemory) _values.shrink_to_fit();
    }

private:
    std::deque<T, VEXAllocator<T>> _values;
};

#endif
