#include "IDX_Base_Identifier.h"

#include "SortedBytes.h"

IDX_Base_Identifier::~IDX_Base_Identifier() = default;

IDX_Bool IDX_Base_Identifier::SortCompare(const IDX_Base_Identifier& iOther, short& oOrder) const {
    oOrder = CompareBytes(GetData(), GetSize(), iOther.GetData(), iOther.GetSize());
    return IDX_True;
}
