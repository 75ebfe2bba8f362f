#ifndef FinitePoint_h
#define FinitePoint_h

#include "IDX_Point.h"

#include <cmath>

/// Whether all coordinates are numbers: no infinity, no NaN.
inline bool HasFiniteCoordinates(const IDX_Point& iPoint) {
    return std::isfinite(iPoint.x) && std::isfinite(iPoint.y) && std::isfinite(iPoint.z);
}

#endif
