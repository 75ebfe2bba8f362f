#include "OctreePicture.h"

#include "Pen.h"
#include "VoxelGrid.h"
#include "VoxelView.h"

#include <algorithm>
#include <array>
#include <cairo.h>
#include <cmath>
#include <cstdio>
#include <memory>

namespace {

// On the sheet: title and facts above, the view on the left, three slices on the right.
constexpr double kPartTop = 176.0;
constexpr int kPartWidth = 1190;
constexpr int kPartHeight = 1080;
constexpr double kSlicesLeft = 1320.0;
constexpr double kSliceWidth = kSheetWidth - kSheetMargin - kSlicesLeft;
constexpr double kSlicesHeight = 980.0;  // of all three together
constexpr double kCaptionHeight = 38.0;  // above each slice
constexpr double kSliceGap = 22.0;       // below each slice

constexpr Colour kSurface = {0.42, 0.58, 0.74};
constexpr Colour kInside = {0.97, 0.71, 0.33};

std::uint32_t Opaque(const Colour& iColour) {
    const auto channel = [](double iValue) {
        return static_cast<std::uint32_t>(std::lround(255.0 * iValue));
    };
    return 0xFF000000U | channel(iColour.red) << 16U | channel(iColour.green) << 8U |
           channel(iColour.blue);
}

/// A slice through the middle of what is occupied.
class Slice {
public:
    /// @param iNormal  axis at right angles to the slice
    /// @param iUp      axis that points upwards in the slices that hold it
    Slice(const VoxelGrid& iGrid, std::size_t iNormal, std::size_t iUp)
        : normal(iNormal),
          across(iNormal == 0 ? 3 - iUp : 0),
          upwards(3 - normal - across),
          layer((iGrid.Low()[iNormal] + iGrid.High()[iNormal]) / 2),
          _grid(iGrid) {}

    int Width() const { return _grid.High()[across] - _grid.Low()[across] + 1; }
    int Height() const { return _grid.High()[upwards] - _grid.Low()[upwards] + 1; }

    bool IsEmpty() const {
        const Pixels pixels = Draw(1);
        return std::all_of(pixels.values.begin(), pixels.values.end(), [](std::uint32_t value) {
            return value == 0;
        });
    }

    /// Each cell as a square of iEnlarged pixels; what isn't occupied is clear, 0.
    Pixels Draw(int iEnlarged) const {
        Pixels pixels = {iEnlarged * Width(), iEnlarged * Height(), {}};
        for (int y = 0; y < pixels.height; ++y) {
            for (int x = 0; x < pixels.width; ++x) {
                pixels.values.push_back(CellColour(x / iEnlarged, y / iEnlarged));
            }
        }
        return pixels;
    }

    std::size_t normal;
    std::size_t across;   ///< axis to the right
    std::size_t upwards;  ///< axis upwards
    int layer;            ///< the slice's cells along `normal`

private:
    std::uint32_t CellColour(int iColumn, int iRow) const {
        VoxelGrid::Position cell;
        cell[normal] = layer;
        cell[across] = _grid.Low()[across] + iColumn;
        cell[upwards] = _grid.High()[upwards] - iRow;
        switch (_grid.At(cell)) {
            case VoxelGrid::Surface:
                return Opaque(kSurface);
            case VoxelGrid::Inside:
                return Opaque(kInside);
            default:
                return 0;
        }
    }

    const VoxelGrid& _grid;
};

/// One sheet while it is drawn.
class Sheet {
public:
    Sheet(cairo_t* ioContext, const PLMIdxIBaseOctree& iOctree, const SheetFacts& iFacts)
        : _pen(ioContext),
          _octree(iOctree),
          _facts(iFacts),
          _grid(iOctree),
          _origin{iOctree._bbOrigin.x, iOctree._bbOrigin.y, iOctree._bbOrigin.z},
          _cellSide(static_cast<double>(iOctree._bbSize.x) / _grid.Side()) {}

    void Draw() {
        _pen.Fill(0.0, 0.0, kSheetWidth, kSheetHeight, kPaper);
        DrawHeading();
        DrawLegend();
        DrawBody();
        DrawSlices();
    }

private:
    void DrawHeading() {
        const double width = kSlicesLeft - 2.0 * kSheetMargin;
        _pen.Use(kInk);
        _pen.FittedText(kSheetMargin, 70.0, Plain(_facts.name), kTitleSize, true, width);
        _pen.Use(kFaint);
        _pen.FittedText(kSheetMargin, 106.0, Plain(_facts.source), kTextSize, false, width);
        _pen.FittedText(
            kSheetMargin, 136.0, Figures(), kTextSize, false, kSheetWidth - 2.0 * kSheetMargin);
        _pen.Fill(kSheetMargin, 154.0, kSheetWidth - 2.0 * kSheetMargin, 2.0, kLine);
    }

