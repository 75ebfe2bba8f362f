#include "QuadraticSplitter.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr std::size_t kLanes = 4;
constexpr float kNoNumber = std::numeric_limits<float>::quiet_NaN();
constexpr unsigned char kUndecided = 2;

/// Room for a column, with a group of four behind the last box: pairs are read from any box on.
std::size_t StrideFor(std::size_t iCount) {
    return (iCount + 2 * kLanes - 1) / kLanes * kLanes;
}

float VolumeOfUnion(const IDX_Base_BoundingBox& iFirst, const IDX_Base_BoundingBox& iSecond) {
    IDX_Base_BoundingBox both;
    IDX_Base_BoundingBox::Union(iFirst, iSecond, both);
    return both.Volume();
}

/// In each lane the box with the strongest preference so far.
struct Preferences {
    FourFloats difference = _mm_set1_ps(-1.0f);
    FourFloats index = _mm_set1_ps(kInfinity);
    FourFloats place = _mm_setzero_ps();

    void Take(FourFloats iDifference, FourFloats iIndex, FourFloats iPlace) {
        const FourFloats isStronger = _mm_cmpgt_ps(iDifference, difference);
        const FourFloats isTie = _mm_cmpeq_ps(iDifference, difference);
        const FourFloats isEarlier = _mm_and_ps(isTie, _mm_cmplt_ps(iIndex, index));
        const FourFloats isBetter = _mm_or_ps(isStronger, isEarlier);
        difference = Select(isBetter, iDifference, difference);
        index = Select(isBetter, iIndex, index);
        place = Select(isBetter, iPlace, place);
    }

    /// Takes over from the lanes of another order.
    template <int kOrder>
    void Fold() {
        Take(
            _mm_shuffle_ps(difference, difference, kOrder), _mm_shuffle_ps(index, index, kOrder),
            _mm_shuffle_ps(place, place, kOrder));
    }
};

}  // namespace

std::size_t QuadraticSplitter::LengthFor(std::size_t iCount) {
    return ColumnCount * StrideFor(iCount);
}

QuadraticSplitter::QuadraticSplitter(
    float* ioMemory,
    const IDX_Base_BoundingBox* iBoxes,
    unsigned int iCount,
    float* oVolumes,
    unsigned char* oGroups)
    : _columns(ioMemory),
      _stride(StrideFor(iCount)),
      _boxes(iBoxes),
      _undecidedBoxes(iBoxes, {ColumnAt(OfBoxes), _stride, ColumnAt(Index)}),
      _volumes(oVolumes),
      _groupOf(oGroups),
      _count(iCount),
      _undecided(iCount) {}

void QuadraticSplitter::Run(unsigned int iMinFill) {
    FillColumns();
    const Pair seeds = FindSeeds();
    Seed(0, seeds.first);
    Seed(1, seeds.second);
    Remove(seeds.second);  // the higher one first: what takes its place isn't the other
    Remove(seeds.first);
    UpdateGrowth(0);
    UpdateGrowth(1);
    while (_undecided > 0) {
        for (unsigned int g = 0; g < 2; ++g) {
            if (_groups[g].count + _undecided == iMinFill) return DecideAll(g);
        }
        Decide(StrongestPreference());
    }
}

void QuadraticSplitter::FillColumns() {
    _undecidedBoxes.Fill(_count);
    for (unsigned int i = 0; i < _count; ++i) {
        _volumes[i] = _boxes[i].Volume();
        ColumnAt(Volume)[i] = _volumes[i];
        ColumnAt(Index)[i] = static_cast<float>(i);
        _groupOf[i] = kUndecided;
    }
    for (unsigned int column = 0; column < ColumnCount; ++column) {
        std::fill(ColumnAt(column) + _count, ColumnAt(column) + _stride, kNoNumber);
    }
}

/// The first of the pairs that waste most. Whoever comes behind the last box has no number for a volume,
/// and is never above anything.
QuadraticSplitter::Pair QuadraticSplitter::FindSeeds() const {
    Pair seeds = {0, 1};
    float worst = VolumeOfUnion(_boxes[0], _boxes[1]) - _volumes[0] - _volumes[1];
    for (unsigned int i = 0; i + 1 < _count; ++i) {
        const auto& first = SplitBoxes::Spread(_boxes[i]);
        const FourFloats firstVolume = _mm_set1_ps(_volumes[i]);
        for (unsigned int j = i + 1; j < _count; j += kLanes) {
            const FourFloats both = _undecidedBoxes.VolumesOfUnion(first, j);
            const FourFloats withoutFirst = both - firstVolume;
            const FourFloats waste = withoutFirst - _mm_loadu_ps(ColumnAt(Volume) + j);
            if (LanesOf(_mm_cmpgt_ps(waste, _mm_set1_ps(worst))) == 0) continue;
            alignas(16) float wastes[kLanes];
            _mm_store_ps(wastes, waste);
            for (unsigned int lane = 0; lane < kLanes; ++lane) {
                if (!(wastes[lane] > worst)) continue;
                worst = wastes[lane];
                seeds = {i, j + lane};
            }
        }
    }
    return seeds;
}

