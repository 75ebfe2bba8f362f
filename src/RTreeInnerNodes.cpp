#include "RTreeInnerNodes.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

/// The first of the lanes with the least enlargement, then the least volume, then the lowest slot.
struct BestEntries {
    FourFloats enlargement = _mm_set1_ps(std::numeric_limits<float>::infinity());
    FourFloats volume = enlargement;
    FourFloats slot = _mm_setzero_ps();

    /// The order of two that aren't NaN; a NaN is never before anything.
    static FourFloats IsBefore(const BestEntries& iFirst, const BestEntries& iSecond) {
        const FourFloats isLess = _mm_cmplt_ps(iFirst.enlargement, iSecond.enlargement);
        const FourFloats isEqual = _mm_cmpeq_ps(iFirst.enlargement, iSecond.enlargement);
        const FourFloats isSmaller = _mm_cmplt_ps(iFirst.volume, iSecond.volume);
        return _mm_or_ps(isLess, _mm_and_ps(isEqual, isSmaller));
    }

    void Replace(FourFloats iMask, const BestEntries& iOther) {
        enlargement = Select(iMask, iOther.enlargement, enlargement);
        volume = Select(iMask, iOther.volume, volume);
        slot = Select(iMask, iOther.slot, slot);
    }

    /// Takes over from the lanes of another order what is better or, as good, has a lower slot.
    template <int kOrder>
    void Fold() {
        const BestEntries other = {
            _mm_shuffle_ps(enlargement, enlargement, kOrder),
            _mm_shuffle_ps(volume, volume, kOrder), _mm_shuffle_ps(slot, slot, kOrder)};
        const FourFloats isTie = _mm_and_ps(
            _mm_cmpeq_ps(other.enlargement, enlargement), _mm_cmpeq_ps(other.volume, volume));
        const FourFloats isLower = _mm_and_ps(isTie, _mm_cmplt_ps(other.slot, slot));
        Replace(_mm_or_ps(IsBefore(other, *this), isLower), other);
    }
};

}  // namespace

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
    _pathLength = length;
    return true;
}

unsigned int RTreeInnerNodes::FindLeaf(const IDX_Base_BoundingBox& iBox) {
    const FourBoxes box = FourBoxes::AllOf(iBox);
    unsigned int child = _root;
    for (unsigned int level = _rootLevel; level > 0; --level) {
        const unsigned int slot = Choose(child, box);
        _path[level] = {child, slot};
        child = Child(child, slot);
    }
    return child;
}

unsigned int RTreeInnerNodes::Choose(unsigned int iRecord, const FourBoxes& iBox) const {
    const FourEntries* four = EntriesOf(iRecord);
    const FourEntries* const end = four + (_heads[iRecord].count + 3) / 4;
    BestEntries best;
    FourFloats slot = _mm_setr_ps(0.0f, 1.0f, 2.0f, 3.0f);
    const FourFloats firstGrowth = VolumesOfUnion(four->boxes, iBox) - four->volumes;
    // No number in slot 0 beats everything, as nothing is less than it.
    if ((LanesOf(_mm_cmpunord_ps(firstGrowth, firstGrowth)) & 1u) != 0) return 0;
    for (; four != end; ++four) {
        const BestEntries entries = {
            VolumesOfUnion(four->boxes, iBox) - four->volumes, four->volumes, slot};
        best.Replace(BestEntries::IsBefore(entries, best), entries);
        slot += _mm_set1_ps(4.0f);
    }
    best.Fold<_MM_SHUFFLE(1, 0, 3, 2)>();
    best.Fold<_MM_SHUFFLE(2, 3, 0, 1)>();
    return static_cast<unsigned int>(_mm_cvttss_si32(best.slot));
}

/// Of an entry: coordinate c, in the order of a box, is at 4 c; its volume follows at 24.
float* RTreeInnerNodes::Coordinates(unsigned int iRecord, unsigned int iSlot) const {
    return reinterpret_cast<float*>(EntriesOf(iRecord) + iSlot / 4) + iSlot % 4;
}

RTreeInnerNodes::Growth RTreeInnerNodes::Enlarge(unsigned int iLevel, IDX_Base_BoundingBox& ioBox) {
    const PathStep& step = _path[iLevel];
    const float* entry = Coordinates(step.record, step.slot);
    const IDX_Base_BoundingBox before(
        {entry[0], entry[4], entry[8]}, {entry[12], entry[16], entry[20]});
    float coordinates[6];
    std::memcpy(coordinates, &ioBox, sizeof coordinates);
    for (unsigned int c = 0; c < 6; ++c) {
        const bool isSameNumber = coordinates[c] == entry[4 * c];
        if (isSameNumber && std::memcmp(&coordinates[c], entry + 4 * c, sizeof(float)) != 0) {
            return Unsettled;
        }
    }
    IDX_Base_BoundingBox::Union(before, ioBox, ioBox);
    if (std::memcmp(&before, &ioBox, sizeof before) == 0) return Same;
    SetBoxOf(step.record, step.slot, ioBox);
    return Grown;
}

void RTreeInnerNodes::SetBox(
    unsigned int iLevel, unsigned int iSlot, const IDX_Base_BoundingBox& iBox) {
    SetBoxOf(_path[iLevel].record, iSlot, iBox);
}

void RTreeInnerNodes::SetBoxOf(
    unsigned int iRecord, unsigned int iSlot, const IDX_Base_BoundingBox& iBox) {
    float coordinates[6];
    std::memcpy(coordinates, &iBox, sizeof coordinates);
    float* entry = Coordinates(iRecord, iSlot);
    for (unsigned int c = 0; c < 6; ++c) entry[4 * c] = coordinates[c];
    entry[24] = iBox.Volume();
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
    _path[_rootLevel] = {_root, 0};
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
    _sibling = records[1];
}
