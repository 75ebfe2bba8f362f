#ifndef VEXRawCollint_h
#define VEXRawCollint_h

#include "GridloomContractsExport.h"

/// A growable collection of numbers. Positions count from 1. A collection that can't grow for want
/// of memory ends the process: none of its operations fails.
class GRIDLOOM_CONTRACTS_API VEXRawCollint {
public:
    /// No entries, and room for `iCapacity` of them.
    explicit VEXRawCollint(int iCapacity);
    VEXRawCollint(const VEXRawCollint&) = delete;
    VEXRawCollint& operator=(const VEXRawCollint&) = delete;
    virtual ~VEXRawCollint();

    /// Adds an entry at the end and gives its position. Amortised constant time.
    int Append(int iNumber) {
        if (_count == _capacity) _Grow(_count + 1);
        _entries[_count] = iNumber;
        return ++_count;
    }

    /// The entry at a position from 1 to Size().
    int& operator[](int iPosition) { return _entries[iPosition - 1]; }

    int Size() const { return _count; }

private:
    void _Grow(int iCount);

    int _count;     ///< entries in use
    int _capacity;  ///< entries allocated
    int* _entries;  ///< null while nothing is allocated
};

#endif
