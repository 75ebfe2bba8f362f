#ifndef IDX_Base_Trace_h
#define IDX_Base_Trace_h

#include "GridloomContractsExport.h"

class VEXUnicodeString;

/// The trace of Keelstone: failure tags at debug level, messages for the operator at information
/// level. Tracing never fails and has no result.
class GRIDLOOM_CONTRACTS_API IDX_Base_Trace {
public:
    enum Level { LevelDebug, LevelInfo };

    /// Receives each line, without its newline. `line` is valid during the call only.
    typedef void (*Sink)(Level level, const char* line, void* context);

    /// Formats like printf and writes one line, of any length. An empty format gives an empty line.
    static void Debug(const char* iFormat, ...) __attribute__((format(printf, 1, 2)));
    static void Info(const char* iFormat, ...) __attribute__((format(printf, 1, 2)));

    /// Sends all later lines to `iSink`, together with `iContext`, which the caller owns. A null
    /// sink restores the default: Info lines go to the standard error, and so do Debug lines when
    /// the environment variable KEELSTONE_TRACE is "debug".
    static void SetSink(Sink iSink, void* iContext);

    /// Sets `oDirectory` to the path of the report directory of an index base: its sub-directory
    /// "BBDMonitor". The two arguments may be the same string.
    static void GetBBDMonitorDir(const VEXUnicodeString& iBase, VEXUnicodeString& oDirectory);
};

#endif
