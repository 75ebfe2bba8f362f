#include "VoxelView.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

// The visible faces of the cells are drawn one by one into a depth buffer. In a parallel projection
// all faces that look the same way are the same parallelogram, which makes a face cheap. The light
// comes from how full the neighbourhood of a cell is: its gradient gives a smooth normal, its
// amount darkens hollows (ambient occlusion).

namespace {

using Position = VoxelGrid::Position;

constexpr int kSamples = 2;  // for each pixel, along either axis
constexpr int kReach = 3;    // cells that a neighbourhood reaches out

/// What surrounds a cell within kReach.
struct Neighbourhood {
    Vector outwards;  ///< away from the fuller side; its length is 1 above a flat face of a solid
    double fullness;  ///< occupied share, from 0 to 1
};

/// Adds up where the occupied cells around a cell are: their mean points into the solid. It walks
/// along rows, which lie one after the other in memory.
Neighbourhood LookAround(const VoxelGrid& iGrid, const Position& iCell) {
    // Over a flat face of a solid, this is the sum of the offsets of occupied cells along its
    // normal.
    constexpr double kFlatSum = (2 * kReach + 1) * (2 * kReach + 1) * (kReach * (kReach + 1)) / 2.0;
    constexpr double kCells = (2 * kReach + 1) * (2 * kReach + 1) * (2 * kReach + 1);
    Position low;
    Position high;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        low[axis] = std::max(-kReach, -iCell[axis]);
        high[axis] = std::min(kReach, iGrid.Side() - 1 - iCell[axis]);
    }
    std::array<int, 3> sum = {0, 0, 0};
    int count = 0;
    for (int z = low[2]; z <= high[2]; ++z) {
        for (int y = low[1]; y <= high[1]; ++y) {
            const VoxelGrid::Cell* const row = iGrid.Row(iCell[1] + y, iCell[2] + z) + iCell[0];
            int inRow = 0;
            for (int x = low[0]; x <= high[0]; ++x) {
                const int occupied = row[x] != VoxelGrid::Empty ? 1 : 0;
                sum[0] += x * occupied;
                inRow += occupied;
            }
            sum = {sum[0], sum[1] + y * inRow, sum[2] + z * inRow};
            count += inRow;
        }
    }
    return {
        {-sum[0] / kFlatSum, -sum[1] / kFlatSum, -sum[2] / kFlatSum},
        count / kCells
    };
}

/// A direction in a view, by how far it goes to the right, upwards and towards the viewer.
struct ViewDirection {
    double right;
    double up;
    double viewer;
};

// Lighting by three sources, as photographers set it up: a main lamp from the upper left, a fill
// lamp from the right that brightens the shadows, and light from everywhere.
constexpr ViewDirection kMainLamp = {-0.45, 0.80, 0.95};
constexpr ViewDirection kFillLamp = {0.90, 0.0, 0.45};
constexpr double kMainLight = 0.80;  // on a face that looks straight into the lamp
constexpr double kFillLight = 0.22;
constexpr double kAmbientLight = 0.38;

// The normal of a neighbourhood makes curved surfaces smooth; that of the face keeps edges sharp.
constexpr double kSmoothNormal = 1.6;
constexpr double kFaceNormal = 0.5;

// How hollows darken, from the fullness of a flat face on.
constexpr double kHollowDarkening = 1.7;
constexpr double kDarkestHollow = 0.45;

/// Light on a face, from 0 to a little over 1.
class Lamps {
public:
    explicit Lamps(const Projection& iProjection)
        : _main(Towards(kMainLamp, iProjection)), _fill(Towards(kFillLamp, iProjection)) {}

    double Shade(const Neighbourhood& iAround, const Vector& iFaceNormal) const {
        constexpr double kFlatFullness = (kReach + 1.0) / (2.0 * kReach + 1.0);
        const Vector normal =
            Unit(Combine(kSmoothNormal, iAround.outwards, kFaceNormal, iFaceNormal));
        const double hollow = std::max(0.0, iAround.fullness - kFlatFullness);
        const double light = kAmbientLight + kMainLight * std::max(0.0, Dot(normal, _main)) +
                             kFillLight * std::max(0.0, Dot(normal, _fill));
        return light * std::max(kDarkestHollow, 1.0 - kHollowDarkening * hollow);
    }

private:
    static Vector Towards(const ViewDirection& iDirection, const Projection& iProjection) {
        const Vector inPlane =
            Combine(iDirection.right, iProjection.Right(), iDirection.up, iProjection.Up());
        return Unit(Combine(1.0, inPlane, iDirection.viewer, iProjection.Viewer()));
    }

