#include "OctreeLattice.h"

#include "TriangleCells.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kUnit = 0x1p-24;

/// A code is off by two roundings of a fraction of the box. Twice as much is taken.
constexpr double kCodeError = 4 * kUnit * 0x1p32;

/// The largest coordinate for which TriangleCells decides in single precision.
constexpr double kMaxCoordinate = 0x1p40;

__m128i Words(const VertexCode& iCode) {
    return _mm_load_si128(reinterpret_cast<const __m128i*>(iCode.axes));
}

/// The low 32 bits of a float cut to a 64-bit integer; 0 for a float that has none.
unsigned int LowBitsOf(float iValue) {
    if (!(iValue >= -0x1p63f && iValue < 0x1p63f)) return 0;
    return static_cast<unsigned int>(static_cast<std::int64_t>(iValue));
}

/// Lane by lane the lesser and the greater of numbers below 2^31.
__m128i Lesser(__m128i iA, __m128i iB) {
    const __m128i greater = _mm_cmpgt_epi32(iA, iB);
    return _mm_or_si128(_mm_and_si128(greater, iB), _mm_andnot_si128(greater, iA));
}

__m128i Greater(__m128i iA, __m128i iB) {
    const __m128i greater = _mm_cmpgt_epi32(iA, iB);
    return _mm_or_si128(_mm_and_si128(greater, iA), _mm_andnot_si128(greater, iB));
}

/// The bit of a cell in a block, from its place relative to the block's low corner.
std::uint64_t BlockBit(__m128i iPlace) {
    alignas(16) unsigned int place[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(place), iPlace);
    return std::uint64_t{1} << (place[0] + 4 * place[1] + 16 * place[2]);
}

}  // namespace

OctreeLattice::OctreeLattice(const PLMIdxIBaseOctree& iOctree)
    : _origin(AxesFrom(iOctree._bbOrigin)),
      _size(AxesFrom(iOctree._bbSize)),
      _cell(_size),
      _shift(32 - static_cast<int>(iOctree._depth)),
      _fraction((1u << _shift) - 1),
      _margin{},
      _marginFree{} {
    for (unsigned int level = 0; level < iOctree._depth; ++level) {
        _cell = _cell * _mm_set1_ps(0.5f);
    }
    // On the way down from the root a coordinate is rounded once or twice a level, and a few times more in
    // the places of this lattice.
    const double roundings = 2.0 * iOctree._depth + 16.0;
    float origin[3];
    float size[3];
    StoreAxes(_origin, origin);
    StoreAxes(_size, size);
    float slack[3];
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const double largest = std::fabs(double{origin[axis]}) + std::fabs(double{size[axis]});
        const double off = roundings * kUnit * largest;
        slack[axis] = static_cast<float>(off);
        const double margin = off / size[axis] * 0x1p32 + kCodeError;
        // No margin is found for a box that is no box.
        if (!(largest < kMaxCoordinate && margin > 0.0 && 2.0 * margin < _fraction)) continue;
        _margin.axes[axis] = static_cast<unsigned int>(margin);
        _marginFree.axes[axis] = _fraction - 2 * _margin.axes[axis];
    }
    _slack = AxesFrom(slack);
}

VertexCode OctreeLattice::CodeOf(const IDX_Point& iPoint) const {
    float fractions[3];
    StoreAxes((AxesFrom(iPoint) - _origin) / _size * _mm_set1_ps(0x1p32f), fractions);
    return {
        {LowBitsOf(fractions[0]), LowBitsOf(fractions[1]), LowBitsOf(fractions[2]), 0}
    };
}

LatticeCells OctreeLattice::CellsOf(
    const IDX_Point* const (&iVertices)[3], const VertexCode (&iCodes)[3]) const {
    LatticeCells cells = {{}, 0, false, false};
    const __m128i margin = Words(_margin);
    const __m128i marginFree = Words(_marginFree);
    const __m128i fraction = _mm_set1_epi32(static_cast<int>(_fraction));
    __m128i inside = _mm_set1_epi32(-1);
    __m128i places[3];
    for (unsigned int i = 0; i < 3; ++i) {
        const __m128i code = Words(iCodes[i]);
        const __m128i beyondMargin = _mm_and_si128(_mm_sub_epi32(code, margin), fraction);
        inside = _mm_and_si128(inside, _mm_cmpgt_epi32(marginFree, beyondMargin));
        places[i] = _mm_srl_epi32(code, _mm_cvtsi32_si128(_shift));
    }
    const __m128i low = Lesser(Lesser(places[0], places[1]), places[2]);
    const __m128i high = Greater(Greater(places[0], places[1]), places[2]);
    const __m128i span = _mm_sub_epi32(high, low);
    const __m128i tooFar = _mm_cmpgt_epi32(span, _mm_set1_epi32(3));
    if (AxesOf(_mm_castsi128_ps(_mm_andnot_si128(tooFar, inside))) != 7) return cells;

    alignas(16) unsigned int words[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(words), low);
    std::copy_n(words, 3, cells.low);
    alignas(16) unsigned int spans[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(spans), span);
    for (const __m128i& place : places) cells.touched |= BlockBit(_mm_sub_epi32(place, low));
    cells.decided = true;
    const __m128i three = _mm_set1_epi32(3);
    const __m128i last = _mm_add_epi32(_mm_and_si128(low, three), span);
    cells.inOneNodeSet = AxesOf(_mm_castsi128_ps(_mm_cmpgt_epi32(last, three))) == 0;
    // One cell, or two side by side: the vertices are in both.
    if (spans[0] + spans[1] + spans[2] <= 1) return cells;

    float vertices[3][3];
    for (unsigned int i = 0; i < 3; ++i) StoreAxes(AxesFrom(*iVertices[i]), vertices[i]);
    TriangleCells triangle(vertices);
    const FourFloats corner = _origin + _mm_cvtepi32_ps(low) * _cell;
    const CellMask mask = triangle.CellsOfBlock(corner, _cell, spans, _slack);
    cells.touched |= mask.cells;
    cells.decided = mask.decided;
    return cells;
}
