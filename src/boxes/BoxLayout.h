#ifndef BoxLayout_h
#define BoxLayout_h

#include "IDX_Base_BoundingBox.h"

#include "formats/UnalignedMemory.h"

#include <array>
#include <cstring>

// What an R-tree knows of the class of its boxes. If it doesn't know how a box lies in memory, it
// uses the operations of the class alone: Union(), Volume() and assignment.

/// The header of a class of boxes may define this, to say that a box is six floats.
template <class Box>
struct IDX_IsSixFloats;

template <class Box>
concept SixFloatBox = requires {
    requires IDX_IsSixFloats<Box>::value;
};

constexpr bool kBoxesAreSixFloats = SixFloatBox<IDX_Base_BoundingBox>;

// Only where kBoxesAreSixFloats:

/// Low x, y, z, high x, y, z.
using SixFloats = std::array<float, 6>;
static_assert(sizeof(SixFloats) == sizeof(IDX_Base_BoundingBox), "R-tree image: box");

inline SixFloats FloatsOf(const IDX_Base_BoundingBox& iBox) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(&iBox);
    const auto at = [bytes](std::size_t iPlace) {
        return LoadAt<float>(bytes, iPlace * sizeof(float));
    };
    return {at(0), at(1), at(2), at(3), at(4), at(5)};  // one by one: so they stay in registers
}

inline IDX_Base_BoundingBox BoxFrom(const SixFloats& iFloats) {
    IDX_Base_BoundingBox box;
    std::memcpy(static_cast<void*>(&box), iFloats.data(), sizeof iFloats);
    return box;
}

#endif
