#ifndef VEXListValIDX_WT_Identifier_h
#define VEXListValIDX_WT_Identifier_h

#include "IDX_WT_Identifier.h"
#include "IDX_WT_ListOfCopies.h"

extern template class IDX_WT_ListOfCopies<IDX_WT_Identifier>;

/// A list of identifiers. Two of them are equal when their bytes are equal.
class GRIDLOOM_API VEXListValIDX_WT_Identifier : public IDX_WT_ListOfCopies<IDX_WT_Identifier> {
public:
    using IDX_WT_ListOfCopies<IDX_WT_Identifier>::IDX_WT_ListOfCopies;
    using IDX_WT_ListOfCopies<IDX_WT_Identifier>::Size;

    /// Sets the number of elements, 0 or more. Destroys elements at the end, or appends copies of
    /// `iFiller`.
    /// @param iFiller  may be null when the list doesn't grow; fatal stop when it grows
    /// @return the new number
    int Size(int iSize, const IDX_WT_Identifier* iFiller);
};

#endif
