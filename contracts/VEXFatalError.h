#ifndef VEXFatalError_h
#define VEXFatalError_h

#include "GridloomContractsExport.h"

/// The fatal stop: prints "FILE:LINE: TEXT" to the standard error and aborts the process. The three
/// middle arguments are always null.
[[noreturn]] GRIDLOOM_CONTRACTS_API void VEXFatalError(
    const char* iText, const char*, const char*, const char*, const char* iFile, int iLine);

#endif
