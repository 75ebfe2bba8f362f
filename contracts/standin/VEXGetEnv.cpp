#include "VEXGetEnv.h"

#include <cstdlib>

const char* VEXGetEnv(const char* iName) {
    return std::getenv(iName);
}
