#ifndef IDX_Base_BoundingBox_h
#define IDX_Base_BoundingBox_h

#include "IDX_Point.h"

#include <type_traits>

/// An axis-aligned box, closed, in model units. It goes into files as it is here: low corner, high
/// corner. All operations are inline, since one insertion into an R-tree calls them hundreds of
/// times.
class IDX_Base_BoundingBox {
public:
    /// A box that holds the origin alone.
    IDX_Base_BoundingBox() : _low{0.0f, 0.0f, 0.0f}, _high{0.0f, 0.0f, 0.0f} {}

    IDX_Base_BoundingBox(const IDX_Point& iLow, const IDX_Point& iHigh)
        : _low(iLow), _high(iHigh) {}

    IDX_Point GetLow() const { return _low; }
    IDX_Point GetHigh() const { return _high; }

    /// Grows to enclose `iOther`. A NaN in `iOther` changes nothing.
    void Union(const IDX_Base_BoundingBox& iOther) {
        _low = {
            _Low(_low.x, iOther._low.x), _Low(_low.y, iOther._low.y), _Low(_low.z, iOther._low.z)};
        _high = {
            _High(_high.x, iOther._high.x), _High(_high.y, iOther._high.y),
            _High(_high.z, iOther._high.z)};
    }

    /// `oUnion` becomes `iFirst`, grown to enclose `iSecond`. It may be either of them.
    static void Union(
        const IDX_Base_BoundingBox& iFirst,
        const IDX_Base_BoundingBox& iSecond,
        IDX_Base_BoundingBox& oUnion) {
        IDX_Base_BoundingBox both = iFirst;
        both.Union(iSecond);
        oUnion = both;
    }

    /// (dx dy) dz, each step in 32-bit floats. Infinite when it is too large for them.
    float Volume() const {
        const float dx = _high.x - _low.x;
        const float dy = _high.y - _low.y;
        const float dz = _high.z - _low.z;
        const float base = dx * dy;
        return base * dz;
    }

private:
    static float _Low(float iOwn, float iOther) { return iOther < iOwn ? iOther : iOwn; }
    static float _High(float iOwn, float iOther) { return iOther > iOwn ? iOther : iOwn; }

    IDX_Point _low;   //  0 12
    IDX_Point _high;  // 12 12
};
static_assert(sizeof(IDX_Base_BoundingBox) == 24, "R-tree image: IDX_Base_BoundingBox");
static_assert(
    std::is_trivially_copyable<IDX_Base_BoundingBox>::value,
    "R-tree image: IDX_Base_BoundingBox is copied as bytes");

/// Says that a box of a class is six floats in memory: low x, y, z, high x, y, z. A class of boxes
/// needs no such statement: the R-tree is only faster with it.
template <class Box>
struct IDX_IsSixFloats;

template <>
struct IDX_IsSixFloats<IDX_Base_BoundingBox> : std::true_type {};

#endif
