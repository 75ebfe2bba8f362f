// gridloom-query: questions to an index, answered from its files where they lie.

#include "QueryOptions.h"
#include "QueryRun.h"

#include <csignal>

#ifdef GRIDLOOM_SANITIZED
// What the font library keeps until the end isn't ours.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:libfontconfig";
}
#endif

int main(int iCount, char** iArguments) {
    (void)std::signal(SIGXFSZ, SIG_IGN);  // a file at its size limit fails as on a full disk
    QueryOptions options;
    const auto end = ReadQueryOptions(iCount, iArguments, options);
    return NumberOf(end ? *end : QueryRun(options).Run());
}
