#ifndef VoxelView_h
#define VoxelView_h

#include "Pixels.h"
#include "Projection.h"
#include "VoxelGrid.h"

#include <memory>

/// The frame around the occupied cells of a grid whose cells are cubes of side 1.
Frame FindFrame(const VoxelGrid& iGrid, const Projection& iProjection);

/// Where the cells of a grid lie.
struct Placement {
    Vector origin = {0.0, 0.0, 0.0};  ///< low corner of the grid
    Vector cell = {1.0, 1.0, 1.0};    ///< sides of a cell
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
