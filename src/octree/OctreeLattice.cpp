#include "OctreeLattice.h"

#include "TriangleCells.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr double kUnit = 0x1p-24;

/// A place is off by three roundings, as a part of the box. Twice as much is taken.
constexpr double kPlaceError = 6 * kUnit;

/// The largest coordinate for which TriangleCells decides in single precision.
constexpr double kMaxCoordinate = 0x1p40;

/// The smallest extent of a cell: far enough above the sub-normal numbers that halving is exact and a slack is
/// a number of full precision.
constexpr float kMinCell = 0x1p-80f;

/// The low 32 bits of a float cut to a 64-bit integer; 0 for a float that has none.
unsigned int LowBitsOf(float iValue) {
    if (!(iValue >= -0x1p63f && iValue < 0x1p63f)) return 0;
    return static_cast<unsigned int>(static_cast<std::int64_t>(iValue));
}

/// Lane by lane the lesser and the greater number.
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
    : _origin(AxesFrom(iOctree._bbOrigin)), _size(AxesFrom(iOctree._bbSize)), _cell(_size) {
    for (unsigned int level = 0; level < iOctree._depth; ++level) {
        _cell = _cell * _mm_set1_ps(0.5f);
    }
    const auto cells = static_cast<float>(1u << iOctree._depth);
    // On the way down from the root a coordinate is rounded once or twice a level, and a few times more in
    // the places of this lattice.
    const double roundings = 2.0 * iOctree._depth + 16.0;
    float origin[3];
    float size[3];
    float cell[3];
    StoreAxes(_origin, origin);
    StoreAxes(_size, size);
    StoreAxes(_cell, cell);
    float slack[3];
    float scale[3];
    float margin[3];
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const double largest = std::fabs(double{origin[axis]}) + std::fabs(double{size[axis]});
        const double off = roundings * kUnit * largest;
        slack[axis] = static_cast<float>(off);
        scale[axis] = 0.0f;
        margin[axis] = 1.0f;  // for a box that is no box, or a tiny one
        if (!(largest < kMaxCoordinate && cell[axis] >= kMinCell)) continue;
        scale[axis] = cells / size[axis];
        margin[axis] = static_cast<float>((off / size[axis] + kPlaceError) * cells);
    }
    _slack = AxesFrom(slack);
    _scale = AxesFrom(scale);
    _margin = AxesFrom(margin);
    _marginFree = _mm_set1_ps(1.0f) - _margin - _margin;
    _last = _mm_set1_epi32((1 << iOctree._depth) - 1);
}

VertexCode OctreeLattice::CodeOf(FourFloats iPoint) const {
    float fractions[3];
    StoreAxes((iPoint - _origin) / _size * _mm_set1_ps(0x1p32f), fractions);
    return {
        {LowBitsOf(fractions[0]), LowBitsOf(fractions[1]), LowBitsOf(fractions[2])}
    };
}

LatticeCells OctreeLattice::CellsOf(const FourFloats (&iVertices)[3]) const {
    LatticeCells cells = {{}, 0, false, false};
    FourFloats inside = _mm_castsi128_ps(_mm_set1_epi32(-1));
    __m128i places[3];
    for (unsigned int i = 0; i < 3; ++i) {
        const FourFloats place = (iVertices[i] - _origin) * _scale;
        places[i] = _mm_cvttps_epi32(place);  // negative for what has no such integer
        const FourFloats beyondMargin = place - _mm_cvtepi32_ps(places[i]) - _margin;
        inside = _mm_and_ps(inside, _mm_cmpge_ps(beyondMargin, _mm_setzero_ps()));
        inside = _mm_and_ps(inside, _mm_cmplt_ps(beyondMargin, _marginFree));
    }
    const __m128i low = Lesser(Lesser(places[0], places[1]), places[2]);
    const __m128i high = Greater(Greater(places[0], places[1]), places[2]);
    const __m128i span = _mm_sub_epi32(high, low);
    const __m128i outside =
        _mm_or_si128(_mm_cmplt_epi32(low, _mm_setzero_si128()), _mm_cmpgt_epi32(high, _last));
    const __m128i tooFar = _mm_cmpgt_epi32(span, _mm_set1_epi32(3));
    const __m128i useless = _mm_or_si128(outside, tooFar);
    if (AxesOf(_mm_andnot_ps(_mm_castsi128_ps(useless), inside)) != 7) return cells;

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
    for (unsigned int i = 0; i < 3; ++i) StoreAxes(iVertices[i], vertices[i]);
    TriangleCells triangle(vertices);
    const FourFloats corner = _origin + _mm_cvtepi32_ps(low) * _cell;
    const CellMask mask = triangle.CellsOfBlock(corner, _cell, spans, _slack);
    cells.touched |= mask.cells;
    cells.decided = mask.decided;
    return cells;
}
