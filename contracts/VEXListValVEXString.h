#ifndef VEXListValVEXString_h
#define VEXListValVEXString_h

#include "VEXListVal.h"
#include "VEXString.h"

/// A list of texts.
class VEXListValVEXString : public VEXListVal<VEXString> {};

#endif
