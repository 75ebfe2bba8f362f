#ifndef Require_h
#define Require_h

#include "VEXFatalError.h"

/// Ends the process by a fatal stop unless a condition holds which callers must never break.
/// @param iText  "AssertionFailed:" and the condition
inline void Require(
    bool iHolds,
    const char* iText,
    const char* iFile = __builtin_FILE(),
    int iLine = __builtin_LINE()) {
    if (!iHolds) VEXFatalError(iText, nullptr, nullptr, nullptr, iFile, iLine);
}

#endif
