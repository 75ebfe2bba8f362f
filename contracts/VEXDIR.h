#ifndef VEXDIR_h
#define VEXDIR_h

#include "GridloomContractsExport.h"

/// An open directory as VEXOpenDirectory gives it for a plain path. Needs no constructor.
struct VEXDirHandle {
    void* stream;
};

/// A directory that VEXOpenDirectory opens. Closes it when it is still open at the end.
class GRIDLOOM_CONTRACTS_API VEXDIR {
public:
    VEXDIR();
    ~VEXDIR();
    VEXDIR(const VEXDIR&) = delete;
    VEXDIR& operator=(const VEXDIR&) = delete;

    VEXDirHandle handle;  ///< its stream is null while nothing is open
};

#endif
