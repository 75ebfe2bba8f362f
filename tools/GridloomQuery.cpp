// gridloom-query: questions to an index, answered from its files where they lie.

#include "QueryOptions.h"
#include "QueryRun.h"

#ifdef GRIDLOOM_SANITIZED
// What the font library keeps until the end isn't ours.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:libfontconfig";
}
#endif

int main(int iCount, char** iArguments) {
    QueryOptions options;
    switch (ReadQueryOptions(iCount, iArguments, options)) {
        case Arguments::Result::Done:
            return NumberOf(ExitCode::Done);
        case Arguments::Result::Wrong:
            return NumberOf(ExitCode::Usage);
        case Arguments::Result::Run:
            break;
    }
    return NumberOf(QueryRun(options).Run());
}
