#include "PlainVoxelizer.h"

#include "formats/OctreeImage.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>

namespace {

constexpr unsigned int kBlockLevel = 3;  ///< the smallest blocks that are summed up: 8 cells a side
constexpr uint64_t kAllOnes = ~uint64_t{0};

/// Cells whose closed range meets [iLow, iHigh].
int FirstCell(double iLow) {
    return static_cast<int>(std::ceil(iLow)) - 1;
}
int LastCell(double iHigh) {
    return static_cast<int>(std::floor(iHigh));
}

/// Cuts a bound that may be far away, or infinite, to what an int takes.
double Near(double iBound) {
    constexpr double kFar = 1e6;
    return std::min(kFar, std::max(-kFar, iBound));
}

/// Spreads the bits of `iSeeds` over the runs of ones of `iFree` in which they lie.
/// Upwards by the carry of an addition, downwards by doubling steps.
uint64_t FillRuns(uint64_t iSeeds, uint64_t iFree) {
    uint64_t filled = iFree & (~(iFree + iSeeds) | iSeeds);
    uint64_t run = iFree;
    for (unsigned int step = 1; step < 64; step *= 2) {
        filled |= run & filled >> step;
        run &= run >> step;
    }
    return filled;
}

}  // namespace

PlainVoxelizer::PlainVoxelizer(const GridBox& iBox, unsigned int iDepth)
    : _box(iBox), _depth(iDepth), _side(1 << iDepth), _rowWords(static_cast<size_t>(_side) / 64) {
    const float origin[3] = {iBox.origin.x, iBox.origin.y, iBox.origin.z};
    const float size[3] = {iBox.size.x, iBox.size.y, iBox.size.z};
    for (int a = 0; a < 3; a++) {
        _origin[a] = static_cast<double>(origin[a]);
        _scale[a] = _side / static_cast<double>(size[a]);
    }
    const size_t words = RowIndex(0, _side);
    _walls = MakeBitmap(words);
    _outside = MakeBitmap(words);
    _beyond.assign(_rowWords, kAllOnes);
    for (std::vector<Span>& spans : _spans) spans.resize(static_cast<size_t>(_side));
}

PlainVoxelizer::Bitmap PlainVoxelizer::MakeBitmap(size_t iWords) {
    Bitmap bitmap(static_cast<Word*>(std::calloc(iWords, sizeof(Word))));
    if (!bitmap) throw std::bad_alloc();
    return bitmap;
}

// Drawing.

void PlainVoxelizer::Draw(const Mesh& iMesh) {
    const IDX_Point* const points = iMesh.points.data();
    for (const IDX_Triangle& t : iMesh.triangles) {
        DrawTriangle(
            ToGrid({points + t.vertices[0], points + t.vertices[1], points + t.vertices[2]}));
    }
}

PlainVoxelizer::GridTriangle PlainVoxelizer::ToGrid(const IDX_Point* const (&iVertices)[3]) const {
    GridTriangle triangle;
    for (int k = 0; k < 3; k++) {
        triangle.p[k][0] = (static_cast<double>(iVertices[k]->x) - _origin[0]) * _scale[0];
        triangle.p[k][1] = (static_cast<double>(iVertices[k]->y) - _origin[1]) * _scale[1];
        triangle.p[k][2] = (static_cast<double>(iVertices[k]->z) - _origin[2]) * _scale[2];
    }
    for (int a = 0; a < 3; a++) {
        const double low = std::min({triangle.p[0][a], triangle.p[1][a], triangle.p[2][a]});
        const double high = std::max({triangle.p[0][a], triangle.p[1][a], triangle.p[2][a]});
        triangle.cells[a] = {std::max(FirstCell(low), 0), std::min(LastCell(high), _side - 1)};
    }
    return triangle;
}

PlainVoxelizer::Span PlainVoxelizer::Intersect(const Span& iA, const Span& iB) {
    return {std::max(iA.first, iB.first), std::min(iA.last, iB.last)};
}

