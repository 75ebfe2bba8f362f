#ifndef Interrupt_h
#define Interrupt_h

#include "Status.h"

// A request to stop: SIGINT, SIGTERM or SIGHUP. The first one is noted, and the work looks for it
// where it can be left; another one a second later ends the process at once. Signals that were
// ignored when the process started stay ignored.

/// Notes requests from now on. What would end the process in the middle of a write, a full file or
/// a reader that has gone, becomes a failure of that write.
void ListenForInterrupts();

bool IsInterrupted();

/// How a run ends that was interrupted.
inline Status InterruptedStatus() {
    return {ExitCode::Interrupted, "interrupted"};
}

/// Readable from the first request on: for poll().
int InterruptDescriptor();

/// In a child process: leaves requests to the parent.
void IgnoreInterrupts();

#endif
