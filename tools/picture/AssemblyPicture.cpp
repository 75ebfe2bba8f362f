#include "AssemblyPicture.h"

#include "Pen.h"
#include "VoxelGrid.h"
#include "VoxelView.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace {

// On the sheet: title above, the view below it, the legend on the right.
constexpr double kAssemblyTop = 146.0;
constexpr int kAssemblyWidth = 1400;
constexpr int kAssemblyHeight = 1110;
constexpr double kLegendLeft = 1490.0;
constexpr double kLegendStep = 34.0;

constexpr Colour kGrey = {0.80, 0.81, 0.83};
constexpr double kContextOpacity = 0.45;

std::array<double, 3> ToArray(const IDX_Point& iPoint) {
    return {double{iPoint.x}, double{iPoint.y}, double{iPoint.z}};
}

/// Red, green or blue of a colour wheel: `iShift` is 0, 4 or 2 for them.
double Channel(double iHue, double iSaturation, double iValue, double iShift) {
    const double place = std::fmod(iHue * 6.0 + iShift + 6.0, 6.0);
    const double ramp = std::clamp(std::fabs(place - 3.0) - 1.0, 0.0, 1.0);
    return iValue * (1.0 - iSaturation * (1.0 - ramp));
}

/// The end of a long name: it tells the parts of one scene apart.
std::string EndOf(const std::string& iName) {
    constexpr std::size_t kMost = 28;
    if (iName.size() <= kMost) return iName;
    return std::string("...").append(iName, iName.size() - kMost);
}

class Picture {
public:
    Picture(cairo_t* ioContext, const AssemblyFacts& iFacts)
        : _pen(ioContext),
          _facts(iFacts),
          _projection(iFacts.up),
          _view(_projection, FrameOf(), kAssemblyWidth, kAssemblyHeight),
          _context(_projection, FrameOf(), kAssemblyWidth, kAssemblyHeight),
          _colours(ChooseColours(iFacts.parts)),
          _nHighlighted(static_cast<std::size_t>(
              std::count_if(iFacts.parts.begin(), iFacts.parts.end(), [](const ShownPart& part) {
                  return part.isHighlighted;
              }))) {}

    void DrawPart(std::size_t iPart, const PLMIdxIBaseOctree& iOctree) {
        if (iOctree._depth == 0) return;
        const VoxelGrid grid(iOctree, LevelOf(iOctree));
        Placement placement;
        placement.origin = ToArray(iOctree._bbOrigin);
        const auto size = ToArray(iOctree._bbSize);
        for (std::size_t axis = 0; axis < 3; ++axis)
            placement.cell[axis] = size[axis] / grid.Side();
        const bool isContext = _nHighlighted != 0 && !_facts.parts[iPart].isHighlighted;
        (isContext ? _context : _view).Draw(grid, placement, _colours[iPart]);
    }

    void Finish() {
        _pen.Fill(0.0, 0.0, kSheetWidth, kSheetHeight, kPaper);
        _pen.Paint(_context.Resolve(), kSheetMargin, kAssemblyTop + 10.0, 1.0, kContextOpacity);
        _pen.Paint(_view.Resolve(), kSheetMargin, kAssemblyTop + 10.0, 1.0);
        const double textWidth = kSheetWidth - 2.0 * kSheetMargin;
        _pen.Use(kInk);
        _pen.FittedText(kSheetMargin, 70.0, Plain(_facts.title), kTitleSize, true, textWidth);
        _pen.Use(kFaint);
        _pen.FittedText(kSheetMargin, 106.0, Plain(_facts.subtitle), kTextSize, false, textWidth);
        _pen.Fill(kSheetMargin, 124.0, textWidth, 2.0, kLine);
        _pen.Axes(_projection, kSheetMargin + 76.0, kSheetHeight - 76.0);
        _pen.ScaleBar(kSheetMargin + kAssemblyWidth, kSheetHeight - 62.0, _view.PixelsPerUnit());
        DrawLegend();
    }

private:
    /// Around the boxes of all parts, highlighted or not.
    Frame FrameOf() const {
        Frame frame;
        for (const ShownPart& part : _facts.parts) {
            const auto low = ToArray(part.box.GetLow());
            const auto high = ToArray(part.box.GetHigh());
            for (unsigned int corner = 0; corner < 8; ++corner) {
                Vector point;
                for (std::size_t axis = 0; axis < 3; ++axis) {
                    point[axis] = (corner >> axis & 1U) != 0 ? high[axis] : low[axis];
                }
                frame.Add(_projection, point);
            }
        }
        return WithRoom(frame);
    }

