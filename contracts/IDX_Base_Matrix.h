#ifndef IDX_Base_Matrix_h
#define IDX_Base_Matrix_h

/// An affine transformation, row by row: out.x = c00 x + c01 y + c02 z + c03, and so for y and z.
struct IDX_Base_Matrix {
    float coefficients[3][4];
};
static_assert(sizeof(IDX_Base_Matrix) == 48, "IDX_Base_Matrix: twelve floats without gaps");

#endif
