#include "BuilderPair.h"

#include <algorithm>
#include <bit>
#include <cmath>

void BuilderPair::SetParameters(int maxDepth, float voxelSize, IDX_Bool useVoxelSize) {
    library.SetParameters(maxDepth, voxelSize, useVoxelSize);
    _reference.maxDepth = maxDepth;
    _reference.voxelSize = voxelSize;
}

void BuilderPair::Init(IDX_Point low, IDX_Point high) {
    const long int status = library.Init(low, high);
    _reference.Init(static_cast<unsigned int>(library.GetDepth()), low, high);
    Compare(status, [] { return IDX_S_OK; });
}

void BuilderPair::DrawTriangle(const std::array<IDX_Point, 3>& p) {
    Compare(library.DrawTriangle(p[0], p[1], p[2]), [&] {
        return _reference.DrawTriangle(std::bit_cast<Corners>(p));
    });
}

void BuilderPair::DrawTriangles(const Mesh& mesh) {
    const long int status = library.DrawTriangles(
        mesh.points.data(), static_cast<unsigned int>(mesh.points.size()), mesh.triangles.data(),
        static_cast<unsigned int>(mesh.triangles.size()));
    Compare(status, [&] { return _reference.DrawTriangles(mesh); });
}

void BuilderPair::ReduceDepth() {
    Compare(library.ReduceDepth(), [&] { return _reference.ReduceDepth(); });
}

void BuilderPair::End() {
    Compare(library.End(), [&] { return _reference.End(); });
}

void BuilderPair::DrawGeometry(const Mesh& mesh) {
    Compare(Draw(library, mesh), [&] { return _reference.DrawGeometry(mesh); });
}

void BuilderPair::Differ(bool differs, const std::string& what) {
    if (differs && difference.empty()) difference = what;
}

void BuilderPair::Compare(long int ofLibrary, const std::function<long int()>& callReference) {
    (void)_trace.Take();
    long int ofReference = IDX_E_FAIL;
    try {
        ofReference = callReference();
    } catch (const reference::Failure&) {
        // Then the library fails, too.
    }
    const std::string each = std::to_string(ofLibrary) + " and " + std::to_string(ofReference);
    Differ(ofLibrary != ofReference, "the status: " + each);
    Differ(library.GetDepth() != static_cast<int>(_reference.depth), "the depth");
    const auto& counts = _reference.counts;
    Differ(!std::equal(counts.begin(), counts.end(), library.GetNCellsByDepth()), "the counts");
    Differ(TakeQuestions() != 0, "the number of questions");
    const Bytes image = ImageOf(library);
    const auto& expected = _reference.image;
    const auto place =
        std::mismatch(image.begin(), image.end(), expected.begin(), expected.end()).first;
    Differ(image != expected, "the images from byte " + std::to_string(place - image.begin()));
}

// Random calls