/// The triangle's plane as a range of X for each row. The cell (x, y, z) is cut by it when the
/// corners of the cell lie on both sides of it.
class PlainVoxelizer::Plane {
public:
    explicit Plane(const GridTriangle& iTriangle) : _through(iTriangle.p[0]) {
        const auto& p = iTriangle.p;
        double normal[3];
        for (int a = 0; a < 3; a++) {
            const int b = (a + 1) % 3;
            const int c = (a + 2) % 3;
            normal[a] = (p[1][b] - p[0][b]) * (p[2][c] - p[0][c]) -
                        (p[1][c] - p[0][c]) * (p[2][b] - p[0][b]);
        }
        // A plane along X cuts nothing off a row: rows that it misses are sorted out by their
        // projection along X.
        _alongX = normal[0] == 0.0;
        _slopeY = _alongX ? 0.0 : -normal[1] / normal[0];
        _slopeZ = _alongX ? 0.0 : -normal[2] / normal[0];
    }

    Span SpanOf(int iY, int iZ, const Span& iX) const {
        if (_alongX) return iX;
        const double x = _through[0] + _slopeY * (iY - _through[1]) + _slopeZ * (iZ - _through[2]);
        const double low = x + std::min(_slopeY, 0.0) + std::min(_slopeZ, 0.0);
        const double high = x + std::max(_slopeY, 0.0) + std::max(_slopeZ, 0.0);
        return Intersect(iX, {FirstCell(Near(low)), LastCell(Near(high))});
    }

private:
    const double* _through;
    bool _alongX;
    double _slopeY;  ///< of X over Y in the plane
    double _slopeZ;
};

void PlainVoxelizer::DrawTriangle(const GridTriangle& iTriangle) {
    const Span& x = iTriangle.cells[0];
    const Span& y = iTriangle.cells[1];
    const Span& z = iTriangle.cells[2];
    Span* const spans = _spans[0].data();
    const int thinAxes =
        (x.first == x.last ? 1 : 0) + (y.first == y.last ? 1 : 0) + (z.first == z.last ? 1 : 0);
    if (thinAxes >= 2) {
        // One line of cells, each of which the triangle crosses on its way from end to end.
        for (int k = z.first; k <= z.last; k++) {
            for (int j = y.first; j <= y.last; j++) SetSpan(x, j, k);
        }
    } else if (z.first == z.last) {
        // One layer: the projection across it decides. The next two cases likewise.
        ProjectSpans(iTriangle, 0, 1, spans);
        for (int j = y.first; j <= y.last; j++) SetSpan(spans[j - y.first], j, z.first);
    } else if (y.first == y.last) {
        ProjectSpans(iTriangle, 0, 2, spans);
        for (int k = z.first; k <= z.last; k++) SetSpan(spans[k - z.first], y.first, k);
    } else if (x.first == x.last) {
        ProjectSpans(iTriangle, 1, 2, spans);
        for (int k = z.first; k <= z.last; k++) {
            const Span rows = spans[k - z.first];
            for (int j = rows.first; j <= rows.last; j++) SetSpan(x, j, k);
        }
    } else {
        DrawRows(iTriangle);
    }
}

/// The general case: a row's span is what the projections along Z and Y and the plane leave over,
/// and the projection along X says which rows there are.
void PlainVoxelizer::DrawRows(const GridTriangle& iTriangle) {
    const Span& y = iTriangle.cells[1];
    const Span& z = iTriangle.cells[2];
    Span* const alongZ = _spans[0].data();
    Span* const alongY = _spans[1].data();
    Span* const alongX = _spans[2].data();
    ProjectSpans(iTriangle, 0, 1, alongZ);
    ProjectSpans(iTriangle, 0, 2, alongY);
    ProjectSpans(iTriangle, 1, 2, alongX);
    const Plane plane(iTriangle);
    for (int k = z.first; k <= z.last; k++) {
        const Span rows = alongX[k - z.first];
        for (int j = rows.first; j <= rows.last; j++) {
            const Span x = Intersect(alongZ[j - y.first], alongY[k - z.first]);
            SetSpan(plane.SpanOf(j, k, x), j, k);
        }
    }
}

