#include "ReferenceBuilder.h"

#include "IDX_Base_4x4Matrix.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

namespace reference {

namespace {

unsigned int Level(Cell cell) {
    return static_cast<unsigned int>(std::bit_width(cell) - 1) / 3;
}

/// The cell of a higher level that holds this one.
Cell Ancestor(Cell cell, unsigned int level) {
    return cell >> 3 * (Level(cell) - level);
}

/// The bits of a cell that hold its place along an axis.
Cell BitsOf(Cell cell, unsigned int axis) {
    return (Cell{1} << 3 * Level(cell)) / 7 << axis;
}

bool IsOnBorder(Cell cell) {
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const Cell bits = BitsOf(cell, axis);
        if ((cell & bits) == 0 || (cell & bits) == bits) return true;
    }
    return false;
}

/// The next cell along an axis. After the last one comes the first.
Cell Beside(Cell cell, unsigned int axis) {
    const Cell bits = BitsOf(cell, axis);
    return (cell & ~bits) | (((cell | ~bits) + 1) & bits);
}

/// The coordinate as a 32-bit fraction of the box.
std::uint32_t Code(float p, float origin, float size) {
    const float difference = p - origin;
    const float fraction = difference / size;
    const float scaled = fraction * 4294967296.0f;
    if (!(scaled >= -9223372036854775808.0f && scaled < 9223372036854775808.0f)) return 0;
    return static_cast<std::uint32_t>(static_cast<std::int64_t>(scaled));
}

}  // namespace

Builder::Builder(std::uint64_t arena, float epsilon) : _arena(arena), _epsilon(epsilon) {
    (void)Pack();
}

// The tree

State Builder::Test(Cell cell) const {
    const bool isLeafGroup = Level(cell) + 1 == depth;
    const auto found = _states.find(isLeafGroup ? cell : cell >> 3);
    const unsigned int word = found == _states.end() ? 0 : found->second;
    if (!isLeafGroup) return static_cast<State>(word >> 2 * (cell & 7) & 3);
    return word == 0xAAAA ? kFull : word == 0 ? kEmpty : kPartial;
}

void Builder::Fill(Cell cell, State state) {
    if (Level(cell) + 1 == depth) {
        _states[cell] = state == kFull ? 0xAAAA : 0;
        return;
    }
    std::uint16_t& word = _states[cell >> 3];
    const unsigned int shift = 2 * (cell & 7);
    word = static_cast<std::uint16_t>((word & ~(3u << shift)) | state << shift);
}

void Builder::MoveCreate(Cell cell) {
    const unsigned int below = depth - Level(cell);
    const State before = Test(cell);
    if (below >= 2) {
        if (before == kPartial) return;
        Take(below == 2 ? 160 : 52);
        Fill(cell, kPartial);
    }
    if (below >= 2 || before == kEmpty) ++counts[Level(cell)];
    if (below == 0) Fill(cell, kSurface);
}

std::uint16_t& Builder::Tag(Cell cell) {
    return _tags[Level(cell) + 1 == depth ? cell << 3 : cell];
}

void Builder::Take(unsigned int bytes) {
    if (_taken + bytes > _arena) throw Failure();
    _taken += bytes;
}

void Builder::Reset(unsigned int newDepth) {
    depth = newDepth;
    _states.clear();
    _tags.clear();
    _filled = false;
    counts = {};
    _taken = 0;
    if (depth == 0) return;
    ++counts[0];
    Take(depth == 2 ? 160 : 52);
}

void Builder::CopyBelow(const Builder& source, Cell cell) {
    if (Level(cell) == depth) return;
    for (Cell child = cell << 3; child < (cell + 1) << 3; ++child) {
        const State state = source.Test(child);
        if (state == kEmpty || state == kFull) {
            Fill(child, state);
        } else {
            MoveCreate(child);
            CopyBelow(source, child);
        }
    }
}

long int Builder::ReduceDepth() {
    if (depth < 3) throw Failure();
    const Builder old = *this;
    Reset(depth - 1);
    CopyBelow(old, kRoot);
    return IDX_S_OK;
}

// Drawing

