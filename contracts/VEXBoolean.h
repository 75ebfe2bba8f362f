#ifndef VEXBoolean_h
#define VEXBoolean_h

/// 0 or 1.
typedef unsigned char VEXBoolean;

#endif
