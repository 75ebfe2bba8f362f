#include "Mesh.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <fstream>
#include <numbers>
#include <stdexcept>
#include <unordered_map>

namespace {

// The workloads:
//   knot       torus knot (2, 3), a tube of 632 x 79 quads         99,856 triangles
//   sphere     1000 slices, 500 stacks                            998,000 triangles
//   gear       gear_spur.stl: large faces, many on cell borders     1,548 triangles
//   panel      panel_large.stl: flat, six shells                   83,750 triangles
//   armadillo  armadillo.off: a scan, small triangles of one size  52,000 triangles
// The last three are left out when the mesh folder doesn't have them.
constexpr unsigned int kKnotAlong = 632;
constexpr unsigned int kKnotAround = 79;
constexpr unsigned int kSphereSlices = 1000;
constexpr unsigned int kSphereStacks = 500;

struct NamedFile {
    const char* name;
    const char* file;
};
constexpr NamedFile kFiles[] = {
    {"gear",      "gear_spur.stl"  },
    {"panel",     "panel_large.stl"},
    {"armadillo", "armadillo.off"  },
};
const char* const kGenerated = "generated";

constexpr double kPi = std::numbers::pi;

using Vector = std::array<double, 3>;

Vector Cross(const Vector& iA, const Vector& iB) {
    return {
        iA[1] * iB[2] - iA[2] * iB[1], iA[2] * iB[0] - iA[0] * iB[2],
        iA[0] * iB[1] - iA[1] * iB[0]};
}

Vector Normalized(const Vector& iA) {
    const double length = std::sqrt(iA[0] * iA[0] + iA[1] * iA[1] + iA[2] * iA[2]);
    return {iA[0] / length, iA[1] / length, iA[2] / length};
}

IDX_Point ToPoint(const Vector& iA) {
    return {static_cast<float>(iA[0]), static_cast<float>(iA[1]), static_cast<float>(iA[2])};
}

Vector KnotCurve(double iT) {
    const double radius = 2.0 + std::cos(3.0 * iT);
    return {radius * std::cos(2.0 * iT), radius * std::sin(2.0 * iT), std::sin(3.0 * iT)};
}

/// Ring of the tube at parameter t, in the plane across the curve (Frenet's frame by differences).
void AppendKnotRing(double iT, std::vector<IDX_Point>& ioPoints) {
    constexpr double kTubeRadius = 0.36;
    constexpr double kStep = 1e-3;
    const Vector centre = KnotCurve(iT);
    const Vector ahead = KnotCurve(iT + kStep);
    const Vector behind = KnotCurve(iT - kStep);
    Vector tangent;
    Vector bend;
    for (size_t a = 0; a < 3; a++) {
        tangent[a] = ahead[a] - behind[a];
        bend[a] = (ahead[a] - centre[a]) - (centre[a] - behind[a]);
    }
    const Vector binormal = Normalized(Cross(tangent, bend));
    const Vector normal = Normalized(Cross(binormal, tangent));
    for (unsigned int j = 0; j < kKnotAround; j++) {
        const double angle = 2.0 * kPi * j / kKnotAround;
        Vector p;
        for (size_t a = 0; a < 3; a++) {
            p[a] = centre[a] +
                   kTubeRadius * (std::cos(angle) * normal[a] + std::sin(angle) * binormal[a]);
        }
        ioPoints.push_back(ToPoint(p));
    }
}

Mesh MakeTorusKnot() {
    Mesh mesh;
    for (unsigned int i = 0; i < kKnotAlong; i++) {
        AppendKnotRing(2.0 * kPi * i / kKnotAlong, mesh.points);
    }
    for (unsigned int i = 0; i < kKnotAlong; i++) {
        const unsigned int ring = i * kKnotAround;
        const unsigned int next = (i + 1) % kKnotAlong * kKnotAround;
        for (unsigned int j = 0; j < kKnotAround; j++) {
            const unsigned int k = (j + 1) % kKnotAround;
            mesh.triangles.push_back({
                {ring + j, ring + k, next + k}
            });
            mesh.triangles.push_back({
                {ring + j, next + k, next + j}
            });
        }
    }
    return mesh;
}

Mesh MakeSphere() {
    Mesh mesh;
    mesh.points.push_back({0.0f, 0.0f, -1.0f});
    for (unsigned int i = 1; i < kSphereStacks; i++) {
        const double latitude = kPi * i / kSphereStacks;
        for (unsigned int j = 0; j < kSphereSlices; j++) {
            const double longitude = 2.0 * kPi * j / kSphereSlices;
            const double radius = std::sin(latitude);
            mesh.points.push_back(ToPoint(
                {radius * std::cos(longitude), radius * std::sin(longitude), -std::cos(latitude)}));
        }
    }
    const unsigned int north = static_cast<unsigned int>(mesh.points.size());
    mesh.points.push_back({0.0f, 0.0f, 1.0f});
    for (unsigned int j = 0; j < kSphereSlices; j++) {
        const unsigned int k = (j + 1) % kSphereSlices;
        mesh.triangles.push_back({
            {0, 1 + k, 1 + j}
        });
        for (unsigned int i = 0; i + 2 < kSphereStacks; i++) {
            const unsigned int low = 1 + i * kSphereSlices;
            const unsigned int high = low + kSphereSlices;
            mesh.triangles.push_back({
                {low + j, low + k, high + k}
            });
            mesh.triangles.push_back({
                {low + j, high + k, high + j}
            });
        }
        const unsigned int last = north - kSphereSlices;
        mesh.triangles.push_back({
            {last + j, last + k, north}
        });
    }
    return mesh;
}

[[noreturn]] void Fail(const std::filesystem::path& iPath, const std::string& iReason) {
    throw std::runtime_error(iPath.string() + ": " + iReason);
}

std::ifstream OpenRead(const std::filesystem::path& iPath) {
    std::ifstream file(iPath, std::ios::binary);
    if (!file) Fail(iPath, "can't be opened");
    return file;
}

template <class T>
void ReadInto(std::istream& ioFile, const std::filesystem::path& iPath, T* oValues, size_t iCount) {
    ioFile.read(reinterpret_cast<char*>(oValues), static_cast<std::streamsize>(iCount * sizeof(T)));
    if (!ioFile) Fail(iPath, "is truncated");
}

/// Gives equal points one index.
class Welder {
public:
    explicit Welder(Mesh& ioMesh) : _mesh(ioMesh) {}