namespace {

IDX_Point Moved(IDX_Point p, IDX_Point by) {
    return {p.x + by.x, p.y + by.y, p.z + by.z};
}

/// Triangles that reach up to `reach` from their first vertex.
Mesh Soup(Random& random, unsigned int size, double reach, double thickness) {
    Mesh mesh;
    for (unsigned int i = 0; i < size; ++i) {
        const IDX_Point a = random.PointIn(-1, 1);
        const IDX_Point b = Moved(a, random.PointIn(-reach, reach));
        mesh.AddTriangle(a, b, Moved(b, random.PointIn(-thickness, thickness)));
    }
    return mesh;
}

/// Vertices on a coarse lattice: many lie on the borders of cells, many triangles are degenerate.
Mesh Lattice(Random& random, unsigned int size) {
    const float steps = static_cast<float>(2u << random.Below(5));
    Mesh mesh = Soup(random, size, 0.7, 0.7);
    for (IDX_Point& p : mesh.points)
        for (float* c : {&p.x, &p.y, &p.z}) *c = std::nearbyint(*c * steps) / steps;
    return mesh;
}

/// Walls strewn over a grid: many components of empty cells, some of them joined late.
Mesh Sponge(Random& random, unsigned int size) {
    const float density = random.Between(0.3, 0.8);
    return CellMesh(size > 100 ? 8 : 16, [&](int x, int, int) {
        return x == 0 || random.Between(0, 1) < density;
    });
}

/// Closed tetrahedra in a box that may be open: surfaces with an inside, at any angle.
Mesh Nested(Random& random, unsigned int size) {
    Mesh mesh = BoxMesh(random.PointIn(-1, -0.6), random.PointIn(0.6, 1), random.Below(32));
    for (unsigned int i = 0; i < 1 + size / 40; ++i) {
        IDX_Point p[4];
        for (IDX_Point& corner : p) corner = random.PointIn(-0.9, 0.9);
        for (std::size_t c = 0; c < 4; ++c) mesh.AddTriangle(p[c], p[(c + 1) % 4], p[(c + 2) % 4]);
    }
    return mesh;
}

/// Few points, as whole numbers times one power of two, down to sub-normal ones, or with any bits, among them
/// numbers that aren't finite.
Mesh AnyNumbers(Random& random, unsigned int size) {
    const unsigned int kind = random.Below(3);
    const int exponent = random.OneIn(4) ? -149 + static_cast<int>(random.Below(256)) : -4;
    const auto number = [&] {
        if (kind == 0) return std::bit_cast<float>(random.Below(~0u));
        const int value = static_cast<int>(random.Below(kind == 1 ? 256 : 65536));
        return std::ldexp(static_cast<float>(value - (kind == 1 ? 128 : 32768)), exponent);
    };
    std::vector<IDX_Point> points(1 + random.Below(12));
    for (IDX_Point& p : points) p = {number(), number(), number()};
    const auto any = [&] { return points[random.Below(static_cast<unsigned int>(points.size()))]; };
    Mesh mesh;
    for (unsigned int i = 0; i < std::min(size, 8u); ++i) mesh.AddTriangle(any(), any(), any());
    return mesh;
}

/// Places a mesh elsewhere, near or far, in another size, down to sub-normal numbers.
void Place(Random& random, Mesh& mesh) {
    const float scale = std::pow(10.0f, random.Between(-3, 5));
    const float tiny = random.OneIn(8) ? 1e-38f : 1.0f;
    const IDX_Point stretch = random.PointIn(random.OneIn(4) ? 0 : 0.3, 1);
    const float far = random.OneIn(2) ? std::pow(10.0f, random.Between(0, 6)) : 0.0f;
    const IDX_Point offset = random.PointIn(-far, far);
    for (IDX_Point& p : mesh.points) {
        p = {p.x * stretch.x, p.y * stretch.y, p.z * stretch.z};
        for (float* c : {&p.x, &p.y, &p.z}) *c = *c * scale * tiny;
        p = Moved(p, offset);
    }
}

Mesh MeshForDepth(Random& random, int maxDepth) {
    // Fewer triangles at great depth, where each draws many cells.
    static constexpr unsigned int kTriangles[] = {1, 1, 200, 200, 120, 60, 30, 16};
    const unsigned int size = 1 + random.Below(kTriangles[maxDepth]);
    const unsigned int kind = random.Below(maxDepth < 6 ? 6 : 5);
    Mesh mesh = kind == 0   ? Soup(random, size, random.Between(0, 1), random.Between(0, 1))
                : kind == 1 ? Soup(random, size, random.Between(0, 2), 1e-6)
                : kind == 2 ? Lattice(random, size)
                : kind == 3 ? Sponge(random, size)
                : kind == 4 ? Nested(random, size)
                            : AnyNumbers(random, size);
    if (kind < 5 && random.OneIn(2)) Place(random, mesh);
    return mesh;
}

void Stream(Random& random, BuilderPair& pair, int maxDepth) {
    IDX_Point low = random.OneIn(3) ? random.PointIn(-2, 0) : IDX_Point{-1, -1, -1};
    IDX_Point high = random.OneIn(3) ? random.PointIn(0, 2) : IDX_Point{1, 1, 1};
    if (random.OneIn(12)) low.x = high.x = 0;
    pair.Init(low, high);
    // Several parts; a cut readies the tree for the next one.
    for (unsigned int parts = 1 + random.Below(3); parts > 0; --parts) {
        const Mesh mesh = MeshForDepth(random, maxDepth);
        if (random.OneIn(4)) pair.DrawTriangles(mesh);
        for (const IDX_Triangle& triangle : mesh.triangles) {
            pair.DrawTriangle(mesh.CornersOf(triangle));
            if (random.OneIn(60)) pair.ReduceDepth();
        }
        pair.End();
        if (random.OneIn(2)) pair.ReduceDepth();
    }
}

}  // namespace

std::string DifferenceOnRandomCalls(Random& random) {
    const unsigned int small = 212 + random.Below(1u << (6 + random.Below(11)));
    const ArenaSize arena(random.OneIn(2) ? small : arenaSize);
    boxMargin = random.OneIn(2) ? 0.001f : 0.0f;  // without one, vertices lie on cell borders
    // Other rules for what a triangle meets find far more cells.
    const OverlapRule rule = random.OneIn(4) ? kOverlapRules[random.Below(3)] : nullptr;
    BuilderPair pair(rule);
    for (unsigned int uses = 1 + random.Below(2); uses > 0; --uses) {
        const int maxDepth = 2 + static_cast<int>(random.Below(rule ? 3 : 6));
        const float side = random.OneIn(3) ? random.Between(0, 0.5) : 0.0f;
        pair.SetParameters(maxDepth, side, random.OneIn(2) ? IDX_True : IDX_False);
        if (random.OneIn(2)) {
            Stream(random, pair, maxDepth);
        } else {
            pair.DrawGeometry(MeshForDepth(random, maxDepth));
        }
    }
    return pair.difference;
}
