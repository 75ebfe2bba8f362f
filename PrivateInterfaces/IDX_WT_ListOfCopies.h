#ifndef IDX_WT_ListOfCopies_h
#define IDX_WT_ListOfCopies_h

#include "GridloomExport.h"
#include "VEXCollec.h"
#include "VEXCollecRoot.h"
#include "VEXRawCollPV.h"

/// What the lists of identifiers share: a list that owns copies of the values it is given. Positions
/// count from 1, and only those up to Size() may be asked for. An element keeps its address until it is
/// removed. None of the operations fails: without memory the process ends.
///
/// The library has this for the two classes that derive from it. One thread at a time.
template <class T>
class GRIDLOOM_API IDX_WT_ListOfCopies : public VEXCollecRoot {
public:
    IDX_WT_ListOfCopies();

    /// An empty list with room for `iCapacity` elements. The second number means nothing.
    explicit IDX_WT_ListOfCopies(int iCapacity);
    IDX_WT_ListOfCopies(int iCapacity, int);

    /// Copies of the other list's elements, in their order.
    IDX_WT_ListOfCopies(const IDX_WT_ListOfCopies& iOther);
    IDX_WT_ListOfCopies& operator=(const IDX_WT_ListOfCopies& iOther);

    ~IDX_WT_ListOfCopies();

    /// Compare the elements position by position: not 0 for true. What counts as equal is told by the
    /// class that derives.
    int operator==(const IDX_WT_ListOfCopies& iOther) const;
    int operator!=(const IDX_WT_ListOfCopies& iOther) const;

    /// The element at a position.
    T& operator[](int iPosition) { return *static_cast<T*>(_copies[iPosition]); }
    const T& operator[](int iPosition) const { return *static_cast<const T*>(_copies[iPosition]); }

    /// Adds a copy at the end. Amortised constant time.
    void Append(const T& iValue);

    /// Assigns all elements to those of `oValues`, which has room for Size() of them.
    void Array(T* oValues) const;

    /// The number of elements.
    int Size() const { return _copies.Size(); }

    void RemoveAll(VEXCollec::MemoryHandling iHandling);

protected:
    /// A copy on the heap, never null.
    static T* _CopyOf(const T& iValue);

    /// Destroys the elements from the last down to `iFirst`, whose positions stay.
    void _DestroyFrom(int iFirst);

    VEXRawCollPV _copies;  ///< T*, each of them owned

private:
    void _AppendCopiesOf(const IDX_WT_ListOfCopies& iOther);
};

#endif
