#ifndef VEXFile_h
#define VEXFile_h

#include "GridloomContractsExport.h"
#include "IDX_Status.h"
#include "VEXUnicodeString.h"

#include <sys/stat.h>

// Files. All operations return IDX_S_OK or IDX_E_FAIL. Where there are two forms, they do the same
// for two types of path. Neither calls the other, since a program may replace either by its own.

/// Sets `oStat` for a path, following symbolic links. Bit 0x8000 of its `st_mode` is set for a
/// regular file and clear for a directory. Fails when the path doesn't exist; then `oStat` is
/// unchanged.
/// @param iFlag  0
GRIDLOOM_CONTRACTS_API long int VEXFileStat(VEXUnicodeString* iPath, struct stat* oStat, int iFlag);

/// Makes sure that the next VEXFileStat() sees the changes of other processes. Does nothing here: a
/// local file system always shows them.
GRIDLOOM_CONTRACTS_API long int VEXFlushInodeCache();

/// Deletes one file. Fails for a directory.
GRIDLOOM_CONTRACTS_API long int VEXDeleteFile(const char* iPath);
GRIDLOOM_CONTRACTS_API long int _VEXDeleteFile(const VEXUnicodeString& iPath);

#endif