    Vector _main;
    Vector _fill;
};

constexpr float kFarthest = -1e30F;

/// A depth buffer: of what is put on one sample, the nearest stays.
class Canvas {
public:
    Canvas(int iWidth, int iHeight)
        : _width(iWidth * kSamples),
          _height(iHeight * kSamples),
          _depths(Size(), kFarthest),
          _shades(Size(), 0.0F),
          _colours(Size(), 0) {}

    int Width() const { return _width; }
    int Height() const { return _height; }

    /// All that is put from now on has this colour.
    void Use(const Colour& iColour) { _palette.push_back(iColour); }

    void Put(int iX, int iY, double iDepth, double iShade) {
        const std::size_t at = Index(iX, iY);
        const auto depth = static_cast<float>(iDepth);
        if (depth <= _depths[at]) return;
        _depths[at] = depth;
        _shades[at] = static_cast<float>(iShade);
        _colours[at] = static_cast<std::uint32_t>(_palette.size() - 1);
    }

    /// Averages the samples of each pixel.
    Pixels Resolve() const {
        Pixels pixels = {_width / kSamples, _height / kSamples, {}};
        pixels.values.reserve(Size() / kSamples / kSamples);
        for (int y = 0; y < pixels.height; ++y) {
            for (int x = 0; x < pixels.width; ++x) pixels.values.push_back(Pixel(x, y));
        }
        return pixels;
    }

private:
    std::size_t Size() const {
        return static_cast<std::size_t>(_width) * static_cast<std::size_t>(_height);
    }
    std::size_t Index(int iX, int iY) const {
        return static_cast<std::size_t>(iY) * static_cast<std::size_t>(_width) +
               static_cast<std::size_t>(iX);
    }

    /// The mean of a pixel's samples; those that nothing was put on make it transparent.
    std::uint32_t Pixel(int iX, int iY) const {
        constexpr double kAll = kSamples * kSamples;
        Colour lit = {0.0, 0.0, 0.0};
        int nHit = 0;
        for (int sample = 0; sample < kSamples * kSamples; ++sample) {
            const std::size_t at =
                Index(iX * kSamples + sample % kSamples, iY * kSamples + sample / kSamples);
            if (!(_shades[at] > 0.0F)) continue;
            const double light = static_cast<double>(_shades[at]) / kAll;
            const Colour& colour = _palette[_colours[at]];
            lit.red += light * colour.red;
            lit.green += light * colour.green;
            lit.blue += light * colour.blue;
            ++nHit;
        }
        if (nHit == 0) return 0;
        const double coverage = nHit / kAll;
        const auto channel = [&](double iValue) {  // premultiplied: never above the coverage
            return static_cast<std::uint32_t>(
                std::lround(255.0 * std::clamp(iValue, 0.0, coverage)));
        };
        return channel(coverage) << 24U | channel(lit.red) << 16U | channel(lit.green) << 8U |
               channel(lit.blue);
    }

    int _width;
    int _height;
    std::vector<float> _depths;           ///< towards the viewer
    std::vector<float> _shades;           ///< 0 where nothing is drawn
    std::vector<std::uint32_t> _colours;  ///< indices in the palette
    std::vector<Colour> _palette;
};

/// Maps model coordinates to samples of the canvas, scaled so that a frame just fits.
class Screen {
public:
    Screen(const Frame& iFrame, const Projection& iProjection, int iWidth, int iHeight)
        : scale(std::min(
              iWidth / (iFrame.high[0] - iFrame.low[0]),
              iHeight / (iFrame.high[1] - iFrame.low[1]))),
          _projection(iProjection),
          _shift{
              0.5 * (iWidth - scale * (iFrame.low[0] + iFrame.high[0])),
              0.5 * (iHeight - scale * (iFrame.low[1] + iFrame.high[1]))} {}

