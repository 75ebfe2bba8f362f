#include "OctreePicture.h"

#include "VoxelGrid.h"

#include <algorithm>
#include <array>
#include <cairo.h>
#include <cmath>
#include <cstdio>
#include <memory>

namespace {

// The sheet, in pixels: title and facts above, the view on the left, three slices on the right.
constexpr int kSheetWidth = 1880;
constexpr int kSheetHeight = 1400;
constexpr double kMargin = 44.0;
constexpr double kBodyTop = 176.0;
constexpr int kViewWidth = 1190;
constexpr int kViewHeight = 1080;
constexpr double kSlicesLeft = 1320.0;
constexpr double kSliceWidth = kSheetWidth - kMargin - kSlicesLeft;
constexpr double kSlicesHeight = 980.0;  // of all three together
constexpr double kCaptionHeight = 38.0;  // above each slice
constexpr double kSliceGap = 22.0;       // below each slice
constexpr double kLongestBar = 260.0;

constexpr double kTitleSize = 38.0;
constexpr double kTextSize = 20.0;
constexpr double kSmallestText = 12.0;

constexpr Colour kPaper = {1.0, 1.0, 1.0};
constexpr Colour kInk = {0.13, 0.16, 0.20};
constexpr Colour kFaint = {0.42, 0.46, 0.51};
constexpr Colour kLine = {0.85, 0.87, 0.89};
constexpr Colour kSurface = {0.42, 0.58, 0.74};
constexpr Colour kInside = {0.97, 0.71, 0.33};
constexpr std::array<Colour, 3> kAxisColours = {
    {{0.80, 0.22, 0.20}, {0.20, 0.58, 0.26}, {0.18, 0.36, 0.80}}
};
constexpr std::array<const char*, 3> kAxisNames = {"x", "y", "z"};

using Surface = std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)>;
using Context = std::unique_ptr<cairo_t, decltype(&cairo_destroy)>;

enum class Align { Left, Right };

std::string Number(double iValue, int iDigits) {
    char text[32];
    std::snprintf(text, sizeof text, "%.*g", iDigits, iValue);
    return text;
}

/// A coordinate, to about a tenth of a cell.
std::string Coordinate(double iValue, double iCellSide) {
    constexpr double kLargest = 1e9;
    constexpr double kFinestCell = 1e-7;
    if (!(std::fabs(iValue) < kLargest) || !(iCellSide > kFinestCell)) return Number(iValue, 6);
    char text[32];
    const int decimals = std::max(0, 1 - static_cast<int>(std::floor(std::log10(iCellSide))));
    std::snprintf(text, sizeof text, "%.*f", decimals, iValue);
    return text;
}

/// 1234567 as "1,234,567".
std::string Grouped(std::uint64_t iValue) {
    std::string text = std::to_string(iValue);
    for (std::size_t at = text.size(); at > 3; at -= 3) text.insert(at - 3, 1, ',');
    return text;
}