long int Builder::DrawTriangle(const Corners& triangle) {
    if (depth == 0) throw Failure();
    Triple low = _origin;
    Triple extent = _size;
    std::uint32_t codes[3][3];
    for (std::size_t v = 0; v < 3; ++v)
        for (std::size_t a = 0; a < 3; ++a) codes[v][a] = Code(triangle[v][a], low[a], extent[a]);
    Cell cell = kRoot;
    for (; Level(cell) < depth; MoveCreate(cell)) {
        unsigned int numbers[3] = {};
        for (std::size_t v = 0; v < 3; ++v)
            for (std::size_t a = 0; a < 3; ++a) numbers[v] |= codes[v][a] << Level(cell) >> 31 << a;
        if (numbers[0] != numbers[1] || numbers[1] != numbers[2]) break;
        cell = cell << 3 | numbers[0];
        if (Test(cell) == kFull) return IDX_S_OK;
        for (std::size_t a = 0; a < 3; ++a) {
            extent[a] = extent[a] * 0.5f;
            if (numbers[0] >> a & 1) low[a] = low[a] + extent[a];
        }
    }
    if (Level(cell) == depth) return IDX_S_OK;
    Triple half;
    Triple centre;
    for (std::size_t a = 0; a < 3; ++a) {
        half[a] = extent[a] * 0.5f;
        centre[a] = low[a] + half[a];
    }
    const bool drawn = DrawBelow(cell, centre, half, triangle, 1.0f) ||
                       DrawBelow(cell, centre, half, triangle, 1.0001f);
    _drawn += drawn;
    return drawn ? IDX_S_OK : IDX_S_NOTHING_DONE;
}

bool Builder::DrawBelow(
    Cell cell, const Triple& centre, const Triple& half, const Corners& t, float factor) {
    Triple h;
    Triple tested;
    bool reached[3][2];
    for (std::size_t a = 0; a < 3; ++a) {
        h[a] = half[a] * 0.5f;
        tested[a] = h[a] * factor;
        float low = t[0][a];
        float high = low;
        for (const float p : {t[1][a], t[2][a]}) {
            low = p < low ? p : low;
            high = p > high ? p : high;
        }
        reached[a][0] = !(low > centre[a]);
        reached[a][1] = !(centre[a] > high);
    }
    bool drawn = false;
    for (unsigned int c = 0; c < 8; ++c) {
        if (!reached[0][c & 1] || !reached[1][c >> 1 & 1] || !reached[2][c >> 2]) continue;
        const Cell child = cell << 3 | c;
        if (Test(child) == kFull) {
            drawn = true;
            continue;
        }
        Triple middle;
        for (std::size_t a = 0; a < 3; ++a)
            middle[a] = c >> a & 1 ? centre[a] + h[a] : centre[a] - h[a];
        const int meet = AskForReference(middle, tested, t);
        if (meet < 0) throw Failure();
        if (meet == 0) continue;
        MoveCreate(child);
        if (Level(child) == depth || DrawBelow(child, middle, h, t, factor)) drawn = true;
    }
    return drawn;
}

long int Builder::DrawTriangles(const Mesh& mesh) {
    Reset(depth);
    std::size_t outside = 0;
    for (const IDX_Triangle& triangle : mesh.triangles) {
        const auto corners = std::bit_cast<Corners>(mesh.CornersOf(triangle));
        outside += DrawTriangle(corners) == IDX_S_NOTHING_DONE;
    }
    return outside < mesh.triangles.size() ? IDX_S_OK : IDX_S_NOTHING_DONE;
}

long int Builder::DrawGeometry(const Mesh& mesh) {
    Triple low = {1e9f, 1e9f, 1e9f};
    Triple high = {-1e9f, -1e9f, -1e9f};
    for (const IDX_Triangle& triangle : mesh.triangles) {
        for (const Triple& p : std::bit_cast<Corners>(mesh.CornersOf(triangle))) {
            for (std::size_t a = 0; a < 3; ++a) {
                if (p[a] < low[a]) low[a] = p[a];
                if (p[a] > high[a]) high[a] = p[a];
            }
        }
    }
    Triple extent;
    for (std::size_t a = 0; a < 3; ++a) {
        if (low[a] > high[a]) low[a] = high[a] = 0;
        extent[a] = high[a] - low[a];
    }
    const float longest = std::max({extent[0], extent[1], extent[2]});
    float cell = longest * 0.25f;
    int d = 2;
    for (; d < maxDepth && cell > voxelSize; ++d) cell *= 0.5f;
    const float margin = cell * 0.05f;
    for (std::size_t a = 0; a < 3; ++a) {
        const float growth = (longest - extent[a]) * 0.5f;
        _origin[a] = (low[a] - growth) - margin;
        _size[a] = ((high[a] + growth) + margin) - _origin[a];
    }
    for (; d >= 2; --d) {
        depth = static_cast<unsigned int>(d);
        try {
            (void)DrawTriangles(mesh);
            return FillAndPack();
        } catch (const Failure&) {
            // The next depth may do.
        }
    }
    throw Failure();
}