    /// Column, row and depth of a direction, or of a point with `iShifted`.
    Vector Map(const Vector& iPoint, bool iShifted) const {
        return {
            scale * Dot(iPoint, _projection.Right()) + (iShifted ? _shift[0] : 0.0),
            -scale * Dot(iPoint, _projection.Up()) + (iShifted ? _shift[1] : 0.0),
            Dot(iPoint, _projection.Viewer())};
    }

    double scale;  ///< samples a unit

private:
    const Projection& _projection;
    double _shift[2];
};

/// Draws the faces of one grid that look along one axis, towards the viewer. On the screen they are
/// all the same parallelogram.
class FaceBrush {
public:
    /// @param iAxis  the faces' normal, on the viewer's side
    FaceBrush(
        const Screen& iScreen,
        const Projection& iProjection,
        const Placement& iPlacement,
        std::size_t iAxis)
        : _screen(iScreen),
          _placement(iPlacement),
          _axis(iAxis),
          _positive(iProjection.Viewer()[iAxis] > 0.0),
          _edgeU(MapEdge((iAxis + 1) % 3)),
          _edgeV(MapEdge((iAxis + 2) % 3)),
          _u(Across(_edgeU, _edgeV)),
          _v(Across(_edgeV, _edgeU)) {}

    Vector Normal() const {
        Vector normal = {0.0, 0.0, 0.0};
        normal[_axis] = _positive ? 1.0 : -1.0;
        return normal;
    }

    bool IsOpen(const VoxelGrid& iGrid, Position iCell) const {
        iCell[_axis] += _positive ? 1 : -1;
        return iGrid.At(iCell) == VoxelGrid::Empty;
    }

    /// Goes over the rectangle around the face on the screen, and leaves to each sample whether the
    /// face holds it.
    void Draw(const Position& iCell, double iShade, Canvas& ioCanvas) const {
        Vector corner;
        for (std::size_t axis = 0; axis < corner.size(); ++axis) {
            const int index = iCell[axis] + (axis == _axis && _positive ? 1 : 0);
            corner[axis] = _placement.origin[axis] + _placement.cell[axis] * index;
        }
        const Vector start = _screen.Map(corner, true);
        const int left = First(start[0], _edgeU[0], _edgeV[0]);
        const int right = std::min(Last(start[0], _edgeU[0], _edgeV[0]), ioCanvas.Width() - 1);
        const int bottom = std::min(Last(start[1], _edgeU[1], _edgeV[1]), ioCanvas.Height() - 1);
        for (int y = First(start[1], _edgeU[1], _edgeV[1]); y <= bottom; ++y) {
            for (int x = left; x <= right; ++x) DrawSample(start, x, y, iShade, ioCanvas);
        }
    }

private:
    Vector MapEdge(std::size_t iAxis) const {
        Vector edge = {0.0, 0.0, 0.0};
        edge[iAxis] = _placement.cell[iAxis];
        return _screen.Map(edge, false);
    }
    /// How the share of an edge grows on the screen: 1 at its end, 0 along the other edge.
    static std::array<double, 2> Across(const Vector& iEdge, const Vector& iOther) {
        const double area = iEdge[0] * iOther[1] - iEdge[1] * iOther[0];  // signed
        return {iOther[1] / area, -iOther[0] / area};
    }
    static int First(double iStart, double iU, double iV) {
        return std::max(0, static_cast<int>(iStart + std::min(0.0, iU) + std::min(0.0, iV)));
    }
    static int Last(double iStart, double iU, double iV) {
        return static_cast<int>(iStart + std::max(0.0, iU) + std::max(0.0, iV));
    }

    /// Shares of the two edges from 0 to 1 are those of a sample in the face, and give its depth,
    /// too.
    void DrawSample(const Vector& iStart, int iX, int iY, double iShade, Canvas& ioCanvas) const {
        constexpr double kSlack = 1e-6;  // so that no crack shows between two faces
        const double x = iX + 0.5 - iStart[0];
        const double y = iY + 0.5 - iStart[1];
        const double u = x * _u[0] + y * _u[1];
        const double v = x * _v[0] + y * _v[1];
        if (std::min(u, v) < -kSlack || std::max(u, v) > 1.0 + kSlack) return;
        const double depth = iStart[2] + u * _edgeU[2] + v * _edgeV[2];
        ioCanvas.Put(iX, iY, depth, iShade * EdgeLine(u, v));
    }

