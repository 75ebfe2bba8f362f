#ifndef OverlapTest_h
#define OverlapTest_h

#include "IDX_Base_GeometryServices.h"

// Whether triangle and box meet is for IDX_Base_GeometryServices::TriangleToBox to say, and a program or
// another Keelstone may bring its own. Ours is exact, so that the faster tests of TriangleCells and OctreeLattice,
// which are proven against exact answers, may take its place. Any other has to be asked for each cell.

/// The stand-in's own operation, whoever's the process uses. Another Keelstone doesn't have this name.
extern "C" const decltype(&IDX_Base_GeometryServices::TriangleToBox) gridloom_own_triangle_to_box
    __attribute__((weak));

/// True when the operation that the process uses is the stand-in's.
inline bool OverlapTestIsOurs() {
    return &gridloom_own_triangle_to_box != nullptr &&
           gridloom_own_triangle_to_box == &IDX_Base_GeometryServices::TriangleToBox;
}

#endif
