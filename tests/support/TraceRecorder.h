#ifndef TraceRecorder_h
#define TraceRecorder_h

#include "IDX_Base_Trace.h"

#include <string>
#include <utility>
#include <vector>

using Lines = std::vector<std::string>;

/// Takes the trace for itself as long as it lives.
class TraceRecorder {
public:
    TraceRecorder() { IDX_Base_Trace::SetSink(&TraceRecorder::Receive, this); }
    ~TraceRecorder() { IDX_Base_Trace::SetSink(nullptr, nullptr); }
    TraceRecorder(const TraceRecorder&) = delete;
    TraceRecorder& operator=(const TraceRecorder&) = delete;

    /// The lines since the last call, debug and information alike.
    Lines Take() { return std::exchange(_lines, {}); }

private:
    static void Receive(IDX_Base_Trace::Level, const char* line, void* context) {
        static_cast<TraceRecorder*>(context)->_lines.emplace_back(line);
    }

    Lines _lines;
};

#endif
