// gridloom-index killed at every system call of its own that opens, writes, renames or removes something, one after the
// other, while a reader looks on. There is always a whole index to be read, and the next run needs no hand.

#include "IndexCheck.h"
#include "PartIndex.h"
#include "Queries.h"
#include "TemporaryFolder.h"
#include "ToolRun.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <gtest/gtest.h>
#include <new>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Names = std::vector<std::string>;

#ifdef GRIDLOOM_SANITIZED
constexpr int kStep = 9;  // a process starts slowly there
#else
constexpr int kStep = 1;
#endif

std::vector<std::string> ArgumentsFor(const std::string& base, const std::string& input) {
    return {"-index", base, "-depth", "3", "-jobs", "1", "-quiet", input};
}

/// Runs the tool, and kills it at a call.
/// @return whether it was killed; else it has made its index live
bool RunAndKill(const std::string& base, const std::string& input, int call) {
    Outcome outcome;
    const auto killTool = [](pid_t id) { (void)kill(id, SIGKILL); };
    return RunToCall(
        GRIDLOOM_INDEX, ArgumentsFor(base, input), kChangingCalls, call, killTool, outcome);
}

/// The identifiers of the live index, each found by what is solid at its place; throws what is wrong with it.
Names Look(const std::string& base) {
    const PartIndex index = PartIndex::OpenBase(base);
    Names names;
    for (const StoredPart& part : FindByName(index, "*")) {
        const IDX_Point low = part.record.box.GetLow();
        const Parts found = FindAt(index, {low.x + 0.5, low.y + 0.5, low.z + 0.5});
        names.push_back(found.size() == 1 ? found[0].identifier : "nothing");
    }
    return names;
}

/// A process that looks at an index all the time.
class Reader {
public:
    Reader(const std::string& base, const std::vector<Names>& allowed)
        : _counts(*new (mmap(
              nullptr, sizeof(Counts), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
                      Counts),
          _process(fork()) {
        if (_process == 0) Watch(base, allowed);
    }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    ~Reader() { munmap(&_counts, sizeof _counts); }

    void Stop() {
        _counts.isOver = true;
        waitpid(_process, nullptr, 0);
        EXPECT_EQ(_counts.faults, 0);
    }

private:
    struct Counts {
        std::atomic<bool> isOver = false;
        std::atomic<int> faults = 0;
    };

    [[noreturn]] void Watch(const std::string& base, const std::vector<Names>& allowed) {
        do {
            try {
                const Names names = Look(base);
                _counts.faults += std::count(allowed.begin(), allowed.end(), names) == 0 ? 1 : 0;
            } catch (const std::exception& error) {
                std::fprintf(stderr, "reader: %s\n", error.what());
                ++_counts.faults;
            }
        } while (!_counts.isOver);
        _exit(0);
    }

    Counts& _counts;
    pid_t _process;
};

TEST(KilledRun, LeavesAWholeIndexAtEveryCall) {
    const TemporaryFolder folder;
    const std::string base = folder / "base";
    const std::vector<Names> contents = {
        {"one.obj", "two.obj"},
        {"three.obj"        }
    };
    for (const char* input : {"input0", "input1"})
        std::filesystem::create_directory(folder / input);
    SetContent(folder / "input0/one.obj", ObjCube(1));
    SetContent(folder / "input0/two.obj", ObjCube(1, 5));
    SetContent(folder / "input1/three.obj", ObjCube(1, 2));
    ASSERT_EQ(RunTool(GRIDLOOM_INDEX, ArgumentsFor(base, folder / "input0")).exitCode, 0);

    Reader reader(base, contents);
    Names live = contents[0];
    int nKills = 0;
    for (bool isKilled = true; isKilled; ++nKills) {
        const std::size_t next = live == contents[0] ? 1 : 0;
        const int call = 1 + kStep * nKills;
        isKilled = RunAndKill(base, folder / ("input" + std::to_string(next)), call);
        const Names names = Look(base);
        ASSERT_TRUE(names == contents[next] || (isKilled && names == live)) << "at call " << call;
        const PartIndex index = PartIndex::OpenBase(base);
        ASSERT_EQ(CheckIndex(index.Folder(), {}).problems, Names());
        live = names;
    }
    reader.Stop();
    EXPECT_GT(nKills, 30 / kStep);
}

}  // namespace
