#include "RTreeInnerNodes.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

constexpr unsigned int kNoCopy = 0xFFFFFFFFu;

/// Groups of four entries that Weigh() handles in one call: its bits for ties have 64 places.
constexpr unsigned int kFoursAtOnce = 16;

/// The volume of an entry is so many floats after its first coordinate: 6 coordinates x 4 lanes.
constexpr std::size_t kVolumeAt = 24;

/// The best entry so far.
struct Choice {
    unsigned int slot;
    float enlargement;
    float volume;

    /// Replaces the entry by a better one. A later entry loses a tie.
    void Take(const Choice& iNext) {
        const bool isTie = iNext.enlargement == enlargement;
        const bool isBetter = iNext.enlargement < enlargement || (isTie && iNext.volume < volume);
        if (isBetter) *this = iNext;
    }
};

/// The least number of all lanes, in every lane: first of two pairs, then of the two results.
FourFloats LeastOf(FourFloats iLanes) {
    const FourFloats pairs =
        _mm_min_ps(iLanes, _mm_shuffle_ps(iLanes, iLanes, _MM_SHUFFLE(1, 0, 3, 2)));
    return _mm_min_ps(pairs, _mm_shuffle_ps(pairs, pairs, _MM_SHUFFLE(2, 3, 0, 1)));
}

FourFloats LanesOfSameBits(FourFloats iFirst, FourFloats iSecond) {
    return _mm_castsi128_ps(_mm_cmpeq_epi32(_mm_castps_si128(iFirst), _mm_castps_si128(iSecond)));
}

bool AreSameBits(FourFloats iFirst, FourFloats iSecond) {
    return LanesOf(LanesOfSameBits(iFirst, iSecond)) == 0xF;
}

/// Whether a lane holds 0 on one side and -0 on the other: no other equal numbers differ in bits.
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
      _newChild(0) {}

RTreeInnerNodes::~RTreeInnerNodes() {
    std::free(_entries);
    std::free(_heads);
    std::free(_moved);
    std::free(_path);
}

bool RTreeInnerNodes::Reserve() {
    // At most, an insertion splits a node on every level and adds a new root.
    return ReserveCopies(_rootLevel + std::size_t{1}) && ReservePath(_rootLevel + std::size_t{2});
}

/// Takes memory for more copies, by doubling. The entries are aligned to lines of the cache, which
/// realloc doesn't do: they move by hand.
bool RTreeInnerNodes::ReserveCopies(std::size_t iMore) {
    if (_count + iMore <= _capacity) return true;
    if (_moved == nullptr) {
        _moved = static_cast<unsigned int*>(
            std::malloc((_maxChildren + std::size_t{1}) * sizeof(unsigned int)));
        if (_moved == nullptr) return false;
    }
    // Each block is in place as soon as it is taken. So a failure between two of them leaves a
    // sound object that is only less large than it could be.
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
    std::fill(_path + _pathLength, _path + length, PathStep{kNoCopy, 0, 0});
    _pathLength = length;
    return true;
}

RTreeInnerNodes* RTreeInnerNodes::CopyOf(const RTreeNodes& iNodes) {
    RTreeInnerNodes* inner = Make(iNodes.maxChildren);
    auto* numbers = static_cast<unsigned int*>(std::malloc(iNodes.Count() * sizeof(unsigned int)));
    if (inner != nullptr && (numbers == nullptr || !inner->CopyNodes(iNodes, numbers))) {
        delete inner;
        inner = nullptr;
    }
    std::free(numbers);
    return inner;
}

