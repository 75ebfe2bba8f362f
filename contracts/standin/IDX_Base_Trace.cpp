#include "IDX_Base_Trace.h"

#include "IDX_Base_Constants.h"
#include "VEXUnicodeString.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

/// Whether Debug lines are printed. The environment is read once, at the first call.
bool DebugIsShown() {
    static const char* const level = std::getenv("KEELSTONE_TRACE");
    static const bool shown = level != nullptr && std::strcmp(level, "debug") == 0;
    return shown;
}

void WriteToStandardError(IDX_Base_Trace::Level iLevel, const char* iLine, void*) {
    if (iLevel == IDX_Base_Trace::LevelDebug && !DebugIsShown()) return;
    std::fprintf(stderr, "%s\n", iLine);
}

IDX_Base_Trace::Sink theSink = WriteToStandardError;
void* theContext = nullptr;

/// Formats a line of any length and passes it to the sink. A long line needs a block on the heap.
/// Without memory it is cut, since tracing never fails.
__attribute__((format(printf, 2, 0))) void Trace(
    IDX_Base_Trace::Level iLevel, const char* iFormat, va_list iArguments) {
    char shortLine[512];
    // vsnprintf uses the arguments up, so the second call needs a copy of them.
    va_list again;
    va_copy(again, iArguments);
    const int length = std::vsnprintf(shortLine, sizeof(shortLine), iFormat, iArguments);
    char* longLine = nullptr;
    if (length >= static_cast<int>(sizeof(shortLine))) {
        const std::size_t bytes = static_cast<std::size_t>(length) + 1;
        longLine = static_cast<char*>(std::malloc(bytes));
        if (longLine != nullptr) (void)std::vsnprintf(longLine, bytes, iFormat, again);
    }
    va_end(again);
    if (length >= 0) theSink(iLevel, longLine != nullptr ? longLine : shortLine, theContext);
    std::free(longLine);
}

}  // namespace

void IDX_Base_Trace::Debug(const char* iFormat, ...) {
    // Saves the formatting of lines that nobody sees.
    if (theSink == WriteToStandardError && !DebugIsShown()) return;
    va_list arguments;
    va_start(arguments, iFormat);
    Trace(LevelDebug, iFormat, arguments);
    va_end(arguments);
}

void IDX_Base_Trace::Info(const char* iFormat, ...) {
    va_list arguments;
    va_start(arguments, iFormat);
    Trace(LevelInfo, iFormat, arguments);
    va_end(arguments);
}

void IDX_Base_Trace::SetSink(Sink iSink, void* iContext) {
    theSink = iSink != nullptr ? iSink : WriteToStandardError;
    theContext = iSink != nullptr ? iContext : nullptr;
}

void IDX_Base_Trace::GetBBDMonitorDir(const VEXUnicodeString& iBase, VEXUnicodeString& oDirectory) {
    oDirectory = iBase + IDX_Base_Constants::PATH_SEPARATOR_STR + "BBDMonitor";
}
