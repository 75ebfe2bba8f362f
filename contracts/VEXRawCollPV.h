#ifndef VEXRawCollPV_h
#define VEXRawCollPV_h

#include "GridloomContractsExport.h"
#include "VEXCollec.h"

/// A growing list of pointers. It doesn't own what they point to. Positions count from 1. No
/// operation fails: without memory the process ends.
class GRIDLOOM_CONTRACTS_API VEXRawCollPV {
public:
    /// An empty list with memory for `iCapacity` entries.
    explicit VEXRawCollPV(int iCapacity);
    VEXRawCollPV(const VEXRawCollPV& iOther);
    VEXRawCollPV& operator=(const VEXRawCollPV& iOther);
    virtual ~VEXRawCollPV();

    /// Adds an entry at the end and returns its position. Amortised constant time.
    int Append(void* iPointer) {
        if (_count == _capacity) _Grow(_count + 1);
        _entries[_count] = iPointer;
        return ++_count;
    }

    /// The entry at a position from 1 to Size().
    void* operator[](int iPosition) const { return _entries[iPosition - 1]; }
    void*& operator[](int iPosition) { return _entries[iPosition - 1]; }

    void RemoveAll(VEXCollec::MemoryHandling iHandling);

    /// Removes one entry. The positions of the entries after it decrease by one. Linear in their
    /// number.
    void RemovePosition(int iPosition);

    int Size() const { return _count; }

    /// Sets the number of entries. New entries are null.
    /// @return the new number
    int Size(int iCount);

private:
    void _Grow(int iCount);

    int _count;       ///< entries in use
    int _capacity;    ///< entries allocated
    void** _entries;  ///< null while nothing is allocated
};

#endif
