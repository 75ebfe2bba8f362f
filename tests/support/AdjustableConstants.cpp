#include "AdjustableConstants.h"

unsigned int arenaSize = 64u << 20;
float boxMargin = 0.001f;

// Options of the sanitizers: the constants above are defined twice on purpose, and a block that is
// too large for the memory gives null, as it does without a sanitizer.
#define SANITIZER_OPTIONS "allocator_may_return_null=1:max_allocation_size_mb=1024"
extern "C" {
__attribute__((visibility("default"))) const char* __asan_default_options();
__attribute__((visibility("default"))) const char* __tsan_default_options();
const char* __asan_default_options() {
    return "detect_odr_violation=0:" SANITIZER_OPTIONS;
}
const char* __tsan_default_options() {
    return SANITIZER_OPTIONS;
}
}
