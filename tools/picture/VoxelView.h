#ifndef VoxelView_h
#define VoxelView_h

#include "VoxelGrid.h"

#include <array>
#include <cstdint>
#include <memory>
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

/// Lowest and highest coordinate in the picture's plane, to the right and downwards, of what is drawn. Model units.
struct Frame {
    double low[2] = {1e300, 1e300};
    double high[2] = {-1e300, -1e300};

    /// Grows to hold a point.
    void Add(const Projection& iProjection, const Projection::Vector& iPoint);
};

/// The frame around the occupied cells of a grid whose cells are cubes of side 1.
Frame FindFrame(const VoxelGrid& iGrid, const Projection& iProjection);

/// Where the cells of a grid lie.
struct Placement {
    Projection::Vector origin = {0.0, 0.0, 0.0};  ///< low corner of the grid
    Projection::Vector cell = {1.0, 1.0, 1.0};    ///< sides of a cell
};

/// Draws the occupied cells of any number of grids, shaded; what is nearer hides what is behind it.
class VoxelView {
public:
    /// @param iFrame  made as large as it fits, and centred
    VoxelView(const Projection& iProjection, const Frame& iFrame, int iWidth, int iHeight);
    VoxelView(const VoxelView&) = delete;
    VoxelView& operator=(const VoxelView&) = delete;
    ~VoxelView();

    void Draw(const VoxelGrid& iGrid, const Placement& iPlacement, const Colour& iColour);

    /// The picture; transparent where nothing was drawn.
    Pixels Resolve() const;

    /// Length in the picture of a line of length 1 that lies in its plane.
    double PixelsPerUnit() const;

private:
    struct Scene;

    std::unique_ptr<Scene> _scene;
};

#endif