    unsigned int IndexOf(const IDX_Point& iPoint) {
        const std::string key(reinterpret_cast<const char*>(&iPoint), sizeof iPoint);
        const auto [place, isNew] =
            _indices.try_emplace(key, static_cast<unsigned int>(_mesh.points.size()));
        if (isNew) _mesh.points.push_back(iPoint);
        return place->second;
    }

private:
    Mesh& _mesh;
    std::unordered_map<std::string, unsigned int> _indices;
};

/// Binary STL: 80 bytes of text, a count, and 50 bytes for each facet.
Mesh ReadStl(const std::filesystem::path& iPath) {
    std::ifstream file = OpenRead(iPath);
    char text[80];
    unsigned int count = 0;
    ReadInto(file, iPath, text, sizeof text);
    ReadInto(file, iPath, &count, 1);
    if (std::filesystem::file_size(iPath) != 84 + 50ull * count) Fail(iPath, "isn't a binary STL");

    Mesh mesh;
    Welder welder(mesh);
    for (unsigned int t = 0; t < count; t++) {
        char facet[50];  // normal, three points, two bytes of attributes
        ReadInto(file, iPath, facet, sizeof facet);
        IDX_Triangle triangle;
        for (size_t k = 0; k < 3; k++) {
            IDX_Point point;
            std::memcpy(&point, facet + 12 + 12 * k, sizeof point);
            triangle.vertices[k] = welder.IndexOf(point);
        }
        mesh.triangles.push_back(triangle);
    }
    return mesh;
}

/// OFF of triangles alone.
Mesh ReadOff(const std::filesystem::path& iPath) {
    std::ifstream file = OpenRead(iPath);
    std::string magic;
    size_t nPoints = 0;
    size_t nFaces = 0;
    size_t nEdges = 0;
    if (!(file >> magic >> nPoints >> nFaces >> nEdges) || magic != "OFF")
        Fail(iPath, "isn't an OFF");

    Mesh mesh;
    for (IDX_Point p; mesh.points.size() < nPoints && file >> p.x >> p.y >> p.z;) {
        mesh.points.push_back(p);
    }
    unsigned int corners = 0;
    for (IDX_Triangle t; mesh.triangles.size() < nFaces &&
                         file >> corners >> t.vertices[0] >> t.vertices[1] >> t.vertices[2];) {
        if (corners != 3) Fail(iPath, "has a face that isn't a triangle");
        if (*std::max_element(t.vertices, t.vertices + 3) >= nPoints)
            Fail(iPath, "index out of range");
        mesh.triangles.push_back(t);
    }
    if (mesh.triangles.size() != nFaces) Fail(iPath, "is truncated");
    return mesh;
}

std::filesystem::path FindFile(const std::filesystem::path& iFolder, const char* iName) {
    if (iFolder.empty()) return {};
    for (const auto& entry : std::filesystem::recursive_directory_iterator(iFolder)) {
        if (entry.path().filename() == iName) return entry.path();
    }
    return {};
}

struct Bounds {
    float low;
    float high;
};

Bounds BoundsOf(const std::vector<IDX_Point>& iPoints, float IDX_Point::*iAxis) {
    const auto [low, high] = std::minmax_element(
        iPoints.begin(), iPoints.end(),
        [iAxis](const IDX_Point& iA, const IDX_Point& iB) { return iA.*iAxis < iB.*iAxis; });
    return {(*low).*iAxis, (*high).*iAxis};
}

}  // namespace

