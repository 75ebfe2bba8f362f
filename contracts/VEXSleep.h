#ifndef VEXSleep_h
#define VEXSleep_h

#include "GridloomContractsExport.h"

/// Suspends the caller for at least `iDuration` half milliseconds; not at all below 1.
GRIDLOOM_CONTRACTS_API void VEXSleep(int iDuration);

#endif
