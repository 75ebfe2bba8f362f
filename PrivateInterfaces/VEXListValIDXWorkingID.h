#ifndef VEXListValIDXWorkingID_h
#define VEXListValIDXWorkingID_h

#include "IDXWorkingID.h"
#include "IDX_WT_ListOfCopies.h"

extern template class IDX_WT_ListOfCopies<IDXWorkingID>;

/// A list of working identifiers. Two of them are equal when their object ids are equal.
class GRIDLOOM_API VEXListValIDXWorkingID : public IDX_WT_ListOfCopies<IDXWorkingID> {
public:
    using IDX_WT_ListOfCopies<IDXWorkingID>::IDX_WT_ListOfCopies;

    /// The first position from `iFrom` on whose element is equal to `iID`; 0 when there is none. An
    /// `iFrom` below 1 counts as 1. Takes linear time.
    int Locate(const IDXWorkingID& iID, int iFrom) const;

    /// Removes all elements that are equal to an earlier one. The order of the others stays. Takes
    /// quadratic time.
    /// @return the number of elements removed
    int RemoveDuplicates();

    /// Removes the element at a position. The positions of the elements after it decrease by one.
    void RemovePosition(int iPosition);
};

#endif
