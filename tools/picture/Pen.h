#ifndef Pen_h
#define Pen_h

#include "Pixels.h"
#include "Projection.h"
#include "Status.h"

#include <array>
#include <cairo.h>
#include <cstdint>
#include <string>

// What all pictures share: colours, sizes and texts, and the pen that draws them.

constexpr Colour kPaper = {1.0, 1.0, 1.0};
constexpr Colour kInk = {0.13, 0.16, 0.20};
constexpr Colour kFaint = {0.42, 0.46, 0.51};
constexpr Colour kLine = {0.85, 0.87, 0.89};

// The sheet that every picture fills, in pixels.
constexpr int kSheetWidth = 1880;
constexpr int kSheetHeight = 1400;
constexpr double kSheetMargin = 44.0;

constexpr std::array<const char*, 3> kAxisNames = {"x", "y", "z"};

constexpr double kTitleSize = 38.0;
constexpr double kTextSize = 20.0;
constexpr double kSmallestText = 12.0;
constexpr double kSwatch = 22.0;  // side of a colour in a legend

/// A number with so many digits.
std::string Number(double iValue, int iDigits);

/// A coordinate, to about a tenth of a cell.
std::string Coordinate(double iValue, double iCellSide);

/// 1234567 as "1,234,567".
std::string Grouped(std::uint64_t iValue);

/// Only what every font has: any other character becomes a '?'.
std::string Plain(const std::string& iText);

enum class Align { Left, Right };

/// Draws on a picture. A font that is missing is replaced by the drawing library, in the last
/// resort by one of its own.
class Pen {
public:
    explicit Pen(cairo_t* ioContext) : _context(ioContext) {}

    void Use(const Colour& iColour);
    void Fill(double iX, double iY, double iWidth, double iHeight, const Colour& iColour);
    void Line(double iX, double iY, double iToX, double iToY, double iWidth);
    void Font(double iSize, bool iBold = false);

    /// Writes in the present font and colour; iX is the text's left or right end, iY its base line.
    void Text(double iX, double iY, const std::string& iText, Align iAlign = Align::Left);

    /// Writes as large as it fits, up to a size; what doesn't fit even small is cut.
    void FittedText(
        double iX, double iY, std::string iText, double iSize, bool iBold, double iWidth);

    /// Paints pixels with their top left corner at a place, each as a square of iScale.
    /// @param iOpacity  1 hides what is below, 0 isn't seen
    void Paint(const Pixels& iPixels, double iX, double iY, double iScale, double iOpacity = 1.0);

    /// A bar of a round length, with its right end at a place.
    /// @param iPixelsPerUnit  pixels for one model unit
    void ScaleBar(double iRight, double iY, double iPixelsPerUnit);

    /// The directions of the model's axes in a view.
    void Axes(const Projection& iProjection, double iX, double iY);

private:
    double Width(const std::string& iText);

    cairo_t* _context;
};

/// A picture in the making.
class PngCanvas {
public:
    PngCanvas(int iWidth, int iHeight);
    PngCanvas(const PngCanvas&) = delete;
    PngCanvas& operator=(const PngCanvas&) = delete;
    ~PngCanvas();

    cairo_t* Context() const { return _context; }

    /// Gives the picture as the bytes of a PNG file.
    Status Encode(std::string& oPng) const;

private:
    cairo_surface_t* _surface;
    cairo_t* _context;
};

#endif