/// Gives each inner node a copy, then fills the copies: an entry needs the number of its child.
/// @param oNumbers  working memory for one number per node, in the order of the storage: the number
///                  of its copy, or its offset when it is a leaf
bool RTreeInnerNodes::CopyNodes(const RTreeNodes& iNodes, unsigned int* oNumbers) {
    const unsigned int count = iNodes.Count();
    const unsigned int nodeSize = iNodes.nodeSize;
    for (unsigned int i = 0; i < count; ++i) {
        oNumbers[i] = i * nodeSize;
        if (iNodes.At(i * nodeSize).Level() == 0) continue;
        if (!ReserveCopies(1)) return false;
        oNumbers[i] = AddCopy(i * nodeSize);
    }
    for (unsigned int i = 0; i < count; ++i) {
        const RTreeNode node = iNodes.At(i * nodeSize);
        if (node.Level() == 0) continue;
        for (unsigned int slot = 0; slot < node.Count(); ++slot) {
            const unsigned int child = node.Value(slot);
            const IDX_Base_BoundingBox box = node.Box(slot);
            // Enlarge() relies on boxes that are as small as they can be.
            if (!RTreeImage::HaveSameBits(box, iNodes.BoxOf(child))) return false;
            AddEntry(oNumbers[i], box, oNumbers[child / nodeSize]);
        }
    }
    _rootLevel = iNodes.RootLevel();
    if (_rootLevel != 0) _root = oNumbers[iNodes.root / nodeSize];
    return true;
}

/// Guttman's ChooseLeaf.
unsigned int RTreeInnerNodes::FindLeaf(const IDX_Base_BoundingBox& iBox) {
    const FourBoxes box = FourBoxes::AllOf(iBox);
    unsigned int child = _root;
    for (unsigned int level = _rootLevel; level > 0; --level) {
        PathStep& step = _path[level];
        const unsigned int slot = Choose(child, box);
        // Boxes that follow each other are often neighbours, and take the same way. The child of
        // the last way is known before this choice is: the processor predicts the branch and reads
        // on in that child while it still computes the choice.
        if (step.copy == child && step.slot == slot) {
            child = step.child;
            continue;
        }
        step = {child, slot, Child(child, slot)};
        child = step.child;
    }
    return child;
}

/// How much up to kFoursAtOnce groups of entries would grow. Finds the least growth in a first
/// pass, and the entries that have it in a second one: both passes are free of branches.
RTreeInnerNodes::Weighing RTreeInnerNodes::Weigh(
    const FourEntries* iFours, unsigned int iCount, const FourBoxes& iBox) {
    FourFloats growths[kFoursAtOnce];
    growths[0] = _mm_setzero_ps();  // for compilers, which can't know that there is a group
    FourFloats least = _mm_set1_ps(kInfinity);
    for (unsigned int k = 0; k < iCount; ++k) {
        growths[k] = VolumesOfUnion(iFours[k].boxes, iBox) - iFours[k].volumes;
        least = _mm_min_ps(growths[k], least);  // of a NaN and a number, the number
    }
    least = LeastOf(least);
    std::uint64_t ties = 0;
    for (unsigned int k = 0; k < iCount; ++k) {
        ties |= std::uint64_t{LanesOf(_mm_cmpeq_ps(growths[k], least))} << 4 * k;
    }
    return {_mm_cvtss_f32(least), _mm_cvtss_f32(growths[0]), ties};
}

/// The slot with the least enlargement; among equals the one with the smallest volume, among these
/// the lowest. RTreeNodes::Choose decides the same, one entry at a time.
unsigned int RTreeInnerNodes::Choose(unsigned int iCopy, const FourBoxes& iBox) const {
    const FourEntries* const fours = EntriesOf(iCopy);
    const unsigned int count = (_heads[iCopy].count + 3) / 4;
    Weighing all = Weigh(fours, std::min(count, kFoursAtOnce), iBox);
    if (std::isnan(all.first)) return 0;  // entry 0 is the start value, and nothing is less
    if (count <= kFoursAtOnce && std::has_single_bit(all.ties)) {
        return static_cast<unsigned int>(std::countr_zero(all.ties));
    }
    Choice best = {0, kInfinity, kInfinity};
    for (unsigned int from = 0;;) {
        for (; all.ties != 0; all.ties &= all.ties - 1) {
            const unsigned int slot =
                4 * from + static_cast<unsigned int>(std::countr_zero(all.ties));
            const float volume = Coordinates(iCopy, slot)[kVolumeAt];
            best.Take({slot, all.least, volume});
        }
        from += kFoursAtOnce;
        if (from >= count) return best.slot;
        all = Weigh(fours + from, std::min(count - from, kFoursAtOnce), iBox);
    }
}

