#include "AdjustableOverlap.h"

#include "IDX_Base_GeometryServices.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <dlfcn.h>
#include <functional>
#include <string_view>
#include <utility>

using Operation = decltype(&IDX_Base_GeometryServices::TriangleToBox);

// The stand-in's name for its own operation, without its constness.
extern Operation ownOperation __asm__("gridloom_own_triangle_to_box")
    __attribute__((visibility("default")));
Operation ownOperation = &IDX_Base_GeometryServices::TriangleToBox;

namespace {

OverlapRule inForce = nullptr;
int moreOfLibrary = 0;

int ByBounds(const Triple& centre, const Triple& half, const Corners& t) {
    for (std::size_t a = 0; a < 3; ++a) {
        if (std::min({t[0][a], t[1][a], t[2][a]}) - centre[a] > half[a]) return 0;
        if (centre[a] - std::max({t[0][a], t[1][a], t[2][a]}) > half[a]) return 0;
    }
    return 1;
}

/// A number that the bits of a box decide.
std::size_t ChanceOf(const Triple& centre, const Triple& half) {
    char bits[2 * sizeof(Triple)];
    std::memcpy(bits, &centre, sizeof centre);
    std::memcpy(bits + sizeof centre, &half, sizeof half);
    return std::hash<std::string_view>()({bits, sizeof bits});
}

int ByChance(const Triple& centre, const Triple& half, const Corners&) {
    return ChanceOf(centre, half) % 2 == 0 ? 1 : 0;
}

int NowAndThenUndecided(const Triple& centre, const Triple& half, const Corners& t) {
    return ChanceOf(centre, half) % 64 == 0 ? -1 : ByBounds(centre, half, t);
}

Triple TripleAt(const float* coordinates) {
    return {coordinates[0], coordinates[1], coordinates[2]};
}

int Ask(const Triple& centre, const Triple& half, const Corners& t) {
    static const auto standIn = reinterpret_cast<Operation>(
        dlsym(RTLD_NEXT, "_ZN25IDX_Base_GeometryServices13TriangleToBoxEPKfS1_PA3_S0_R8IDX_Bool"));
    if (inForce != nullptr) return inForce(centre, half, t);
    float triangle[3][3];
    std::memcpy(triangle, &t, sizeof triangle);
    IDX_Bool overlap = IDX_False;
    (void)standIn(centre.data(), half.data(), triangle, overlap);  // always decides
    return overlap == IDX_True ? 1 : 0;
}

}  // namespace

const OverlapRule kOverlapRules[3] = {ByBounds, ByChance, NowAndThenUndecided};

void SetOverlapRule(OverlapRule rule) {
    inForce = rule;
    ownOperation = rule == nullptr ? &IDX_Base_GeometryServices::TriangleToBox : nullptr;
}

int AskForReference(const Triple& centre, const Triple& half, const Corners& triangle) {
    if (inForce != nullptr) --moreOfLibrary;
    return Ask(centre, half, triangle);
}

int TakeQuestions() {
    return std::exchange(moreOfLibrary, 0);
}

IDX_Bool IDX_Base_GeometryServices::TriangleToBox(
    const float* const centre,
    const float* const half,
    const float (*const triangle)[3],
    IDX_Bool& overlap) {
    if (inForce != nullptr) ++moreOfLibrary;
    const int meet =
        Ask(TripleAt(centre), TripleAt(half),
            {TripleAt(triangle[0]), TripleAt(triangle[1]), TripleAt(triangle[2])});
    if (meet == 1) overlap = IDX_True;
    return meet < 0 ? IDX_False : IDX_True;
}
