#ifndef FourFloats_h
#define FourFloats_h

#include "IDX_Point.h"

#include <emmintrin.h>
#include <limits>

constexpr float kInfinity = std::numeric_limits<float>::infinity();

// Four floats side by side in one register of SSE2, which every x86-64 processor has. A place for
// one float is a lane. Mostly the lanes are x, y and z of a point or an extent, and a 0. The
// operators +, -, * and / work lane by lane. A comparison gives a mask: all bits of a lane where it
// holds, else none.

using FourFloats = __m128;

/// The lanes where a comparison holds, as bits: bit i for lane i. Takes the sign bit of each lane.
inline unsigned int LanesOf(FourFloats iMask) {
    return static_cast<unsigned int>(_mm_movemask_ps(iMask));
}

/// The same for the lanes x, y and z alone.
constexpr unsigned int kAllAxes = 7;
inline unsigned int AxesOf(FourFloats iMask) {
    return LanesOf(iMask) & kAllAxes;
}

/// The absolute value of each lane: -0.0f is the sign bit alone.
inline FourFloats Absolute(FourFloats iValue) {
    return _mm_andnot_ps(_mm_set1_ps(-0.0f), iValue);
}

inline FourFloats Negative(FourFloats iValue) {
    return _mm_xor_ps(_mm_set1_ps(-0.0f), iValue);
}

/// One lane in all four.
template <int kLane>
FourFloats Broadcast(FourFloats iValue) {
    return _mm_shuffle_ps(iValue, iValue, _MM_SHUFFLE(kLane, kLane, kLane, kLane));
}

/// From x, y, z, w to y, z, x, w.
inline FourFloats Rotate(FourFloats iValue) {
    return _mm_shuffle_ps(iValue, iValue, _MM_SHUFFLE(3, 0, 2, 1));
}

/// (x + y) + z. The order counts: each sum is rounded.
inline float SumOfAxes(FourFloats iValue) {
    alignas(16) float lanes[4];
    _mm_store_ps(lanes, iValue);
    return lanes[0] + lanes[1] + lanes[2];
}

/// Lane by lane, `iWhenSet` where the mask is set, else `iElse`.
inline FourFloats Select(FourFloats iMask, FourFloats iWhenSet, FourFloats iElse) {
    return _mm_or_ps(_mm_and_ps(iMask, iWhenSet), _mm_andnot_ps(iMask, iElse));
}

inline FourFloats AxesFrom(const IDX_Point& iPoint) {
    return _mm_setr_ps(iPoint.x, iPoint.y, iPoint.z, 0.0f);
}

/// Three coordinates, and 0.
inline FourFloats AxesFrom(const float* iCoordinates) {
    return _mm_setr_ps(iCoordinates[0], iCoordinates[1], iCoordinates[2], 0.0f);
}

inline void StoreAxes(FourFloats iValue, float* oCoordinates) {
    alignas(16) float lanes[4];
    _mm_store_ps(lanes, iValue);
    for (unsigned int axis = 0; axis < 3; ++axis) oCoordinates[axis] = lanes[axis];
}

#endif
