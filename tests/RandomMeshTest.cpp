// The library beside the flat reference, on random calls. GRIDLOOM_RANDOM_MESHES: how many cases;
// GRIDLOOM_RANDOM_SEED: the seed of the first.

#include "BuilderPair.h"
#include "FromEnvironment.h"

#include <gtest/gtest.h>

namespace {

#ifdef GRIDLOOM_SANITIZED
constexpr unsigned long kCases = 300;  // each takes ten times the time there
#else
constexpr unsigned long kCases = 600;
#endif

}  // namespace

TEST(RandomMeshes, AgreeWithTheReference) {
    const unsigned long first = FromEnvironment("GRIDLOOM_RANDOM_SEED", 1);
    const unsigned long count = FromEnvironment("GRIDLOOM_RANDOM_MESHES", kCases);
    for (unsigned long seed = first; seed < first + count && !HasFailure(); ++seed) {
        Random random(seed);
        EXPECT_EQ(DifferenceOnRandomCalls(random), "") << "GRIDLOOM_RANDOM_SEED=" << seed;
    }
}
