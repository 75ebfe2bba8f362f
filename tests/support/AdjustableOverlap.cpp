#include "AdjustableOverlap.h"

#include "IDX_Base_GeometryServices.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <dlfcn.h>
#include <utility>

using Operation = decltype(&IDX_Base_GeometryServices::TriangleToBox);

// The stand-in's name for its own operation, without its constness.
extern Operation ownOperation __asm__("gridloom_own_triangle_to_box")
    __attribute__((visibility("default")));
Operation ownOperation = &IDX_Base_GeometryServices::TriangleToBox;

namespace {

OverlapRule inForce = nullptr;
std::uint64_t asked = 0;

std::uint64_t Mixed(std::uint64_t number) {
    number = (number ^ number >> 30) * 0xBF58476D1CE4E5B9u;
    number = (number ^ number >> 27) * 0x94D049BB133111EBu;
    return number ^ number >> 31;
}

int ByBounds(const Triple& centre, const Triple& half, const Corners& t) {
    for (std::size_t a = 0; a < 3; ++a) {
        if (std::min({t[0][a], t[1][a], t[2][a]}) - centre[a] > half[a]) return 0;
        if (centre[a] - std::max({t[0][a], t[1][a], t[2][a]}) > half[a]) return 0;
    }
    return 1;
}

int ByChance(const Triple& centre, const Triple& half, const Corners&) {
    return WithQuestion(0, centre, half) % 2 == 0 ? 1 : 0;
}

int NowAndThenUndecided(const Triple& centre, const Triple& half, const Corners& t) {
    return WithQuestion(1, centre, half) % 64 == 0 ? -1 : ByBounds(centre, half, t);
}

}  // namespace

const OverlapRule kOverlapRules[3] = {ByBounds, ByChance, NowAndThenUndecided};

void SetOverlapRule(OverlapRule rule) {
    inForce = rule;
    ownOperation = rule == nullptr ? &IDX_Base_GeometryServices::TriangleToBox : nullptr;
}

std::uint64_t TakeQuestions() {
    return std::exchange(asked, 0);
}

std::uint64_t WithQuestion(std::uint64_t questions, const Triple& centre, const Triple& half) {
    for (std::size_t a = 0; a < 3; ++a) {
        questions = Mixed(questions + std::bit_cast<std::uint32_t>(centre[a]));
        questions = Mixed(questions + std::bit_cast<std::uint32_t>(half[a]));
    }
    return questions;
}

IDX_Bool IDX_Base_GeometryServices::TriangleToBox(
    const float* const centre,
    const float* const half,
    const float (*const triangle)[3],
    IDX_Bool& overlap) {
    static const auto standIn = reinterpret_cast<Operation>(
        dlsym(RTLD_NEXT, "_ZN25IDX_Base_GeometryServices13TriangleToBoxEPKfS1_PA3_S0_R8IDX_Bool"));
    if (inForce == nullptr) return standIn(centre, half, triangle, overlap);
    const Triple c = {centre[0], centre[1], centre[2]};
    const Triple h = {half[0], half[1], half[2]};
    Corners t;
    for (std::size_t v = 0; v < 3; ++v) std::copy_n(triangle[v], 3, t[v].begin());
    asked = WithQuestion(asked, c, h);
    const int meet = inForce(c, h, t);
    if (meet == 1) overlap = IDX_True;
    return meet < 0 ? IDX_False : IDX_True;
}
