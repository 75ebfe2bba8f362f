#ifndef VEXListValVEXBoolean_h
#define VEXListValVEXBoolean_h

#include "VEXBoolean.h"
#include "VEXListVal.h"

/// A list of numbers that are 0 or 1.
class VEXListValVEXBoolean : public VEXListVal<VEXBoolean> {};

#endif