void Builder::Init(unsigned int depthOfStream, IDX_Point low, IDX_Point high) {
    _drawn = 0;
    _origin = std::bit_cast<Triple>(low);
    const auto end = std::bit_cast<Triple>(high);
    const float margin = (end[0] - _origin[0]) * _epsilon;
    for (std::size_t a = 0; a < 3; ++a) {
        _size[a] = (end[a] - _origin[a]) + 2 * margin;
        _origin[a] = _origin[a] - margin;
    }
    Reset(depthOfStream);
}

long int Builder::End() {
    if (_drawn > 0) return FillAndPack();
    _origin = _size = {};
    Reset(0);
    return Pack();
}

// Inside and outside

long int Builder::FillAndPack() {
    if (!std::exchange(_filled, true)) {
        _links = {0, 1};
        TagComponents(kRoot);
        SetAsEmptyOrFull(kRoot);
    }
    return Pack();
}

void Builder::TagComponents(Cell cell) {
    for (Cell child = cell << 3; child < (cell + 1) << 3; ++child) {
        const State state = Test(child);
        if (state == kPartial) TagComponents(child);
        if (state == kPartial || state == kSurface) continue;
        if (Tag(child) == 0 && IsOnBorder(child)) Tag(child) = 1;
        Propagate(child);
    }
}

void Builder::Propagate(Cell cell) {
    std::vector<std::uint16_t*> beside;
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const Cell next = Beside(cell, axis);
        unsigned int level = 1;
        while (level < Level(cell) && Test(Ancestor(next, level)) == kPartial) ++level;
        GatherFace(axis, Ancestor(next, level), beside);
    }
    std::uint16_t common = Tag(cell);
    for (const std::uint16_t* tag : beside) {
        if (*tag == 0) continue;
        if (common == 0) common = *tag;
        if (*tag != common) _links[std::max(*tag, common)] = std::min(*tag, common);
        common = std::min(*tag, common);
    }
    if (common == 0) {
        common = static_cast<std::uint16_t>(_links.size());
        _links.push_back(common);
    }
    Tag(cell) = common;
    for (std::uint16_t* tag : beside) *tag = common;
}

/// Adds the tags of the empty and full cells on the low face of a cell.
void Builder::GatherFace(unsigned int axis, Cell cell, std::vector<std::uint16_t*>& tags) {
    const State state = Test(cell);
    if (state == kEmpty || state == kFull) tags.push_back(&Tag(cell));
    if (state != kPartial) return;
    for (Cell c = 0; c < 8; ++c)
        if ((c >> axis & 1) == 0) GatherFace(axis, cell << 3 | c, tags);
}

void Builder::SetAsEmptyOrFull(Cell cell) {
    for (Cell child = cell << 3; child < (cell + 1) << 3; ++child) {
        const State state = Test(child);
        if (state == kPartial) SetAsEmptyOrFull(child);
        if (state == kPartial || state == kSurface) continue;
        std::uint16_t tag = Tag(child);
        while (_links[tag] != tag) tag = _links[tag];
        if (tag > 1) Fill(child, kFull);
    }
}

// The stored image

long int Builder::Pack() {
    _records.assign(depth == 0 ? 0 : 8, 0);
    if (depth != 0) PackBelow(kRoot, 0);
    image.assign(132, 0);
    const auto put = [this](std::size_t offset, const auto& value) {
        std::memcpy(&image[offset], &value, sizeof value);
    };
    put(0, 2u);  // kind
    put(4, 1u);  // version
    put(8, depth);
    put(12, _origin);
    put(24, _size);
    put(40, IDX_Base_4x4Matrix());  // of no cuboid
    put(128, static_cast<std::uint32_t>(_records.size()));
    image.insert(image.end(), _records.begin(), _records.end());
    return IDX_S_OK;
}

void Builder::PackBelow(Cell cell, std::size_t record) {
    const unsigned int below = depth - Level(cell);
    unsigned int word = 0;
    std::uint32_t partial = 0;
    for (unsigned int k = 0; k < 8; ++k) {
        const State state = Test(cell << 3 | k);
        word |= state << 2 * k;
        partial += state == kPartial;
    }
    auto next = static_cast<std::uint32_t>(partial > 0 ? _records.size() : 0);
    if (below >= 3) {
        std::memcpy(&_records[record], &word, 4);
        std::memcpy(&_records[record + 4], &next, 4);
        _records.resize(_records.size() + 8 * partial);
    }
    for (unsigned int k = 0; k < 8; ++k) {
        const unsigned int state = word >> 2 * k & 3;
        const bool isSolid = state == kFull || state == kSurface;
        if (isSolid && below == 1) _records[record] |= static_cast<unsigned char>(1u << k);
        if (isSolid && below == 2) _records[record + k] = 255;
        if (state != kPartial) continue;
        PackBelow(cell << 3 | k, below == 2 ? record + k : next);
        next += 8;
    }
}

}  // namespace reference
