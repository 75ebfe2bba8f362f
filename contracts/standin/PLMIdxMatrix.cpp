#include "PLMIdxMatrix.h"

namespace {

/// One operation a line: each of them rounds to a 32-bit float.
float TransformRow(const float (&iRow)[4], const IDX_Point& iPoint) {
    float sum = iRow[0] * iPoint.x;
    sum += iRow[1] * iPoint.y;
    sum += iRow[2] * iPoint.z;
    sum += iRow[3];
    return sum;
}

}  // namespace

PLMIdxMatrix::PLMIdxMatrix()
    : IDX_Base_Matrix{
          {{1.0f, 0.0f, 0.0f, 0.0f}, {0.0f, 1.0f, 0.0f, 0.0f}, {0.0f, 0.0f, 1.0f, 0.0f}}
} {}

void PLMIdxMatrix::Multiply(
    const IDX_Base_Matrix& iMatrix, const IDX_Point& iPoint, IDX_Point& oPoint) {
    oPoint.x = TransformRow(iMatrix.coefficients[0], iPoint);
    oPoint.y = TransformRow(iMatrix.coefficients[1], iPoint);
    oPoint.z = TransformRow(iMatrix.coefficients[2], iPoint);
}