/// The cells that the projection of the triangle on two axes touches: for each row `v` of its box,
/// the cells `u` that neither the box nor an edge separates from it.
void PlainVoxelizer::ProjectSpans(const GridTriangle& iTriangle, int iU, int iV, Span* oSpans) {
    const auto& p = iTriangle.p;
    const Span& rows = iTriangle.cells[iV];
    const double area = (p[1][iU] - p[0][iU]) * (p[2][iV] - p[0][iV]) -
                        (p[1][iV] - p[0][iV]) * (p[2][iU] - p[0][iU]);
    for (int v = rows.first; v <= rows.last; v++) oSpans[v - rows.first] = iTriangle.cells[iU];
    for (int k = 0; k < 3; k++) {
        const double* const from = p[k];
        const double du = p[(k + 1) % 3][iU] - from[iU];
        const double dv = p[(k + 1) % 3][iV] - from[iV];
        if (dv == 0.0) continue;  // an edge along the rows: the box has it
        const double slope = du / dv;
        const bool boundsBelow = (area >= 0.0) == (dv < 0.0);  // the triangle lies at higher u
        // The corner of a row's cells that is the last to leave the triangle's side of the edge.
        const double corner = boundsBelow == (slope < 0.0) ? 1.0 : 0.0;
        for (int v = rows.first; v <= rows.last; v++) {
            const double u = Near(from[iU] + (v + corner - from[iV]) * slope);
            Span& span = oSpans[v - rows.first];
            if (boundsBelow) {
                span.first = std::max(span.first, FirstCell(u));
            } else {
                span.last = std::min(span.last, LastCell(u));
            }
        }
    }
}

void PlainVoxelizer::SetSpan(const Span& iX, int iY, int iZ) {
    if (iX.first > iX.last) return;
    Word* const row = _walls.get() + RowIndex(iY, iZ);
    const unsigned int first = static_cast<unsigned int>(iX.first);
    const unsigned int last = static_cast<unsigned int>(iX.last);
    const Word fromFirst = kAllOnes << first % 64;
    const Word toLast = kAllOnes >> (63 - last % 64);
    if (first / 64 == last / 64) {
        row[first / 64] |= fromFirst & toLast;
        return;
    }
    row[first / 64] |= fromFirst;
    for (unsigned int w = first / 64 + 1; w < last / 64; w++) row[w] = kAllOnes;
    row[last / 64] |= toLast;
}

// Flooding.

/// Goes up and down through the layers until none of them gains a cell. A layer is looked at again
/// only when one beside it has changed.
void PlainVoxelizer::Flood() {
    // With a layer more at both ends, which nobody asks for.
    std::vector<char> waiting(static_cast<size_t>(_side) + 2, 1);
    const auto visit = [this, &waiting](int iZ) {
        char* const layer = &waiting[static_cast<size_t>(iZ) + 1];
        if (!*layer) return false;
        *layer = 0;
        if (!FloodLayer(iZ)) return false;
        layer[-1] = layer[1] = 1;
        return true;
    };
    for (int z = 0; z < _side; z++) {
        SeedLayer(z);
        visit(z);
    }
    for (bool changed = true; changed;) {
        changed = false;
        for (int z = _side - 1; z >= 0; z--) changed |= visit(z);
        for (int z = 0; z < _side; z++) changed |= visit(z);
    }
}

/// The cells at both ends of each row lie on the border.
void PlainVoxelizer::SeedLayer(int iZ) {
    for (int y = 0; y < _side; y++) {
        const size_t row = RowIndex(y, iZ);
        const size_t end = row + _rowWords - 1;
        _outside[row] |= ~_walls[row] & 1;
        _outside[end] |= ~_walls[end] & Word{1} << 63;
        SpreadAlongRow(_walls.get() + row, _outside.get() + row);
    }
}

bool PlainVoxelizer::FloodLayer(int iZ) {
    bool changed = false;
    for (bool again = true; again; changed |= again) {
        again = false;
        for (int y = 0; y < _side; y++) again |= FloodRow(y, iZ, y - 1);
        for (int y = _side - 1; y >= 0; y--) again |= FloodRow(y, iZ, y + 1);
    }
    return changed;
}

/// Takes into a row what is outside in the rows below and above it and in row `iFromY` of its layer.
bool PlainVoxelizer::FloodRow(int iY, int iZ, int iFromY) {
    const size_t row = RowIndex(iY, iZ);
    const Word* const walls = _walls.get() + row;
    const Word* const beside = OutsideRow(iFromY, iZ);
    const Word* const below = OutsideRow(iY, iZ - 1);
    const Word* const above = OutsideRow(iY, iZ + 1);
    Word* const outside = _outside.get() + row;
    Word gained = 0;
    for (size_t w = 0; w < _rowWords; w++) {
        const Word seeds = (beside[w] | below[w] | above[w]) & ~walls[w];
        gained |= seeds & ~outside[w];
        outside[w] |= seeds;
    }
    if (gained == 0) return false;
    SpreadAlongRow(walls, outside);
    return true;
}

