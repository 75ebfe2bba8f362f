#ifndef IDX_Base_4x4Matrix_h
#define IDX_Base_4x4Matrix_h

/// Sixteen floats, row by row. A default-constructed one is the identity, which is the cuboid
/// orientation of an octree that has no cuboid set. The floats go into files as they stand here.
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
