#include "Pen.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <png.h>
#include <vector>

namespace {

constexpr double kLongestBar = 260.0;

constexpr std::array<Colour, 3> kAxisColours = {
    {{0.80, 0.22, 0.20}, {0.20, 0.58, 0.26}, {0.18, 0.36, 0.80}}
};

/// The longest of 1, 2, 5, 10, 20, ... and their fractions that isn't above a length.
double RoundLength(double iLongest) {
    const double power = std::pow(10.0, std::floor(std::log10(iLongest)));
    for (const double step : {5.0, 2.0}) {
        if (step * power <= iLongest) return step * power;
    }
    return power;
}

/// Red, green and blue of each pixel, in rows from the top.
std::vector<unsigned char> BytesOf(cairo_surface_t* iSurface) {
    const int width = cairo_image_surface_get_width(iSurface);
    const int height = cairo_image_surface_get_height(iSurface);
    cairo_surface_flush(iSurface);
    const unsigned char* row = cairo_image_surface_get_data(iSurface);
    std::vector<unsigned char> bytes;
    bytes.reserve(3 * static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    for (int y = 0; y < height; ++y, row += cairo_image_surface_get_stride(iSurface)) {
        const unsigned char* next = row;
        for (int x = 0; x < width; ++x, next += sizeof(std::uint32_t)) {
            std::uint32_t pixel;  // 0x__RRGGBB
            std::memcpy(&pixel, next, sizeof pixel);
            for (const unsigned int shift : {16U, 8U, 0U})
                bytes.push_back(static_cast<unsigned char>(pixel >> shift));
        }
    }
    return bytes;
}

}  // namespace

std::string Number(double iValue, int iDigits) {
    char text[32];
    std::snprintf(text, sizeof text, "%.*g", iDigits, iValue);
    return text;
}

std::string Coordinate(double iValue, double iCellSide) {
    constexpr double kLargest = 1e9;
    constexpr double kFinestCell = 1e-7;
    if (!(std::fabs(iValue) < kLargest) || !(iCellSide > kFinestCell)) return Number(iValue, 6);
    char text[32];
    const int decimals = std::max(0, 1 - static_cast<int>(std::floor(std::log10(iCellSide))));
    std::snprintf(text, sizeof text, "%.*f", decimals, iValue);
    return text;
}

std::string Grouped(std::uint64_t iValue) {
    std::string text = std::to_string(iValue);
    for (std::size_t at = text.size(); at > 3; at -= 3) text.insert(at - 3, 1, ',');
    return text;
}

std::string Plain(const std::string& iText) {
    std::string plain;
    for (const char c : iText) {
        const bool continues = (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;  // of UTF-8
        if (!continues) plain += c >= ' ' && c <= '~' ? c : '?';
    }
    return plain;
}

void Pen::Use(const Colour& iColour) {
    cairo_set_source_rgb(_context, iColour.red, iColour.green, iColour.blue);
}

void Pen::Fill(double iX, double iY, double iWidth, double iHeight, const Colour& iColour) {
    Use(iColour);
    cairo_rectangle(_context, iX, iY, iWidth, iHeight);
    cairo_fill(_context);
}

void Pen::Line(double iX, double iY, double iToX, double iToY, double iWidth) {
    cairo_set_line_width(_context, iWidth);
    cairo_move_to(_context, iX, iY);
    cairo_line_to(_context, iToX, iToY);
    cairo_stroke(_context);
}

void Pen::Font(double iSize, bool iBold) {
    cairo_select_font_face(
        _context, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL,
        iBold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(_context, iSize);
}

void Pen::Text(double iX, double iY, const std::string& iText, Align iAlign) {
    const double shift = iAlign == Align::Right ? Width(iText) : 0.0;
    cairo_move_to(_context, iX - shift, iY);
    cairo_show_text(_context, iText.c_str());
}

void Pen::FittedText(
    double iX, double iY, std::string iText, double iSize, bool iBold, double iWidth) {
    Font(iSize, iBold);
    Font(std::clamp(iSize * iWidth / std::max(1.0, Width(iText)), kSmallestText, iSize), iBold);
    while (iText.size() > 4 && Width(iText) > iWidth) {
        iText.replace(iText.size() - 4, 4, "...");
    }
    Text(iX, iY, iText);
}

void Pen::Paint(const Pixels& iPixels, double iX, double iY, double iScale, double iOpacity) {
    const std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> image(
        cairo_image_surface_create_for_data(
            reinterpret_cast<unsigned char*>(const_cast<std::uint32_t*>(iPixels.values.data())),
            CAIRO_FORMAT_ARGB32, iPixels.width, iPixels.height, 4 * iPixels.width),
        cairo_surface_destroy);
    cairo_save(_context);
    cairo_translate(_context, iX, iY);
    cairo_scale(_context, iScale, iScale);
    cairo_set_source_surface(_context, image.get(), 0.0, 0.0);
    cairo_paint_with_alpha(_context, iOpacity);
    cairo_restore(_context);
}

double Pen::Width(const std::string& iText) {
    cairo_text_extents_t extents;
    cairo_text_extents(_context, iText.c_str(), &extents);
    return extents.x_advance;
}

void Pen::ScaleBar(double iRight, double iY, double iPixelsPerUnit) {
    if (!(iPixelsPerUnit > 0.0) || !std::isfinite(iPixelsPerUnit)) return;
    constexpr double kTick = 7.0;
    const double length = RoundLength(kLongestBar / iPixelsPerUnit);
    const double left = iRight - length * iPixelsPerUnit;
    Use(kInk);
    Line(left, iY, iRight, iY, 3.0);
    Line(left, iY - kTick, left, iY + kTick, 2.0);
    Line(iRight, iY - kTick, iRight, iY + kTick, 2.0);
    Font(kTextSize);
    Text(left - 12.0, iY + 7.0, Number(length, 6) + " units", Align::Right);
}

void Pen::Axes(const Projection& iProjection, double iX, double iY) {
    constexpr double kLength = 62.0;
    Font(kTextSize, true);
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const double x = iProjection.Right()[axis];
        const double y = -iProjection.Up()[axis];
        Use(kAxisColours[axis]);
        Line(iX, iY, iX + kLength * x, iY + kLength * y, 3.5);
        Text(iX + 1.28 * kLength * x - 6.0, iY + 1.28 * kLength * y + 7.0, kAxisNames[axis]);
    }
}

PngCanvas::PngCanvas(int iWidth, int iHeight)
    : _surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, iWidth, iHeight)),
      _context(cairo_create(_surface)) {}

PngCanvas::~PngCanvas() {
    cairo_destroy(_context);
    cairo_surface_destroy(_surface);
}

Status PngCanvas::Encode(std::string& oPng) const {
    oPng.clear();
    const cairo_status_t status = cairo_status(_context);
    if (status != CAIRO_STATUS_SUCCESS) return Status::Environment(cairo_status_to_string(status));
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(cairo_image_surface_get_width(_surface));
    image.height = static_cast<png_uint_32>(cairo_image_surface_get_height(_surface));
    image.format = PNG_FORMAT_RGB;
    // Rows as they are, packed fast: drawings with large even areas come out no larger than through
    // the filters of photographs, in a quarter of the time.
    image.flags = PNG_IMAGE_FLAG_FAST;
    oPng.resize(PNG_IMAGE_PNG_SIZE_MAX(image));
    png_alloc_size_t size = oPng.size();
    const std::vector<unsigned char> bytes = BytesOf(_surface);
    const bool done =
        png_image_write_to_memory(&image, oPng.data(), &size, 0, bytes.data(), 0, nullptr) != 0;
    oPng.resize(done ? size : 0);
    return done ? Status() : Status::Environment(image.message);
}
