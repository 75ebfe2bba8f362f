#ifndef Require_h
#define Require_h

#include "VEXFatalError.h"

/// Checks a condition that only a fault in the calling program can break. Ends the process by a
/// fatal stop when it doesn't hold.
/// @param iText  "AssertionFailed:" and the condition
inline void Require(
    bool iHolds,
    const char* iText,
    const char* iFile = __builtin_FILE(),
    int iLine = __builtin_LINE()) {
    if (!iHolds) VEXFatalError(iText, nullptr, nullptr, nullptr, iFile, iLine);
}

#endif
