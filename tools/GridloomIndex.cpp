// gridloom-index: mesh files in, an index of their voxel octrees out.

#include "IndexOptions.h"
#include "IndexRun.h"
#include "Interrupt.h"
#include "TraceOutput.h"

#ifdef GRIDLOOM_SANITIZED
// A sanitizer's own limit replaces that of the import, and what the font library keeps until
// the end isn't ours.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
    return "max_allocation_size_mb=4096";
}
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:libfontconfig";
}
#endif

int main(int iCount, char** iArguments) {
    IndexOptions options;
    if (const auto end = ReadIndexOptions(iCount, iArguments, options)) return NumberOf(*end);
    RouteTraceToConsole(options.isVerbose);
    ListenForInterrupts();
    return NumberOf(IndexRun(options).Run());
}
