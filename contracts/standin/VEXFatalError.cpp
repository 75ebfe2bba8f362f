#include "VEXFatalError.h"

#include <cstdio>
#include <cstdlib>

void VEXFatalError(
    const char* iText, const char*, const char*, const char*, const char* iFile, int iLine) {
    std::fprintf(stderr, "%s:%d: %s\n", iFile, iLine, iText);
    std::abort();
}