GridBox CubeAround(const Mesh& iMesh, unsigned int iDepth) {
    constexpr float IDX_Point::*kAxes[3] = {&IDX_Point::x, &IDX_Point::y, &IDX_Point::z};
    Bounds bounds[3];
    float largest = 0.0f;
    for (int a = 0; a < 3; a++) {
        bounds[a] = BoundsOf(iMesh.points, kAxes[a]);
        largest = std::max(largest, bounds[a].high - bounds[a].low);
    }
    const float margin = std::ldexp(largest, -static_cast<int>(iDepth)) * 0.05f;
    GridBox box;
    for (int a = 0; a < 3; a++) {
        // All in float, one rounding for each operation, as the build itself does it.
        const float extent = bounds[a].high - bounds[a].low;
        const float pad = (largest - extent) * 0.5f;
        const float low = (bounds[a].low - pad) - margin;
        const float high = (bounds[a].high + pad) + margin;
        box.origin.*kAxes[a] = low;
        box.size.*kAxes[a] = high - low;
    }
    return box;
}

std::vector<Workload> FindWorkloads(const std::filesystem::path& iMeshFolder) {
    std::vector<Workload> workloads = {
        {"knot",   kGenerated},
        {"sphere", kGenerated}
    };
    for (const NamedFile& file : kFiles) {
        const std::filesystem::path path = FindFile(iMeshFolder, file.file);
        if (!path.empty()) workloads.push_back({file.name, path.string()});
    }
    return workloads;
}

Mesh MakeMesh(const Workload& iWorkload) {
    if (iWorkload.origin == kGenerated) {
        return iWorkload.name == "knot" ? MakeTorusKnot() : MakeSphere();
    }
    return iWorkload.origin.ends_with(".off") ? ReadOff(iWorkload.origin)
                                              : ReadStl(iWorkload.origin);
}

void SaveMesh(const Mesh& iMesh, const std::filesystem::path& iPath) {
    std::ofstream file(iPath, std::ios::binary);
    const size_t counts[2] = {iMesh.points.size(), iMesh.triangles.size()};
    const auto write = [&file](const void* iBytes, size_t iSize) {
        file.write(static_cast<const char*>(iBytes), static_cast<std::streamsize>(iSize));
    };
    write(counts, sizeof counts);
    write(iMesh.points.data(), counts[0] * sizeof(IDX_Point));
    write(iMesh.triangles.data(), counts[1] * sizeof(IDX_Triangle));
    if (!file.flush()) Fail(iPath, "can't be written");
}

Mesh LoadMesh(const std::filesystem::path& iPath) {
    std::ifstream file = OpenRead(iPath);
    size_t counts[2];
    ReadInto(file, iPath, counts, 2);
    Mesh mesh;
    mesh.points.resize(counts[0]);
    mesh.triangles.resize(counts[1]);
    ReadInto(file, iPath, mesh.points.data(), counts[0]);
    ReadInto(file, iPath, mesh.triangles.data(), counts[1]);
    return mesh;
}
