#include "IDX_Base_String.h"

IDX_Base_String::~IDX_Base_String() = default;

void IDX_Base_String::SetData(const char* iData, unsigned int iLength) {
    _bytes.SetData(reinterpret_cast<const unsigned char*>(iData), iLength);
}
