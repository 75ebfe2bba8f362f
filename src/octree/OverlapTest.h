#ifndef OverlapTest_h
#define OverlapTest_h

#include "IDX_Base_GeometryServices.h"

// IDX_Base_GeometryServices::TriangleToBox decides whether a triangle and a box meet. A program or
// another Keelstone may replace it. Ours is exact. The faster tests of TriangleCells and
// OctreeLattice are proven to give exact answers too, so they may be used instead of ours. A
// replaced test must be called for each cell, since its answers may differ.

/// The address of the stand-in's own operation, even when the process uses another one. Another
/// Keelstone doesn't define this name, so its address is null there.
extern "C" const decltype(&IDX_Base_GeometryServices::TriangleToBox) gridloom_own_triangle_to_box
    __attribute__((weak));

/// True when the process uses the stand-in's operation.
inline bool OverlapTestIsOurs() {
    return &gridloom_own_triangle_to_box != nullptr &&
           gridloom_own_triangle_to_box == &IDX_Base_GeometryServices::TriangleToBox;
}

#endif
