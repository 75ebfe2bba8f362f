#include "Meshes.h"

#include <cmath>
#include <limits>

void Mesh::AddFace(unsigned int a, unsigned int b, unsigned int c) {
    IDX_Triangle face;
    face.vertices[0] = a;
    face.vertices[1] = b;
    face.vertices[2] = c;
    triangles.push_back(face);
}

void Mesh::AddQuad(unsigned int a, unsigned int b, unsigned int c, unsigned int d) {
    AddFace(a, b, c);
    AddFace(a, c, d);
}

std::array<IDX_Point, 3> Mesh::CornersOf(const IDX_Triangle& triangle) const {
    const unsigned int* v = triangle.vertices;
    return {points[v[0]], points[v[1]], points[v[2]]};
}

void Mesh::Add(const Mesh& other) {
    const auto first = static_cast<unsigned int>(points.size());
    points.insert(points.end(), other.points.begin(), other.points.end());
    for (const auto& [v] : other.triangles) AddFace(first + v[0], first + v[1], first + v[2]);
}

unsigned int Random::Below(unsigned int limit) {
    return static_cast<unsigned int>(_engine() % limit);
}

float Random::Between(double low, double high) {
    const double fraction = static_cast<double>(_engine() >> 11) * 0x1p-53;
    return static_cast<float>(low + (high - low) * fraction);
}

IDX_Point Random::PointIn(double low, double high) {
    const float x = Between(low, high);
    const float y = Between(low, high);
    return {x, y, Between(low, high)};
}

Mesh BoxMesh(IDX_Point low, IDX_Point high, unsigned int openFaces) {
    // Corners as bits of X, Y and Z; round a face along its axis.
    static const char* const kFaces[] = {"0264", "1375", "0154", "2376", "0132", "4576"};
    Mesh mesh;
    for (unsigned int c = 0; c < 8; ++c)
        mesh.points.push_back(
            {c & 1 ? high.x : low.x, c & 2 ? high.y : low.y, c & 4 ? high.z : low.z});
    for (unsigned int face = 0; face < 6; ++face) {
        if (openFaces >> face & 1) continue;
        unsigned int c[4];
        for (int i = 0; i < 4; ++i) c[i] = static_cast<unsigned int>(kFaces[face][i] - '0');
        mesh.AddQuad(c[0], c[1], c[2], c[3]);
    }
    return mesh;
}

Mesh GridMesh(
    unsigned int rows,
    unsigned int columns,
    const std::function<IDX_Point(double u, double v)>& pointAt) {
    Mesh mesh;
    for (unsigned int i = 0; i <= rows; ++i) {
        for (unsigned int j = 0; j <= columns; ++j) {
            const unsigned int a = i * (columns + 1) + j;
            mesh.points.push_back(pointAt(double(i) / rows, double(j) / columns));
            if (i < rows && j < columns) mesh.AddQuad(a, a + 1, a + columns + 2, a + columns + 1);
        }
    }
    return mesh;
}

Mesh SphereMesh(IDX_Point centre, float radius, unsigned int rings) {
    return GridMesh(rings, 2 * rings, [=](double u, double v) {
        const double out = radius * std::sin(M_PI * u);
        const double round = v < 1 ? 2 * M_PI * v : 0;  // the last column is the first
        return IDX_Point{
            static_cast<float>(centre.x + out * std::cos(round)),
            static_cast<float>(centre.y + out * std::sin(round)),
            static_cast<float>(centre.z + radius * std::cos(M_PI * u))};
    });
}

Mesh CellMesh(int side, const Cells& isWall) {
    Mesh mesh;
    for (int i = 0; i < side * side * side; ++i) {
        const int x = i % side;
        const int y = i / side % side;
        const int z = i / side / side;
        if (!isWall(x, y, z)) continue;
        const auto index = static_cast<unsigned int>(mesh.points.size());
        mesh.points.push_back(
            {static_cast<float>(x), static_cast<float>(y), static_cast<float>(z)});
        mesh.AddFace(index, index, index);
    }
    return mesh;
}

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
        mesh.points.insert(
            mesh.points.end(), {a, b, Moved(b, random.PointIn(-thickness, thickness))});
        mesh.AddFace(3 * i, 3 * i + 1, 3 * i + 2);
    }
    return mesh;
}

/// A height field over the square from -1 to 1.
Mesh Sheet(Random& random, unsigned int size, double height) {
    const auto n = static_cast<unsigned int>(std::sqrt(size / 2.0)) + 1;
    return GridMesh(n, n, [&](double u, double v) {
        return IDX_Point{
            static_cast<float>(2 * u - 1), static_cast<float>(2 * v - 1),
            random.Between(-height, height)};
    });
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
    const int side = size > 100 ? 8 : 16;
    return CellMesh(side, [&](int, int, int) { return random.Between(0, 1) < density; });
}

Mesh PlainMesh(Random& random, unsigned int size) {
    const auto rings = static_cast<unsigned int>(std::sqrt(size / 4.0)) + 2;
    const unsigned int kind = random.Below(8);
    if (kind == 0) return Soup(random, size, random.Between(0, 1), random.Between(0, 1));
    if (kind == 1) return Soup(random, size, random.Between(0, 2), 1e-6);
    if (kind == 2) return Sheet(random, size, random.OneIn(3) ? 0.0 : 0.3);
    if (kind == 3) return BoxMesh(random.PointIn(-1, 0), random.PointIn(0, 1), random.Below(64));
    if (kind == 4) return SphereMesh({0, 0, 0}, 1, rings);
    if (kind == 5) return Lattice(random, size);
    if (kind == 6) return Sponge(random, size);
    Mesh nested = BoxMesh(random.PointIn(-1, -0.6), random.PointIn(0.6, 1));
    nested.Add(SphereMesh(random.PointIn(-0.1, 0.1), random.Between(0.2, 0.5), rings));
    return nested;
}

float HostileNumber(Random& random) {
    static constexpr float kInf = std::numeric_limits<float>::infinity();
    static constexpr float kNumbers[] = {kInf,    -kInf, std::numeric_limits<float>::quiet_NaN(),
                                         3.4e38f, 1e9f,  -3e9f,
                                         1e-45f,  -0.0f, 1e30f};
    return kNumbers[random.Below(9)];
}

}  // namespace

Mesh RandomMesh(Random& random, unsigned int size, bool hostile) {
    Mesh mesh = PlainMesh(random, size);
    if (random.OneIn(2)) {
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
    const auto nPoints = static_cast<unsigned int>(mesh.points.size());
    for (unsigned int i = random.Below(4); i > 0 && !mesh.triangles.empty(); --i) {
        const auto t = random.Below(static_cast<unsigned int>(mesh.triangles.size()));
        mesh.triangles.push_back(mesh.triangles[t]);
        mesh.AddFace(random.Below(nPoints), 0, 0);
    }
    for (unsigned int i = hostile ? 1 + random.Below(3) : 0; i > 0; --i) {
        IDX_Point& p = mesh.points[random.Below(nPoints)];
        float* const coordinates[3] = {&p.x, &p.y, &p.z};
        *coordinates[random.Below(3)] = HostileNumber(random);
    }
    return mesh;
}
