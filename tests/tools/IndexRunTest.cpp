// gridloom-index as a process: what it makes live, and what it never does, whatever happens to it.

#include "TemporaryFolder.h"
#include "ToolRun.h"

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

using Arguments = std::vector<std::string>;
using Files = std::map<std::string, std::string>;  ///< content by name

/// Of a child of the tool: it has just been tied to the tool.
const CallsOf kChildStart = {{SYS_close_range}, "", true};

#ifdef GRIDLOOM_SANITIZED
constexpr int kStep = 7;  // between kills: a process starts slowly there
#else
constexpr int kStep = 1;
#endif

bool Contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

std::string Numbered(std::string name, int number) {
    return name.append(std::to_string(number));
}

class IndexRunTest : public testing::Test {
protected:
    IndexRunTest() : _base(_folder / "base"), _in(_folder / "in") { fs::create_directories(_in); }

    void Write(const std::string& name, const std::string& bytes) const {
        fs::create_directories(fs::path(_in + "/" + name).parent_path());
        SetContent(_in + "/" + name, bytes);
    }

    Arguments With(Arguments options) const {
        options.insert(options.end(), {"-index", _base, _in});
        return options;
    }

    Outcome Run(const Arguments& options, const std::function<void()>& before = {}) const {
        return RunTool(GRIDLOOM_INDEX, With(options), before);
    }

    /// The number in the redirecting file; 0 when there is none.
    int LiveNumber() const {
        int number = 0;
        const std::string bytes = ContentOf(_base + "/Dwh/IDXBuffer");
        if (bytes.size() == sizeof number) std::memcpy(&number, bytes.data(), sizeof number);
        return number;
    }

    Files FilesOf(int number) const {
        Files files;
        const std::string folder = _base + "/Dwh/" + std::to_string(number);
        if (!fs::exists(folder)) return files;
        for (const auto& entry : fs::directory_iterator(folder)) {
            files[entry.path().filename()] = ContentOf(entry.path());
        }
        return files;
    }
    Files LiveFiles() const { return FilesOf(LiveNumber()); }

    std::string Report() const { return ContentOf(_base + "/BBDMonitor/gridloom-index.txt"); }
    std::string FailedList() const { return ContentOf(_base + "/BBDMonitor/failed.txt"); }

    /// The number behind a tag of the report.
    long ReportTag(const std::string& tag) const {
        const std::string report = Report();
        const std::size_t at = report.find("\n" + tag + ":");
        return at == std::string::npos ? -1 : std::stol(report.substr(at + tag.size() + 2));
    }

    TemporaryFolder _folder;
    std::string _base;
    std::string _in;
};

TEST_F(IndexRunTest, ExitCodes) {
    Write("good.obj", ObjCube(4));
    SetContent(_folder / "plain", "no folder");
    const std::string good = _in + "/good.obj";
    const struct {
        Arguments arguments;
        int exitCode;
        const char* error;  // part of what is told
    } cases[] = {
        {{"-index", _base, good},                               0, ""                       },
        {{"--help"},                                            0, ""                       },
        {{"--version"},                                         0, ""                       },
        {{"--index=" + _base, "--depth", "2", "--", good},      0, ""                       },
        {{"-quiet", good, "-index", _base},                     0, ""                       },
        {{},                                                    2, "-index is mandatory"    },
        {{"-index", _base},                                     2, "no mesh file"           },
        {{"-index", "", good},                                  2, "-index wants a text"    },
        {{"-index", _base, good, "-depth"},                     2, "mandatory after -depth" },
        {{"-index", _base, good, "-depth", "-strict"},          2, "mandatory after -depth" },
        {{"-index", _base, good, "-depth", "1"},                2, "from 2 to 19, not '1'"  },
        {{"-index", _base, good, "-depth", "-3"},               2, "from 2 to 19, not '-3'" },
        {{"-index", _base, good, "--depth=7x"},                 2, "from 2 to 19, not '7x'" },
        {{"-index", _base, good, "-voxel", "0"},                2, "a length above 0"       },
        {{"-index", _base, good, "-voxel", "nan"},              2, "a length above 0"       },
        {{"-index", _base, good, "-jobs", "0"},                 2, "-jobs wants"            },
        {{"-index", _base, good, "-up", "x"},                   2, "one of y, z, not 'x'"   },
        {{"-index", _base, good, "-nonsense"},                  2, "-nonsense is unknown"   },
        {{"-index", _base, good, "-strict=yes"},                2, "-strict is boolean"     },
        {{"-index", _base, good, "-depth", "3", "-depth", "3"}, 2, "-depth is defined twice"},
        {{"-index", _base, "no-such.obj"},                      2, "nothing to index"       },
        {{"-index", _base, good, "no-such.obj"},                3, "no-such.obj: No such"   },
        {{"-index", _folder / "plain/base", good},              5, "report folder"          },
    };
    for (const auto& row : cases) {
        std::string shown;
        for (const std::string& argument : row.arguments) shown += argument + " ";
        const Outcome outcome = RunTool(GRIDLOOM_INDEX, row.arguments);
        EXPECT_EQ(outcome.exitCode, row.exitCode) << shown << outcome.errors;
        EXPECT_TRUE(Contains(outcome.errors, row.error)) << shown << outcome.errors;
    }
}

