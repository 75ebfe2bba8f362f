#ifndef IDX_WT_ListOfCopies_h
#define IDX_WT_ListOfCopies_h

#include "GridloomExport.h"
#include "VEXCollec.h"
#include "VEXCollecRoot.h"
#include "VEXRawCollPV.h"

/// The common part of the lists of identifiers: a list that owns copies of the appended values.
/// Positions go from 1 to Size(); others must not be used. An element keeps its address until it is
/// removed. No operation fails: without memory the process ends.
///
/// The library contains this template for its two derived classes only. One thread at a time.
template <class T>
class GRIDLOOM_API IDX_WT_ListOfCopies : public VEXCollecRoot {
public:
    IDX_WT_ListOfCopies();

    /// An empty list with memory for `iCapacity` elements. The second number has no effect.
    explicit IDX_WT_ListOfCopies(int iCapacity);
    IDX_WT_ListOfCopies(int iCapacity, int);

    /// Copy the elements of the other list, in their order.
    IDX_WT_ListOfCopies(const IDX_WT_ListOfCopies& iOther);
    IDX_WT_ListOfCopies& operator=(const IDX_WT_ListOfCopies& iOther);

    ~IDX_WT_ListOfCopies();

    /// Compare the elements position by position. Not 0 means true. The derived class documents
    /// when two elements are equal.
    int operator==(const IDX_WT_ListOfCopies& iOther) const;
    int operator!=(const IDX_WT_ListOfCopies& iOther) const;

    /// The element at a position.
    T& operator[](int iPosition) { return *static_cast<T*>(_copies[iPosition]); }
    const T& operator[](int iPosition) const { return *static_cast<const T*>(_copies[iPosition]); }

    /// Adds a copy at the end. Amortised constant time.
    void Append(const T& iValue);

    /// Assigns all elements to those of `oValues`, an array of at least Size() elements.
    void Array(T* oValues) const;

    /// The number of elements.
    int Size() const { return _copies.Size(); }

    void RemoveAll(VEXCollec::MemoryHandling iHandling);

protected:
    /// A copy on the heap, owned by the caller; never null.
    static T* _CopyOf(const T& iValue);

    /// Destroys the elements from the last down to `iFirst`. Their positions stay, with invalid
    /// pointers.
    void _DestroyFrom(int iFirst);

    VEXRawCollPV _copies;  ///< T*, each of them owned

private:
    void _AppendCopiesOf(const IDX_WT_ListOfCopies& iOther);
};

#endif
