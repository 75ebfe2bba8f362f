#ifndef SplitBoxes_h
#define SplitBoxes_h

#include "FourBoxes.h"

#include <cmath>
#include <cstddef>
#include <type_traits>

// The undecided boxes of a split, and the volumes of the unions of one box with four of them. There
// are two forms, one for each thing that is known of the class of boxes. The boxes' own numbers are
// further columns of the table of QuadraticSplitter.

/// The part of the table that the boxes use.
struct SplitColumns {
    float* first;        ///< the first column of the boxes' own
    std::size_t stride;  ///< floats of a column
    const float* index;  ///< the column of indices; NaNs after the last box
};

/// Boxes of which only the operations are known.
class BoxesAsTheyAre {
public:
    static constexpr unsigned int kColumns = 0;

    BoxesAsTheyAre(const IDX_Base_BoundingBox* iBoxes, const SplitColumns& iColumns)
        : _boxes(iBoxes), _index(iColumns.index) {}

    void Fill(unsigned int) {}

    static const IDX_Base_BoundingBox& Spread(const IDX_Base_BoundingBox& iBox) { return iBox; }

    /// @param iPlace  the first of four rows
    FourFloats VolumesOfUnion(const IDX_Base_BoundingBox& iFirst, std::size_t iPlace) const {
        alignas(16) float volumes[4];
        for (std::size_t lane = 0; lane < 4; ++lane) {
            const float index = _index[iPlace + lane];
            volumes[lane] = index;
            if (std::isnan(index)) continue;
            IDX_Base_BoundingBox both;
            IDX_Base_BoundingBox::Union(iFirst, _boxes[static_cast<std::size_t>(index)], both);
            volumes[lane] = both.Volume();
        }
        return _mm_load_ps(volumes);
    }

private:
    const IDX_Base_BoundingBox* _boxes;
    const float* _index;
};

/// Boxes that are six floats. A transposed copy has a column for each float, so that one load gets
/// the same coordinate of four boxes.
class TransposedBoxes {
public:
    static constexpr unsigned int kColumns = 6;

    TransposedBoxes(const IDX_Base_BoundingBox* iBoxes, const SplitColumns& iColumns)
        : _boxes(iBoxes), _columns(iColumns) {}

    void Fill(unsigned int iCount) {
        for (unsigned int i = 0; i < iCount; ++i) {
            const SixFloats floats = FloatsOf(_boxes[i]);
            for (std::size_t c = 0; c < kColumns; ++c) {
                _columns.first[c * _columns.stride + i] = floats[c];
            }
        }
    }

    static FourBoxes Spread(const IDX_Base_BoundingBox& iBox) { return FourBoxes::AllOf(iBox); }

    FourFloats VolumesOfUnion(const FourBoxes& iFirst, std::size_t iPlace) const {
        const float* column = _columns.first + iPlace;
        FourBoxes boxes;
        for (unsigned int axis = 0; axis < 3; ++axis, column += _columns.stride) {
            boxes.low[axis] = _mm_loadu_ps(column);
            boxes.high[axis] = _mm_loadu_ps(column + 3 * _columns.stride);
        }
        return ::VolumesOfUnion(iFirst, boxes);
    }

private:
    const IDX_Base_BoundingBox* _boxes;
    SplitColumns _columns;
};

using SplitBoxes = std::conditional_t<kBoxesAreSixFloats, TransposedBoxes, BoxesAsTheyAre>;

#endif
