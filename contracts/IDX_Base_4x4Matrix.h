#ifndef IDX_Base_4x4Matrix_h
#define IDX_Base_4x4Matrix_h

/// Sixteen floats, row by row. A default one is the identity: the cuboid matrix of an octree
/// without a cuboid. The floats go into files in this order.
struct IDX_Base_4x4Matrix {
    float coefficients[4][4] = {
        {1.0f, 0.0f, 0.0f, 0.0f},
        {0.0f, 1.0f, 0.0f, 0.0f},
        {0.0f, 0.0f, 1.0f, 0.0f},
        {0.0f, 0.0f, 0.0f, 1.0f},
    };
};
static_assert(sizeof(IDX_Base_4x4Matrix) == 64, "IDX_Base_4x4Matrix: sixteen floats");

#endif
