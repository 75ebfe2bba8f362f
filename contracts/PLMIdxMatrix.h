#ifndef PLMIdxMatrix_h
#define PLMIdxMatrix_h

#include "GridloomContractsExport.h"
#include "IDX_Base_Matrix.h"
#include "IDX_Point.h"

/// An affine transformation that starts as the identity.
class GRIDLOOM_CONTRACTS_API PLMIdxMatrix : public IDX_Base_Matrix {
public:
    PLMIdxMatrix();

    /// Transforms a point. Each coordinate is c0 x + c1 y + c2 z + c3 of its row, computed from
    /// left to right in 32-bit floats.
    /// @param iPoint  must not be the same object as `oPoint`
    static void Multiply(
        const IDX_Base_Matrix& iMatrix, const IDX_Point& iPoint, IDX_Point& oPoint);
};

#endif
