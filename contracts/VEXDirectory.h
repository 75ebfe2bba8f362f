#ifndef VEXDirectory_h
#define VEXDirectory_h

#include "GridloomContractsExport.h"
#include "IDX_Status.h"
#include "VEXDIR.h"
#include "VEXListValVEXUnicodeString.h"
#include "VEXUnicodeString.h"

// Directories. All operations return IDX_S_OK or IDX_E_FAIL. Where there are two forms, they do the
// same for two types of path. Neither calls the other, since a program may replace either by its
// own.

/// Opens a directory. Fails when the path doesn't exist or isn't a directory; then the handle is
/// closed. A directory that the VEXDIR has open is closed first.
GRIDLOOM_CONTRACTS_API long int VEXOpenDirectory(const char* iPath, VEXDirHandle* oHandle);
GRIDLOOM_CONTRACTS_API long int VEXOpenDirectory(VEXUnicodeString* iPath, VEXDIR* ioDirectory);

/// Closes a directory. Fails when it isn't open.
GRIDLOOM_CONTRACTS_API long int VEXCloseDirectory(VEXDirHandle* ioHandle);
GRIDLOOM_CONTRACTS_API long int VEXCloseDirectory(VEXDIR* ioDirectory);

/// Creates a directory and the missing ones above it. Succeeds when it exists already.
GRIDLOOM_CONTRACTS_API long int VEXCreateDirectory(const char* iPath);
GRIDLOOM_CONTRACTS_API long int _VEXCreateDirectory(const VEXUnicodeString& iPath);

/// Sets `oNames` to the names of the directory's entries, without the path, in byte order, without
/// "." and "..". Empty after a failure.
GRIDLOOM_CONTRACTS_API long int VEXListDirectory(
    VEXUnicodeString& iPath, VEXListValVEXUnicodeString& oNames);

/// Appends the separator and `iName` to `ioPath`.
GRIDLOOM_CONTRACTS_API long int VEXMakePath(VEXUnicodeString* ioPath, VEXUnicodeString* iName);

#endif
