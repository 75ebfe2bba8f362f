#ifndef VEXListValVEXUnicodeString_h
#define VEXListValVEXUnicodeString_h

#include "VEXListVal.h"
#include "VEXUnicodeString.h"

/// A list of texts.
class VEXListValVEXUnicodeString : public VEXListVal<VEXUnicodeString> {};

#endif
