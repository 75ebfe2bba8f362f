#ifndef VEXFatalError_h
#define VEXFatalError_h

#include "GridloomContractsExport.h"

/// The fatal stop: reports `iText` with its source file and line on the standard error, as
/// "FILE:LINE: TEXT", and ends the process. The three middle arguments are always null.
[[noreturn]] GRIDLOOM_CONTRACTS_API void VEXFatalError(
    const char* iText, const char*, const char*, const char*, const char* iFile, int iLine);

#endif
