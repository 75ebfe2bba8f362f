// The octree builder beside the flat reference: the input chooses the calls, parameters, arena, overlap rule and
// meshes of a random case.

#include "BuilderPair.h"

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const ArenaSize arena(1u << 17);
    Random chosen(data, size);
    const std::string difference = DifferenceOnRandomCalls(chosen);
    if (difference.empty()) return 0;
    std::fprintf(stderr, "library and reference differ in %s\n", difference.c_str());
    std::abort();
}
