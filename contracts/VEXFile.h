#ifndef VEXFile_h
#define VEXFile_h

#include "GridloomContractsExport.h"
#include "IDX_Status.h"
#include "VEXUnicodeString.h"

#include <sys/stat.h>

// Files. All give IDX_S_OK or IDX_E_FAIL. Where there are two forms they do the same for two kinds of
// path, and neither calls the other: a program may define either itself.

/// Fills `oStat` for a path, through symbolic links. Bit 0x8000 of its `st_mode` is set for a regular
/// file and clear for a directory. A path that isn't there is a failure; `oStat` is left alone then.
/// @param iFlag  0
GRIDLOOM_CONTRACTS_API long int VEXFileStat(VEXUnicodeString* iPath, struct stat* oStat, int iFlag);

/// Makes the next VEXFileStat see what other processes have done. A local file system needs nothing.
GRIDLOOM_CONTRACTS_API long int VEXFlushInodeCache();

/// Deletes one file. A directory is a failure.
GRIDLOOM_CONTRACTS_API long int VEXDeleteFile(const char* iPath);
GRIDLOOM_CONTRACTS_API long int _VEXDeleteFile(const VEXUnicodeString& iPath);

#endif
