#include "ReferenceBuilder.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <utility>

namespace reference {

namespace {

constexpr float kMinVoxelSize = 0.001f;
constexpr double kSmallAndFar = 1.0 / 1000000;

unsigned int Level(Cell cell) {
    return static_cast<unsigned int>(std::bit_width(cell) - 1) / 3;
}

/// The cell of a higher level that holds this one.
Cell Ancestor(Cell cell, unsigned int level) {
    return cell >> 3 * (Level(cell) - level);
}

/// The bits of a cell that tell its place along an axis.
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

/// The next cell along an axis. Behind the last one comes the first.
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

// The tree

State Tree::Test(Cell cell) const {
    const bool isLeafGroup = Level(cell) + 1 == depth;
    const auto found = states.find(isLeafGroup ? cell : cell >> 3);
    const unsigned int word = found == states.end() ? 0 : found->second;
    if (!isLeafGroup) return static_cast<State>(word >> 2 * (cell & 7) & 3);
    return word == 0xAAAA ? kFull : word == 0 ? kEmpty : kPartial;
}

void Tree::Fill(Cell cell, State state) {
    if (Level(cell) + 1 == depth) {
        states[cell] = state == kFull ? 0xAAAA : 0;
        return;
    }
    std::uint16_t& word = states[cell >> 3];
    const unsigned int shift = 2 * (cell & 7);
    word = static_cast<std::uint16_t>((word & ~(3u << shift)) | state << shift);
}

long int Tree::Fail(const char* tag) {
    trace.emplace_back(tag);
    return IDX_E_FAIL;
}

long int Tree::Alloc(unsigned int wanted) {
    if (bytes + wanted > arena) return Fail("PLMIdxWTWorkingOctree._Alloc.MaxSize");
    bytes += wanted;
    return IDX_S_OK;
}

long int Tree::MoveCreate(Cell cell) {
    const State before = Test(cell);
    const unsigned int r = depth - Level(cell) + 1;
    if (r >= 3 && before == kPartial) return IDX_S_OK;
    if (r >= 3 && Alloc(r == 3 ? 160 : 52) != IDX_S_OK) return IDX_E_OUT_OF_MEMORY;
    if (r >= 3 || before == kEmpty) ++counts[Level(cell)];
    if (r == 1) Fill(cell, kSurface);
    if (r >= 3) Fill(cell, static_cast<State>(before | kPartial));
    return IDX_S_OK;
}

std::uint16_t& Tree::Tag(Cell cell) {
    return tags[Level(cell) + 1 == depth ? cell << 3 : cell];
}

long int Tree::Reset() {
    states.clear();
    tags.clear();
    filled = false;
    counts = {};
    bytes = 0;
    if (depth == 0) return IDX_S_OK;
    ++counts[0];
    return Alloc(depth == 2 ? 160 : 52);
}

long int Tree::CopyBelow(const Tree& source, Cell cell) {
    if (Level(cell) == depth) return IDX_S_OK;
    for (Cell child = cell << 3; child < (cell + 1) << 3; ++child) {
        const State state = source.Test(child);
        if (state == kEmpty || state == kFull) {
            Fill(child, state);
        } else if (MoveCreate(child) < 0 || CopyBelow(source, child) < 0) {
            return IDX_E_FAIL;
        }
    }
    return IDX_S_OK;
}

// The builder

Builder::Builder(std::uint64_t arena, float epsilon) : _epsilon(epsilon), _block(arena) {
    tree.arena = arena;
    Store(0);
}

void Builder::SetDepthAndBox(int depth, const Triple& origin, const Triple& size) {
    tree.depth = static_cast<unsigned int>(depth);
    (void)tree.Reset();
    tree.origin = origin;
    tree.size = size;
    (void)tree.Reset();
}

int Builder::StreamDepth(float extent) const {
    int d = 2;
    if (useVoxelSize == IDX_True) {
        float v = extent * 0.25f;
        for (; d < maxDepth && v > voxelSize; ++d) v *= 0.5f;
        return voxelSize > v && d != 2 ? d - 1 : d;
    }
    for (d = maxDepth; d >= 1; --d)
        if (!(extent / std::ldexp(1.0f, d) < kMinVoxelSize)) break;
    return std::max(d, 2);
}

long int Builder::Init(IDX_Point iLow, IDX_Point iHigh) {
    _drawn = 0;
    _smallAndFar = false;
    auto low = std::bit_cast<Triple>(iLow);
    auto high = std::bit_cast<Triple>(iHigh);
    double pad = 0;
    for (std::size_t a = 0; a < 3; ++a) {
        const double l = low[a];
        const double h = high[a];
        const double s = h + l;
        if (!(std::fabs(s) > kSmallAndFar && kSmallAndFar > std::fabs((l - h) / s))) continue;
        _smallAndFar = true;
        const double wanted = std::fabs(h * kSmallAndFar + l * kSmallAndFar);
        pad = std::max(pad, 0.5 * std::fabs(wanted - (h - l)));
    }
    Triple extent;
    for (std::size_t a = 0; a < 3; ++a) {
        low[a] = static_cast<float>(double{low[a]} - pad);
        high[a] = static_cast<float>(double{high[a]} + pad);
        extent[a] = high[a] - low[a];
    }
    if (_smallAndFar) {
        output += "small and far object\n";
        tree.origin = low;
        tree.size = extent;
        (void)tree.Reset();
        return IDX_S_OK;
    }
    if (const long int status = tree.Reset(); status < 0) {
        (void)tree.Fail("PLMIdxOctreeBuilder.DrawTriangles.PLMIdxWTWorkingOctree.Reset");
        return status;
    }
    const float m = extent[0] * _epsilon;
    const int depth = StreamDepth(extent[0]);
    for (std::size_t a = 0; a < 3; ++a) {
        low[a] = low[a] - m;
        extent[a] = extent[a] + 2 * m;
    }
    SetDepthAndBox(depth, low, extent);
    cuboid = {};
    return tree.bytes == 0 ? IDX_E_FAIL : IDX_S_OK;
}

long int Builder::DrawTriangle(const Corners& triangle) {
    _drawn += _smallAndFar;
    if (_smallAndFar) return IDX_S_OK;
    if (tree.bytes == 0) return IDX_E_FAIL;  // without a root there is nothing to draw into
    Triple low = tree.origin;
    Triple extent = tree.size;
    std::uint32_t codes[3][3];
    for (std::size_t v = 0; v < 3; ++v)
        for (std::size_t a = 0; a < 3; ++a) codes[v][a] = Code(triangle[v][a], low[a], extent[a]);
    Cell cell = kRoot;
    while (Level(cell) < tree.depth) {
        unsigned int numbers[3];
        for (int v = 0; v < 3; ++v)
            numbers[v] = codes[v][0] >> 31 | codes[v][1] >> 31 << 1 | codes[v][2] >> 31 << 2;
        if (numbers[0] != numbers[1] || numbers[1] != numbers[2]) break;
        cell = cell << 3 | numbers[0];
        if (tree.Test(cell) == kFull) return IDX_S_OK;
        if (tree.MoveCreate(cell) < 0)
            return tree.Fail("PLMIdxOctreeBuilder.DrawTriangle.PLMIdxWorkingOctree.MoveCreate");
        for (auto& vertex : codes)
            for (std::uint32_t& code : vertex) code <<= 1;
        for (std::size_t a = 0; a < 3; ++a) {
            extent[a] = extent[a] * 0.5f;
            if (numbers[0] >> a & 1) low[a] = low[a] + extent[a];
        }
    }
    if (Level(cell) == tree.depth) return IDX_S_OK;
    Triple half;
    Triple centre;
    for (std::size_t a = 0; a < 3; ++a) {
        half[a] = extent[a] * 0.5f;
        centre[a] = low[a] + half[a];
    }
    std::string tag = "PLMIdxOctreeBuilder.DrawTriangle.PLMIdxWorkingOctree.DrawTriangle2";
    long int result = DrawBelow(cell, centre, half, triangle, 1.0f);
    if (result == 1) {
        tag += " - Second attempt";
        result = DrawBelow(cell, centre, half, triangle, 1.0001f);
    }
    if (result < 0) return tree.Fail(tag.c_str());
    _drawn += result == 0;
    return result;
}

long int Builder::DrawBelow(
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
    int candidates = 0;
    int misses = 0;
    for (unsigned int c = 0; c < 8; ++c) {
        if (!reached[0][c & 1] || !reached[1][c >> 1 & 1] || !reached[2][c >> 2]) continue;
        ++candidates;
        const Cell child = cell << 3 | c;
        if (tree.Test(child) == kFull) continue;
        Triple middle;
        for (std::size_t a = 0; a < 3; ++a)
            middle[a] = c >> a & 1 ? centre[a] + h[a] : centre[a] - h[a];
        const int meet = overlap(middle, tested, t);
        if (meet < 0) return IDX_E_FAIL;
        if (meet == 0) {
            ++misses;
            continue;
        }
        if (tree.MoveCreate(child) < 0) return IDX_E_FAIL;
        if (Level(child) == tree.depth) continue;
        const long int below = DrawBelow(child, middle, h, t, factor);
        if (below < 0) return IDX_E_FAIL;
        misses += below == 1;
    }
    return misses >= candidates ? 1 : 0;
}

long int Builder::ReduceDepth() {
    if (tree.depth < 3 || tree.bytes == 0) return IDX_E_FAIL;
    const Tree old = tree;
    --tree.depth;
    return tree.Reset() < 0 ? IDX_E_FAIL : tree.CopyBelow(old, kRoot);
}

long int Builder::End() {
    if (_drawn > 0 && !_smallAndFar) return FillAndPack();
    if (_drawn == 0) {
        SetDepthAndBox(0, {}, {});
        return Pack();
    }
    _records.assign(8, 255);
    _block = 8;           // for good
    _stored.isThere = 0;  // the rest of it stays
    Store(2);
    return IDX_S_OK;
}

long int Builder::DrawGeometry(const Mesh& mesh) {
    if (mesh.points.empty() || mesh.triangles.empty()) {
        SetDepthAndBox(0, {}, {});
        return Pack();
    }
    Triple low = {1e9f, 1e9f, 1e9f};
    Triple high = {-1e9f, -1e9f, -1e9f};
    for (const IDX_Triangle& triangle : mesh.triangles) {
        for (const unsigned int index : triangle.vertices) {
            if (index >= mesh.points.size())
                return tree.Fail("PLMIdxOctreeBuilder.DrawGeometry.IncorrectPoint");
            const auto p = std::bit_cast<Triple>(mesh.points[index]);
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
    float v = longest * 0.25f;
    int d = 2;
    for (; d < maxDepth && v > voxelSize; ++d) v *= 0.5f;
    const float m = v * 0.05f;
    for (std::size_t a = 0; a < 3; ++a) {
        const float grow = (longest - extent[a]) * 0.5f;
        low[a] = (low[a] - grow) - m;
        high[a] = (high[a] + grow) + m;
        extent[a] = high[a] - low[a];
    }
    SetDepthAndBox(d, low, extent);
    for (; d >= 2; --d) {
        tree.depth = static_cast<unsigned int>(d);
        (void)tree.Reset();
        if (DrawTriangles(mesh) >= 0) return FillAndPack();
    }
    return IDX_E_FAIL;
}

long int Builder::DrawTriangles(const Mesh& mesh) {
    if (tree.Reset() < 0)
        return tree.Fail("PLMIdxOctreeBuilder.DrawTriangles.PLMIdxWTWorkingOctree.Reset");
    std::size_t outside = 0;
    for (IDX_Triangle triangle : mesh.triangles) {
        for (unsigned int& v : triangle.vertices) v = handOn.empty() ? v : handOn[v];
        const long int result = DrawTriangle(std::bit_cast<Corners>(mesh.CornersOf(triangle)));
        if (result < 0) return tree.Fail("PLMIdxOctreeBuilder.DrawTriangles.DrawTriangle");
        outside += result == 1;
    }
    const std::string all = std::to_string(mesh.triangles.size());
    if (outside > 0)
        tree.trace.push_back(
            "PLMIdxOctreeBuilder.DrawTriangles - " + std::to_string(outside) + " / " + all +
            " triangles outside initial BB!!");
    return outside < mesh.triangles.size() ? 0 : 1;
}

// Inside and outside

bool Builder::False(const char* tag) {
    (void)tree.Fail(tag);
    return false;
}

long int Builder::FillAndPack() {
    if (!FillInside()) (void)tree.Fail("PLMIdxOctreeBuilder.DrawGeometry.PLMIdxOctreeFiller.Fill");
    return Pack();
}

bool Builder::FillInside() {
    if (tree.bytes == 0) return true;
    if (std::exchange(tree.filled, true)) return false;
    _links = {0, 1};
    if (!TagComponents(kRoot))
        return False("PLMIdxOctreeFiller._FillOctrees._TagConnectedComponents");
    for (bool changed = true; changed;) {
        changed = false;
        for (std::size_t i = _links.size() - 1; i >= 1; --i) {
            const int further = _links[static_cast<std::size_t>(_links[i])];
            if (further >= _links[i]) continue;
            _links[i] = further;
            changed = true;
        }
    }
    SetAsEmptyOrFull(kRoot);
    return true;
}

bool Builder::TagComponents(Cell cell) {
    for (Cell child = cell << 3; child < (cell + 1) << 3; ++child) {
        const State state = tree.Test(child);
        if (state == kSurface) continue;
        if (state == kPartial) {
            if (TagComponents(child)) continue;
            return False("PLMIdxOctreeFiller._FillOctrees._TagConnectedComponents.Recursive");
        }
        if (tree.Tag(child) == 0 && IsOnBorder(child)) tree.Tag(child) = 1;
        if (!Propagate(child))
            return False("PLMIdxOctreeFiller._FillOctrees._TagConnectedComponents._Propagate");
    }
    return true;
}

bool Builder::Propagate(Cell cell) {
    _slots.clear();
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const Cell beside = Beside(cell, axis);
        unsigned int level = 1;
        while (level < Level(cell) && tree.Test(Ancestor(beside, level)) == kPartial) ++level;
        GatherFace(axis, Ancestor(beside, level));
    }
    std::uint16_t w = tree.Tag(cell);
    for (const std::uint16_t* slot : _slots) {
        const std::uint16_t t = *slot;
        if (t == 0 || t == w) continue;
        if (w == 0) w = t;
        if (t > w) _links[t] = w;
        if (t < w) {
            _links[w] = t;
            w = t;
        }
    }
    if (w == 0) {
        if (_links.size() - 1 >= 65535)
            return False("PLMIdxOctreeFiller._Propagate. Too Many Tags !");
        w = static_cast<std::uint16_t>(_links.size());
        _links.push_back(w);
    }
    tree.Tag(cell) = w;
    for (std::uint16_t* slot : _slots) *slot = w;
    return true;
}

void Builder::GatherFace(unsigned int axis, Cell cell) {
    const State state = tree.Test(cell);
    if (state == kEmpty || state == kFull) _slots.push_back(&tree.Tag(cell));
    if (state != kPartial) return;
    for (Cell c = 0; c < 8; ++c)
        if ((c >> axis & 1) == 0) GatherFace(axis, cell << 3 | c);
}

void Builder::SetAsEmptyOrFull(Cell cell) {
    for (Cell child = cell << 3; child < (cell + 1) << 3; ++child) {
        const State state = tree.Test(child);
        if (state == kPartial) SetAsEmptyOrFull(child);
        if (state == kPartial || state == kSurface) continue;
        const std::uint16_t tag = tree.Tag(child);
        if (tag != 0 && _links[tag] != 1) tree.Fill(child, kFull);
    }
}

// The stored image

long int Builder::Pack() {
    _records.assign(tree.depth == 0 ? 0 : 8, 0);
    long int status = IDX_S_OK;
    if (tree.depth != 0) status = tree.bytes == 0 ? IDX_E_FAIL : PackBelow(kRoot, 0);
    _stored = cuboid;
    Store(tree.depth);
    return status;
}

long int Builder::PackBelow(Cell cell, std::size_t record) {
    const unsigned int r = tree.depth - Level(cell);
    State states[8];
    unsigned int word = 0;
    unsigned int partial = 0;
    for (unsigned int k = 0; k < 8; ++k) {
        states[k] = tree.Test(cell << 3 | k);
        word |= states[k] << 2 * k;
        partial += states[k] == kPartial;
    }
    auto next = static_cast<std::uint32_t>(partial > 0 ? _records.size() : 0);
    if (r >= 3) {
        _records[record] = static_cast<unsigned char>(word);
        _records[record + 1] = static_cast<unsigned char>(word >> 8);
        if (_records.size() + 8 * partial > _block) {
            (void)tree.Fail("PLMIdxWTOptimOctree_0._Alloc.MaxSize");
            const std::string kind = r == 3 ? "NodeSetOptim" : "NodeOptim";
            const std::string tag = "PLMIdxWTOptimOctree_0._SubConstructFrom._AllocOptim(";
            return tree.Fail((tag + kind + ")").c_str());
        }
        std::memcpy(&_records[record + 4], &next, 4);
        _records.resize(_records.size() + 8 * partial);
    }
    for (unsigned int k = 0; k < 8; ++k) {
        const bool solid = states[k] == kFull || states[k] == kSurface;
        if (solid && r == 1) _records[record] |= static_cast<unsigned char>(1u << k);
        if (solid && r == 2) _records[record + k] = 255;
        if (states[k] != kPartial) continue;
        if (PackBelow(cell << 3 | k, r == 2 ? record + k : next) < 0) return IDX_E_FAIL;
        next += 8;
    }
    return IDX_S_OK;
}

void Builder::Store(unsigned int depth) {
    image.assign(132, 0);
    const auto put = [this](std::size_t offset, const auto& value) {
        std::memcpy(&image[offset], &value, sizeof value);
    };
    put(0, 2u);  // kind
    put(4, 1u);  // version
    put(8, depth);
    put(12, tree.origin);
    put(24, tree.size);
    put(36, _stored.isThere);
    put(40, _stored.matrix);
    put(104, _stored.points);
    put(128, static_cast<std::uint32_t>(_records.size()));
    image.insert(image.end(), _records.begin(), _records.end());
}

}  // namespace reference
