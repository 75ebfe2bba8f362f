#include "TraceOutput.h"

#include "IDX_Base_Trace.h"

#include <cstdio>
#include <cstring>

namespace {

struct {
    bool isShown = false;
    bool isSilent = false;
    std::string latestTag;
    TagWatch* watch = nullptr;
} output;

void ShowLine(IDX_Base_Trace::Level iLevel, const char* iLine, void*) {
    if (iLevel == IDX_Base_Trace::LevelDebug) output.latestTag = iLine;
    if (output.watch != nullptr) output.watch->Compare(iLine);
    const bool isForOperator = iLevel == IDX_Base_Trace::LevelInfo && !output.isSilent;
    if (output.isShown || isForOperator) std::fprintf(stderr, "%s\n", iLine);
}

}  // namespace

void RouteTraceToConsole(bool iAll) {
    output.isShown = iAll;
    IDX_Base_Trace::SetSink(ShowLine, nullptr);
}

bool IsTraceShown() {
    return output.isShown;
}

const std::string& LatestTag() {
    return output.latestTag;
}

TagWatch::TagWatch(const char* iTag) : _tag(iTag) {
    output.watch = this;
}

TagWatch::~TagWatch() {
    output.watch = nullptr;
}

void TagWatch::Compare(const char* iLine) {
    _isSeen = _isSeen || std::strcmp(iLine, _tag) == 0;
}

TraceSilence::TraceSilence() {
    output.isSilent = true;
}

TraceSilence::~TraceSilence() {
    output.isSilent = false;
}
