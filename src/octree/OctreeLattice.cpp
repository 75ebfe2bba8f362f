#include "OctreeLattice.h"

#include "BlockOfCells.h"
#include "TriangleCells.h"

#include <algorithm>
#include <cmath>

namespace {

/// How far a vertex's place can be off, as a part of the box: three roundings. This is twice as
/// much.
constexpr double kPlaceError = 6.0 * kFloatUnit;

/// The smallest side of a cell. It is so far above the sub-normal numbers that halving is exact,
/// and that a slack has full precision.
constexpr float kMinCell = 0x1p-80f;

/// The low 32 bits of a float cut to a 64-bit integer. 0 for a float that has no such integer, a
/// NaN included: the conversion itself is undefined for these.
unsigned int LowBitsOf(float iValue) {
    if (!(iValue >= -0x1p63f && iValue < 0x1p63f)) return 0;
    return static_cast<unsigned int>(static_cast<std::int64_t>(iValue));
}

/// Lane by lane the lesser and the greater number: SSE2 has no such operation for 32-bit integers.
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
    return std::uint64_t{1} << BitOfCell(place[0], place[1], place[2]);
}

}  // namespace

/// Works out the margins once for all triangles. On the way down from the root a coordinate is
/// rounded once or twice a level, and each rounding is off by at most half a unit in the last place
/// of the largest coordinate.
OctreeLattice::OctreeLattice(const PLMIdxIBaseOctree& iOctree)
    : _origin(AxesFrom(iOctree._bbOrigin)), _size(AxesFrom(iOctree._bbSize)), _cellExtents(_size) {
    for (unsigned int level = 0; level < iOctree._depth; ++level) {
        _cellExtents = _cellExtents * _mm_set1_ps(0.5f);
    }
    const auto cells = static_cast<float>(1u << iOctree._depth);
    // Two roundings a level, and a few more in the places of this lattice.
    const double roundings = 2.0 * iOctree._depth + 16.0;
    float origin[3];
    float size[3];
    float cellExtents[3];
    StoreAxes(_origin, origin);
    StoreAxes(_size, size);
    StoreAxes(_cellExtents, cellExtents);
    float slack[3];
    float scale[3];
    float margin[3];
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const double largest = std::fabs(double{origin[axis]}) + std::fabs(double{size[axis]});
        const double off = roundings * kFloatUnit * largest;
        slack[axis] = static_cast<float>(off);
        // For a tiny box, a huge one and one with a NaN: no vertex is further than a whole cell
        // from the faces of its cell, so nothing is decided.
        scale[axis] = 0.0f;
        margin[axis] = 1.0f;
        if (!(largest < kMaxCoordinate && cellExtents[axis] >= kMinCell)) continue;
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

/// The cells of the vertices, as columns, rows and layers. A vertex that has no such integers gives
/// a negative number.
/// @return a mask of the axes on which each vertex is inside its cell by more than the margin
inline FourFloats OctreeLattice::PlacesOf(
    const FourFloats (&iVertices)[3], __m128i (&oPlaces)[3]) const {
    FourFloats inside = _mm_castsi128_ps(_mm_set1_epi32(-1));
    for (unsigned int i = 0; i < 3; ++i) {
        const FourFloats place = (iVertices[i] - _origin) * _scale;
        oPlaces[i] = _mm_cvttps_epi32(place);
        // Negative in the margin of the low face; from _marginFree on in that of the high face.
        const FourFloats beyondMargin = place - _mm_cvtepi32_ps(oPlaces[i]) - _margin;
        inside = _mm_and_ps(inside, _mm_cmpge_ps(beyondMargin, _mm_setzero_ps()));
        inside = _mm_and_ps(inside, _mm_cmplt_ps(beyondMargin, _marginFree));
    }
    return inside;
}

/// First looks whether anything can be decided: each vertex must be in the box and inside its cell
/// by more than the margin, and the three cells must be in one block. The cells of the vertices are
/// touched then. The other cells of the block come from the separating axis test.
LatticeCells OctreeLattice::CellsOf(const FourFloats (&iVertices)[3]) const {
    LatticeCells cells = {{}, 0, false, false};
    __m128i places[3];
    const FourFloats inside = PlacesOf(iVertices, places);
    const __m128i low = Lesser(Lesser(places[0], places[1]), places[2]);
    const __m128i high = Greater(Greater(places[0], places[1]), places[2]);
    const __m128i span = _mm_sub_epi32(high, low);
    const __m128i outside =
        _mm_or_si128(_mm_cmplt_epi32(low, _mm_setzero_si128()), _mm_cmpgt_epi32(high, _last));
    const __m128i lastSlab = _mm_set1_epi32(kSlabs - 1);
    const __m128i tooLarge = _mm_cmpgt_epi32(span, lastSlab);
    const __m128i undecided = _mm_or_si128(outside, tooLarge);
    if (AxesOf(_mm_andnot_ps(_mm_castsi128_ps(undecided), inside)) != kAllAxes) return cells;

    alignas(16) unsigned int words[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(words), low);
    std::copy_n(words, 3, cells.low);
    alignas(16) unsigned int spans[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(spans), span);
    for (const __m128i& place : places) cells.touched |= BlockBit(_mm_sub_epi32(place, low));
    cells.decided = true;
    // As SlabInNodeSet() for all axes at once: the triangle ends in the node set in which it
    // begins.
    const __m128i end = _mm_add_epi32(_mm_and_si128(low, lastSlab), span);
    cells.inOneNodeSet = AxesOf(_mm_castsi128_ps(_mm_cmpgt_epi32(end, lastSlab))) == 0;
    // One cell, or two side by side: a vertex is in each of them.
    if (spans[0] + spans[1] + spans[2] <= 1) return cells;

    float vertices[3][3];
    for (unsigned int i = 0; i < 3; ++i) StoreAxes(iVertices[i], vertices[i]);
    TriangleCells triangle(vertices);
    const FourFloats corner = _origin + _mm_cvtepi32_ps(low) * _cellExtents;
    const CellMask mask = triangle.CellsOfBlock(corner, _cellExtents, spans, _slack);
    cells.touched |= mask.cells;
    cells.decided = mask.decided;
    return cells;
}
