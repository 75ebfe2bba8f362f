#include "VEXListValIDX_WT_Identifier.h"

#include "common/Require.h"

int VEXListValIDX_WT_Identifier::Size(int iSize, const IDX_WT_Identifier* iFiller) {
    Require(iSize >= 0, "AssertionFailed:0 <= iSize");
    Require(iSize <= Size() || iFiller != nullptr, "AssertionFailed:NULL != iFiller");
    // A smaller size destroys elements from the end, a larger one adds copies of the filler.
    const int before = Size();
    _DestroyFrom(iSize + 1);
    _copies.Size(iSize);
    for (int i = before + 1; i <= iSize; ++i) _copies[i] = _CopyOf(*iFiller);
    return Size();
}