const PlainVoxelizer::Word* PlainVoxelizer::OutsideRow(int iY, int iZ) const {
    const bool inside = iY >= 0 && iY < _side && iZ >= 0 && iZ < _side;
    return inside ? _outside.get() + RowIndex(iY, iZ) : _beyond.data();
}

void PlainVoxelizer::SpreadAlongRow(const Word* iWalls, Word* ioOutside) const {
    const auto fill = [iWalls, ioOutside](size_t iWord, Word iCarry) {
        const Word open = ~iWalls[iWord];
        const Word seeds = ioOutside[iWord] | (iCarry & open);
        if (seeds != 0 && seeds != open) {
            ioOutside[iWord] = FillRuns(seeds, open);
        } else {
            ioOutside[iWord] = seeds;
        }
    };
    fill(0, 0);
    for (size_t w = 1; w < _rowWords; w++) fill(w, ioOutside[w - 1] >> 63);
    for (size_t w = _rowWords - 1; w-- > 0;) fill(w, ioOutside[w + 1] << 63);
}

// Packing.

std::vector<unsigned char> PlainVoxelizer::Pack() {
    SummarizeBlocks();
    while (_summary.back().size() > 8) HalveSummary();
    _image.assign(kOctreeHeaderSize, 0);
    PackNode(_depth, {0, 0, 0}, Append(1));

    OctreeHeader header = {};
    header.type = IDX_OPTIM_OCTREE_0;
    header.version = kOctreeImageVersion;
    header.depth = _depth;
    header.bbOrigin = _box.origin;
    header.bbSize = _box.size;
    header.size = static_cast<uint32_t>(_image.size() - sizeof header);
    std::memcpy(_image.data(), &header, sizeof header);
    return std::move(_image);
}

/// The state of every block of 8 cells a side.
void PlainVoxelizer::SummarizeBlocks() {
    const size_t blocks = static_cast<size_t>(_side) / 8;
    _summary.assign(1, std::vector<unsigned char>(blocks * blocks * blocks));
    unsigned char* states = _summary[0].data();
    for (int z = 0; z < _side; z += 8) {
        for (int y = 0; y < _side; y += 8, states += blocks) SummarizeBlockRow(y, z, states);
    }
}

/// The blocks whose low corners lie in the row (iY, iZ): a byte of each word belongs to one of them.
void PlainVoxelizer::SummarizeBlockRow(int iY, int iZ, unsigned char* oStates) const {
    Word any[16] = {};
    Word all[16];
    std::fill(all, all + _rowWords, kAllOnes);
    for (int z = iZ; z < iZ + 8; z++) {
        for (int y = iY; y < iY + 8; y++) {
            const Word* const outside = OutsideRow(y, z);
            for (size_t w = 0; w < _rowWords; w++) {
                any[w] |= ~outside[w];
                all[w] &= ~outside[w];
            }
        }
    }
    for (size_t b = 0; b < 8 * _rowWords; b++) {
        const unsigned int anyByte = any[b / 8] >> 8 * (b % 8) & 0xFF;
        const unsigned int allByte = all[b / 8] >> 8 * (b % 8) & 0xFF;
        oStates[b] = anyByte == 0 ? OCTREE_EMPTY : allByte == 0xFF ? OCTREE_FULL : OCTREE_PARTIAL;
    }
}

/// The states of the blocks of twice the side of the last ones.
void PlainVoxelizer::HalveSummary() {
    const unsigned int level = kBlockLevel + static_cast<unsigned int>(_summary.size()) - 1;
    const unsigned int blocks = 1u << (_depth - level - 1);
    std::vector<unsigned char> states;
    states.reserve(_summary.back().size() / 8);
    for (unsigned int i = 0; i < blocks * blocks * blocks; i++) {
        const unsigned int x = 2 * (i % blocks);
        const unsigned int y = 2 * (i / blocks % blocks);
        const unsigned int z = 2 * (i / blocks / blocks);
        unsigned int seen = 0;  // one bit for each state
        for (unsigned int c = 0; c < 8; c++) {
            seen |= 1u << SummaryAt(level, x + (c & 1), y + (c >> 1 & 1), z + (c >> 2));
        }
        states.push_back(
            seen == 1u << OCTREE_EMPTY  ? OCTREE_EMPTY
            : seen == 1u << OCTREE_FULL ? OCTREE_FULL
                                        : OCTREE_PARTIAL);
    }
    _summary.push_back(std::move(states));
}

