#ifndef VEXDIR_h
#define VEXDIR_h

#include "GridloomContractsExport.h"

/// An open directory, for the form of VEXOpenDirectory() with a plain path. Needs no constructor.
struct VEXDirHandle {
    void* stream;
};

/// An open directory, for the other form of VEXOpenDirectory(). The destructor closes it if it is
/// open.
class GRIDLOOM_CONTRACTS_API VEXDIR {
public:
    VEXDIR();
    ~VEXDIR();
    VEXDIR(const VEXDIR&) = delete;
    VEXDIR& operator=(const VEXDIR&) = delete;

    VEXDirHandle handle;  ///< its stream is null when closed
};

#endif
