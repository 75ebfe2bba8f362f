#include "Projection.h"

#include <algorithm>

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kAzimuth = 35.0 * kPi / 180.0;    // of the viewer, from the front to the right
constexpr double kElevation = 28.0 * kPi / 180.0;  // of the viewer above the horizon

}  // namespace

Projection::Projection(UpAxis iUp) {
    const double front = std::cos(kAzimuth) * std::cos(kElevation);
    const double side = std::sin(kAzimuth) * std::cos(kElevation);
    const double above = std::sin(kElevation);
    const bool yUp = iUp == UpAxis::Y;
    const Vector vertical = yUp ? Vector{0.0, 1.0, 0.0} : Vector{0.0, 0.0, 1.0};
    _viewer = yUp ? Vector{side, above, front} : Vector{side, -front, above};
    _right = Unit(Cross(vertical, _viewer));
    _up = Cross(_viewer, _right);
}

void Frame::Add(const Projection& iProjection, const Vector& iPoint) {
    const double at[2] = {Dot(iPoint, iProjection.Right()), -Dot(iPoint, iProjection.Up())};
    for (int i = 0; i < 2; ++i) {
        low[i] = std::min(low[i], at[i]);
        high[i] = std::max(high[i], at[i]);
    }
}