unsigned char PlainVoxelizer::SummaryAt(
    unsigned int iLevel, unsigned int iX, unsigned int iY, unsigned int iZ) const {
    const size_t blocks = size_t{1} << (_depth - iLevel);
    return _summary[iLevel - kBlockLevel][(iZ * blocks + iY) * blocks + iX];
}

/// Adds records at the end of the image and gives their position.
size_t PlainVoxelizer::Append(size_t iRecords) {
    const size_t position = _image.size();
    _image.resize(position + iRecords * kCompactRecordSize);
    return position;
}

/// Writes the record of the cell `iAt`, `iLevel` levels above the bottom, and all records below it.
void PlainVoxelizer::PackNode(unsigned int iLevel, const unsigned int (&iAt)[3], size_t iRecord) {
    if (iLevel == kBlockLevel) return PackNodeSets(iAt, iRecord);
    NodeOptim node = {};
    size_t nPartial = 0;
    for (unsigned int c = 0; c < 8; c++) {
        const unsigned int state = SummaryAt(
            iLevel - 1, 2 * iAt[0] + (c & 1), 2 * iAt[1] + (c >> 1 & 1), 2 * iAt[2] + (c >> 2));
        node.states = static_cast<uint16_t>(node.states | state << 2 * c);
        nPartial += state == OCTREE_PARTIAL ? 1 : 0;
    }
    size_t record = nPartial == 0 ? 0 : Append(nPartial);
    if (nPartial != 0) node.childSet = static_cast<uint32_t>(record - kOctreeHeaderSize);
    std::memcpy(_image.data() + iRecord, &node, sizeof node);
    for (unsigned int c = 0; c < 8; c++) {
        if ((node.states >> 2 * c & 3) != OCTREE_PARTIAL) continue;
        PackNode(
            iLevel - 1, {2 * iAt[0] + (c & 1), 2 * iAt[1] + (c >> 1 & 1), 2 * iAt[2] + (c >> 2)},
            record);
        record += kCompactRecordSize;
    }
}

/// The same for a block of 8 cells a side: its record, and those of its partial children, whose 64
/// cells each are the record.
void PlainVoxelizer::PackNodeSets(const unsigned int (&iAt)[3], size_t iRecord) {
    Word groups[8] = {};
    for (unsigned int row = 0; row < 64; row++) {
        const unsigned int y = row & 7;
        const unsigned int z = row >> 3;
        const Word* const outside =
            OutsideRow(static_cast<int>(8 * iAt[1] + y), static_cast<int>(8 * iAt[2] + z));
        const Word cells = ~outside[iAt[0] / 8] >> 8 * (iAt[0] % 8);
        // Two cells along X are neighbouring bits of one leaf group, the next two of the next group.
        const unsigned int child = (y >> 2) * 2 + (z >> 2) * 4;
        const unsigned int group = (y >> 1 & 1) * 2 + (z >> 1 & 1) * 4;
        const unsigned int shift = 8 * group + (y & 1) * 2 + (z & 1) * 4;
        groups[child] |= ((cells & 3) | (cells & 12) << 6) << shift;
        groups[child + 1] |= ((cells >> 4 & 3) | (cells >> 4 & 12) << 6) << shift;
    }
    NodeOptim node = {};
    for (unsigned int c = 0; c < 8; c++) {
        const unsigned int state = groups[c] == 0          ? OCTREE_EMPTY
                                   : groups[c] == kAllOnes ? OCTREE_FULL
                                                           : OCTREE_PARTIAL;
        node.states = static_cast<uint16_t>(node.states | state << 2 * c);
        if (state != OCTREE_PARTIAL) continue;
        const size_t record = Append(1);
        if (node.childSet == 0) node.childSet = static_cast<uint32_t>(record - kOctreeHeaderSize);
        std::memcpy(_image.data() + record, &groups[c], kCompactRecordSize);
    }
    std::memcpy(_image.data() + iRecord, &node, sizeof node);
}
