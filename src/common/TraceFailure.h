#ifndef TraceFailure_h
#define TraceFailure_h

#include "IDX_Base_Trace.h"
#include "IDX_Bool.h"
#include "IDX_Status.h"

/// Traces a tag and gives false: check, trace and leave on one line.
inline bool TraceFalse(const char* iTag) {
    IDX_Base_Trace::Debug("%s", iTag);
    return false;
}

/// The same for operations that give IDX_Bool.
inline IDX_Bool TraceNo(const char* iTag) {
    IDX_Base_Trace::Debug("%s", iTag);
    return IDX_False;
}

/// Traces a tag and gives a status.
inline long int TraceStatus(const char* iTag, long int iStatus) {
    IDX_Base_Trace::Debug("%s", iTag);
    return iStatus;
}

#endif
