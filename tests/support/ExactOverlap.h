#ifndef ExactOverlap_h
#define ExactOverlap_h

/// Whether a triangle (3 vertices, one row each) and the closed box centre +- half-size have a point
/// in common, decided by clipping the triangle against the box in rational numbers. No overlap for
/// a coordinate that isn't finite.
bool OverlapByClipping(const float centre[3], const float half[3], const float triangle[3][3]);

/// The same answer, sooner: separating axes in double precision with a margin a thousand times the
/// rounding error settle the clear cases, clipping the others and each 4096th call. A call on which
/// the two disagree ends the process.
bool Overlap(const float centre[3], const float half[3], const float triangle[3][3]);

#endif
