// The library beside the flat reference: status, trace, depth, counts and image bytes.
// GRIDLOOM_RANDOM_MESHES: how many meshes, shared out evenly; GRIDLOOM_RANDOM_SEED: the first seed;
// GRIDLOOM_MESHES: a folder of mesh files to compare as well, at depth 7.

#include "BuilderPair.h"
#include "FromEnvironment.h"

#include <cstdlib>
#include <gtest/gtest.h>

#ifdef GRIDLOOM_HAS_ASSIMP
#include <assimp/Importer.hpp>
#include <assimp/scene.h>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <sys/wait.h>
#endif

namespace {

using Pair = BuilderPair;

void Init(Pair& pair, IDX_Point low, IDX_Point high) {
    testing::internal::CaptureStdout();
    pair.Init(low, high);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), std::exchange(pair.plain.output, {}));
}

/// Random parameters; the depth is at most `maxDepth`.
void SetParameters(Random& random, Pair& pair, int maxDepth) {
    const float side = random.OneIn(3) ? random.Between(0, 0.5) : 0.0f;
    pair.SetParameters(maxDepth, side, random.OneIn(2) ? IDX_True : IDX_False);
}

/// Fewer triangles at great depth, where each draws many cells.
Mesh MeshForDepth(Random& random, int maxDepth, bool hostile) {
    static constexpr unsigned int kTriangles[] = {1, 1, 200, 200, 120, 60, 30, 16};
    return RandomMesh(random, 1 + random.Below(kTriangles[maxDepth]), hostile);
}

void CompareWholeMesh(Random& random, Pair& pair, int maxDepth) {
    SetParameters(random, pair, maxDepth);
    if (random.OneIn(8)) pair.SetCuboid(random.PointIn(0, 1), random.PointIn(0, 1));
    const bool hostile = random.OneIn(6) && maxDepth < 6;
    pair.DrawGeometry(MeshForDepth(random, maxDepth, hostile));
}

/// Draws a mesh by DrawTriangles, which a subclass may do in any box, and hands on any points of the array.
void DrawAsSubclass(Random& random, Pair& pair, Mesh mesh) {
    for (int i = 0; i < 4; ++i) mesh.points.push_back(random.PointIn(-3, 3));
    const auto nPoints = static_cast<unsigned int>(mesh.points.size());
    std::vector<unsigned int> handOn;
    const bool others = random.OneIn(2);
    for (unsigned int i = 0; others && i < nPoints; ++i) handOn.push_back(random.Below(nPoints));
    pair.SetHandOn(handOn);
    pair.DrawTriangles(mesh);
    pair.SetHandOn({});
}

void CompareStream(Random& random, Pair& pair, int maxDepth) {
    SetParameters(random, pair, maxDepth);
    IDX_Point low = random.OneIn(3) ? random.PointIn(-2, 0) : IDX_Point{-1, -1, -1};
    const IDX_Point high = random.OneIn(3) ? random.PointIn(0, 2) : IDX_Point{1, 1, 1};
    if (random.OneIn(12)) low.x = high.x;
    Init(pair, low, high);
    if (random.OneIn(4)) pair.SetCuboid(low, high);
    // Several parts: draw, cut now and then, end; a cut readies the tree for the next part.
    for (bool more = true; more; more = random.OneIn(3) && pair.plain.tree.depth > 2) {
        const bool filled = pair.plain.tree.filled;
        if (filled && !random.OneIn(4)) pair.ReduceDepth();
        const Mesh mesh =
            MeshForDepth(random, maxDepth, !filled && maxDepth < 6 && random.OneIn(6));
        if (random.OneIn(4)) DrawAsSubclass(random, pair, mesh);
        for (const IDX_Triangle& triangle : mesh.triangles) {
            pair.DrawTriangle(mesh.CornersOf(triangle));
            if (random.OneIn(100)) pair.ReduceDepth();
        }
        pair.End();
    }
}

#ifdef GRIDLOOM_SANITIZED
constexpr unsigned long kMeshes = 300;  // each takes ten times the time there
#else
constexpr unsigned long kMeshes = 500;
#endif

struct Mode {
    const char* name;
    void (*compare)(Random& random, Pair& pair, int maxDepth);
    unsigned int leastArena;  ///< of small ones, from there to a few hundred records; 0 for large
};

class RandomMeshes : public testing::TestWithParam<Mode> {};

