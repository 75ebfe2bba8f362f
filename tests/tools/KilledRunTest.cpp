// gridloom-index killed at every system call of its own that opens, writes, renames or removes
// something, one after the other. There is always a whole index to be read, and the next run needs
// no hand.

#include "ToolRun.h"

#include <csignal>
#include <gtest/gtest.h>

namespace {

#ifdef GRIDLOOM_SANITIZED
constexpr int kStep = 9;  // a process starts slowly there
#else
constexpr int kStep = 1;
#endif

const char kIndex[] = "gridloom-index -index base -depth 3 -jobs 1 -quiet ";

/// Runs the tool, and kills it at a call.
/// @return whether it was killed; else it has come to its end
bool RunAndKill(const TemporaryFolder& folder, const std::string& input, int call) {
    Outcome outcome;
    const auto killTool = [](pid_t id) { (void)kill(id, SIGKILL); };
    const bool isKilled =
        RunToCall(folder, kIndex + input, kChangingCalls, call, killTool, outcome);
    EXPECT_EQ(isKilled ? outcome.exitCode : -SIGKILL, -SIGKILL);
    return isKilled;
}

/// The identifiers of the live index, after it was verified.
std::string Look(const TemporaryFolder& folder) {
    const Outcome outcome = RunIn(
        folder,
        "gridloom-query -index base -verify > verified && "
        "gridloom-query -index base -list | sed -n 's/[.]obj .*//p' || cat verified");
    return outcome.output + outcome.errors;
}

TEST(KilledRun, LeavesAWholeIndexAtEveryCall) {
    const TemporaryFolder folder;
    RunIn(
        folder,
        "mkdir in0 in1; echo one 0 0 0 1 1 1 | boxes > in0/one.obj;"
        "echo two 5 0 0 6 1 1 | boxes > in0/two.obj;"
        "echo three 2 0 0 3 1 1 | boxes > in1/three.obj");
    const std::string contents[] = {"one\ntwo\n", "three\n"};
    ASSERT_EQ(RunIn(folder, std::string(kIndex) + "in0").exitCode, 0);
    std::size_t live = 0;
    int nKills = 0;
    for (bool isKilled = true; isKilled; ++nKills) {
        const std::size_t next = 1 - live;
        isKilled = RunAndKill(folder, "in" + std::to_string(next), 1 + kStep * nKills);
        const std::string names = Look(folder);
        if (names == contents[next]) {
            live = next;
        } else {
            ASSERT_TRUE(isKilled && names == contents[live]) << "kill " << nKills << ": " << names;
        }
    }
    EXPECT_GT(nKills, 30 / kStep);
}

/// Every second kill meets what the one before it has left.
TEST(KilledRun, TheFirstOneNeedsNoHandEither) {
    const TemporaryFolder folder;
    RunIn(folder, "echo one 0 0 0 1 1 1 | boxes > one.obj");
    int call = 1;
    for (bool isKilled = true; isKilled; call += kStep) {
        if (call % 2 == 1) RunIn(folder, "rm -rf base");
        isKilled = RunAndKill(folder, "one.obj", call);
        if (call % 2 == 1) continue;
        ASSERT_EQ(RunIn(folder, std::string(kIndex) + "one.obj").exitCode, 0) << "call " << call;
        ASSERT_EQ(Look(folder), "one\n") << "call " << call;
    }
    EXPECT_GT(call, 20);
}

}  // namespace
