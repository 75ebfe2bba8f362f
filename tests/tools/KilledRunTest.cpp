// gridloom-index killed at every system call of its own that opens, writes, renames or removes something, one after the
// other, while a reader looks on. There is always a whole index to be read, and the next run needs no hand.

#include "IndexCheck.h"
#include "PartIndex.h"
#include "Queries.h"
#include "TemporaryFolder.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <gtest/gtest.h>
#include <iterator>
#include <new>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Names = std::vector<std::string>;

constexpr long kCalls[] = {SYS_openat,   SYS_write,     SYS_pwrite64,  SYS_writev, SYS_unlink,
                           SYS_unlinkat, SYS_rename,    SYS_renameat2, SYS_mkdir,  SYS_mkdirat,
                           SYS_rmdir,    SYS_ftruncate, SYS_fallocate, SYS_fsync,  SYS_fdatasync};

#ifdef GRIDLOOM_SANITIZED
constexpr int kStep = 9;  // a process starts slowly there
#else
constexpr int kStep = 1;
#endif

/// Becomes the tool, under the eyes of its parent.
[[noreturn]] void BecomeTool(const std::string& base, const std::string& input) {
    setenv("ASAN_OPTIONS", "detect_leaks=0", 1);  // the leak check doesn't work under a tracer
    ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    execl(
        GRIDLOOM_INDEX, GRIDLOOM_INDEX, "-index", base.c_str(), "-depth", "3", "-jobs", "1",
        "-progress", "none", "-quiet", input.c_str(), nullptr);
    _exit(127);
}

bool IsCounted(pid_t tool) {
    __ptrace_syscall_info info = {};
    if (ptrace(PTRACE_GET_SYSCALL_INFO, tool, sizeof info, &info) <= 0) return false;
    if (info.op != PTRACE_SYSCALL_INFO_ENTRY) return false;
    return std::count(std::begin(kCalls), std::end(kCalls), static_cast<long>(info.entry.nr)) > 0;
}

/// Runs the tool, and kills it at the entry of a call.
/// @param call  number of the call, from 1; 0 lets it run to its end
/// @return its exit code, or -1 when it was killed
int RunUntil(const std::string& base, const std::string& input, int call) {
    const pid_t tool = fork();
    if (tool == 0) BecomeTool(base, input);
    int status = 0;
    waitpid(tool, &status, 0);
    ptrace(PTRACE_SETOPTIONS, tool, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    int signal = 0;
    for (int seen = 0; !WIFEXITED(status) && !WIFSIGNALED(status);) {
        ptrace(PTRACE_SYSCALL, tool, nullptr, signal);
        waitpid(tool, &status, 0);
        signal = 0;
        if (!WIFSTOPPED(status)) continue;
        if (WSTOPSIG(status) != (SIGTRAP | 0x80)) {
            signal = WSTOPSIG(status);
        } else if (IsCounted(tool) && ++seen == call) {
            kill(tool, SIGKILL);
        }
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void WriteCube(const std::string& path, int place) {
    std::string text;
    for (int corner = 0; corner < 8; ++corner) {
        text += "v " + std::to_string(place + (corner & 1)) + " " +
                std::to_string(corner >> 1 & 1) + " " + std::to_string(corner >> 2) + "\n";
    }
    SetContent(path, text + "f 1 3 4 2\nf 5 6 8 7\nf 1 2 6 5\nf 3 7 8 4\nf 1 5 7 3\nf 2 4 8 6\n");
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
        kill(_process, SIGKILL);
        waitpid(_process, nullptr, 0);
        EXPECT_GT(_counts.looks, 0);
        EXPECT_EQ(_counts.faults, 0);
    }

private:
    struct Counts {
        std::atomic<int> looks = 0;
        std::atomic<int> faults = 0;
    };

    [[noreturn]] void Watch(const std::string& base, const std::vector<Names>& allowed) {
        for (;;) {
            try {
                const Names names = Look(base);
                _counts.faults += std::count(allowed.begin(), allowed.end(), names) == 0 ? 1 : 0;
            } catch (const std::exception& error) {
                std::fprintf(stderr, "reader: %s\n", error.what());
                ++_counts.faults;
            }
            ++_counts.looks;
        }
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
    WriteCube(folder / "input0/one.obj", 0);
    WriteCube(folder / "input0/two.obj", 5);
    WriteCube(folder / "input1/three.obj", 2);
    ASSERT_EQ(RunUntil(base, folder / "input0", 0), 0);

    Reader reader(base, contents);
    Names live = contents[0];
    int nKills = 0;
    for (int call = 1, exitCode = -1; exitCode != 0; call += kStep) {
        const std::size_t next = live == contents[0] ? 1 : 0;
        exitCode = RunUntil(base, folder / ("input" + std::to_string(next)), call);
        ASSERT_TRUE(exitCode == -1 || exitCode == 0) << exitCode << " at call " << call;
        nKills += exitCode == -1 ? 1 : 0;
        const Names names = Look(base);
        ASSERT_TRUE(names == live || names == contents[next]) << "killed at call " << call;
        EXPECT_TRUE(exitCode != 0 || names == contents[next]);
        const PartIndex index = PartIndex::OpenBase(base);
        ASSERT_EQ(CheckIndex(index.Folder(), {}).problems, Names());
        live = names;
    }
    reader.Stop();
    EXPECT_GT(nKills, 30 / kStep);
}

}  // namespace
