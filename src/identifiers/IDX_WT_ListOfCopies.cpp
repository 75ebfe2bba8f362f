#include "IDX_WT_ListOfCopies.h"

#include "common/Require.h"

#include "IDXWorkingID.h"
#include "IDX_WT_Identifier.h"

#include <new>

namespace {

// How two elements differ depends on their class: identifiers in their bytes, working identifiers
// in their object ids. Two elements that can't be compared don't differ.

bool Differ(const IDX_WT_Identifier& iOne, const IDX_WT_Identifier& iOther) {
    short order = 0;
    if (iOne.SortCompare(iOther, order) == IDX_False) return false;
    return order != 0;
}

bool Differ(const IDXWorkingID& iOne, const IDXWorkingID& iOther) {
    return (iOne != iOther) == IDX_True;
}

}  // namespace

template <class T>
IDX_WT_ListOfCopies<T>::IDX_WT_ListOfCopies() : _copies(0) {}

template <class T>
IDX_WT_ListOfCopies<T>::IDX_WT_ListOfCopies(int iCapacity) : _copies(iCapacity) {}

template <class T>
IDX_WT_ListOfCopies<T>::IDX_WT_ListOfCopies(int iCapacity, int) : _copies(iCapacity) {}

template <class T>
IDX_WT_ListOfCopies<T>::IDX_WT_ListOfCopies(const IDX_WT_ListOfCopies& iOther)
    : VEXCollecRoot(), _copies(iOther.Size()) {
    _AppendCopiesOf(iOther);
}

// An assignment keeps the array of pointers, whose size will often do, and replaces the elements.
template <class T>
IDX_WT_ListOfCopies<T>& IDX_WT_ListOfCopies<T>::operator=(const IDX_WT_ListOfCopies& iOther) {
    if (this != &iOther) {
        RemoveAll(VEXCollec::KeepMemory);
        _AppendCopiesOf(iOther);
    }
    return *this;
}

template <class T>
IDX_WT_ListOfCopies<T>::~IDX_WT_ListOfCopies() {
    _DestroyFrom(1);
}

template <class T>
int IDX_WT_ListOfCopies<T>::operator==(const IDX_WT_ListOfCopies& iOther) const {
    return operator!=(iOther) == 0 ? 1 : 0;
}

template <class T>
int IDX_WT_ListOfCopies<T>::operator!=(const IDX_WT_ListOfCopies& iOther) const {
    if (this == &iOther) return 0;
    if (Size() != iOther.Size()) return 1;
    for (int i = 1; i <= Size(); ++i) {
        if (Differ((*this)[i], iOther[i])) return 1;
    }
    return 0;
}

template <class T>
void IDX_WT_ListOfCopies<T>::Append(const T& iValue) {
    _copies.Append(_CopyOf(iValue));
}

template <class T>
void IDX_WT_ListOfCopies<T>::Array(T* oValues) const {
    // From the last element to the first, which a type with an assignment of its own can see.
    for (int i = Size(); i >= 1; --i) oValues[i - 1] = (*this)[i];
}

template <class T>
void IDX_WT_ListOfCopies<T>::RemoveAll(VEXCollec::MemoryHandling iHandling) {
    _DestroyFrom(1);
    _copies.RemoveAll(iHandling);
}

// The list holds pointers to copies: an element keeps its address while the array of pointers
// grows.
template <class T>
T* IDX_WT_ListOfCopies<T>::_CopyOf(const T& iValue) {
    T* copy = new (std::nothrow) T(iValue);
    Require(copy != nullptr, "AssertionFailed: memory for an element");
    return copy;
}

template <class T>
void IDX_WT_ListOfCopies<T>::_AppendCopiesOf(const IDX_WT_ListOfCopies& iOther) {
    for (int i = 1; i <= iOther.Size(); ++i) Append(iOther[i]);
}

template <class T>
void IDX_WT_ListOfCopies<T>::_DestroyFrom(int iFirst) {
    for (int i = Size(); i >= iFirst; --i) delete static_cast<T*>(_copies[i]);
}

// All code of the template is in this file, so its two classes are compiled here.
template class IDX_WT_ListOfCopies<IDX_WT_Identifier>;
template class IDX_WT_ListOfCopies<IDXWorkingID>;
