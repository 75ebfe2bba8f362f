#include "RTreeInnerNodes.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

constexpr unsigned int kNoRecord = 0xFFFFFFFFu;

/// Groups of four that are weighed before their least is looked for.
constexpr unsigned int kFoursAtOnce = 16;

constexpr std::size_t kVolumeAt = 24;  ///< floats behind the first coordinate of an entry

/// The best entry so far.
struct Choice {
    unsigned int slot;
    float enlargement;
    float volume;

    /// Takes what is better; what comes later loses a tie.
    void Take(const Choice& iNext) {
        const bool isTie = iNext.enlargement == enlargement;
        const bool isBetter = iNext.enlargement < enlargement || (isTie && iNext.volume < volume);
        if (isBetter) *this = iNext;
    }
};

/// The least number of all lanes, in all of them.
FourFloats LeastOf(FourFloats iLanes) {
    const FourFloats pairs =
        _mm_min_ps(iLanes, _mm_shuffle_ps(iLanes, iLanes, _MM_SHUFFLE(1, 0, 3, 2)));
    return _mm_min_ps(pairs, _mm_shuffle_ps(pairs, pairs, _MM_SHUFFLE(2, 3, 0, 1)));
}

FourFloats LanesOfSameBits(FourFloats iFirst, FourFloats iSecond) {
    return _mm_castsi128_ps(_mm_cmpeq_epi32(_mm_castps_si128(iFirst), _mm_castps_si128(iSecond)));
}

bool AreSameBits(FourFloats iFirst, FourFloats iSecond) {
    return LanesOf(LanesOfSameBits(iFirst, iSecond)) == 15;
}

/// Whether a lane holds 0 here and -0 there: the only equal numbers of different bits.
bool AreZerosOfTwoSigns(FourFloats iFirst, FourFloats iSecond) {
    const FourFloats areEqual = _mm_cmpeq_ps(iFirst, iSecond);
    return LanesOf(_mm_andnot_ps(LanesOfSameBits(iFirst, iSecond), areEqual)) != 0;
}

}  // namespace

RTreeInnerNodes* RTreeInnerNodes::Make(unsigned int iMaxChildren) {
    return kBoxesAreSixFloats ? new (std::nothrow) RTreeInnerNodes(iMaxChildren) : nullptr;
}

RTreeInnerNodes::RTreeInnerNodes(unsigned int iMaxChildren)
    : _fours((iMaxChildren + std::size_t{3}) / 4),
      _entries(nullptr),
      _heads(nullptr),
      _moved(nullptr),
      _maxChildren(iMaxChildren),
      _count(0),
      _capacity(0),
      _path(nullptr),
      _pathLength(0),
      _root(0),
      _rootLevel(0),
      _sibling(0) {}

RTreeInnerNodes::~RTreeInnerNodes() {
    std::free(_entries);
    std::free(_heads);
    std::free(_moved);
    std::free(_path);
}

bool RTreeInnerNodes::Reserve() {
    // A new node on every level, and a new root.
    return ReserveRecords(_rootLevel + std::size_t{1}) && ReservePath(_rootLevel + std::size_t{2});
}

bool RTreeInnerNodes::ReserveRecords(std::size_t iMore) {
    if (_count + iMore <= _capacity) return true;
    if (_moved == nullptr) {
        _moved = static_cast<unsigned int*>(
            std::malloc((_maxChildren + std::size_t{1}) * sizeof(unsigned int)));
        if (_moved == nullptr) return false;
    }
    const std::size_t capacity = std::max(2 * _capacity, _count + iMore);
    void* heads = std::realloc(_heads, capacity * sizeof(Head));
    if (heads == nullptr) return false;
    _heads = static_cast<Head*>(heads);
    void* entries =
        std::aligned_alloc(alignof(FourEntries), capacity * _fours * sizeof(FourEntries));
    if (entries == nullptr) return false;
    if (_count != 0) std::memcpy(entries, _entries, _count * _fours * sizeof(FourEntries));
    std::free(_entries);
    _entries = static_cast<FourEntries*>(entries);
    _capacity = capacity;
    return true;
}

