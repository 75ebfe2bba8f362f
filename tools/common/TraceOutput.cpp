#include "TraceOutput.h"

#include "IDX_Base_Trace.h"

#include <cstdio>

namespace {

struct {
    bool isShown = false;
    bool isSilent = false;
    std::string latestTag;
} output;

void TakeLine(IDX_Base_Trace::Level iLevel, const char* iLine, void*) {
    if (iLevel == IDX_Base_Trace::LevelDebug) output.latestTag = iLine;
    const bool isForOperator = iLevel == IDX_Base_Trace::LevelInfo && !output.isSilent;
    if (output.isShown || isForOperator) std::fprintf(stderr, "%s\n", iLine);
}

}  // namespace

void TakeTrace(bool iAll) {
    output.isShown = iAll;
    IDX_Base_Trace::SetSink(TakeLine, nullptr);
}

bool IsTraceShown() {
    return output.isShown;
}

const std::string& LatestTag() {
    return output.latestTag;
}

TraceSilence::TraceSilence() {
    output.isSilent = true;
}

TraceSilence::~TraceSilence() {
    output.isSilent = false;
}
