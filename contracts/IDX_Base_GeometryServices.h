#ifndef IDX_Base_GeometryServices_h
#define IDX_Base_GeometryServices_h

#include "GridloomContractsExport.h"
#include "IDX_Bool.h"

/// Geometric decisions of Keelstone. A program may define one itself, and the library then asks the program's
/// for each single decision.
class GRIDLOOM_CONTRACTS_API IDX_Base_GeometryServices {
public:
    /// Decides whether a triangle and an axis-aligned box have a point in common. Both are closed
    /// sets: touching counts. A degenerate triangle is the segment or the point that it is. A box
    /// with a negative half-size holds no point.
    ///
    /// The answer is exact for all finite floats: it is that of the real numbers which the floats
    /// stand for, with the box from centre - half-size to centre + half-size. It is found by the
    /// separating axis test (Gottschalk, Lin, Manocha, "OBBTree", SIGGRAPH 1996; for a triangle
    /// and a box: Akenine-Moller, "Fast 3D Triangle-Box Overlap Testing", JGT 6(1), 2001), first
    /// in double precision with a proven bound on the rounding errors, then, for an axis on which
    /// the bound can't tell, in exact integer arithmetic. The bound is derived in the source file.
    ///
    /// @param iCentre    centre of the box, 3 floats
    /// @param iHalfSize  distance from the centre to a face along each axis, 3 floats
    /// @param iTriangle  the 3 vertices, one row each
    /// @param oOverlap   becomes IDX_True when they meet; else it is left alone, so that the caller
    ///                   sets it to IDX_False before
    /// @return IDX_True when the question could be decided, which is always: a coordinate that
    ///         isn't finite is decided as no overlap
    static IDX_Bool TriangleToBox(
        const float* const iCentre,
        const float* const iHalfSize,
        const float (*const iTriangle)[3],
        IDX_Bool& oOverlap);
};

#endif
