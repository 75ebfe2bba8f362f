#ifndef Vector_h
#define Vector_h

#include <array>
#include <cmath>

/// x, y, z in the model's space.
using Vector = std::array<double, 3>;

inline double Dot(const Vector& a, const Vector& b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

inline Vector Cross(const Vector& a, const Vector& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

/// iA a + iB b.
inline Vector Combine(double iA, const Vector& a, double iB, const Vector& b) {
    return {iA * a[0] + iB * b[0], iA * a[1] + iB * b[1], iA * a[2] + iB * b[2]};
}

/// The vector of length 1 in the same direction; a vector of length 0 stays.
inline Vector Unit(const Vector& a) {
    const double length = std::sqrt(Dot(a, a));
    return length > 0.0 ? Combine(1.0 / length, a, 0.0, a) : a;
}

#endif