    /// A frame around one point only, or around nothing, couldn't be enlarged to any scale.
    static Frame WithRoom(Frame iFrame) {
        constexpr double kRoom = 0.01;
        for (int i = 0; i < 2; ++i) {
            if (!(iFrame.low[i] <= iFrame.high[i])) iFrame.low[i] = iFrame.high[i] = 0.0;
        }
        const double longest =
            std::max(iFrame.high[0] - iFrame.low[0], iFrame.high[1] - iFrame.low[1]);
        const double room = longest > 0.0 ? kRoom * longest : 1.0;
        for (int i = 0; i < 2; ++i) {
            iFrame.low[i] -= room;
            iFrame.high[i] += room;
        }
        return iFrame;
    }

    /// The first level whose cells are no larger than a pixel.
    unsigned int LevelOf(const PLMIdxIBaseOctree& iOctree) const {
        const auto size = ToArray(iOctree._bbSize);
        double side = std::max({size[0], size[1], size[2]}) * _view.PixelsPerUnit();
        unsigned int level = 1;
        for (side /= 2; side > 1.0 && level < VoxelGrid::kDeepest; side /= 2) ++level;
        return level;
    }

    /// The parts in different colours or, when some are highlighted, those alone.
    static std::vector<Colour> ChooseColours(const std::vector<ShownPart>& iParts) {
        const bool all = std::none_of(
            iParts.begin(), iParts.end(), [](const ShownPart& part) { return part.isHighlighted; });
        std::vector<Colour> colours;
        colours.reserve(iParts.size());
        std::size_t number = 0;
        for (const ShownPart& part : iParts) {
            colours.push_back(all || part.isHighlighted ? ColourOf(number++) : kGrey);
        }
        return colours;
    }

    /// As many names as fit; the last line counts the rest.
    void DrawLegend() {
        const auto most =
            static_cast<std::size_t>((kSheetHeight - kAssemblyTop - 90.0) / kLegendStep);
        const std::size_t nWanted = _nHighlighted != 0 ? _nHighlighted : _facts.parts.size();
        double y = kAssemblyTop + 40.0;
        std::size_t nDrawn = 0;
        for (std::size_t p = 0; p < _facts.parts.size(); ++p) {
            if (_nHighlighted != 0 && !_facts.parts[p].isHighlighted) continue;
            if (nDrawn + 1 == most && nWanted > most) {
                DrawMore(y, nWanted - nDrawn);
                return;
            }
            _pen.Fill(kLegendLeft, y - 17.0, kSwatch, kSwatch, _colours[p]);
            _pen.Use(kInk);
            const double width = kSheetWidth - kSheetMargin - kLegendLeft - 34.0;
            const std::string name = EndOf(Plain(_facts.parts[p].name));
            _pen.FittedText(kLegendLeft + 34.0, y, name, kTextSize, false, width);
            y += kLegendStep;
            ++nDrawn;
        }
    }

    void DrawMore(double iY, std::size_t iCount) {
        _pen.Use(kFaint);
        _pen.Font(kTextSize);
        _pen.Text(kLegendLeft + 34.0, iY, "and " + Grouped(iCount) + " more");
    }

    Pen _pen;
    const AssemblyFacts& _facts;
    Projection _projection;
    VoxelView _view;
    VoxelView _context;            ///< what isn't highlighted, behind all that is
    std::vector<Colour> _colours;  ///< of the parts
    std::size_t _nHighlighted;
};

}  // namespace

Colour ColourOf(std::size_t iNumber) {
    // Steps of the golden section never come back to a hue nearby, however many there are.
    constexpr double kGoldenSection = 0.61803398874989485;
    const double hue = std::fmod(0.58 + kGoldenSection * static_cast<double>(iNumber), 1.0);
    const double saturation = iNumber % 2 == 0 ? 0.55 : 0.38;
    const double value = iNumber % 3 == 0 ? 0.80 : 0.92;
    return {
        Channel(hue, saturation, value, 0.0), Channel(hue, saturation, value, 4.0),
        Channel(hue, saturation, value, 2.0)};
}

Status DrawAssembly(
    const AssemblyFacts& iFacts,
    const OctreeSource& iOctreeOf,
    const std::function<void(std::size_t iDone)>& iProgress,
    std::string& oPng) {
    const PngCanvas canvas(kSheetWidth, kSheetHeight);
    Picture picture(canvas.Context(), iFacts);
    for (std::size_t part = 0; part < iFacts.parts.size(); ++part) {
        const PLMIdxIBaseOctree* octree = nullptr;
        Status status = iOctreeOf(part, octree);
        if (status.Failed()) return status;
        picture.DrawPart(part, *octree);
        if (iProgress) iProgress(part + 1);
    }
    picture.Finish();
    return canvas.Encode(oPng);
}
