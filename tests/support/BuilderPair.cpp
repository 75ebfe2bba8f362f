#include "BuilderPair.h"

#include <algorithm>
#include <bit>

namespace {

OverlapRule askedOfReference = nullptr;
std::uint64_t askedByReference = 0;

int AskOfReference(const Triple& centre, const Triple& half, const Corners& triangle) {
    askedByReference = WithQuestion(askedByReference, centre, half);
    return askedOfReference(centre, half, triangle);
}

}  // namespace

long int SubclassedBuilder::DrawMesh(const Mesh& mesh) {
    points = mesh.points.data();
    return DrawTriangles(
        points, static_cast<unsigned int>(mesh.points.size()), mesh.triangles.data(),
        static_cast<unsigned int>(mesh.triangles.size()));
}

long int SubclassedBuilder::DrawTriangle(
    IDX_Point const& p1, IDX_Point const& p2, IDX_Point const& p3) {
    if (handOn.empty()) return PLMIdxOctreeBuilder::DrawTriangle(p1, p2, p3);
    const auto other = [this](const IDX_Point& p) -> const IDX_Point& {
        return points[handOn[static_cast<std::size_t>(&p - points)]];
    };
    return PLMIdxOctreeBuilder::DrawTriangle(other(p1), other(p2), other(p3));
}

BuilderPair::BuilderPair(OverlapRule rule) {
    SetOverlapRule(rule);
    if (rule != nullptr) plain.overlap = AskOfReference;
    askedOfReference = rule;
}

void BuilderPair::SetParameters(int maxDepth, float voxelSize, IDX_Bool useVoxelSize) {
    library.SetParameters(maxDepth, voxelSize, useVoxelSize);
    plain.maxDepth = maxDepth;
    plain.voxelSize = voxelSize;
    plain.useVoxelSize = useVoxelSize;
}

void BuilderPair::SetCuboid(IDX_Point a, IDX_Point b) {
    plain.cuboid.isThere = 1;
    plain.cuboid.matrix.coefficients[1][2] = a.x;
    plain.cuboid.points = {a, b};
    library.SetCuboid(plain.cuboid.matrix, a, b);
}

void BuilderPair::SetHandOn(const std::vector<unsigned int>& points) {
    library.handOn = points;
    plain.handOn = points;
}

void BuilderPair::Init(IDX_Point low, IDX_Point high) {
    Compare(library.Init(low, high), plain.Init(low, high));
}

void BuilderPair::DrawGeometry(const Mesh& mesh) {
    library.points = mesh.points.data();
    Compare(Draw(library, mesh), plain.DrawGeometry(mesh));
    CompareImages();
}

void BuilderPair::DrawTriangles(const Mesh& mesh) {
    Compare(library.DrawMesh(mesh), plain.DrawTriangles(mesh));
}

void BuilderPair::DrawTriangle(const std::array<IDX_Point, 3>& p) {
    const std::vector<unsigned int> handOn = std::exchange(library.handOn, {});
    const long int status = library.DrawTriangle(p[0], p[1], p[2]);
    library.handOn = handOn;
    Compare(status, plain.DrawTriangle(std::bit_cast<Corners>(p)));
}

void BuilderPair::ReduceDepth() {
    Compare(library.ReduceDepth(), plain.ReduceDepth());
}

void BuilderPair::End() {
    Compare(library.End(), plain.End());
    CompareImages();
}

void BuilderPair::Differ(bool differs, const std::string& what) {
    if (differs && difference.empty()) difference = what;
}

void BuilderPair::Compare(long int ofLibrary, long int ofPlain) {
    const std::string each = std::to_string(ofLibrary) + " and " + std::to_string(ofPlain);
    Differ(ofLibrary != ofPlain, "the status: " + each);
    const Lines traced = _trace.Take();
    const Lines expected = std::exchange(plain.tree.trace, {});
    const auto [a, b] =
        std::mismatch(traced.begin(), traced.end(), expected.begin(), expected.end());
    Differ(
        traced != expected, "the trace: " + (a == traced.end() ? "nothing" : *a) + " and " +
                                (b == expected.end() ? "nothing" : *b));
    Differ(library.GetDepth() != static_cast<int>(plain.tree.depth), "the depth");
    const auto& counts = plain.tree.counts;
    Differ(!std::equal(counts.begin(), counts.end(), library.GetNCellsByDepth()), "the counts");
    Differ(TakeQuestions() != std::exchange(askedByReference, 0), "the questions asked");
}

void BuilderPair::CompareImages() {
    const Bytes image = ImageOf(library);
    const auto place =
        std::mismatch(image.begin(), image.end(), plain.image.begin(), plain.image.end()).first;
    Differ(
        image != plain.image, "the images from byte " + std::to_string(place - image.begin()) +
                                  ", of " + std::to_string(image.size()) + " and " +
                                  std::to_string(plain.image.size()));
}
