#ifndef FourBoxes_h
#define FourBoxes_h

#include "BoxLayout.h"
#include "common/FourFloats.h"

// Boxes of an R-tree that are six floats, four at a time: each box has a lane. A lane computes what
// IDX_Base_BoundingBox computes, rounding included.

/// Four boxes side by side, or one box in all lanes.
struct FourBoxes {
    FourFloats low[3];
    FourFloats high[3];

    static FourBoxes AllOf(const IDX_Base_BoundingBox& iBox) {
        const SixFloats box = FloatsOf(iBox);
        return {
            {_mm_set1_ps(box[0]), _mm_set1_ps(box[1]), _mm_set1_ps(box[2])},
            {_mm_set1_ps(box[3]), _mm_set1_ps(box[4]), _mm_set1_ps(box[5])}
        };
    }
};

/// The volumes of the unions, lane by lane. A coordinate of `iFirst` stays unless that of `iSecond`
/// lies strictly outside: of two equal numbers, and when one is a NaN, `minps` and `maxps` give
/// their second operand.
inline FourFloats VolumesOfUnion(const FourBoxes& iFirst, const FourBoxes& iSecond) {
    FourFloats edges[3];
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const FourFloats low = _mm_min_ps(iSecond.low[axis], iFirst.low[axis]);
        const FourFloats high = _mm_max_ps(iSecond.high[axis], iFirst.high[axis]);
        edges[axis] = high - low;
    }
    const FourFloats base = edges[0] * edges[1];
    return base * edges[2];
}

#endif
