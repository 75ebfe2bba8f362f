#ifndef Finite_h
#define Finite_h

#include "IDX_Point.h"

#include <cmath>

/// Whether all coordinates are numbers: no infinity, no NaN.
inline bool IsFinite(const IDX_Point& iPoint) {
    return std::isfinite(iPoint.x) && std::isfinite(iPoint.y) && std::isfinite(iPoint.z);
}

#endif