TEST_P(RandomMeshes, AgreeWithTheReference) {
    const unsigned long first = FromEnvironment("GRIDLOOM_RANDOM_SEED", 1);
    const unsigned long count = FromEnvironment("GRIDLOOM_RANDOM_MESHES", kMeshes) / 4;
    const unsigned int least = GetParam().leastArena;
    for (unsigned long seed = first; seed < first + count && !HasFailure(); ++seed) {
        SCOPED_TRACE("GRIDLOOM_RANDOM_SEED=" + std::to_string(seed));
        Random random(seed);
        const unsigned int small = least + random.Below(1u << (6 + random.Below(11)));
        const ArenaSize arena(least > 0 ? small : arenaSize);
        boxMargin = random.OneIn(2) ? 0.001f : 0.0f;  // without one, vertices lie on cell borders
        // Other rules for what a triangle meets find far more cells.
        const OverlapRule rule = random.OneIn(4) ? kOverlapRules[random.Below(3)] : nullptr;
        Pair pair(rule);
        for (unsigned int use = 1 + random.Below(2); use > 0; --use)
            GetParam().compare(random, pair, 2 + static_cast<int>(random.Below(rule ? 3 : 6)));
        EXPECT_EQ(pair.difference, "");
    }
}

INSTANTIATE_TEST_SUITE_P(
    Modes,
    RandomMeshes,
    testing::Values(
        Mode{"WholeMesh", CompareWholeMesh, 0},
        Mode{"WholeMeshSmallArena", CompareWholeMesh, 51},
        Mode{"Stream", CompareStream, 0},
        Mode{"StreamSmallArena", CompareStream, 212}),
    [](const auto& mode) { return std::string(mode.param.name); });

TEST(SubNormalBox, AgreesWithTheReference) {
    constexpr float kUnit = 0x1p-149f;  // the smallest float
    const auto at = [](int x, int y, int z) {
        const auto units = [](int n) { return static_cast<float>(n) * kUnit; };
        return IDX_Point{units(x), units(y), units(z)};
    };
    Pair pair;
    pair.SetParameters(2, 0, IDX_True);
    pair.Init(at(-129, -129, -129), at(129, 129, 129));
    Mesh mesh;
    mesh.points = {at(49, -10, 8), at(25, -26, 19), at(-26, -64, 36)};
    mesh.AddFace(0, 1, 2);
    pair.DrawTriangles(mesh);
    pair.End();
    EXPECT_EQ(pair.difference, "");
}

#ifdef GRIDLOOM_HAS_ASSIMP
Mesh Import(const std::filesystem::path& path) {
    Assimp::Importer importer;
    // Without any step of the importer's own: they aren't safe against indices out of range.
    const aiScene* scene = importer.ReadFile(path.string(), 0);
    Mesh mesh;
    for (unsigned int m = 0; scene != nullptr && m < scene->mNumMeshes; ++m) {
        const aiMesh& part = *scene->mMeshes[m];
        Mesh piece;
        for (unsigned int v = 0; v < part.mNumVertices; ++v)
            piece.points.push_back({part.mVertices[v].x, part.mVertices[v].y, part.mVertices[v].z});
        for (unsigned int f = 0; f < part.mNumFaces; ++f) {
            const unsigned int* v = part.mFaces[f].mIndices;
            for (unsigned int i = 2; i < part.mFaces[f].mNumIndices; ++i)
                piece.AddFace(v[0], v[i - 1], v[i]);
        }
        mesh.Add(piece);
    }
    return mesh;
}

constexpr int kAgrees = 0;
constexpr int kDiffers = 1;
constexpr int kNotImported = 2;

/// What a crash of the library itself becomes, once a mesh is imported.
void ExitAsDiffering(int) {
    std::_Exit(kDiffers);
}

[[noreturn]] void CompareAndExit(const std::filesystem::path& path) {
    const Mesh mesh = Import(path);
    if (mesh.triangles.empty()) std::_Exit(kNotImported);
    for (const int fault : {SIGSEGV, SIGBUS, SIGABRT, SIGFPE}) std::signal(fault, ExitAsDiffering);
    Pair pair;
    pair.SetParameters(7, 0, IDX_False);
    pair.DrawGeometry(mesh);
    std::_Exit(pair.difference.empty() ? kAgrees : kDiffers);
}

TEST(RealMeshesDeathTest, AgreeWithTheReferenceAtDepthSeven) {
    const char* folder = std::getenv("GRIDLOOM_MESHES");
    if (folder == nullptr || *folder == 0) GTEST_SKIP() << "GRIDLOOM_MESHES isn't set";
    const ArenaSize arena(1u << 29);
    int compared = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file()) continue;
        SCOPED_TRACE(entry.path());
        // In a process of its own: an importer that a malformed file brings down is no failure of ours.
        const auto agrees = [&](int status) {
            const int code = WIFEXITED(status) ? WEXITSTATUS(status) : kNotImported;
            if (code == kNotImported) std::printf("%s: not imported\n", entry.path().c_str());
            compared += code == kAgrees;
            return code != kDiffers;
        };
        EXPECT_EXIT(CompareAndExit(entry.path()), agrees, "");
    }
    EXPECT_GT(compared, 0) << "no mesh in " << folder;
}
#endif

}  // namespace