TEST_F(IndexRunTest, TheIndexDependsOnTheInputAlone) {
    Write("a/cube.obj", ObjCube(4));
    Write("b/cut.ply", "ply\nformat");
    Write(
        "c/scene.obj",
        ObjScene(
            24, [](int n) { return Numbered("node", n); }, [](int n) { return 1.0 + n % 7; }));
    Write("d/cube.obj", ObjCube(2, 9));
    Outcome first;
    Files index;
    std::string failed;
    for (const char* jobs : {"1", "3", "7"}) {
        SCOPED_TRACE(jobs);
        const Outcome outcome = Run({"-jobs", jobs, "-depth", "5"});
        ASSERT_EQ(outcome.exitCode, 3) << outcome.errors;
        if (index.empty()) {
            first = outcome;
            index = LiveFiles();
            failed = FailedList();
        }
        EXPECT_TRUE(LiveFiles() == index);
        EXPECT_EQ(FailedList(), failed);
        EXPECT_EQ(
            outcome.output.substr(0, outcome.output.find("\n\n", 1)),
            first.output.substr(0, first.output.find("\n\n", 1)))
            << "the lines before the table";
    }
    EXPECT_EQ(index.size(), 3U);
    EXPECT_TRUE(failed.starts_with("b/cut.ply\t")) << failed;
    EXPECT_EQ(ReportTag("Parts"), 26);
}

/// A triangle that two nodes of one name show.
const char kGltf[] = R"({"asset":{"version":"2.0"},"scene":0,"scenes":[{"nodes":[0]}],
"nodes":[{"name":"arm","children":[1,2]},{"name":"bolt","mesh":0},
{"name":"bolt","mesh":0,"translation":[5,0,0]}],
"meshes":[{"primitives":[{"attributes":{"POSITION":0}}]}],
"accessors":[{"bufferView":0,"componentType":5126,"count":3,"type":"VEC3","min":[0,0,0],"max":[1,1,0]}],
"bufferViews":[{"buffer":0,"byteLength":36}],"buffers":[{"byteLength":36,"uri":
"data:application/octet-stream;base64,AAAAAAAAAAAAAAAAAACAPwAAAAAAAAAAAAAAAAAAgD8AAAAA"}]})";

TEST_F(IndexRunTest, IdentifiersAreUniqueAndTellWhereAPartComesFrom) {
    Write("s#1.obj", ObjCube(4));
    Write("sub/scene.gltf", kGltf);
    Write("sub/\xFF.obj", ObjCube(4));
    Arguments arguments = With({"-progress", "json", "-depth", "3"});
    arguments.insert(arguments.end(), {_in + "/s#1.obj", _in + "/sub/scene.gltf"});
    const Outcome outcome = RunTool(GRIDLOOM_INDEX, arguments);
    ASSERT_EQ(outcome.exitCode, 0) << outcome.errors;
    std::string found;
    for (std::size_t at = 0; (at = outcome.output.find("\"id\":\"", at)) != std::string::npos;) {
        at += 6;
        found += outcome.output.substr(at, outcome.output.find('"', at) - at) + "\n";
    }
    EXPECT_EQ(
        found,
        "s%231.obj\n"
        "sub/scene.gltf#arm/bolt\nsub/scene.gltf#arm/bolt~2\n"
        "sub/\xEF\xBF\xBD.obj\n"
        "s%231.obj~2\n"
        "scene.gltf#arm/bolt\nscene.gltf#arm/bolt~2\n");
}

