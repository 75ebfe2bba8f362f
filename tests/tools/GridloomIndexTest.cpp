// What gridloom-index makes of mesh files: formats, reasons, depths. The meshes are a cube in several formats.

#include "PartIndex.h"
#include "Queries.h"
#include "TemporaryFolder.h"

#include <cstdio>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/wait.h>

namespace fs = std::filesystem;

namespace {

constexpr int kSide = 4;
constexpr char kQuads[] = "023145760154267304621375";  // corners, four for each face

/// Bit a of a corner's number selects the high side along axis a.
int Coordinate(int iCorner, int iAxis) {
    return (iCorner >> iAxis & 1) * kSide;
}

/// The corners as lines, each behind a prefix, enlarged and moved along x.
std::string CornerLines(const char* iPrefix, int iScale, int iMove) {
    std::ostringstream text;
    for (int c = 0; c < 8; ++c) {
        text << iPrefix << Coordinate(c, 0) * iScale + iMove << " " << Coordinate(c, 1) * iScale
             << " " << Coordinate(c, 2) * iScale << "\n";
    }
    return text.str();
}

/// The faces as lines, each behind a prefix, with corners counted from iFirst.
std::string QuadLines(const char* iPrefix, int iFirst) {
    std::ostringstream text;
    for (int i = 0; i < 24; ++i) {
        if (i % 4 == 0) text << iPrefix;
        text << " " << kQuads[i] - '0' + iFirst << (i % 4 == 3 ? "\n" : "");
    }
    return text.str();
}

std::string ObjCube(int iScale, int iMove) {
    return CornerLines("v ", iScale, iMove) + QuadLines("f", 1);
}

/// Of the 36 corners of the triangles.
int TriangleCorner(int i) {
    return kQuads[i / 6 * 4 + "012023"[i % 6] - '0'] - '0';
}

void AppendCorner(std::string& ioBytes, int iCorner) {
    for (int axis = 0; axis < 3; ++axis) {
        const auto coordinate = static_cast<float>(Coordinate(iCorner, axis));
        ioBytes.append(reinterpret_cast<const char*>(&coordinate), sizeof coordinate);
    }
}

std::string StlCube() {
    std::string bytes(80, ' ');
    bytes.append("\x0c\0\0\0", 4);
    for (int i = 0; i < 36; ++i) {
        if (i % 3 == 0) bytes.append(12, '\0');
        AppendCorner(bytes, TriangleCorner(i));
        if (i % 3 == 2) bytes.append(2, '\0');
    }
    return bytes;
}

/// What stands in cube.bin: 36 indices of 2 bytes, then the 8 corners.
std::string GltfBuffer() {
    std::string bytes;
    for (int i = 0; i < 36; ++i) bytes.append({static_cast<char>(TriangleCorner(i)), '\0'});
    for (int c = 0; c < 8; ++c) AppendCorner(bytes, c);
    return bytes;
}

/// Two nodes show one mesh: one enlarged by its parent and moved by itself, one as it is.
const char kGltf[] = R"({"asset":{"version":"2.0"},"scene":0,"scenes":[{"nodes":[0,2]}],
"nodes":[{"scale":[2,2,2],"children":[1]},{"name":"big","mesh":0,"translation":[8,0,0]},
{"name":"small","mesh":0}],"meshes":[{"primitives":[{"attributes":{"POSITION":1},"indices":0}]}],
"accessors":[{"bufferView":0,"componentType":5123,"count":36,"type":"SCALAR"},
{"bufferView":1,"componentType":5126,"count":8,"type":"VEC3","min":[0,0,0],"max":[4,4,4]}],
"bufferViews":[{"buffer":0,"byteLength":72},{"buffer":0,"byteOffset":72,"byteLength":96}],
"buffers":[{"uri":"cube.bin","byteLength":168}]})";

struct Outcome {
    int exitCode;
    std::string text;  ///< standard output and error, runs of blanks as one
};

class GridloomIndexTest : public testing::Test {
protected:
    void Write(const std::string& iName, const std::string& iBytes) const {
        const fs::path path = _folder / "in/" + iName;
        fs::create_directories(path.parent_path());
        SetContent(path.string(), iBytes);
    }

    /// Runs the tool in the test's folder, after some shell commands. Its index is "out".
    Outcome Run(const std::string& iArguments, const std::string& iBefore = "") const {
        const std::string command = "cd '" + (_folder / "") + "' && { " + iBefore + " '" +
                                    GRIDLOOM_INDEX + "' -index out " + iArguments + "; } 2>&1";
        Outcome outcome;
        std::FILE* pipe = popen(command.c_str(), "r");
        for (int c = 0; (c = std::fgetc(pipe)) != EOF;) {
            if (c != ' ' || !outcome.text.ends_with(' ')) outcome.text += static_cast<char>(c);
        }
        const int status = pclose(pipe);
        outcome.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return outcome;
    }

    /// The octree image of the one part whose identifier matches a pattern; empty when it isn't in the index.
    std::string Image(const std::string& iPattern) const {
        const PartIndex index = PartIndex::OpenBase(_folder / "out");
        const std::vector<StoredPart> found = FindByName(index, iPattern);
        if (found.size() != 1) return {};
        const unsigned char* image = index.BytesOf(found[0].record);
        return {reinterpret_cast<const char*>(image), found[0].record.octreeSize};
    }

    /// The bytes of a file; empty when it isn't there.
    std::string Read(const std::string& iName) const { return ContentOf(_folder / iName); }

    TemporaryFolder _folder;
};