/// Where the floats of an entry begin. Coordinate c, in the order of a box, is 4 c floats further
/// on, the volume kVolumeAt floats.
float* RTreeInnerNodes::Coordinates(unsigned int iCopy, unsigned int iSlot) const {
    return reinterpret_cast<float*>(EntriesOf(iCopy) + iSlot / 4) + iSlot % 4;
}

/// With the lows in one vector and the highs in another, three axes are one operation. `minps` and
/// `maxps` give their second operand when the two are equal, so the old value stays.
RTreeInnerNodes::Growth RTreeInnerNodes::Enlarge(unsigned int iLevel, IDX_Base_BoundingBox& ioBox) {
    const PathStep& step = _path[iLevel];
    float* entry = Coordinates(step.copy, step.slot);
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
    SetBoxOf(step.copy, step.slot, ioBox);
    return Grown;
}

void RTreeInnerNodes::SetBox(
    unsigned int iLevel, unsigned int iSlot, const IDX_Base_BoundingBox& iBox) {
    SetBoxOf(_path[iLevel].copy, iSlot, iBox);
}

void RTreeInnerNodes::SetBoxOf(
    unsigned int iCopy, unsigned int iSlot, const IDX_Base_BoundingBox& iBox) {
    const SixFloats coordinates = FloatsOf(iBox);
    float* entry = Coordinates(iCopy, iSlot);
    for (std::size_t c = 0; c < 6; ++c) entry[4 * c] = coordinates[c];
    entry[kVolumeAt] = iBox.Volume();
}

/// Removes all entries. Every place gets NaNs, so that the last group of four needs no special
/// case.
void RTreeInnerNodes::Clear(unsigned int iCopy) {
    _heads[iCopy].count = 0;
    const FourFloats none = _mm_set1_ps(std::numeric_limits<float>::quiet_NaN());
    const FourEntries empty = {
        {{none, none, none}, {none, none, none}},
        none, { 0, 0,                                  0, 0}
    };
    std::fill_n(EntriesOf(iCopy), _fours, empty);
}

unsigned int RTreeInnerNodes::AddCopy(unsigned int iNode) {
    const auto copy = static_cast<unsigned int>(_count++);
    Clear(copy);
    _heads[copy].node = iNode;
    return copy;
}

void RTreeInnerNodes::AddEntry(
    unsigned int iCopy, const IDX_Base_BoundingBox& iBox, unsigned int iChild) {
    const unsigned int slot = _heads[iCopy].count++;
    SetBoxOf(iCopy, slot, iBox);
    Child(iCopy, slot) = iChild;
}

void RTreeInnerNodes::GrowRoot(unsigned int iNewRoot, unsigned int iOldRoot) {
    const unsigned int child = _rootLevel == 0 ? iOldRoot : _root;
    _root = AddCopy(iNewRoot);
    ++_rootLevel;
    AddEntry(_root, IDX_Base_BoundingBox(), child);
    _path[_rootLevel] = {_root, 0, child};
}

void RTreeInnerNodes::Append(unsigned int iLevel, const IDX_Base_BoundingBox& iBox) {
    AddEntry(_path[iLevel].copy, iBox, _newChild);
}

/// Deals the entries of a split node out again. The boxes come from the two nodes in the storage,
/// which already hold them in their new order; the children come from the copy of the old node, and
/// the last one is the new child.
void RTreeInnerNodes::SplitInner(
    unsigned int iLevel,
    const unsigned char* iGroups,
    unsigned int iNewNode,
    const RTreeNode& iOld,
    const RTreeNode& iNew) {
    const unsigned int old = _path[iLevel].copy;
    for (unsigned int i = 0; i < _maxChildren; ++i) _moved[i] = Child(old, i);
    _moved[_maxChildren] = _newChild;
    const unsigned int copies[2] = {old, AddCopy(iNewNode)};
    const RTreeNode* const nodes[2] = {&iOld, &iNew};
    Clear(old);
    for (unsigned int i = 0; i <= _maxChildren; ++i) {
        const unsigned int g = iGroups[i];
        AddEntry(copies[g], nodes[g]->Box(_heads[copies[g]].count), _moved[i]);
    }
    _path[iLevel].copy = kNoCopy;  // the path through it no longer holds
    _newChild = copies[1];
}
