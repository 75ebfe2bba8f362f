#ifndef SplitBoxes_h
#define SplitBoxes_h

#include "FourBoxes.h"

#include <cmath>
#include <cstddef>
#include <type_traits>

// The boxes of a split, of which four at a time are united with one. Each way has columns of its own among those of the
// split, an array for each number of the boxes that are still undecided.

/// Where a split keeps its numbers.
struct SplitColumns {
    float* first;        ///< of the columns that are the boxes' own
    std::size_t stride;  ///< floats of a column
    const float* index;  ///< column of the indices of the boxes; no number behind the last one
};

/// Boxes of which nothing is known but their operations.
class BoxesAsTheyAre {
public:
    static constexpr unsigned int kColumns = 0;

    BoxesAsTheyAre(const IDX_Base_BoundingBox* iBoxes, const SplitColumns& iColumns)
        : _boxes(iBoxes), _index(iColumns.index) {}

    void Fill(unsigned int) {}

    static const IDX_Base_BoundingBox& Spread(const IDX_Base_BoundingBox& iBox) { return iBox; }

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

/// Boxes that are six floats: a transposed copy, a column for each of the floats.
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
