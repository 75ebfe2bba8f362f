#ifndef VEXDirectory_h
#define VEXDirectory_h

#include "GridloomContractsExport.h"
#include "IDX_Status.h"
#include "VEXDIR.h"
#include "VEXListValVEXUnicodeString.h"
#include "VEXUnicodeString.h"

// Directories. All give IDX_S_OK or IDX_E_FAIL. Where there are two forms they do the same for two
// kinds of path, and neither calls the other: a program may define either itself.

/// Opens a directory. One that isn't there, or isn't a directory, is a failure; the handle is closed
/// then. What a VEXDIR had open before is closed first.
GRIDLOOM_CONTRACTS_API long int VEXOpenDirectory(const char* iPath, VEXDirHandle* oHandle);
GRIDLOOM_CONTRACTS_API long int VEXOpenDirectory(VEXUnicodeString* iPath, VEXDIR* ioDirectory);

/// Closes a directory; a failure when it isn't open.
GRIDLOOM_CONTRACTS_API long int VEXCloseDirectory(VEXDirHandle* ioHandle);
GRIDLOOM_CONTRACTS_API long int VEXCloseDirectory(VEXDIR* ioDirectory);

/// Creates a directory and the missing ones above it. One that is already there is a success.
GRIDLOOM_CONTRACTS_API long int VEXCreateDirectory(const char* iPath);
GRIDLOOM_CONTRACTS_API long int _VEXCreateDirectory(const VEXUnicodeString& iPath);

/// Sets `oNames` to the bare names of the directory's entries, in byte order, without "." and "..".
/// Empty after a failure.
GRIDLOOM_CONTRACTS_API long int VEXListDirectory(
    VEXUnicodeString& iPath, VEXListValVEXUnicodeString& oNames);

/// Joins in place: `ioPath` becomes `ioPath`, the separator, `iName`.
GRIDLOOM_CONTRACTS_API long int VEXMakePath(VEXUnicodeString* ioPath, VEXUnicodeString* iName);

#endif
