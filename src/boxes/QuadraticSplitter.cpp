#include "QuadraticSplitter.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

constexpr std::size_t kLanes = 4;
constexpr float kNoNumber = std::numeric_limits<float>::quiet_NaN();
constexpr unsigned char kUndecided = 2;

/// Floats of a column: four more than boxes, since FindSeeds() reads four from any box on; then up
/// to a multiple of four.
std::size_t StrideFor(std::size_t iCount) {
    return (iCount + 2 * kLanes - 1) / kLanes * kLanes;
}

float VolumeOfUnion(const IDX_Base_BoundingBox& iFirst, const IDX_Base_BoundingBox& iSecond) {
    IDX_Base_BoundingBox both;
    IDX_Base_BoundingBox::Union(iFirst, iSecond, both);
    return both.Volume();
}

/// The search for the box with the strongest preference, in each lane for every fourth box. A lane
/// keeps the best box so far: its difference of growths, its index and its place.
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

    /// Compares the lanes with themselves in another order: each keeps the better one of the two.
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

/// After each decision one cover has grown. Only the growths of that group are computed anew.
void QuadraticSplitter::Run(unsigned int iMinFill) {
    FillColumns();
    const Pair seeds = FindSeeds();
    Seed(0, seeds.first);
    Seed(1, seeds.second);
    // The higher place first: the last row moves there, and the other seed must stay in its place.
    Remove(seeds.second);
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

/// Starts with all boxes undecided. The rows after the last box hold NaNs: no comparison with a NaN
/// is true, so the vectors may read them.
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

/// PickSeeds: the first of the pairs that waste most. A pair wastes the volume of a box around
/// both, less the volumes of the two. Compares box i with four boxes j at a time, and looks at the
/// four one by one only when one of them is above the worst waste so far.
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
                if (!(wastes[lane] > worst)) continue;  // after the last box: a NaN
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

/// Takes a row out of the table. The last row moves to its place.
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

/// PickNext: the place of the box whose two growths differ most. The order of the rows says nothing
/// about the order of the boxes, so a tie is decided by the index. When all differences are NaNs,
/// no lane has found a box, and the first undecided one is next.
unsigned int QuadraticSplitter::StrongestPreference() const {
    Preferences best;
    const FourFloats end = _mm_set1_ps(static_cast<float>(_undecided));
    FourFloats lane = _mm_setr_ps(0.0f, 1.0f, 2.0f, 3.0f);
    for (std::size_t place = 0; place < _undecided; place += kLanes) {
        const FourFloats growths[2] = {
            _mm_load_ps(ColumnAt(Growth) + place), _mm_load_ps(ColumnAt(Growth + 1) + place)};
        // Rows after the last box hold old numbers. All bits set make a NaN of them.
        const FourFloats isPastEnd = _mm_cmpge_ps(lane, end);
        const FourFloats difference = Absolute(growths[0] - growths[1]);
        best.Take(_mm_or_ps(difference, isPastEnd), _mm_load_ps(ColumnAt(Index) + place), lane);
        lane += _mm_set1_ps(static_cast<float>(kLanes));
    }
    // Now each lane has its best box. Two folds bring the best of all four into lane 0.
    best.Fold<_MM_SHUFFLE(1, 0, 3, 2)>();
    best.Fold<_MM_SHUFFLE(2, 3, 0, 1)>();
    if (_mm_cvtss_f32(best.index) == kInfinity) return FirstUndecided();
    return static_cast<unsigned int>(_mm_cvttss_si32(best.place));
}

/// The place of the undecided box with the lowest index.
unsigned int QuadraticSplitter::FirstUndecided() const {
    const float* indices = ColumnAt(Index);
    return static_cast<unsigned int>(std::min_element(indices, indices + _undecided) - indices);
}

/// The group with the smaller growth; among equals the one with the smaller volume, among these the
/// one with fewer boxes. Group 0 when no number of group 1 is smaller.
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

/// Puts an undecided box into the group that it prefers.
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

/// Puts all undecided boxes into one group. Its cover isn't needed any more.
void QuadraticSplitter::DecideAll(unsigned int iGroup) {
    std::replace(_groupOf, _groupOf + _count, kUndecided, static_cast<unsigned char>(iGroup));
    _undecided = 0;
}