/// Only what every font has: any other character becomes a '?'.
std::string Plain(const std::string& iText) {
    std::string plain;
    for (const char c : iText) {
        const bool continues = (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;  // of UTF-8
        if (!continues) plain += c >= ' ' && c <= '~' ? c : '?';
    }
    return plain;
}

/// Drawing in the style of the sheet. A font that is missing is replaced by the drawing library, in
/// the last resort by one of its own.
class Pen {
public:
    explicit Pen(cairo_t* ioContext) : _context(ioContext) {}

    void Use(const Colour& iColour) {
        cairo_set_source_rgb(_context, iColour.red, iColour.green, iColour.blue);
    }

    void Fill(double iX, double iY, double iWidth, double iHeight, const Colour& iColour) {
        Use(iColour);
        cairo_rectangle(_context, iX, iY, iWidth, iHeight);
        cairo_fill(_context);
    }

    void Line(double iX, double iY, double iToX, double iToY, double iWidth) {
        cairo_set_line_width(_context, iWidth);
        cairo_move_to(_context, iX, iY);
        cairo_line_to(_context, iToX, iToY);
        cairo_stroke(_context);
    }

    void Font(double iSize, bool iBold = false) {
        cairo_select_font_face(
            _context, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL,
            iBold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
        cairo_set_font_size(_context, iSize);
    }

    /// Writes in the present font and colour; iX is the text's left or right end, iY its base line.
    void Text(double iX, double iY, const std::string& iText, Align iAlign = Align::Left) {
        const double shift = iAlign == Align::Right ? Width(iText) : 0.0;
        cairo_move_to(_context, iX - shift, iY);
        cairo_show_text(_context, iText.c_str());
    }

    /// Writes as large as it fits, up to a size; what doesn't fit even small is cut.
    void FittedText(
        double iX, double iY, std::string iText, double iSize, bool iBold, double iWidth) {
        Font(iSize, iBold);
        Font(std::clamp(iSize * iWidth / std::max(1.0, Width(iText)), kSmallestText, iSize), iBold);
        while (iText.size() > 4 && Width(iText) > iWidth) {
            iText.replace(iText.size() - 4, 4, "...");
        }
        Text(iX, iY, iText);
    }

    /// Paints pixels with their top left corner at a place, each as a square of iScale.
    void Paint(const Pixels& iPixels, double iX, double iY, double iScale) {
        const Surface image(
            cairo_image_surface_create_for_data(
                reinterpret_cast<unsigned char*>(const_cast<std::uint32_t*>(iPixels.values.data())),
                CAIRO_FORMAT_ARGB32, iPixels.width, iPixels.height, 4 * iPixels.width),
            cairo_surface_destroy);
        cairo_save(_context);
        cairo_translate(_context, iX, iY);
        cairo_scale(_context, iScale, iScale);
        cairo_set_source_surface(_context, image.get(), 0.0, 0.0);
        cairo_paint(_context);
        cairo_restore(_context);
    }

private:
    double Width(const std::string& iText) {
        cairo_text_extents_t extents;
        cairo_text_extents(_context, iText.c_str(), &extents);
        return extents.x_advance;
    }

    cairo_t* _context;
};

/// The longest of 1, 2, 5, 10, 20, ... and their fractions that isn't above a length.
double RoundLength(double iLongest) {
    const double power = std::pow(10.0, std::floor(std::log10(iLongest)));
    for (const double step : {5.0, 2.0}) {
        if (step * power <= iLongest) return step * power;
    }
    return power;
}

/// @param iPixelsPerUnit  pixels for one model unit
void DrawScaleBar(Pen& ioPen, double iRight, double iY, double iPixelsPerUnit) {
    if (!(iPixelsPerUnit > 0.0) || !std::isfinite(iPixelsPerUnit)) return;
    constexpr double kTick = 7.0;
    const double length = RoundLength(kLongestBar / iPixelsPerUnit);
    const double left = iRight - length * iPixelsPerUnit;
    ioPen.Use(kInk);
    ioPen.Line(left, iY, iRight, iY, 3.0);
    ioPen.Line(left, iY - kTick, left, iY + kTick, 2.0);
    ioPen.Line(iRight, iY - kTick, iRight, iY + kTick, 2.0);
    ioPen.Font(kTextSize);
    ioPen.Text(left - 12.0, iY + 7.0, Number(length, 6) + " units", Align::Right);
}

/// The directions of the model's axes in the view.
void DrawAxes(Pen& ioPen, const Projection& iProjection, double iX, double iY) {
    constexpr double kLength = 62.0;
    ioPen.Font(kTextSize, true);
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const double x = iProjection.Right()[axis];
        const double y = -iProjection.Up()[axis];
        ioPen.Use(kAxisColours[axis]);
        ioPen.Line(iX, iY, iX + kLength * x, iY + kLength * y, 3.5);
        ioPen.Text(iX + 1.28 * kLength * x - 6.0, iY + 1.28 * kLength * y + 7.0, kAxisNames[axis]);
    }
}

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
    /// @param iNormal  axis that stands on the slice
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
        const double width = kSlicesLeft - 2.0 * kMargin;
        _pen.Use(kInk);
        _pen.FittedText(kMargin, 70.0, Plain(_facts.name), kTitleSize, true, width);
        _pen.Use(kFaint);
        _pen.FittedText(kMargin, 106.0, Plain(_facts.source), kTextSize, false, width);
        _pen.FittedText(kMargin, 136.0, Figures(), kTextSize, false, kSheetWidth - 2.0 * kMargin);
        _pen.Fill(kMargin, 154.0, kSheetWidth - 2.0 * kMargin, 2.0, kLine);
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
        constexpr double kSwatch = 22.0;
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
        double pixelsPerCell = 0.0;
        const Pixels view =
            DrawView(_grid, projection, kSurface, kViewWidth, kViewHeight, pixelsPerCell);
        _pen.Paint(view, kMargin, kBodyTop + 10.0, 1.0);
        const double below = kSheetHeight - 62.0;
        DrawAxes(_pen, projection, kMargin + 76.0, below - 14.0);
        DrawScaleBar(_pen, kMargin + kViewWidth, below, pixelsPerCell / _cellSide);
    }

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
        _pen.Fill(kSlicesLeft - 42.0, kBodyTop + 6.0, 2.0, kSheetHeight - kBodyTop - 44.0, kLine);
        double top = kBodyTop;
        for (const Slice& slice : slices) {
            DrawSlice(slice, top, scale);
            top += kCaptionHeight + scale * slice.Height() + kSliceGap;
        }
        DrawScaleBar(_pen, kSlicesLeft + kSliceWidth, kSheetHeight - 62.0, scale / _cellSide);
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

cairo_status_t AppendBytes(void* ioBytes, const unsigned char* iData, unsigned int iLength) {
    static_cast<std::string*>(ioBytes)->append(reinterpret_cast<const char*>(iData), iLength);
    return CAIRO_STATUS_SUCCESS;
}

}  // namespace

std::string DrawSheet(
    const PLMIdxIBaseOctree& iOctree, const SheetFacts& iFacts, std::string& oPng) {
    const Surface surface(
        cairo_image_surface_create(CAIRO_FORMAT_RGB24, kSheetWidth, kSheetHeight),
        cairo_surface_destroy);
    const Context context(cairo_create(surface.get()), cairo_destroy);
    Sheet(context.get(), iOctree, iFacts).Draw();
    oPng.clear();
    cairo_status_t status = cairo_status(context.get());
    if (status == CAIRO_STATUS_SUCCESS) {
        status = cairo_surface_write_to_png_stream(surface.get(), &AppendBytes, &oPng);
    }
    return status == CAIRO_STATUS_SUCCESS ? std::string() : cairo_status_to_string(status);
}