bool RTreeInnerNodes::ReservePath(std::size_t iLength) {
    if (iLength <= _pathLength) return true;
    const std::size_t length = std::max(2 * _pathLength, iLength);
    void* path = std::realloc(_path, length * sizeof(PathStep));
    if (path == nullptr) return false;
    _path = static_cast<PathStep*>(path);
    std::fill(_path + _pathLength, _path + length, PathStep{kNoRecord, 0, 0});
    _pathLength = length;
    return true;
}

unsigned int RTreeInnerNodes::FindLeaf(const IDX_Base_BoundingBox& iBox) {
    const FourBoxes box = FourBoxes::AllOf(iBox);
    unsigned int child = _root;
    for (unsigned int level = _rootLevel; level > 0; --level) {
        PathStep& step = _path[level];
        const unsigned int slot = Choose(child, box);
        // Neighbours come one after the other as often as not. Where the way is the same as before, the
        // next node is known without waiting for this choice: the processor goes ahead on that guess.
        if (step.record == child && step.slot == slot) {
            child = step.child;
            continue;
        }
        step = {child, slot, Child(child, slot)};
        child = step.child;
    }
    return child;
}

/// Weighs up to kFoursAtOnce groups of entries.
RTreeInnerNodes::Weighing RTreeInnerNodes::Weigh(
    const FourEntries* iFours, unsigned int iCount, const FourBoxes& iBox) {
    FourFloats growths[kFoursAtOnce];
    growths[0] = _mm_setzero_ps();  // there is one group or more, which no compiler can know
    FourFloats least = _mm_set1_ps(kInfinity);
    for (unsigned int k = 0; k < iCount; ++k) {
        growths[k] = VolumesOfUnion(iFours[k].boxes, iBox) - iFours[k].volumes;
        least = _mm_min_ps(growths[k], least);  // passes over what is no number
    }
    least = LeastOf(least);
    std::uint64_t ties = 0;
    for (unsigned int k = 0; k < iCount; ++k) {
        ties |= std::uint64_t{LanesOf(_mm_cmpeq_ps(growths[k], least))} << 4 * k;
    }
    return {_mm_cvtss_f32(least), _mm_cvtss_f32(growths[0]), ties};
}

/// The slot of the least enlargement, among equals of the least volume, among these the lowest.
unsigned int RTreeInnerNodes::Choose(unsigned int iRecord, const FourBoxes& iBox) const {
    const FourEntries* const fours = EntriesOf(iRecord);
    const unsigned int count = (_heads[iRecord].count + 3) / 4;
    Weighing all = Weigh(fours, std::min(count, kFoursAtOnce), iBox);
    if (std::isnan(all.first)) return 0;  // as nothing is less than it
    if (count <= kFoursAtOnce && std::has_single_bit(all.ties)) {
        return static_cast<unsigned int>(std::countr_zero(all.ties));
    }
    Choice best = {0, kInfinity, kInfinity};
    for (unsigned int from = 0;;) {
        for (; all.ties != 0; all.ties &= all.ties - 1) {
            const unsigned int slot =
                4 * from + static_cast<unsigned int>(std::countr_zero(all.ties));
            const float volume = Coordinates(iRecord, slot)[kVolumeAt];
            best.Take({slot, all.least, volume});
        }
        from += kFoursAtOnce;
        if (from >= count) return best.slot;
        all = Weigh(fours + from, std::min(count - from, kFoursAtOnce), iBox);
    }
}

/// Of an entry: coordinate c, in the order of a box, is at 4 c, and its volume at kVolumeAt.
float* RTreeInnerNodes::Coordinates(unsigned int iRecord, unsigned int iSlot) const {
    return reinterpret_cast<float*>(EntriesOf(iRecord) + iSlot / 4) + iSlot % 4;
}

