#ifndef VoxelView_h
#define VoxelView_h

#include "VoxelGrid.h"

#include <array>
#include <cstdint>
#include <vector>

/// Which axis of the model points upwards in a picture.
enum class UpAxis { Y, Z };

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

/// A parallel projection of the model's space, from the front right and above.
class Projection {
public:
    using Vector = std::array<double, 3>;

    explicit Projection(UpAxis iUp);

    const Vector& Right() const { return _right; }    ///< of the picture, unit length
    const Vector& Up() const { return _up; }          ///< of the picture, unit length
    const Vector& Viewer() const { return _viewer; }  ///< towards the viewer, unit length

private:
    Vector _right;
    Vector _up;
    Vector _viewer;
};

/// Draws the occupied cells, shaded, as large as they fit.
/// @param oPixelsPerCell  length in the picture of a line that is one cell long and lies in its plane
Pixels DrawView(
    const VoxelGrid& iGrid,
    const Projection& iProjection,
    const Colour& iColour,
    int iWidth,
    int iHeight,
    double& oPixelsPerCell);

#endif
