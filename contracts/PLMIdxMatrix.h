#ifndef PLMIdxMatrix_h
#define PLMIdxMatrix_h

#include "GridloomContractsExport.h"
#include "IDX_Base_Matrix.h"
#include "IDX_Point.h"

/// An affine transformation that starts as the identity.
class GRIDLOOM_CONTRACTS_API PLMIdxMatrix : public IDX_Base_Matrix {
public:
    PLMIdxMatrix();

    /// Transforms a point. Each coordinate is summed from left to right in 32-bit floats.
    /// @param iPoint  may not be `oPoint`
    static void Multiply(
        const IDX_Base_Matrix& iMatrix, const IDX_Point& iPoint, IDX_Point& oPoint);
};

#endif