TEST_F(GridloomIndexTest, EveryFormatAndPolygonGivesTheSameImage) {
    Write("a.obj", ObjCube(1, 0));
    Write("b.OFF", "OFF\n8 6 0\n" + CornerLines("", 1, 0) + QuadLines("4", 0));
    Write("d.stl", StlCube());
    Write("deep/er/f.obj", ObjCube(1, 0));
    Write("cube.bin", GltfBuffer());
    Write("g.gltf", kGltf);
    Write("notes.txt", "not a mesh");
    const Outcome outcome = Run("in", "gzip in/deep/er/f.obj &&");
    ASSERT_EQ(outcome.exitCode, 0) << outcome.text;
    const std::string cube = Image("a.obj");
    ASSERT_GT(cube.size(), 132U);
    for (const char* name : {"b.OFF", "d.stl", "deep/er/f.obj.gz", "g.gltf#*/small"}) {
        EXPECT_EQ(Image(name), cube) << name;
    }
    EXPECT_NE(outcome.text.find("6 parts of 5 files done, 0 failed"), std::string::npos)
        << outcome.text;
    EXPECT_NE(outcome.text.find(" 12 0 7 1/8/56/"), std::string::npos) << outcome.text;

    const std::string big = Image("g.gltf#*/big");
    Write("placed/big.obj", ObjCube(2, 16));  // (x + 8) * 2
    ASSERT_EQ(Run("in/placed").exitCode, 0);
    EXPECT_EQ(big, Image("big.obj"));
}

TEST_F(GridloomIndexTest, NamesBadFilesAndGoesOn) {
    const std::string cutStl = std::string(80, ' ') + std::string("\x02\0\0\0", 4);
    const std::string infiniteStl =
        "solid s\nfacet normal 0 0 1\nouter loop\nvertex 0 0 0\nvertex inf 0 0\nvertex 0 1 0\n"
        "endloop\nendfacet\n";
    const std::string junk("\x1f\x8b\x08\0junk", 8);
    const struct {
        const char* name;
        std::string bytes;
        const char* reason;  // part of the line that names the file
    } badFiles[] = {
        {"cut.stl",      cutStl,                                             "STL storage"  },
        {"empty.ply",    "",                                                 "empty"        },
        {"index.obj",    "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 9\n",             ""             },
        {"index.off",    "OFF\n3 1 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 3\n",       "out of range" },
        {"infinite.stl", infiniteStl,                                        ""             },
        {"nan.off",      "OFF\n3 1 0\nnan nan nan\n1 0 0\n0 1 0\n3 0 1 2\n", "aren't finite"},
        {"huge.obj",     "v 0 0 0\nv 3e38 0 0\nv 0 1 0\nf 1 2 3\n",          "overflow"     },
        {"points.obj",   "v 0 0 0\nv 1 0 0\nv 0 1 0\np 1 2 3\n",             "no triangle"  },
        {"lies.off",     "OFF\n353535235358 1 0\n0 0 0\n",                   ""             },
        {"junk.obj.gz",  junk,                                               ""             },
    };
    for (const auto& bad : badFiles) Write(bad.name, bad.bytes);
    Write("good.obj", ObjCube(1, 0));
    const Outcome outcome = Run("in missing.stl in/../in");
    EXPECT_EQ(outcome.exitCode, 3);
    EXPECT_EQ(Image("good.obj"), Image("good.obj~2")) << "the good file, which was named twice";
    EXPECT_FALSE(Image("good.obj~2").empty());
    EXPECT_NE(outcome.text.find("failed: missing.stl: No such file"), std::string::npos);
    for (const auto& bad : badFiles) {
        const std::size_t at = outcome.text.find(std::string("failed: ") + bad.name + ": ");
        ASSERT_NE(at, std::string::npos) << bad.name << "\n" << outcome.text;
        const std::string line = outcome.text.substr(at, outcome.text.find('\n', at) - at);
        EXPECT_NE(line.find(bad.reason), std::string::npos) << line;
    }
}

TEST_F(GridloomIndexTest, DepthAndCellSize) {
    Write("cube.obj", ObjCube(1, 0));
    const std::pair<const char*, const char*> cases[] = {
        {"-depth 2",             " 2 1/8/56 "    },
        {"--depth=4",            " 4 1/8/56/"    },
        {"-depth 9 -voxel 0.5",  " 3 1/8/56/296 "},
        {"-depth 9 -voxel 0.49", " 4 1/8/56/"    },
    };
    for (const auto& [options, row] : cases) {
        const Outcome outcome = Run(std::string("in ") + options);
        EXPECT_EQ(outcome.exitCode, 0);
        EXPECT_NE(outcome.text.find(row), std::string::npos) << options << outcome.text;
    }
}

TEST_F(GridloomIndexTest, TwoRunsGiveTheSameBytesWhateverCameBefore) {
    Write("cube.obj", ObjCube(1, 0));
    Write("other.obj", ObjCube(3, 7));
    ASSERT_EQ(Run("-depth 5 -pictures first in/cube.obj").exitCode, 0);
    const std::string image = Image("cube.obj");
    ASSERT_EQ(Run("-depth 5 -pictures second in/other.obj in/cube.obj").exitCode, 0);
    EXPECT_FALSE(image.empty());
    EXPECT_EQ(Image("cube.obj"), image);
    EXPECT_FALSE(Read("first/cube.obj.png").empty());
    EXPECT_EQ(Read("first/cube.obj.png"), Read("second/cube.obj.png"));
}

}  // namespace
