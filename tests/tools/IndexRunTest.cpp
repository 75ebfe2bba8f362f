// gridloom-index when something happens to it or to its children: a crash, a request to stop,
// damage on the way to the disk. There is always a whole live index, and every part is accounted
// for.

#include "ToolRun.h"

#include <csignal>
#include <cstring>
#include <gtest/gtest.h>
#include <sys/syscall.h>

namespace {

/// Of a child of the tool: it has just been tied to the tool.
const CallsOf kChildStart = {{SYS_close_range}, "", true};

class IndexRunTest : public testing::Test {
protected:
    std::string Print(const std::string& command) const { return RunIn(_folder, command).output; }

    /// Makes an index of one cube, which is live from then on, and a copy of it.
    void MakeIndex() const {
        const std::string made = Print(
            "mkdir in; echo cube 0 0 0 4 4 4 | boxes > in/cube.obj;"
            "gridloom-index -index base in && cp -r base/Dwh/1 first && echo made");
        ASSERT_TRUE(made.ends_with("made\n")) << made;
    }

    void ExpectThatIndex() const {
        EXPECT_EQ(
            Print("diff -r first base/Dwh/1; od -An -td4 base/Dwh/IDXBuffer"), "           1\n");
    }

    std::string Failed() const { return Print("cat base/BBDMonitor/failed.txt"); }

    /// The number after a tag of the report.
    int ReportTag(const std::string& tag) const {
        return std::atoi(
            Print("sed -n 's/^" + tag + "://p' base/BBDMonitor/gridloom-index.txt").c_str());
    }

    TemporaryFolder _folder;
};

TEST_F(IndexRunTest, OnePartThatCrashesIsOneFailure) {
    Print("mkdir in; for n in 1 2 3; do echo $n 0 0 0 4 4 4 | boxes > in/$n.obj; done");
    TracedTool tool(_folder, "gridloom-index -index base -jobs 1 in");
    const pid_t child = tool.RunTo(kChildStart, 4);  // after the three imports
    ASSERT_GT(child, 0);
    (void)kill(child, SIGABRT);  // a sanitizer takes SIGSEGV for itself
    const Outcome outcome = tool.Wait();
    EXPECT_EQ(outcome.exitCode, 3) << outcome.errors;
    EXPECT_EQ(Failed(), "1.obj\tits build crashed: Aborted\n");
    EXPECT_EQ(ReportTag("Parts"), 2);
}

TEST_F(IndexRunTest, AnImportThatCrashesBesideOthersIsTriedAlone) {
    Print("mkdir in; for n in 1 2 3 4 5 6 7 8 9; do echo $n 0 0 0 4 4 4 | boxes > in/$n.obj; done");
    for (const int nCrashes : {1, 2}) {
        TracedTool tool(_folder, "gridloom-index -index base -jobs 1 in");
        for (int crash = 0; crash < nCrashes; ++crash) {
            const pid_t child = tool.RunTo({{SYS_openat}, "/5.obj", true});
            ASSERT_GT(child, 0);
            (void)kill(child, SIGABRT);
        }
        const Outcome outcome = tool.Wait();
        EXPECT_EQ(outcome.exitCode, nCrashes == 1 ? 0 : 3) << outcome.errors;
        EXPECT_EQ(ReportTag("Parts"), nCrashes == 1 ? 9 : 8);
        EXPECT_EQ(Failed(), nCrashes == 1 ? "" : "5.obj\tthe import crashed: Aborted\n");
    }
}

TEST_F(IndexRunTest, ARequestToStopLeavesTheLiveIndexAndNoProcess) {
    MakeIndex();
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGKILL}) {
        SCOPED_TRACE(strsignal(signal));
        TracedTool tool(_folder, "gridloom-index -index base in");
        const pid_t child = tool.RunTo(kChildStart, 2);  // its build
        ASSERT_GT(child, 0);
        (void)kill(tool.Id(), signal);
        const Outcome outcome = tool.Wait(true);
        EXPECT_EQ(outcome.exitCode, signal == SIGKILL ? -SIGKILL : 130) << outcome.errors;
        EXPECT_EQ(tool.EndOf(child), -SIGKILL) << "the child was left to itself";
        ExpectThatIndex();
        if (signal == SIGKILL) continue;
        EXPECT_EQ(Print("ls base/Dwh/2"), "");
        EXPECT_EQ(
            Print("tail -n 2 base/BBDMonitor/gridloom-index.txt"),
            "[Return code is] : 130\nEndOfReport\n");
    }
    EXPECT_EQ(RunIn(_folder, "gridloom-index -index base in").exitCode, 0) << "no hand is needed";
}

TEST_F(IndexRunTest, WhatIsDamagedOnItsWayToTheDiskNeverGoesLive) {
    MakeIndex();
    for (const char* damage : {"Octrees0 2000 '\\20'", "Boxes 47 '\\20'", "Parts 20 '\\20'"}) {
        SCOPED_TRACE(damage);
        const auto act = [&](pid_t) { Print(std::string("poke base/Dwh/2/") + damage); };
        Outcome outcome;
        // After the three of the folder's start the first file is being synced, and all are
        // written.
        ASSERT_TRUE(
            RunToCall(_folder, "gridloom-index -index base in", {{SYS_fsync}}, 4, act, outcome));
        EXPECT_EQ(outcome.exitCode, 4) << outcome.errors;
        EXPECT_NE(outcome.errors.find("the new index is damaged"), std::string::npos);
        ExpectThatIndex();
    }
}

/// The reader is about to open a file of an index when two runs replace it: what it has opened
/// before is of another index.
TEST_F(IndexRunTest, AReaderAmongSwapsReadsOneIndex) {
    MakeIndex();
    const std::pair<const char*, const char*> cases[] = {
        {"/1/Boxes",    "gridloom-query -index base -verify"},
        {"/1/Octrees0", "gridloom-query -index base -list"  },
    };
    for (const auto& [file, question] : cases) {
        SCOPED_TRACE(question);
        TracedTool query(_folder, question);
        ASSERT_GT(query.RunTo({{SYS_openat}, file}), 0);
        Print(
            "for n in 1 2; do echo $n 0 0 0 5 5 5 | boxes >> more.obj;"
            "gridloom-index -index base more.obj in; done");
        const Outcome outcome = query.Wait();
        EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
        EXPECT_EQ(outcome.output, Print(question));
    }
}

#ifndef GRIDLOOM_SANITIZED  // a sanitizer keeps what was freed
TEST_F(IndexRunTest, MemoryDoesNotGrowWithTheParts) {
    int peaks[2] = {};
    int run = 0;
    for (const char* count : {"2000", "8000"}) {
        Print(
            std::string("seq ") + count +
            " | awk '{ print $1, 8 * $1, 0, 0, 8 * $1 + 4, 4, 4 }' | boxes > scene.obj;"
            "gridloom-index -index base -depth 2 -quiet scene.obj");
        EXPECT_EQ(ReportTag("Parts"), std::atoi(count));
        peaks[run++] = ReportTag("PeakMemoryKiB:tool");
    }
    EXPECT_GT(peaks[0], 1000);
    EXPECT_LT(peaks[1], peaks[0] + 2048) << "KiB";
}
#endif

}  // namespace
