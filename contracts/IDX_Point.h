#ifndef IDX_Point_h
#define IDX_Point_h

/// A point, or an extent along the three axes, in model units. An array of points is contiguous.
struct IDX_Point {
    float x;
    float y;
    float z;
};
static_assert(sizeof(IDX_Point) == 12, "IDX_Point: three floats without gaps");

#endif
