#include "ReferenceBuilder.h"

#include "ExactOverlap.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace reference {

namespace {

constexpr float kMinVoxelSize = 0.001f;
constexpr double kSmallAndFar = 1.0 / 1000000;
const char* const kFillFailed = "PLMIdxOctreeBuilder.DrawGeometry.PLMIdxOctreeFiller.Fill";

using Triple = std::array<float, 3>;

Triple ToTriple(const IDX_Point& p) {
    return {p.x, p.y, p.z};
}

IDX_Point ToPoint(const Triple& t) {
    return {t[0], t[1], t[2]};
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

// Places

Place Place::Child(unsigned int child) const {
    Place place{level + 1, at};
    for (unsigned int a = 0; a < 3; ++a) place.at[a] = at[a] << 1 | (child >> a & 1);
    return place;
}

Place Place::Ancestor(unsigned int ofLevel) const {
    Place place{ofLevel, at};
    for (std::uint32_t& coordinate : place.at) coordinate >>= level - ofLevel;
    return place;
}

unsigned int Place::LastStep() const {
    return (at[0] & 1) | (at[1] & 1) << 1 | (at[2] & 1) << 2;
}

std::uint64_t Place::Key() const {
    std::uint64_t key = level;
    for (const std::uint32_t coordinate : at) key = key << 19 | coordinate;
    return key;
}

// The tree

std::uint16_t Tree::Word(const Place& parent) const {
    const auto found = states.find(parent.Key());
    return found == states.end() ? std::uint16_t{0} : found->second;
}

State Tree::Test(const Place& cell) const {
    if (depth == 0) return kEmpty;
    if (cell.level == depth - 1) {
        const std::uint16_t word = Word(cell);
        return word == 0xAAAA ? kFull : word == 0 ? kEmpty : kPartial;
    }
    return static_cast<State>(Word(cell.Ancestor(cell.level - 1)) >> 2 * cell.LastStep() & 3);
}

void Tree::Fill(const Place& cell, State state) {
    if (cell.level == depth - 1) {
        states[cell.Key()] = state == kFull ? 0xAAAA : 0;
        return;
    }
    std::uint16_t& word = states[cell.Ancestor(cell.level - 1).Key()];
    const unsigned int shift = 2 * cell.LastStep();
    word = static_cast<std::uint16_t>((word & ~(3u << shift)) | state << shift);
}

long int Tree::Alloc(unsigned int wanted) {
    if (bytes + wanted > arena) {
        trace->emplace_back("PLMIdxWTWorkingOctree._Alloc.MaxSize");
        return IDX_E_FAIL;
    }
    bytes += wanted;
    return IDX_S_OK;
}

long int Tree::MoveCreate(const Place& cell) {
    const State before = Test(cell);
    const unsigned int r = depth - cell.level + 1;
    if (r >= 3 && before == kPartial) return IDX_S_OK;
    if (r >= 3 && Alloc(r == 3 ? 160 : 52) != IDX_S_OK) return IDX_E_OUT_OF_MEMORY;
    if (r >= 3 || before == kEmpty) ++counts[cell.level];
    if (r == 1) Fill(cell, kSurface);
    if (r >= 3) Fill(cell, static_cast<State>(before | kPartial));
    return IDX_S_OK;
}

std::uint16_t& Tree::Tag(const Place& cell) {
    return tags[(cell.level == depth - 1 ? cell.Child(0) : cell).Key()];
}

long int Tree::Reset() {
    states.clear();
    tags.clear();
    counts = {};
    bytes = 0;
    if (depth == 0) return IDX_S_OK;
    if (depth == 1) return IDX_E_FAIL;
    ++counts[0];
    return Alloc(depth == 2 ? 160 : 52);
}

long int Tree::CopyBelow(const Tree& source, const Place& cell) {
    if (cell.level == depth) return IDX_S_OK;
    for (unsigned int c = 0; c < 8; ++c) {
        const Place child = cell.Child(c);
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

Builder::Builder(std::uint64_t arena, float epsilon) : _epsilon(epsilon) {
    tree.arena = arena;
    tree.trace = &trace;
    PutHeader(0);
}

long int Builder::Fail(const char* tag) {
    trace.emplace_back(tag);
    return IDX_E_FAIL;
}

void Builder::SetDepthAndBox(int depth, IDX_Point origin, IDX_Point size) {
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

long int Builder::Init(IDX_Point low, IDX_Point high) {
    _drawn = 0;
    _smallAndFar = false;
    Triple l = ToTriple(low);
    Triple h = ToTriple(high);
    double pad = 0;
    for (std::size_t a = 0; a < 3; ++a) {
        const double from = l[a];
        const double to = h[a];
        const double s = to + from;
        if (!(std::fabs(s) > kSmallAndFar && kSmallAndFar > std::fabs((from - to) / s))) continue;
        _smallAndFar = true;
        const double wanted = std::fabs(to * kSmallAndFar + from * kSmallAndFar);
        pad = std::max(pad, 0.5 * std::fabs(wanted - (to - from)));
    }
    for (std::size_t a = 0; a < 3; ++a) {
        l[a] = static_cast<float>(double{l[a]} - pad);
        h[a] = static_cast<float>(double{h[a]} + pad);
    }
    const Triple extent = {h[0] - l[0], h[1] - l[1], h[2] - l[2]};
    if (_smallAndFar) {
        output += "small and far object\n";
        tree.origin = ToPoint(l);
        tree.size = ToPoint(extent);
        (void)tree.Reset();
        return IDX_S_OK;
    }
    if (const long int status = tree.Reset(); status < 0) {
        trace.emplace_back("PLMIdxOctreeBuilder.DrawTriangles.PLMIdxWTWorkingOctree.Reset");
        return status;
    }
    const float m = extent[0] * _epsilon;
    const float m2 = 2 * m;
    SetDepthAndBox(
        StreamDepth(extent[0]), {l[0] - m, l[1] - m, l[2] - m},
        {extent[0] + m2, extent[1] + m2, extent[2] + m2});
    cuboid = {};
    return IDX_S_OK;
}

long int Builder::DrawTriangle(const IDX_Point& p1, const IDX_Point& p2, const IDX_Point& p3) {
    _drawn += _smallAndFar;
    if (_smallAndFar) return IDX_S_OK;
    float triangle[3][3];
    std::uint32_t codes[3][3];
    Triple low = ToTriple(tree.origin);
    Triple extent = ToTriple(tree.size);
    const Triple vertices[3] = {ToTriple(p1), ToTriple(p2), ToTriple(p3)};
    for (std::size_t v = 0; v < 3; ++v) {
        for (std::size_t a = 0; a < 3; ++a) {
            triangle[v][a] = vertices[v][a];
            codes[v][a] = Code(triangle[v][a], low[a], extent[a]);
        }
    }
    Place cell;
    while (cell.level < tree.depth) {
        unsigned int numbers[3];
        for (int v = 0; v < 3; ++v)
            numbers[v] = codes[v][0] >> 31 | codes[v][1] >> 31 << 1 | codes[v][2] >> 31 << 2;
        if (numbers[0] != numbers[1] || numbers[1] != numbers[2]) break;
        cell = cell.Child(numbers[0]);
        if (tree.Test(cell) == kFull) return IDX_S_OK;
        if (tree.MoveCreate(cell) < 0)
            return Fail("PLMIdxOctreeBuilder.DrawTriangle.PLMIdxWorkingOctree.MoveCreate");
        for (auto& vertex : codes)
            for (std::uint32_t& code : vertex) code <<= 1;
        for (std::size_t a = 0; a < 3; ++a) {
            extent[a] = extent[a] * 0.5f;
            if (numbers[0] >> a & 1) low[a] = low[a] + extent[a];
        }
    }
    if (cell.level == tree.depth) return IDX_S_OK;
    float half[3];
    float centre[3];
    for (std::size_t a = 0; a < 3; ++a) {
        half[a] = extent[a] * 0.5f;
        centre[a] = low[a] + half[a];
    }
    long int result = DrawBelow(cell, centre, half, triangle, 1.0f);
    if (result < 0)
        return Fail("PLMIdxOctreeBuilder.DrawTriangle.PLMIdxWorkingOctree.DrawTriangle2");
    if (result == 1) {
        result = DrawBelow(cell, centre, half, triangle, 1.0001f);
        if (result < 0)
            return Fail(
                "PLMIdxOctreeBuilder.DrawTriangle.PLMIdxWorkingOctree.DrawTriangle2 - Second "
                "attempt");
    }
    if (result == 0) ++_drawn;
    return result;
}

long int Builder::DrawBelow(
    const Place& cell,
    const float centre[3],
    const float half[3],
    const float triangle[3][3],
    float factor) {
    float h[3];
    float t[3];
    bool reached[3][2];
    for (std::size_t a = 0; a < 3; ++a) {
        h[a] = half[a] * 0.5f;
        t[a] = h[a] * factor;
        const auto [low, high] = std::minmax({triangle[0][a], triangle[1][a], triangle[2][a]});
        reached[a][0] = !(low > centre[a]);
        reached[a][1] = !(centre[a] > high);
    }
    int candidates = 0;
    int misses = 0;
    for (unsigned int c = 0; c < 8; ++c) {
        if (!reached[0][c & 1] || !reached[1][c >> 1 & 1] || !reached[2][c >> 2]) continue;
        ++candidates;
        const Place child = cell.Child(c);
        if (tree.Test(child) == kFull) continue;
        float childCentre[3];
        for (std::size_t a = 0; a < 3; ++a)
            childCentre[a] = c >> a & 1 ? centre[a] + h[a] : centre[a] - h[a];
        if (!Overlap(childCentre, t, triangle)) {
            ++misses;
            continue;
        }
        if (tree.MoveCreate(child) < 0) return IDX_E_FAIL;
        if (child.level == tree.depth) continue;
        const long int below = DrawBelow(child, childCentre, h, triangle, factor);
        if (below < 0) return IDX_E_FAIL;
        misses += below == 1;
    }
    return misses >= candidates ? 1 : 0;
}

long int Builder::ReduceDepth() {
    if (tree.depth < 3) return IDX_E_FAIL;
    const Tree old = tree;
    tree.depth = old.depth - 1;
    (void)tree.Reset();
    return tree.CopyBelow(old, Place{});
}

long int Builder::End() {
    if (_drawn == 0) {
        SetDepthAndBox(0, {0, 0, 0}, {0, 0, 0});
        Pack();
        return IDX_S_OK;
    }
    if (!_smallAndFar) return FillAndPack();
    _storedOrigin = tree.origin;
    _storedSize = tree.size;
    _storedCuboid.set = 0;
    _records.assign(8, 255);
    PutHeader(2);
    return IDX_S_OK;
}

long int Builder::DrawGeometry(const Mesh& mesh) {
    if (mesh.points.empty() || mesh.triangles.empty()) {
        SetDepthAndBox(0, {0, 0, 0}, {0, 0, 0});
        Pack();
        return IDX_S_OK;
    }
    Triple low = {1e9f, 1e9f, 1e9f};
    Triple high = {-1e9f, -1e9f, -1e9f};
    for (const IDX_Triangle& triangle : mesh.triangles) {
        for (const unsigned int index : triangle.vertices) {
            if (index >= mesh.points.size())
                return Fail("PLMIdxOctreeBuilder.DrawGeometry.IncorrectPoint");
            const Triple p = ToTriple(mesh.points[index]);
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
    }
    SetDepthAndBox(d, ToPoint(low), {high[0] - low[0], high[1] - low[1], high[2] - low[2]});
    for (;; --d) {
        if (d < 2) return IDX_E_FAIL;
        tree.depth = static_cast<unsigned int>(d);
        (void)tree.Reset();
        if (DrawTriangles(mesh) >= 0) return FillAndPack();
    }
}

long int Builder::DrawTriangles(const Mesh& mesh) {
    if (const long int status = tree.Reset(); status < 0) {
        trace.emplace_back("PLMIdxOctreeBuilder.DrawTriangles.PLMIdxWTWorkingOctree.Reset");
        return status;
    }
    std::size_t outside = 0;
    for (const IDX_Triangle& t : mesh.triangles) {
        const auto corner = [&](int v) { return mesh.points[t.vertices[v]]; };
        const long int result = DrawTriangle(corner(0), corner(1), corner(2));
        if (result < 0) return Fail("PLMIdxOctreeBuilder.DrawTriangles.DrawTriangle");
        outside += result == 1;
    }
    const std::string all = std::to_string(mesh.triangles.size());
    if (outside > 0)
        trace.push_back(
            "PLMIdxOctreeBuilder.DrawTriangles - " + std::to_string(outside) + " / " + all +
            " triangles outside initial BB!!");
    return outside < mesh.triangles.size() ? 0 : 1;
}

// Inside and outside

long int Builder::FillAndPack() {
    if (!FillInside()) (void)Fail(kFillFailed);
    Pack();
    return IDX_S_OK;
}

bool Builder::FillInside() {
    _links = {0, 1};
    if (!TagComponents(Place{})) {
        (void)Fail("PLMIdxOctreeFiller._FillOctrees._TagConnectedComponents");
        return false;
    }
    for (bool changed = true; changed;) {
        changed = false;
        for (std::size_t i = _links.size() - 1; i >= 1; --i) {
            const int further = _links[static_cast<std::size_t>(_links[i])];
            if (further >= _links[i]) continue;
            _links[i] = further;
            changed = true;
        }
    }
    SetAsEmptyOrFull(Place{});
    return true;
}

bool Builder::TagComponents(const Place& cell) {
    for (unsigned int c = 0; c < 8; ++c) {
        const Place child = cell.Child(c);
        const State state = tree.Test(child);
        if (state == kSurface) continue;
        if (state == kPartial) {
            if (TagComponents(child)) continue;
            (void)Fail("PLMIdxOctreeFiller._FillOctrees._TagConnectedComponents.Recursive");
            return false;
        }
        const std::uint32_t last = (1u << child.level) - 1;
        const bool onBorder = std::any_of(
            child.at.begin(), child.at.end(), [last](auto x) { return x == 0 || x == last; });
        if (tree.Tag(child) == 0 && onBorder) tree.Tag(child) = 1;
        if (Propagate(child)) continue;
        (void)Fail("PLMIdxOctreeFiller._FillOctrees._TagConnectedComponents._Propagate");
        return false;
    }
    return true;
}

bool Builder::Propagate(const Place& cell) {
    std::vector<std::uint16_t*> slots;
    for (unsigned int axis = 0; axis < 3; ++axis) {
        Place beside = cell;  // the high side of the box meets its low side
        beside.at[axis] = (beside.at[axis] + 1) & ((1u << cell.level) - 1);
        unsigned int level = 1;
        while (level < cell.level && tree.Test(beside.Ancestor(level)) == kPartial) ++level;
        GatherFace(axis, beside.Ancestor(level), slots);
    }
    std::uint16_t& own = tree.Tag(cell);
    std::uint16_t w = own;
    for (const std::uint16_t* slot : slots) {
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
        if (_links.size() - 1 >= 65535) {
            (void)Fail("PLMIdxOctreeFiller._Propagate. Too Many Tags !");
            return false;
        }
        w = static_cast<std::uint16_t>(_links.size());
        _links.push_back(w);
    }
    own = w;
    for (std::uint16_t* slot : slots) *slot = w;
    return true;
}

void Builder::GatherFace(unsigned int axis, const Place& cell, std::vector<std::uint16_t*>& slots) {
    const State state = tree.Test(cell);
    if (state == kEmpty || state == kFull) slots.push_back(&tree.Tag(cell));
    if (state != kPartial) return;
    for (unsigned int c = 0; c < 8; ++c)
        if ((c >> axis & 1) == 0) GatherFace(axis, cell.Child(c), slots);
}

void Builder::SetAsEmptyOrFull(const Place& cell) {
    for (unsigned int c = 0; c < 8; ++c) {
        const Place child = cell.Child(c);
        const State state = tree.Test(child);
        if (state == kPartial) SetAsEmptyOrFull(child);
        if (state == kPartial || state == kSurface) continue;
        const std::uint16_t tag = tree.Tag(child);
        if (tag != 0 && _links[tag] != 1) tree.Fill(child, kFull);
    }
}

// The stored image

void Builder::Pack() {
    _storedOrigin = tree.origin;
    _storedSize = tree.size;
    _storedCuboid = cuboid;
    _records.assign(tree.depth == 0 ? 0 : 8, 0);
    if (tree.depth != 0) PackBelow(Place{}, 0);
    PutHeader(tree.depth);
}

void Builder::PackBelow(const Place& cell, std::size_t record) {
    const unsigned int r = tree.depth - cell.level;
    State states[8];
    unsigned int word = 0;
    std::uint32_t partial = 0;
    for (unsigned int k = 0; k < 8; ++k) {
        states[k] = tree.Test(cell.Child(k));
        word |= states[k] << 2 * k;
        partial += states[k] == kPartial;
    }
    auto next = static_cast<std::uint32_t>(_records.size());
    if (r >= 3) {
        if (partial == 0) next = 0;
        _records[record] = static_cast<unsigned char>(word);
        _records[record + 1] = static_cast<unsigned char>(word >> 8);
        std::memcpy(&_records[record + 4], &next, 4);
        _records.resize(_records.size() + 8 * partial);
    }
    for (unsigned int k = 0; k < 8; ++k) {
        const bool solid = states[k] == kFull || states[k] == kSurface;
        if (solid && r == 1) _records[record] |= static_cast<unsigned char>(1u << k);
        if (solid && r == 2) _records[record + k] = 255;
        if (states[k] != kPartial) continue;
        PackBelow(cell.Child(k), r == 2 ? record + k : next);
        next += 8;
    }
}

void Builder::PutHeader(unsigned int depth) {
    constexpr std::size_t kHeaderSize = 132;
    image.assign(kHeaderSize, 0);
    const auto put = [this](std::size_t offset, const auto& value) {
        std::memcpy(&image[offset], &value, sizeof value);
    };
    put(0, 2u);  // kind
    put(4, 1u);  // version
    put(8, depth);
    put(12, _storedOrigin);
    put(24, _storedSize);
    put(36, _storedCuboid.set);
    put(40, _storedCuboid.matrix);
    put(104, _storedCuboid.points);
    put(128, static_cast<std::uint32_t>(_records.size()));
    image.insert(image.end(), _records.begin(), _records.end());
}

}  // namespace reference