    /// Draws the outline of a cell a little darker where cells are large enough for it.
    double EdgeLine(double iU, double iV) const {
        constexpr double kSmallestCell = 6.0;  // pixels
        constexpr double kLineWidth = 0.6;     // pixels, on either side of the edge
        constexpr double kLineShade = 0.88;
        const double side = _screen.scale * _placement.cell[_axis];
        if (side < kSmallestCell * kSamples) return 1.0;
        const double toEdge = std::min({iU, iV, 1.0 - iU, 1.0 - iV});
        return toEdge * side < kLineWidth * kSamples ? kLineShade : 1.0;
    }

    const Screen& _screen;
    const Placement& _placement;
    std::size_t _axis;
    bool _positive;
    Vector _edgeU;  ///< the edges of a face, mapped
    Vector _edgeV;
    std::array<double, 2> _u;  ///< what a step to the right, and one down, adds to the edge's share
    std::array<double, 2> _v;
};

/// Draws the faces of a cell that a viewer can see. A cell without any is skipped before its
/// neighbourhood is worked out, which costs most.
void DrawCell(
    const VoxelGrid& iGrid,
    const Position& iCell,
    const std::array<FaceBrush, 3>& iBrushes,
    const Lamps& iLamps,
    Canvas& ioCanvas) {
    const bool seen = std::any_of(iBrushes.begin(), iBrushes.end(), [&](const FaceBrush& brush) {
        return brush.IsOpen(iGrid, iCell);
    });
    if (!seen) return;
    const Neighbourhood around = LookAround(iGrid, iCell);
    for (const FaceBrush& brush : iBrushes) {
        if (!brush.IsOpen(iGrid, iCell)) continue;
        brush.Draw(iCell, iLamps.Shade(around, brush.Normal()), ioCanvas);
    }
}

}  // namespace

/// Around the centres, and wider by half of what one cell takes.
Frame FindFrame(const VoxelGrid& iGrid, const Projection& iProjection) {
    Frame frame;
    iGrid.ForEachCell([&](const Position& cell) {
        frame.Add(iProjection, {cell[0] + 0.5, cell[1] + 0.5, cell[2] + 0.5});
    });
    const Vector* const axes[2] = {&iProjection.Right(), &iProjection.Up()};
    for (int i = 0; i < 2; ++i) {
        const Vector& axis = *axes[i];
        const double half = 0.5 * (std::fabs(axis[0]) + std::fabs(axis[1]) + std::fabs(axis[2]));
        frame.low[i] -= half;
        frame.high[i] += half;
    }
    return frame;
}

struct VoxelView::Scene {
    Scene(const Projection& iProjection, const Frame& iFrame, int iWidth, int iHeight)
        : projection(iProjection),
          canvas(iWidth, iHeight),
          screen(iFrame, projection, canvas.Width(), canvas.Height()),
          lamps(projection) {}

    Projection projection;
    Canvas canvas;
    Screen screen;
    Lamps lamps;
};

VoxelView::VoxelView(const Projection& iProjection, const Frame& iFrame, int iWidth, int iHeight)
    : _scene(std::make_unique<Scene>(iProjection, iFrame, iWidth, iHeight)) {}

VoxelView::~VoxelView() = default;

void VoxelView::Draw(const VoxelGrid& iGrid, const Placement& iPlacement, const Colour& iColour) {
    Scene& scene = *_scene;
    const auto brush = [&](std::size_t axis) {
        return FaceBrush(scene.screen, scene.projection, iPlacement, axis);
    };
    const std::array<FaceBrush, 3> brushes = {brush(0), brush(1), brush(2)};
    scene.canvas.Use(iColour);
    iGrid.ForEachCell(
        [&](const Position& cell) { DrawCell(iGrid, cell, brushes, scene.lamps, scene.canvas); });
}

Pixels VoxelView::Resolve() const {
    return _scene->canvas.Resolve();
}

double VoxelView::PixelsPerUnit() const {
    return _scene->screen.scale / kSamples;
}