TEST_F(IndexRunTest, EachRunGoesIntoTheOtherSubDirectory) {
    for (const int expected : {1, 2, 1}) {
        Write("cube.obj", ObjCube(4 + expected));
        const Files before = FilesOf(3 - expected);
        ASSERT_EQ(Run({}).exitCode, 0);
        EXPECT_EQ(LiveNumber(), expected);
        EXPECT_TRUE(FilesOf(3 - expected) == before) << "the old index stays for its readers";
    }
}

TEST_F(IndexRunTest, StrictAndDryRunLeaveTheLiveIndex) {
    Write("cube.obj", ObjCube(4));
    EXPECT_EQ(Run({"-dry-run"}).exitCode, 0);
    EXPECT_FALSE(fs::exists(_base));
    ASSERT_EQ(Run({}).exitCode, 0);
    const Files index = LiveFiles();

    Write("other.obj", ObjCube(7));
    EXPECT_EQ(Run({"-dry-run"}).exitCode, 0);
    Write("bad.stl", "");
    EXPECT_EQ(Run({"-dry-run"}).exitCode, 3);
    EXPECT_EQ(Run({"-strict"}).exitCode, 3);
    EXPECT_EQ(LiveNumber(), 1);
    EXPECT_TRUE(LiveFiles() == index);
    EXPECT_TRUE(FilesOf(2).empty()) << "what won't be used takes no room";
    EXPECT_TRUE(FailedList().starts_with("bad.stl\t")) << FailedList();
    EXPECT_TRUE(Contains(Report(), "\nLive:0\n[Return code is] : 3\nEndOfReport\n")) << Report();

    EXPECT_EQ(Run({}).exitCode, 3);
    EXPECT_EQ(LiveNumber(), 2);
    EXPECT_EQ(ReportTag("Parts"), 2);
    EXPECT_EQ(ReportTag("FailedParts"), 1);
    fs::remove(_in + "/bad.stl");
    EXPECT_EQ(Run({}).exitCode, 0);
    EXPECT_FALSE(fs::exists(_base + "/BBDMonitor/failed.txt")) << "that of the run before";
}

/// A cube whose faces are drawn again and again: work for some hundred seconds.
TEST_F(IndexRunTest, OnePartThatTakesTooLongIsOneFailure) {
    std::string scene;
    for (int n = 0; n < 24; ++n) {
        const std::string cube = ObjCube(n == 5 ? 500 : 4, 8.0 * n, 8 * n);
        scene += Numbered("o p", n) + "\n" + cube;
        for (int k = 0; n == 5 && k < 20000; ++k) scene += cube.substr(cube.find('f'));
    }
    Write("scene.obj", scene);
    const Outcome outcome =
        Run({"-jobs", "1", "-depth", "19", "-voxel", "0.5", "-part-seconds", "1"});
    EXPECT_EQ(outcome.exitCode, 3) << outcome.errors;
    EXPECT_EQ(ReportTag("Parts"), 23);
    const std::string failed = FailedList();  // "it hung" where the processor is busy with others
    EXPECT_TRUE(failed.starts_with("scene.obj#scene.obj/p5\tits build was stopped: it ")) << failed;
    EXPECT_TRUE(failed.ends_with(" may use 1 s of processor time\n")) << failed;
}

TEST_F(IndexRunTest, OnePartThatCrashesIsOneFailure) {
    Write("1.obj", ObjCube(4));
    Write("2.obj", ObjCube(4));
    TracedTool tool(GRIDLOOM_INDEX, With({"-jobs", "1"}));
    const pid_t child = tool.RunTo(kChildStart, 3);  // behind the two imports
    ASSERT_GT(child, 0);
    (void)kill(child, SIGABRT);  // a sanitizer takes SIGSEGV for itself
    const Outcome outcome = tool.Wait();
    EXPECT_EQ(outcome.exitCode, 3) << outcome.errors;
    EXPECT_EQ(FailedList(), "1.obj\tits build crashed: Aborted\n");
    EXPECT_EQ(ReportTag("Parts"), 1);
}

