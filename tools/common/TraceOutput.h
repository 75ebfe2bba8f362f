#ifndef TraceOutput_h
#define TraceOutput_h

#include <string>

// Where the library's trace goes in a tool. Lines for the operator go to the standard error; failure tags only when
// all of the trace is shown, but the latest is kept, as the cause of a failure that just came back.

/// Takes the trace over, for the rest of the process.
/// @param iAll  show failure tags too
void TakeTrace(bool iAll);

bool IsTraceShown();

/// The latest failure tag, which is the outermost of its chain; empty when there is none.
const std::string& LatestTag();

/// Lines for the operator are left out while an object lives, unless all of the trace is shown.
class TraceSilence {
public:
    TraceSilence();
    TraceSilence(const TraceSilence&) = delete;
    TraceSilence& operator=(const TraceSilence&) = delete;
    ~TraceSilence();
};

#endif
