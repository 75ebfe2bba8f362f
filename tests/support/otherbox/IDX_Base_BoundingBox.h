#ifndef IDX_Base_BoundingBox_h
#define IDX_Base_BoundingBox_h

#include "IDX_Point.h"

#include <initializer_list>

/// A class of boxes in the place of ours, as another library might have it: its six floats lie
/// otherwise, nothing says how, and a copy is an operation of its own. Nobody but the reference may
/// look into it.
class IDX_Base_BoundingBox {
public:
    IDX_Base_BoundingBox() : IDX_Base_BoundingBox({0, 0, 0}, {0, 0, 0}) {}
    IDX_Base_BoundingBox(const IDX_Point& low, const IDX_Point& high) : _high(high), _low(low) {}
    IDX_Base_BoundingBox(const IDX_Base_BoundingBox& other)
        : _high(other._high), _low(other._low) {}
    IDX_Base_BoundingBox& operator=(const IDX_Base_BoundingBox& other) {
        _high = other._high;
        _low = other._low;
        return *this;
    }
    ~IDX_Base_BoundingBox() {}

    void Union(const IDX_Base_BoundingBox& other) {
        for (float IDX_Point::*axis : {&IDX_Point::z, &IDX_Point::y, &IDX_Point::x}) {
            if (other._low.*axis < _low.*axis) _low.*axis = other._low.*axis;
            if (other._high.*axis > _high.*axis) _high.*axis = other._high.*axis;
        }
    }
    static void Union(
        const IDX_Base_BoundingBox& first,
        const IDX_Base_BoundingBox& second,
        IDX_Base_BoundingBox& both) {
        both = first;
        both.Union(second);
    }
    float Volume() const { return (_high.x - _low.x) * (_high.y - _low.y) * (_high.z - _low.z); }

private:
    friend class RTreeReference;

    IDX_Point GetLow() const { return _low; }
    IDX_Point GetHigh() const { return _high; }

    IDX_Point _high;
    IDX_Point _low;
};

#endif
