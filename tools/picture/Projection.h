#ifndef Projection_h
#define Projection_h

#include "Vector.h"

/// Which axis of the model points upwards in a picture.
enum class UpAxis { Y, Z };

/// A parallel projection of the model's space, from the front right and above.
class Projection {
public:
    explicit Projection(UpAxis iUp);

    const Vector& Right() const { return _right; }    ///< of the picture, unit length
    const Vector& Up() const { return _up; }          ///< of the picture, unit length
    const Vector& Viewer() const { return _viewer; }  ///< towards the viewer, unit length

private:
    Vector _right;
    Vector _up;
    Vector _viewer;
};

/// Lowest and highest coordinate in the picture's plane, to the right and downwards, of what is
/// drawn. Model units.
struct Frame {
    double low[2] = {1e300, 1e300};
    double high[2] = {-1e300, -1e300};

    /// Grows to hold a point.
    void Add(const Projection& iProjection, const Vector& iPoint);
};

#endif
