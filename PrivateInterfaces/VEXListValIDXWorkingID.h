#ifndef VEXListValIDXWorkingID_h
#define VEXListValIDXWorkingID_h

#include "IDXWorkingID.h"
#include "IDX_WT_ListOfCopies.h"

extern template class IDX_WT_ListOfCopies<IDXWorkingID>;

/// A list of working identifiers, which are equal when their object ids are.
class GRIDLOOM_API VEXListValIDXWorkingID : public IDX_WT_ListOfCopies<IDXWorkingID> {
public:
    using IDX_WT_ListOfCopies<IDXWorkingID>::IDX_WT_ListOfCopies;

    /// The first position from `iFrom` on whose element equals `iID`, or 0. A position below 1 counts
    /// as 1. Linear in what is searched.
    int Locate(const IDXWorkingID& iID, int iFrom) const;

    /// Removes all elements that equal one before them; the first of each stays, in its order. The time
    /// is quadratic.
    /// @return the number of elements removed
    int RemoveDuplicates();

    /// Removes the element at a position; those behind it move up by one.
    void RemovePosition(int iPosition);
};

#endif
