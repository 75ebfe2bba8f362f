#ifndef VEXMemory_h
#define VEXMemory_h

#include "GridloomContractsExport.h"

#include <cstddef>

/// A block of `iSize` bytes, never null: without memory the process ends.
GRIDLOOM_CONTRACTS_API void* VEXMemAlloc(std::size_t iSize);

/// A block of `iSize` bytes, or null without memory.
GRIDLOOM_CONTRACTS_API void* VEXUnsecuredMemAlloc(std::size_t iSize);

/// Frees a block of either. Null is allowed.
GRIDLOOM_CONTRACTS_API void VEXMemFree(void* iBlock);

#endif
