// The library beside the flat reference: status, trace, depth, counts and image bytes.
// GRIDLOOM_RANDOM_MESHES: how many meshes, shared out evenly; GRIDLOOM_RANDOM_SEED: the first seed;
// GRIDLOOM_MESHES: a folder of mesh files to compare as well, at depth 7.

#include "AdjustableConstants.h"
#include "Images.h"
#include "ReferenceBuilder.h"
#include "TraceRecorder.h"

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>

#ifdef GRIDLOOM_HAS_ASSIMP
#include <assimp/Importer.hpp>
#include <assimp/scene.h>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace {

unsigned long FromEnvironment(const char* name, unsigned long otherwise) {
    const char* text = std::getenv(name);
    return text == nullptr ? otherwise : std::strtoul(text, nullptr, 10);
}

/// The two builders with the same parameters, fed with the same calls.
struct Pair {
    TraceRecorder trace;
    PLMIdxOctreeBuilder library;
    reference::Builder plain{arenaSize, boxMargin};

    void SetParameters(int maxDepth, float voxelSize, IDX_Bool useVoxelSize) {
        library.SetParameters(maxDepth, voxelSize, useVoxelSize);
        plain.maxDepth = maxDepth;
        plain.voxelSize = voxelSize;
        plain.useVoxelSize = useVoxelSize;
    }

    void SetCuboid(IDX_Point a, IDX_Point b) {
        IDX_Base_4x4Matrix matrix;
        matrix.coefficients[1][2] = a.x;
        library.SetCuboid(matrix, a, b);
        plain.cuboid = {
            1, matrix, {a, b}
        };
    }

    void ExpectSameStatus(long int ofLibrary, long int ofPlain) {
        ASSERT_EQ(ofLibrary, ofPlain);
        ASSERT_EQ(trace.Take(), std::exchange(plain.trace, {}));
    }

    void ExpectSameTree() {
        ASSERT_EQ(library.GetDepth(), static_cast<int>(plain.tree.depth));
        for (std::size_t level = 0; level < plain.tree.counts.size(); ++level)
            ASSERT_EQ(library.GetNCellsByDepth()[level], plain.tree.counts[level]) << level;
    }

    void ExpectSameImage() {
        const Bytes image = ImageOf(library);
        const auto [a, b] =
            std::mismatch(image.begin(), image.end(), plain.image.begin(), plain.image.end());
        ASSERT_EQ(image.size(), plain.image.size()) << "first difference at " << a - image.begin();
        ASSERT_TRUE(a == image.end()) << "bytes differ at " << a - image.begin();
    }

    void Init(IDX_Point low, IDX_Point high) {
        testing::internal::CaptureStdout();
        const long int ofLibrary = library.Init(low, high);
        const std::string output = testing::internal::GetCapturedStdout();
        ASSERT_NO_FATAL_FAILURE(ExpectSameStatus(ofLibrary, plain.Init(low, high)));
        ASSERT_EQ(output, std::exchange(plain.output, {}));
    }

    void DrawGeometry(const Mesh& mesh) {
        ASSERT_NO_FATAL_FAILURE(ExpectSameStatus(Draw(library, mesh), plain.DrawGeometry(mesh)));
        ASSERT_NO_FATAL_FAILURE(ExpectSameTree());
        ASSERT_NO_FATAL_FAILURE(ExpectSameImage());
    }

    void DrawTriangle(const Mesh& mesh, const IDX_Triangle& triangle) {
        const IDX_Point& a = mesh.points[triangle.vertices[0]];
        const IDX_Point& b = mesh.points[triangle.vertices[1]];
        const IDX_Point& c = mesh.points[triangle.vertices[2]];
        ExpectSameStatus(library.DrawTriangle(a, b, c), plain.DrawTriangle(a, b, c));
    }

    void ReduceDepth() {
        ASSERT_NO_FATAL_FAILURE(ExpectSameStatus(library.ReduceDepth(), plain.ReduceDepth()));
        ASSERT_NO_FATAL_FAILURE(ExpectSameTree());
    }

    void End() {
        ASSERT_NO_FATAL_FAILURE(ExpectSameStatus(library.End(), plain.End()));
        ASSERT_NO_FATAL_FAILURE(ExpectSameTree());
        ASSERT_NO_FATAL_FAILURE(ExpectSameImage());
    }
};

struct Mode {
    const char* name;
    void (*compare)(unsigned long seed, bool smallArena);
    bool smallArena;
};

std::ostream& operator<<(std::ostream& stream, const Mode& mode) {
    return stream << mode.name;
}

/// Fewer triangles at great depth, where each draws many cells.
Mesh MeshForDepth(Random& random, int maxDepth, bool hostile) {
    static constexpr unsigned int kTriangles[] = {1, 1, 200, 200, 120, 60, 30, 16};
    return RandomMesh(random, 1 + random.Below(kTriangles[maxDepth]), hostile);
}

/// From one byte too small for a root up to room for a few hundred records.
unsigned int SmallArena(Random& random, unsigned int least) {
    return least + random.Below(1u << (6 + random.Below(11)));
}

