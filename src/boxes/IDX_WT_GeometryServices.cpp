#include "IDX_WT_GeometryServices.h"

#include <initializer_list>

namespace {

constexpr unsigned int kCorners = 8;

IDX_Point Through(const PLMIdxMatrix& iMatrix, const IDX_Point& iPoint) {
    IDX_Point point;
    PLMIdxMatrix::Multiply(iMatrix, iPoint, point);
    return point;
}

/// A corner of a box. Bit 0, 1 or 2 of its number is set where it is high along X, Y or Z.
IDX_Point Corner(const IDX_Point& iLow, const IDX_Point& iHigh, unsigned int iCorner) {
    return {
        (iCorner & 1u) != 0 ? iHigh.x : iLow.x, (iCorner & 2u) != 0 ? iHigh.y : iLow.y,
        (iCorner & 4u) != 0 ? iHigh.z : iLow.z};
}

IDX_Point Moved(const IDX_Point& iPoint, float iDistance) {
    return {iPoint.x + iDistance, iPoint.y + iDistance, iPoint.z + iDistance};
}

/// Moves the corners of a box outward, axis by axis, as far as to `iLow` and `iHigh`. Each
/// condition asks whether to move, so a NaN moves nothing.
void Enlarge(
    IDX_Point& ioBoxMin, IDX_Point& ioBoxMax, const IDX_Point& iLow, const IDX_Point& iHigh) {
    for (float IDX_Point::*axis : {&IDX_Point::x, &IDX_Point::y, &IDX_Point::z}) {
        if (ioBoxMin.*axis > iLow.*axis) ioBoxMin.*axis = iLow.*axis;
        if (iHigh.*axis > ioBoxMax.*axis) ioBoxMax.*axis = iHigh.*axis;
    }
}

/// Whether Enlarge() would change the box. The same comparisons, so that the two always agree.
bool LiesOutside(
    const IDX_Point& iBoxMin,
    const IDX_Point& iBoxMax,
    const IDX_Point& iLow,
    const IDX_Point& iHigh) {
    return iBoxMin.x > iLow.x || iHigh.x > iBoxMax.x || iBoxMin.y > iLow.y || iHigh.y > iBoxMax.y ||
           iBoxMin.z > iLow.z || iHigh.z > iBoxMax.z;
}

}  // namespace

IDX_Bool IDX_WT_GeometryServices::EnlargeBox(
    IDX_Point& ioBoxMin,
    IDX_Point& ioBoxMax,
    const IDX_Point& iPoint,
    const PLMIdxMatrix& iMatrix) {
    const IDX_Point point = Through(iMatrix, iPoint);
    Enlarge(ioBoxMin, ioBoxMax, point, point);
    return IDX_True;
}

/// All eight corners: a matrix may turn any of them to the outside.
IDX_Bool IDX_WT_GeometryServices::EnlargeBox(
    IDX_Point& ioBoxMin,
    IDX_Point& ioBoxMax,
    const IDX_Point& iLow,
    const IDX_Point& iHigh,
    const PLMIdxMatrix& iMatrix) {
    for (unsigned int c = 0; c < kCorners; ++c) {
        EnlargeBox(ioBoxMin, ioBoxMax, Corner(iLow, iHigh, c), iMatrix);
    }
    return IDX_True;
}

IDX_Bool IDX_WT_GeometryServices::EnlargeBoxSphere(
    IDX_Point& ioBoxMin,
    IDX_Point& ioBoxMax,
    const IDX_Point& iCentre,
    float iRadius,
    const PLMIdxMatrix& iMatrix) {
    const IDX_Point centre = Through(iMatrix, iCentre);
    Enlarge(ioBoxMin, ioBoxMax, Moved(centre, -iRadius), Moved(centre, iRadius));
    return IDX_True;
}

IDX_Bool IDX_WT_GeometryServices::IsBoxEnlarged(
    const IDX_Point& iBoxMin,
    const IDX_Point& iBoxMax,
    const IDX_Point& iPoint,
    const PLMIdxMatrix& iMatrix,
    IDX_Bool& oEnlarged) {
    const IDX_Point point = Through(iMatrix, iPoint);
    oEnlarged = LiesOutside(iBoxMin, iBoxMax, point, point) ? IDX_True : IDX_False;
    return IDX_True;
}

IDX_Bool IDX_WT_GeometryServices::IsBoxEnlarged(
    const IDX_Point& iBoxMin,
    const IDX_Point& iBoxMax,
    const IDX_Point& iLow,
    const IDX_Point& iHigh,
    const PLMIdxMatrix& iMatrix,
    IDX_Bool& oEnlarged) {
    oEnlarged = IDX_False;
    for (unsigned int c = 0; c < kCorners && oEnlarged == IDX_False; ++c) {
        IsBoxEnlarged(iBoxMin, iBoxMax, Corner(iLow, iHigh, c), iMatrix, oEnlarged);
    }
    return IDX_True;
}

IDX_Bool IDX_WT_GeometryServices::IsBoxEnlargedSphere(
    const IDX_Point& iBoxMin,
    const IDX_Point& iBoxMax,
    const IDX_Point& iCentre,
    float iRadius,
    const PLMIdxMatrix& iMatrix,
    IDX_Bool& oEnlarged) {
    const IDX_Point centre = Through(iMatrix, iCentre);
    const bool outside =
        LiesOutside(iBoxMin, iBoxMax, Moved(centre, -iRadius), Moved(centre, iRadius));
    oEnlarged = outside ? IDX_True : IDX_False;
    return IDX_True;
}
