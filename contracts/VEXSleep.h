#ifndef VEXSleep_h
#define VEXSleep_h

#include "GridloomContractsExport.h"

/// Suspends the thread for at least `iDuration` half milliseconds. Returns at once for a number
/// below 1.
GRIDLOOM_CONTRACTS_API void VEXSleep(int iDuration);

#endif
