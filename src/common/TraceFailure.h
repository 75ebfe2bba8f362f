#ifndef TraceFailure_h
#define TraceFailure_h

#include "IDX_Base_Trace.h"
#include "IDX_Bool.h"
#include "IDX_Status.h"

// Each guard of an operation is one line: check, trace the tag, return the failure. The tag is one
// whole literal, so that a search in the sources for the text of a trace line finds the line that
// failed.

/// Traces a tag and returns false.
inline bool TraceFalse(const char* iTag) {
    IDX_Base_Trace::Debug("%s", iTag);
    return false;
}

/// The same for operations that return IDX_Bool.
inline IDX_Bool TraceNo(const char* iTag) {
    IDX_Base_Trace::Debug("%s", iTag);
    return IDX_False;
}

/// Traces a tag and returns a status.
inline long int TraceStatus(const char* iTag, long int iStatus) {
    IDX_Base_Trace::Debug("%s", iTag);
    return iStatus;
}

#endif
