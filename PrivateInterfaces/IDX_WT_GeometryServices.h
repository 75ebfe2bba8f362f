#ifndef IDX_WT_GeometryServices_h
#define IDX_WT_GeometryServices_h

#include "GridloomExport.h"
#include "IDX_Bool.h"
#include "IDX_Point.h"
#include "PLMIdxMatrix.h"

/// Enlarges an axis-aligned box, given by its low and high corner, to hold a thing that a matrix
/// has transformed; or says whether that would enlarge it.
///
/// The caller makes the first box. Each coordinate is compared on its own, strictly, in 32-bit
/// floats: a point on a face enlarges nothing, and a NaN enlarges nothing. Nothing here fails: the
/// result is always IDX_True. Constant time.
class GRIDLOOM_API IDX_WT_GeometryServices {
public:
    /// Enlarges the box to hold a transformed point.
    static IDX_Bool EnlargeBox(
        IDX_Point& ioBoxMin,
        IDX_Point& ioBoxMax,
        const IDX_Point& iPoint,
        const PLMIdxMatrix& iMatrix);

    /// Enlarges the box to hold the eight transformed corners of another box.
    static IDX_Bool EnlargeBox(
        IDX_Point& ioBoxMin,
        IDX_Point& ioBoxMax,
        const IDX_Point& iLow,
        const IDX_Point& iHigh,
        const PLMIdxMatrix& iMatrix);

    /// Enlarges the box to hold the cube around a sphere. The matrix moves the centre of the sphere
    /// and doesn't change its radius, even when it changes lengths.
    /// @param iRadius  also half the side of the cube
    static IDX_Bool EnlargeBoxSphere(
        IDX_Point& ioBoxMin,
        IDX_Point& ioBoxMax,
        const IDX_Point& iCentre,
        float iRadius,
        const PLMIdxMatrix& iMatrix);

    // Whether the three operations above would change the box, in the same order.

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