void CompareWholeMeshes(unsigned long seed, bool smallArena) {
    Random random(seed);
    const ArenaSize arena(smallArena ? SmallArena(random, 51) : arenaSize);
    Pair pair;
    for (unsigned int use = 1 + random.Below(2); use > 0; --use) {
        const int maxDepth = 2 + static_cast<int>(random.Below(6));
        const float side = random.OneIn(3) ? random.Between(0, 0.5) : 0.0f;
        pair.SetParameters(maxDepth, side, random.OneIn(2) ? IDX_True : IDX_False);
        if (random.OneIn(8)) pair.SetCuboid(random.PointIn(0, 1), random.PointIn(0, 1));
        const bool hostile = random.OneIn(6);
        const Mesh mesh = MeshForDepth(random, maxDepth, hostile);
        ASSERT_NO_FATAL_FAILURE(pair.DrawGeometry(mesh));
    }
}

/// Where a stream's box lies: most meshes are within -1 to 1.
void RandomBox(Random& random, IDX_Point& low, IDX_Point& high) {
    low = {-1, -1, -1};
    high = {1, 1, 1};
    if (random.OneIn(3)) low = random.PointIn(-2, 0);
    if (random.OneIn(3)) high = random.PointIn(0, 2);
    if (random.OneIn(12)) low.x = high.x = random.Between(-2, 2);
}

void CompareStreams(unsigned long seed, bool smallArena) {
    Random random(seed);
    const ArenaSize arena(smallArena ? SmallArena(random, 212) : arenaSize);
    boxMargin = random.OneIn(2) ? 0.001f : 0.0f;  // without a margin vertices lie on cell borders
    Pair pair;
    for (unsigned int use = 1 + random.Below(2); use > 0; --use) {
        const int maxDepth = 2 + static_cast<int>(random.Below(6));
        const float side = random.OneIn(3) ? random.Between(0, 0.5) : 0.0f;
        pair.SetParameters(maxDepth, side, random.OneIn(2) ? IDX_True : IDX_False);
        IDX_Point low;
        IDX_Point high;
        RandomBox(random, low, high);
        ASSERT_NO_FATAL_FAILURE(pair.Init(low, high));
        if (random.OneIn(4)) pair.SetCuboid(low, high);
        // Several parts: draw, cut now and then, end; a cut readies the tree for the next part.
        for (bool more = true; more; more = random.OneIn(3) && pair.plain.tree.depth > 2) {
            const bool filled = !pair.plain.tree.tags.empty();
            if (filled) {
                ASSERT_NO_FATAL_FAILURE(pair.ReduceDepth());
            }
            const Mesh mesh = MeshForDepth(random, maxDepth, !filled && random.OneIn(6));
            for (const IDX_Triangle& triangle : mesh.triangles) {
                ASSERT_NO_FATAL_FAILURE(pair.DrawTriangle(mesh, triangle));
                if (!random.OneIn(100)) continue;
                ASSERT_NO_FATAL_FAILURE(pair.ReduceDepth());
            }
            ASSERT_NO_FATAL_FAILURE(pair.End());
        }
    }
}

class RandomMeshes : public testing::TestWithParam<Mode> {};

TEST_P(RandomMeshes, AgreeWithTheReference) {
    const unsigned long first = FromEnvironment("GRIDLOOM_RANDOM_SEED", 1);
    const unsigned long count = FromEnvironment("GRIDLOOM_RANDOM_MESHES", 1200) / 4;
    for (unsigned long seed = first; seed < first + count; ++seed) {
        SCOPED_TRACE("GRIDLOOM_RANDOM_SEED=" + std::to_string(seed));
        GetParam().compare(seed, GetParam().smallArena);
        if (HasFatalFailure()) return;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Modes,
    RandomMeshes,
    testing::Values(
        Mode{"WholeMesh", CompareWholeMeshes, false},
        Mode{"WholeMeshSmallArena", CompareWholeMeshes, true},
        Mode{"Stream", CompareStreams, false},
        Mode{"StreamSmallArena", CompareStreams, true}),
    [](const auto& mode) { return std::string(mode.param.name); });

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
    _exit(kDiffers);
}

[[noreturn]] void CompareAndExit(const std::filesystem::path& path) {
    const Mesh mesh = Import(path);
    if (mesh.triangles.empty()) _exit(kNotImported);
    for (const int fault : {SIGSEGV, SIGBUS, SIGABRT, SIGFPE}) std::signal(fault, ExitAsDiffering);
    Pair pair;
    pair.SetParameters(7, 0, IDX_False);
    pair.DrawGeometry(mesh);
    std::printf("%s: %zu triangles\n", path.c_str(), mesh.triangles.size());
    std::fflush(stdout);
    _exit(::testing::Test::HasFailure() ? kDiffers : kAgrees);
}

TEST(RealMeshes, AgreeWithTheReferenceAtDepthSeven) {
    const char* folder = std::getenv("GRIDLOOM_MESHES");
    if (folder == nullptr || *folder == 0) GTEST_SKIP() << "GRIDLOOM_MESHES isn't set";
    const ArenaSize arena(1u << 29);
    int compared = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file()) continue;
        SCOPED_TRACE(entry.path());
        // In a process of its own: an importer that a malformed file brings down is no failure of ours.
        std::fflush(stdout);
        const pid_t child = fork();
        if (child == 0) CompareAndExit(entry.path());
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        const int code = WIFEXITED(status) ? WEXITSTATUS(status) : kNotImported;
        EXPECT_NE(code, kDiffers);
        if (code == kNotImported) std::printf("%s: not imported\n", entry.path().c_str());
        if (code == kAgrees) ++compared;
    }
    EXPECT_GT(compared, 0) << "no mesh in " << folder;
}
#endif

}  // namespace