TEST_F(IndexRunTest, AnImportThatCrashesBesideOthersIsTriedAlone) {
    for (int n = 1; n <= 9; ++n) Write(Numbered("", n) + ".obj", ObjCube(4, 10 * n));
    for (const int nCrashes : {1, 2}) {
        TracedTool tool(GRIDLOOM_INDEX, With({"-jobs", "1"}));
        for (int crash = 0; crash < nCrashes; ++crash) {
            const pid_t child = tool.RunTo({{SYS_openat}, "/5.obj", true});
            ASSERT_GT(child, 0);
            (void)kill(child, SIGABRT);
        }
        const Outcome outcome = tool.Wait();
        EXPECT_EQ(outcome.exitCode, nCrashes == 1 ? 0 : 3) << outcome.errors;
        EXPECT_EQ(ReportTag("Parts"), nCrashes == 1 ? 9 : 8);
        EXPECT_EQ(FailedList(), nCrashes == 1 ? "" : "5.obj\tthe import crashed: Aborted\n");
    }
}

TEST_F(IndexRunTest, ARequestToStopLeavesTheLiveIndexAndNoProcess) {
    Write("cube.obj", ObjCube(4));
    ASSERT_EQ(Run({}).exitCode, 0);
    const Files index = LiveFiles();
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGKILL}) {
        SCOPED_TRACE(strsignal(signal));
        TracedTool tool(GRIDLOOM_INDEX, With({}));
        const pid_t child = tool.RunTo(kChildStart, 2);  // its build
        ASSERT_GT(child, 0);
        (void)kill(tool.Id(), signal);
        const Outcome outcome = tool.Wait(true);
        EXPECT_EQ(outcome.exitCode, signal == SIGKILL ? -SIGKILL : 130) << outcome.errors;
        EXPECT_TRUE(LiveFiles() == index);
        EXPECT_EQ(tool.EndOf(child), -SIGKILL) << "the child was left to itself";
        if (signal == SIGKILL) continue;
        EXPECT_TRUE(FilesOf(2).empty());
        EXPECT_TRUE(Contains(Report(), "[Return code is] : 130\nEndOfReport\n"));
    }
    EXPECT_EQ(Run({}).exitCode, 0) << "no hand is needed";
    EXPECT_TRUE(LiveFiles() == index);
}

TEST_F(IndexRunTest, AFullDiskLeavesTheLiveIndex) {
    Write("cube.obj", ObjCube(4));
    ASSERT_EQ(Run({}).exitCode, 0);
    const Files index = LiveFiles();
    const std::size_t imageSize = index.at("Octrees0").size();
    ASSERT_GT(imageSize, 3000U);
    Write("other.obj", ObjCube(5));
    for (const std::size_t limit :
         {std::size_t{3000}, imageSize, imageSize + 1, 2 * imageSize - 1}) {
        const Outcome outcome = Run({}, [limit] {
            const rlimit size = {limit, limit};
            (void)setrlimit(RLIMIT_FSIZE, &size);
        });
        EXPECT_EQ(outcome.exitCode, 5) << limit;
        EXPECT_TRUE(Contains(outcome.errors, "Octrees can't be written: File too large"))
            << outcome.errors;
        EXPECT_TRUE(LiveFiles() == index);
        EXPECT_TRUE(FilesOf(2).empty());
    }
}

