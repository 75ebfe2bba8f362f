#ifndef IDX_Triangle_h
#define IDX_Triangle_h

/// A triangle as three indices into an array of IDX_Point, counted from 0.
struct IDX_Triangle {
    unsigned int vertices[3];
};
static_assert(sizeof(IDX_Triangle) == 12, "IDX_Triangle: three indices without gaps");

#endif
