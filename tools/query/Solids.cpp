#include "Solids.h"

#include <algorithm>

namespace {

constexpr std::size_t kAxes = 3;

Point PointOf(const IDX_Point& iPoint) {
    return {double{iPoint.x}, double{iPoint.y}, double{iPoint.z}};
}

bool IsInsideOut(const Box& iBox) {
    for (std::size_t axis = 0; axis < kAxes; ++axis) {
        if (iBox.low[axis] > iBox.high[axis]) return true;
    }
    return false;
}

double LongestSide(const Box& iBox) {
    double longest = 0.0;
    for (std::size_t axis = 0; axis < kAxes; ++axis) {
        longest = std::max(longest, iBox.high[axis] - iBox.low[axis]);
    }
    return longest;
}

/// Walks two solids together. It goes into the larger of two cells that meet, so that their sizes
/// stay alike.
class CommonWalk {
public:
    CommonWalk(const Solid& iFirst, const Solid& iSecond) : _first(iFirst), _second(iSecond) {}

    bool Visit(const SolidCell& iFirst, const SolidCell& iSecond) const {
        if (!Meet(iFirst.box, iSecond.box)) return false;
        if (iFirst.cell.isFull && iSecond.cell.isFull) return true;
        std::array<SolidCell, 8> children;
        const bool intoFirst =
            iSecond.cell.isFull ||
            (!iFirst.cell.isFull && LongestSide(iFirst.box) >= LongestSide(iSecond.box));
        const unsigned int count =
            intoFirst ? _first.Children(iFirst, children) : _second.Children(iSecond, children);
        return std::any_of(children.begin(), children.begin() + count, [&](const SolidCell& child) {
            return intoFirst ? Visit(child, iSecond) : Visit(iFirst, child);
        });
    }

private:
    const Solid& _first;
    const Solid& _second;
};

}  // namespace

Box BoxOf(const IDX_Base_BoundingBox& iBox) {
    return {PointOf(iBox.GetLow()), PointOf(iBox.GetHigh())};
}

bool Meet(const Box& iFirst, const Box& iSecond) {
    for (std::size_t axis = 0; axis < kAxes; ++axis) {
        if (!(iFirst.low[axis] <= iSecond.high[axis] && iSecond.low[axis] <= iFirst.high[axis])) {
            return false;
        }
    }
    return true;
}

double SquaredDistance(const Box& iBox, const Point& iPoint) {
    double sum = 0.0;
    for (std::size_t axis = 0; axis < kAxes; ++axis) {
        const double below = std::max(0.0, iBox.low[axis] - iPoint[axis]);
        const double above = std::max(0.0, iPoint[axis] - iBox.high[axis]);
        sum += below * below + above * above;
    }
    return sum;
}

Box Solid::CutBoxOf(const OctreeCell& iCell) const {
    const OctreeCellBox cell = _octree.BoxOf(iCell);
    Box box;
    for (std::size_t axis = 0; axis < kAxes; ++axis) {
        box.low[axis] = std::max(_partBox.low[axis], cell.low[axis]);
        box.high[axis] = std::min(_partBox.high[axis], cell.high[axis]);
    }
    return box;
}

bool Solid::Root(SolidCell& oRoot) const {
    oRoot.cell = _octree.Root();
    oRoot.box = CutBoxOf(oRoot.cell);
    return _octree.Depth() > 0 && !IsInsideOut(oRoot.box);
}

unsigned int Solid::Children(const SolidCell& iCell, std::array<SolidCell, 8>& oChildren) const {
    unsigned int count = 0;
    _octree.ForEachChild(iCell.cell, [&](const OctreeCell& child) {
        const Box box = CutBoxOf(child);
        if (!IsInsideOut(box)) oChildren[count++] = {child, box};
    });
    return count;
}

bool Solid::Meets(const Box& iBox) const {
    SolidCell root;
    return Root(root) && CellMeets(root, iBox);
}

bool Solid::CellMeets(const SolidCell& iCell, const Box& iBox) const {
    if (!::Meet(iCell.box, iBox)) return false;
    if (iCell.cell.isFull) return true;
    std::array<SolidCell, 8> children;
    const unsigned int count = Children(iCell, children);
    return std::any_of(children.begin(), children.begin() + count, [&](const SolidCell& child) {
        return CellMeets(child, iBox);
    });
}

bool Meet(const Solid& iFirst, const Solid& iSecond) {
    SolidCell first;
    SolidCell second;
    return iFirst.Root(first) && iSecond.Root(second) &&
           CommonWalk(iFirst, iSecond).Visit(first, second);
}
