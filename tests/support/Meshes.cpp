#include "Meshes.h"

std::array<IDX_Point, 3> Mesh::CornersOf(const IDX_Triangle& triangle) const {
    const unsigned int* v = triangle.vertices;
    return {points[v[0]], points[v[1]], points[v[2]]};
}

void Mesh::AddFace(unsigned int a, unsigned int b, unsigned int c) {
    IDX_Triangle face;
    face.vertices[0] = a;
    face.vertices[1] = b;
    face.vertices[2] = c;
    triangles.push_back(face);
}

void Mesh::AddTriangle(IDX_Point a, IDX_Point b, IDX_Point c) {
    const auto first = static_cast<unsigned int>(points.size());
    points.insert(points.end(), {a, b, c});
    AddFace(first, first + 1, first + 2);
}

std::uint32_t Random::Read(int bytes) {
    std::uint32_t number = 0;
    for (; bytes > 0; --bytes) number = number << 8 | (_next == _end ? 0u : *_next++);
    return number;
}

unsigned int Random::Below(unsigned int limit) {
    if (_reads) return Read(limit <= 256 ? 1 : 4) % limit;
    return static_cast<unsigned int>(_engine() % limit);
}

float Random::Between(double low, double high) {
    const double fraction =
        _reads ? Read(2) / 65535.0 : static_cast<double>(_engine() >> 11) * 0x1p-53;
    return static_cast<float>(low + (high - low) * fraction);
}

IDX_Point Random::PointIn(double low, double high) {
    const float x = Between(low, high);
    const float y = Between(low, high);
    return {x, y, Between(low, high)};
}

Mesh BoxMesh(IDX_Point low, IDX_Point high, unsigned int openFaces) {
    // Corners as bits of X, Y and Z; round a face along its axis.
    static constexpr unsigned int kFaces[6][4] = {
        {0, 2, 6, 4},
        {1, 3, 7, 5},
        {0, 1, 5, 4},
        {2, 3, 7, 6},
        {0, 1, 3, 2},
        {4, 5, 7, 6}
    };
    Mesh mesh;
    for (unsigned int c = 0; c < 8; ++c)
        mesh.points.push_back(
            {c & 1 ? high.x : low.x, c & 2 ? high.y : low.y, c & 4 ? high.z : low.z});
    for (unsigned int face = 0; face < 6; ++face) {
        if (openFaces >> face & 1) continue;
        const auto& c = kFaces[face];
        mesh.AddFace(c[0], c[1], c[2]);
        mesh.AddFace(c[0], c[2], c[3]);
    }
    return mesh;
}

Mesh CellMesh(int side, const Cells& isWall) {
    Mesh mesh;
    for (int i = 0; i < side * side * side; ++i) {
        const int x = i % side;
        const int y = i / side % side;
        const int z = i / side / side;
        if (!isWall(x, y, z)) continue;
        const IDX_Point p = {static_cast<float>(x), static_cast<float>(y), static_cast<float>(z)};
        mesh.AddTriangle(p, p, p);
    }
    return mesh;
}