TEST_F(IndexRunTest, OneWriterAtATime) {
    Write("cube.obj", ObjCube(4));
    ASSERT_EQ(Run({}).exitCode, 0);
    const std::string report = Report();
    const int lock = open((_base + "/gridloom-index.lock").c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(flock(lock, LOCK_EX | LOCK_NB), 0);
    const Outcome outcome = Run({});
    EXPECT_EQ(outcome.exitCode, 5);
    EXPECT_TRUE(Contains(outcome.errors, "is locked")) << outcome.errors;
    EXPECT_EQ(Report(), report) << "that of the other writer";
    close(lock);
    EXPECT_EQ(Run({}).exitCode, 0);
}

/// Every second kill meets what the one before it has left.
TEST_F(IndexRunTest, KilledInItsFirstRunTheNextNeedsNoHand) {
    Write("cube.obj", ObjCube(4));
    const Arguments arguments = With({"-depth", "3", "-quiet"});
    const auto killTool = [](pid_t id) { (void)kill(id, SIGKILL); };
    Outcome outcome;
    int count = 1;
    for (; count < 1000; count += kStep) {
        if (count % 2 == 1) fs::remove_all(_base);
        if (!RunToCall(GRIDLOOM_INDEX, arguments, kChangingCalls, count, killTool, outcome)) break;
        ASSERT_EQ(outcome.exitCode, -SIGKILL);
        if (count % 2 == 1) continue;
        ASSERT_EQ(RunTool(GRIDLOOM_INDEX, arguments).exitCode, 0) << "call " << count;
        ASSERT_EQ(LiveFiles().size(), 3U) << "call " << count;
    }
    EXPECT_GT(count, 20);
}

TEST_F(IndexRunTest, WhatIsDamagedOnItsWayToTheDiskNeverGoesLive) {
    Write("cube.obj", ObjCube(4));
    ASSERT_EQ(Run({}).exitCode, 0);
    const Files index = LiveFiles();
    const std::pair<std::string, std::size_t> places[] = {
        {"Octrees0", 2000},
        {"Boxes",    47  },
        {"Parts",    20  }
    };
    for (const auto& [name, place] : places) {
        SCOPED_TRACE(name);
        Outcome outcome;
        const std::string path = _base + "/Dwh/2/" + name;
        const auto damage = [&path, offset = place](pid_t) {
            std::string bytes = ContentOf(path);
            bytes.at(offset) ^= 0x10;
            SetContent(path, bytes);
        };
        // Behind the three of the folder's start: the first file is being synced, and all are written.
        ASSERT_TRUE(RunToCall(GRIDLOOM_INDEX, With({}), {{SYS_fsync}}, 4, damage, outcome));
        EXPECT_EQ(outcome.exitCode, 4) << outcome.errors;
        EXPECT_TRUE(Contains(outcome.errors, "the new index is damaged")) << outcome.errors;
        EXPECT_EQ(LiveNumber(), 1);
        EXPECT_TRUE(LiveFiles() == index);
    }
}

#ifndef GRIDLOOM_SANITIZED  // a sanitizer keeps what was freed
TEST_F(IndexRunTest, MemoryDoesNotGrowWithTheParts) {
    long peaks[2] = {};
    int run = 0;
    for (const int count : {2000, 8000}) {
        Write(
            "scene.obj",
            ObjScene(
                count, [](int n) { return std::to_string(n); }, [](int) { return 4.0; }));
        ASSERT_EQ(Run({"-depth", "2", "-quiet"}).exitCode, 0);
        EXPECT_EQ(ReportTag("Parts"), count);
        peaks[run++] = ReportTag("PeakMemoryKiB:tool");
    }
    EXPECT_GT(peaks[0], 1000);
    EXPECT_LT(peaks[1], peaks[0] + 2048) << "KiB";
}

#endif

TEST_F(IndexRunTest, PicturesAndProgress) {
    Write("a/cube.obj", ObjCube(4));
    const std::string pictures = _folder / "pictures";
    Outcome outcome = Run({"-depth", "4", "-pictures", pictures, "-progress", "json"});
    ASSERT_EQ(outcome.exitCode, 0) << outcome.errors;
    EXPECT_TRUE(ContentOf(pictures + "/a_cube.obj.png").starts_with("\x89PNG"));
    EXPECT_TRUE(Contains(outcome.output, R"({"event":"part","id":"a/cube.obj","file":1,)"))
        << outcome.output;
    EXPECT_TRUE(
        Contains(outcome.output, R"({"event":"end","exit":0,"parts":1,"failed":0,"live":1})"));

    EXPECT_TRUE(Contains(Run({}).output, "[file 1 of 1, part 1 of 1] a/cube.obj\n"));
    outcome = Run({"-progress", "bar"});
    EXPECT_TRUE(Contains(outcome.errors, "[####")) << outcome.errors;
    EXPECT_FALSE(Contains(outcome.output, "[file"));
    Write("bad.obj", "");
    outcome = Run({"-quiet"});
    EXPECT_EQ(outcome.output, "\n");
    EXPECT_TRUE(outcome.errors.starts_with("gridloom-index: failed: bad.obj: ")) << outcome.errors;
    EXPECT_TRUE(Contains(Run({"-verbose"}).errors, "Begin build the parts"));
}

}  // namespace
