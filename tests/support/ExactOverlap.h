#ifndef ExactOverlap_h
#define ExactOverlap_h

/// Whether a triangle (3 vertices, one row each) and the closed box centre +- half-size have a point
/// in common, decided by clipping the triangle against the box in rational numbers. No overlap for
/// a coordinate that isn't finite.
bool OverlapByClipping(const float centre[3], const float half[3], const float triangle[3][3]);

/// The same answer, sooner: clipping in double precision settles it when the triangle misses even a
/// box that is larger by far more than the rounding error, or meets one that is smaller by as much.
bool Overlap(const float centre[3], const float half[3], const float triangle[3][3]);

#endif
