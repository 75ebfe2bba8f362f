#ifndef IDX_WT_GeometryServices_h
#define IDX_WT_GeometryServices_h

#include "GridloomExport.h"
#include "IDX_Bool.h"
#include "IDX_Point.h"
#include "PLMIdxMatrix.h"

/// Operations on an axis-aligned box, given by its low and high corner: what is seen through a matrix
/// enlarges it, or is asked whether it would.
///
/// The caller makes the first box. Each coordinate is dealt with by itself, by strict comparison in 32-bit
/// floats: a point on a face enlarges nothing, and neither does a coordinate that is a NaN. Nothing here
/// fails: the result is always IDX_True. Constant time.
class GRIDLOOM_API IDX_WT_GeometryServices {
public:
    /// Enlarges the box by a point through the matrix.
    static IDX_Bool EnlargeBox(
        IDX_Point& ioBoxMin,
        IDX_Point& ioBoxMax,
        const IDX_Point& iPoint,
        const PLMIdxMatrix& iMatrix);

    /// Enlarges the box by the eight corners of another one, each through the matrix.
    static IDX_Bool EnlargeBox(
        IDX_Point& ioBoxMin,
        IDX_Point& ioBoxMax,
        const IDX_Point& iLow,
        const IDX_Point& iHigh,
        const PLMIdxMatrix& iMatrix);

    /// Enlarges the box by the cube of half-side `iRadius` around a centre that goes through the matrix.
    /// The radius doesn't: it stays what it is, whatever the matrix does to lengths.
    static IDX_Bool EnlargeBoxSphere(
        IDX_Point& ioBoxMin,
        IDX_Point& ioBoxMax,
        const IDX_Point& iCentre,
        float iRadius,
        const PLMIdxMatrix& iMatrix);

    // Whether the operations above, in this order, would change the box.

    static IDX_Bool IsBoxEnlarged(
        const IDX_Point& iBoxMin,
        const IDX_Point& iBoxMax,
        const IDX_Point& iPoint,
        const PLMIdxMatrix& iMatrix,
        IDX_Bool& oEnlarged);
    static IDX_Bool IsBoxEnlarged(
        const IDX_Point& iBoxMin,
        const IDX_Point& iBoxMax,
        const IDX_Point& iLow,
        const IDX_Point& iHigh,
        const PLMIdxMatrix& iMatrix,
        IDX_Bool& oEnlarged);
    static IDX_Bool IsBoxEnlargedSphere(
        const IDX_Point& iBoxMin,
        const IDX_Point& iBoxMax,
        const IDX_Point& iCentre,
        float iRadius,
        const PLMIdxMatrix& iMatrix,
        IDX_Bool& oEnlarged);
};

#endif
