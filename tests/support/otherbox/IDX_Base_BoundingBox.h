#ifndef IDX_Base_BoundingBox_h
#define IDX_Base_BoundingBox_h

#include "IDX_Point.h"

/// A class of boxes in the place of ours, as another library might have it: its six floats lie otherwise, nothing says
/// how, and a copy is an operation of its own. Nobody but the reference may look into it.
class IDX_Base_BoundingBox {
public:
    IDX_Base_BoundingBox() : IDX_Base_BoundingBox({0, 0, 0}, {0, 0, 0}) {}
    IDX_Base_BoundingBox(const IDX_Point& low, const IDX_Point& high)
        : _z{high.z, low.z}, _y{high.y, low.y}, _x{high.x, low.x} {}
    IDX_Base_BoundingBox(const IDX_Base_BoundingBox& other)
        : IDX_Base_BoundingBox(other.GetLow(), other.GetHigh()) {}
    IDX_Base_BoundingBox& operator=(const IDX_Base_BoundingBox& other) {
        _z = other._z;
        _y = other._y;
        _x = other._x;
        return *this;
    }
    ~IDX_Base_BoundingBox() {}

    void Union(const IDX_Base_BoundingBox& other) {
        _z.Enclose(other._z);
        _y.Enclose(other._y);
        _x.Enclose(other._x);
    }
    static void Union(
        const IDX_Base_BoundingBox& first,
        const IDX_Base_BoundingBox& second,
        IDX_Base_BoundingBox& both) {
        both = first;
        both.Union(second);
    }
    float Volume() const { return _x.Length() * _y.Length() * _z.Length(); }

private:
    friend class RTreeReference;

    struct Range {
        float high;
        float low;

        float Length() const { return high - low; }
        void Enclose(const Range& other) {
            if (other.low < low) low = other.low;
            if (other.high > high) high = other.high;
        }
    };

    IDX_Point GetLow() const { return {_x.low, _y.low, _z.low}; }
    IDX_Point GetHigh() const { return {_x.high, _y.high, _z.high}; }

    Range _z;
    Range _y;
    Range _x;
};

#endif
