#ifndef VEXRawCollPV_h
#define VEXRawCollPV_h

#include "GridloomContractsExport.h"
#include "VEXCollec.h"

/// A growable collection of pointers, which doesn't own what they point at. Positions count from 1.
/// A collection that can't grow for want of memory ends the process: none of its operations fails.
class GRIDLOOM_CONTRACTS_API VEXRawCollPV {
public:
    /// No entries, and room for `iCapacity` of them.
    explicit VEXRawCollPV(int iCapacity);
    VEXRawCollPV(const VEXRawCollPV& iOther);
    VEXRawCollPV& operator=(const VEXRawCollPV& iOther);
    virtual ~VEXRawCollPV();

    /// Adds an entry at the end and gives its position. Amortised constant time.
    int Append(void* iPointer) {
        if (_count == _capacity) _Grow(_count + 1);
        _entries[_count] = iPointer;
        return ++_count;
    }

    /// The entry at a position from 1 to Size().
    void* operator[](int iPosition) const { return _entries[iPosition - 1]; }
    void*& operator[](int iPosition) { return _entries[iPosition - 1]; }

    void RemoveAll(VEXCollec::MemoryHandling iHandling);

    /// Removes one entry; those behind it move up by one. Linear in their number.
    void RemovePosition(int iPosition);

    int Size() const { return _count; }

    /// Sets the number of entries. New ones are addressable at once and hold null.
    /// @return the new number
    int Size(int iCount);

private:
    void _Grow(int iCount);

    int _count;       ///< entries in use
    int _capacity;    ///< entries allocated
    void** _entries;  ///< null while nothing is allocated
};

#endif
