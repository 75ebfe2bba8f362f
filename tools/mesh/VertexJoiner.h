#ifndef VertexJoiner_h
#define VertexJoiner_h

#include "IDX_Point.h"

#include <cstdint>
#include <cstring>
#include <vector>

/// Adds points to an array and gives equal points the same index; zeros of different sign may stay
/// apart. A hash table with linear probing over indices into the array (D. E. Knuth, "The Art of
/// Computer Programming", vol. 3, 6.4, algorithm L); amortised constant time for each point.
class VertexJoiner {
public:
    /// @param ioPoints     receives the points; those already there are left alone and never joined
    /// @param iMostPoints  no more different points than this are added
    VertexJoiner(std::vector<IDX_Point>& ioPoints, std::size_t iMostPoints) : _points(ioPoints) {
        std::size_t nSlots = 16;
        while (nSlots < 2 * iMostPoints) nSlots *= 2;
        _slots.assign(nSlots, kFree);
    }

    /// The index of a point in the array.
    unsigned int Add(const IDX_Point& iPoint) {
        std::size_t slot = Hash(iPoint) & (_slots.size() - 1);
        while (_slots[slot] != kFree) {
            if (AreEqual(_points[_slots[slot]], iPoint)) return _slots[slot];
            slot = (slot + 1) & (_slots.size() - 1);
        }
        _slots[slot] = static_cast<unsigned int>(_points.size());
        _points.push_back(iPoint);
        return _slots[slot];
    }

private:
    static constexpr unsigned int kFree = 0xFFFFFFFF;

    /// 2^64 over the golden ratio, odd: multiplying by it spreads keys that differ little (Knuth,
    /// 6.4).
    static constexpr std::uint64_t kGoldenRatio = 0x9E3779B97F4A7C15U;

    static bool AreEqual(const IDX_Point& a, const IDX_Point& b) {
        return a.x == b.x && a.y == b.y && a.z == b.z;
    }

    static std::size_t Hash(const IDX_Point& iPoint) {
        std::uint64_t hash = 0;
        for (const float coordinate : {iPoint.x, iPoint.y, iPoint.z}) {
            std::uint32_t word;
            std::memcpy(&word, &coordinate, sizeof word);
            hash = (hash ^ word) * kGoldenRatio;
        }
        return static_cast<std::size_t>(hash >> 32U);
    }

    std::vector<IDX_Point>& _points;
    std::vector<unsigned int> _slots;  ///< a power of two, at least half of them free
};

#endif
