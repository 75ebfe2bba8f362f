#ifndef IDX_Base_GeometryServices_h
#define IDX_Base_GeometryServices_h

#include "GridloomContractsExport.h"
#include "IDX_Bool.h"

/// Geometric decisions of Keelstone. A program may define an operation itself. Then the library
/// calls the program's operation for each single decision.
class GRIDLOOM_CONTRACTS_API IDX_Base_GeometryServices {
public:
    /// Decides whether a triangle and an axis-aligned box have a point in common. Touching counts.
    /// A degenerate triangle counts as the segment or the point that it is. A box with a negative
    /// half-size holds no point.
    ///
    /// The answer is exact for all finite floats: it is the answer for the real numbers that the
    /// floats are, with the box from centre - half-size to centre + half-size. The method is the
    /// separating axis test (Gottschalk, Lin, Manocha, "OBBTree", SIGGRAPH 1996; for a triangle and
    /// a box: Akenine-Moller, "Fast 3D Triangle-Box Overlap Testing", JGT 6(1), 2001). It runs in
    /// double precision with a proven bound on the rounding errors. An axis on which that isn't
    /// enough is computed again in exact integer arithmetic. The source file derives the bound.
    ///
    /// @param iCentre    centre of the box, 3 floats
    /// @param iHalfSize  distance from the centre to a face along each axis, 3 floats
    /// @param iTriangle  the 3 vertices, one row each
    /// @param oOverlap   becomes IDX_True when they meet, else it stays: set it to IDX_False before
    /// @return IDX_True when the question could be decided. This operation always decides: a
    ///         coordinate that isn't finite means no overlap.
    static IDX_Bool TriangleToBox(
        const float* const iCentre,
        const float* const iHalfSize,
        const float (*const iTriangle)[3],
        IDX_Bool& oOverlap);
};

#endif