RTreeInnerNodes::Growth RTreeInnerNodes::Enlarge(unsigned int iLevel, IDX_Base_BoundingBox& ioBox) {
    const PathStep& step = _path[iLevel];
    float* entry = Coordinates(step.record, step.slot);
    const FourFloats before[2] = {
        _mm_setr_ps(entry[0], entry[4], entry[8], 0.0f),
        _mm_setr_ps(entry[12], entry[16], entry[20], 0.0f)};
    const SixFloats box = FloatsOf(ioBox);
    const FourFloats added[2] = {AxesFrom(box.data()), AxesFrom(box.data() + 3)};
    if (AreZerosOfTwoSigns(before[0], added[0]) || AreZerosOfTwoSigns(before[1], added[1])) {
        return Unsettled;
    }
    const FourFloats low = _mm_min_ps(added[0], before[0]);
    const FourFloats high = _mm_max_ps(added[1], before[1]);
    if (AreSameBits(low, before[0]) && AreSameBits(high, before[1])) return Same;
    alignas(16) float corners[8];
    _mm_store_ps(corners, low);
    _mm_store_ps(corners + 4, high);
    ioBox = BoxFrom({corners[0], corners[1], corners[2], corners[4], corners[5], corners[6]});
    SetBoxOf(step.record, step.slot, ioBox);
    return Grown;
}

void RTreeInnerNodes::SetBox(
    unsigned int iLevel, unsigned int iSlot, const IDX_Base_BoundingBox& iBox) {
    SetBoxOf(_path[iLevel].record, iSlot, iBox);
}

void RTreeInnerNodes::SetBoxOf(
    unsigned int iRecord, unsigned int iSlot, const IDX_Base_BoundingBox& iBox) {
    const SixFloats coordinates = FloatsOf(iBox);
    float* entry = Coordinates(iRecord, iSlot);
    for (std::size_t c = 0; c < 6; ++c) entry[4 * c] = coordinates[c];
    entry[kVolumeAt] = iBox.Volume();
}

void RTreeInnerNodes::Clear(unsigned int iRecord) {
    _heads[iRecord].count = 0;
    const FourFloats none = _mm_set1_ps(std::numeric_limits<float>::quiet_NaN());
    const FourEntries empty = {
        {{none, none, none}, {none, none, none}},
        none, { 0, 0,                                  0, 0}
    };
    std::fill_n(EntriesOf(iRecord), _fours, empty);
}

unsigned int RTreeInnerNodes::AddNode(unsigned int iNode) {
    const auto record = static_cast<unsigned int>(_count++);
    Clear(record);
    _heads[record].node = iNode;
    return record;
}

void RTreeInnerNodes::AddEntry(
    unsigned int iRecord, const IDX_Base_BoundingBox& iBox, unsigned int iChild) {
    const unsigned int slot = _heads[iRecord].count++;
    SetBoxOf(iRecord, slot, iBox);
    Child(iRecord, slot) = iChild;
}

void RTreeInnerNodes::SetRoot(unsigned int iRecord, unsigned int iLevel) {
    _root = iRecord;
    _rootLevel = iLevel;
}

void RTreeInnerNodes::GrowRoot(unsigned int iNewRoot, unsigned int iOldRoot) {
    const unsigned int child = _rootLevel == 0 ? iOldRoot : _root;
    _root = AddNode(iNewRoot);
    ++_rootLevel;
    AddEntry(_root, IDX_Base_BoundingBox(), child);
    _path[_rootLevel] = {_root, 0, child};
}

void RTreeInnerNodes::Append(unsigned int iLevel, const IDX_Base_BoundingBox& iBox) {
    AddEntry(_path[iLevel].record, iBox, _sibling);
}

void RTreeInnerNodes::SplitInner(
    unsigned int iLevel,
    const unsigned char* iGroups,
    unsigned int iNewNode,
    const RTreeNode& iOld,
    const RTreeNode& iNew) {
    const unsigned int old = _path[iLevel].record;
    for (unsigned int i = 0; i < _maxChildren; ++i) _moved[i] = Child(old, i);
    _moved[_maxChildren] = _sibling;
    const unsigned int records[2] = {old, AddNode(iNewNode)};
    const RTreeNode* const nodes[2] = {&iOld, &iNew};
    Clear(old);
    for (unsigned int i = 0; i <= _maxChildren; ++i) {
        const unsigned int g = iGroups[i];
        AddEntry(records[g], nodes[g]->Box(_heads[records[g]].count), _moved[i]);
    }
    _path[iLevel].record = kNoRecord;  // its children stand elsewhere now
    _sibling = records[1];
}
