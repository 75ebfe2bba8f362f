#ifndef VEXGetEnv_h
#define VEXGetEnv_h

#include "GridloomContractsExport.h"

/// The value of an environment variable, or null when it isn't set. Owned by the environment.
GRIDLOOM_CONTRACTS_API const char* VEXGetEnv(const char* iName);

#endif