    std::string Figures() const {
        const double lastSide = static_cast<double>(_octree._bbSize.x) / std::exp2(_octree._depth);
        std::string text = Grouped(_facts.nTriangles) + " triangles   |   depth " +
                           std::to_string(_octree._depth) + ", cells of " + Number(lastSide, 4) +
                           " units   |   " + Grouped(_facts.nSolid) + " solid cells, " +
                           Grouped(_facts.nInside) + " of them inside   |   occupies";
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const int nCells = _grid.High()[axis] - _grid.Low()[axis] + 1;
            text += (axis == 0 ? " " : " x ") + Number(nCells * _cellSide, 4);
        }
        text += " units";
        if (_grid.Level() < _octree._depth) {
            text += "   |   drawn at level " + std::to_string(_grid.Level());
        }
        return text;
    }

    void DrawLegend() {
        const bool hasInside = _facts.nInside > 0;
        _pen.Font(kTextSize);
        _pen.Fill(kSlicesLeft, 52.0, kSwatch, kSwatch, kSurface);
        _pen.Use(kInk);
        _pen.Text(kSlicesLeft + 34.0, 70.0, "surface");
        if (hasInside) _pen.Fill(kSlicesLeft + 160.0, 52.0, kSwatch, kSwatch, kInside);
        _pen.Use(kInk);
        _pen.Text(
            kSlicesLeft + (hasInside ? 194.0 : 160.0), 70.0, hasInside ? "inside" : "no inside");
    }

    void DrawBody() {
        const Projection projection(_facts.up);
        VoxelView view(projection, FindFrame(_grid, projection), kPartWidth, kPartHeight);
        view.Draw(_grid, Placement(), kSurface);
        _pen.Paint(view.Resolve(), kSheetMargin, kPartTop + 10.0, 1.0);
        const double below = kSheetHeight - 62.0;
        _pen.Axes(projection, kSheetMargin + 76.0, below - 14.0);
        _pen.ScaleBar(kSheetMargin + kPartWidth, below, view.PixelsPerUnit() / _cellSide);
    }

    /// All three at one scale, so that they can be compared.
    void DrawSlices() {
        const std::size_t up = _facts.up == UpAxis::Z ? 2 : 1;
        const std::array<Slice, 3> slices = {
            Slice(_grid, 2, up), Slice(_grid, 1, up), Slice(_grid, 0, up)};
        int width = 0;
        int height = 0;
        for (const Slice& slice : slices) {
            width = std::max(width, slice.Width());
            height += slice.Height();
        }
        const double scale = std::min(kSliceWidth / width, kSlicesHeight / height);
        _pen.Fill(kSlicesLeft - 42.0, kPartTop + 6.0, 2.0, kSheetHeight - kPartTop - 44.0, kLine);
        double top = kPartTop;
        for (const Slice& slice : slices) {
            DrawSlice(slice, top, scale);
            top += kCaptionHeight + scale * slice.Height() + kSliceGap;
        }
        _pen.ScaleBar(kSlicesLeft + kSliceWidth, kSheetHeight - 62.0, scale / _cellSide);
    }

    void DrawSlice(const Slice& iSlice, double iTop, double iScale) {
        const double at = _origin[iSlice.normal] + (iSlice.layer + 0.5) * _cellSide;
        _pen.Font(kTextSize);
        _pen.Use(kInk);
        _pen.Text(
            kSlicesLeft, iTop + 22.0,
            std::string("slice at ") + kAxisNames[iSlice.normal] + " = " +
                Coordinate(at, _cellSide));
        _pen.Use(kFaint);
        _pen.Text(
            kSlicesLeft + kSliceWidth, iTop + 22.0,
            std::string(kAxisNames[iSlice.across]) + " right, " + kAxisNames[iSlice.upwards] +
                " up",
            Align::Right);
        if (iSlice.IsEmpty()) {
            _pen.Text(kSlicesLeft, iTop + kCaptionHeight + 22.0, "(no cells here)");
            return;
        }
        const int enlarged = std::max(1, static_cast<int>(std::ceil(iScale)));
        _pen.Paint(iSlice.Draw(enlarged), kSlicesLeft, iTop + kCaptionHeight, iScale / enlarged);
    }

    Pen _pen;
    const PLMIdxIBaseOctree& _octree;
    const SheetFacts& _facts;
    VoxelGrid _grid;
    std::array<double, 3> _origin;
    double _cellSide;  ///< of the cells drawn, model units
};

}  // namespace

Status DrawSheet(const PLMIdxIBaseOctree& iOctree, const SheetFacts& iFacts, std::string& oPng) {
    const PngCanvas canvas(kSheetWidth, kSheetHeight);
    Sheet(canvas.Context(), iOctree, iFacts).Draw();
    return canvas.Encode(oPng);
}
