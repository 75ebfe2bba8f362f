#ifndef ExactOverlap_h
#define ExactOverlap_h

#include <array>

using Triple = std::array<float, 3>;
using Corners = std::array<Triple, 3>;  ///< of a triangle

/// Whether a triangle and the closed box centre +- half have a point in common, decided by clipping
/// the triangle against the box in rational numbers. No overlap for a coordinate that isn't finite.
bool OverlapByClipping(const Triple& centre, const Triple& half, const Corners& triangle);

/// The same answer, sooner: clipping in double precision settles it when the triangle misses even a
/// box that is larger by far more than the rounding error, or meets one that is smaller by as much.
bool Overlap(const Triple& centre, const Triple& half, const Corners& triangle);

/// A rule for which boxes a triangle meets: 1 when it does, 0 when it doesn't, -1 for no decision.
using OverlapRule = int (*)(const Triple& centre, const Triple& half, const Corners& triangle);
inline int ExactRule(const Triple& centre, const Triple& half, const Corners& triangle) {
    return Overlap(centre, half, triangle) ? 1 : 0;
}

#endif
