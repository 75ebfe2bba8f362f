#ifndef VEXRawCollint_h
#define VEXRawCollint_h

#include "GridloomContractsExport.h"

/// A growing list of numbers. Positions count from 1. No operation fails: without memory the
/// process ends.
class GRIDLOOM_CONTRACTS_API VEXRawCollint {
public:
    /// An empty list with memory for `iCapacity` entries.
    explicit VEXRawCollint(int iCapacity);
    VEXRawCollint(const VEXRawCollint&) = delete;
    VEXRawCollint& operator=(const VEXRawCollint&) = delete;
    virtual ~VEXRawCollint();

    /// Adds an entry at the end and returns its position. Amortised constant time.
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
