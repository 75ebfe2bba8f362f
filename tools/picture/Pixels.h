#ifndef Pixels_h
#define Pixels_h

#include <cstdint>
#include <vector>

/// A colour; each channel from 0 to 1.
struct Colour {
    double red;
    double green;
    double blue;
};

/// A picture as rows of pixels from the top, 0xAARRGGBB, premultiplied.
struct Pixels {
    int width;
    int height;
    std::vector<std::uint32_t> values;
};

#endif