void QuadraticSplitter::Seed(unsigned int iGroup, unsigned int iBox) {
    _groups[iGroup] = {_boxes[iBox], _volumes[iBox], 1};
    _groupOf[iBox] = static_cast<unsigned char>(iGroup);
}

/// The last one takes the place.
void QuadraticSplitter::Remove(unsigned int iPlace) {
    --_undecided;
    for (unsigned int column = 0; column < ColumnCount; ++column) {
        ColumnAt(column)[iPlace] = ColumnAt(column)[_undecided];
    }
}

/// By how much a group's cover would grow by each of the boxes.
void QuadraticSplitter::UpdateGrowth(unsigned int iGroup) {
    const auto& cover = SplitBoxes::Spread(_groups[iGroup].cover);
    const FourFloats volume = _mm_set1_ps(_groups[iGroup].volume);
    float* growth = ColumnAt(Growth + iGroup);
    for (std::size_t place = 0; place < _undecided; place += kLanes) {
        _mm_store_ps(growth + place, _undecidedBoxes.VolumesOfUnion(cover, place) - volume);
    }
}

/// The place of the box whose two growths differ most; where they are no numbers, of the first one.
unsigned int QuadraticSplitter::StrongestPreference() const {
    Preferences best;
    const FourFloats end = _mm_set1_ps(static_cast<float>(_undecided));
    FourFloats lane = _mm_setr_ps(0.0f, 1.0f, 2.0f, 3.0f);
    for (std::size_t place = 0; place < _undecided; place += kLanes) {
        const FourFloats growths[2] = {
            _mm_load_ps(ColumnAt(Growth) + place), _mm_load_ps(ColumnAt(Growth + 1) + place)};
        const FourFloats isBehind = _mm_cmpge_ps(lane, end);  // all bits set: no number
        const FourFloats difference = Absolute(growths[0] - growths[1]);
        best.Take(_mm_or_ps(difference, isBehind), _mm_load_ps(ColumnAt(Index) + place), lane);
        lane += _mm_set1_ps(static_cast<float>(kLanes));
    }
    best.Fold<_MM_SHUFFLE(1, 0, 3, 2)>();
    best.Fold<_MM_SHUFFLE(2, 3, 0, 1)>();
    if (_mm_cvtss_f32(best.index) == kInfinity) return FirstUndecided();
    return static_cast<unsigned int>(_mm_cvttss_si32(best.place));
}

unsigned int QuadraticSplitter::FirstUndecided() const {
    const float* indices = ColumnAt(Index);
    return static_cast<unsigned int>(std::min_element(indices, indices + _undecided) - indices);
}

/// The smaller growth, then the smaller volume, then fewer boxes; group 0 when nothing of group 1 comes out
/// smaller.
unsigned int QuadraticSplitter::PreferredGroup(unsigned int iPlace) const {
    float numbers[2][3];
    for (unsigned int g = 0; g < 2; ++g) {
        numbers[g][0] = ColumnAt(Growth + g)[iPlace];
        numbers[g][1] = _groups[g].volume;
        numbers[g][2] = static_cast<float>(_groups[g].count);
    }
    for (unsigned int k = 0; k < 3; ++k) {
        if (numbers[0][k] < numbers[1][k]) return 0;
        if (numbers[1][k] < numbers[0][k]) return 1;
    }
    return 0;
}

void QuadraticSplitter::Decide(unsigned int iPlace) {
    const unsigned int g = PreferredGroup(iPlace);
    const auto box = static_cast<unsigned int>(ColumnAt(Index)[iPlace]);
    Group& group = _groups[g];
    group.cover.Union(_boxes[box]);
    group.volume = group.cover.Volume();
    ++group.count;
    _groupOf[box] = static_cast<unsigned char>(g);
    Remove(iPlace);
    UpdateGrowth(g);
}

void QuadraticSplitter::DecideAll(unsigned int iGroup) {
    std::replace(_groupOf, _groupOf + _count, kUndecided, static_cast<unsigned char>(iGroup));
    _undecided = 0;
}
