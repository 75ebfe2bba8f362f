// Collections, trace and the fatal stop.

#include "TraceRecorder.h"

#include "VEXFatalError.h"
#include "VEXRawCollPV.h"
#include "VEXRawCollint.h"

#include <cstdlib>
#include <gtest/gtest.h>

namespace {

TEST(Collections, CountFromOneAndGrow) {
    int things[1000];
    VEXRawCollPV pointers(0);
    VEXRawCollint numbers(3);
    for (int i = 0; i < 1000; ++i) {
        EXPECT_EQ(pointers.Append(&things[i]), i + 1);
        EXPECT_EQ(numbers.Append(i), i + 1);
    }
    EXPECT_EQ(numbers[1000], 999);
    pointers.RemovePosition(1);
    pointers.RemovePosition(999);
    EXPECT_EQ(pointers.Size(), 998);
    EXPECT_EQ(pointers[1], &things[1]);
    EXPECT_EQ(pointers[998], &things[998]);

    VEXRawCollPV copy(pointers);
    pointers[1] = nullptr;
    EXPECT_EQ(copy[1], &things[1]) << "a copy has entries of its own";
    copy = pointers;
    EXPECT_EQ(copy[1], nullptr);
    EXPECT_EQ(copy.Size(2000), 2000);
    for (const auto handling : {VEXCollec::KeepMemory, VEXCollec::ReleaseMemory}) {
        copy.RemoveAll(handling);
        EXPECT_EQ(copy.Append(&things[5]), 1);
        EXPECT_EQ(copy[1], &things[5]);
    }
}

TEST(Trace, FormatsLinesOfAnyLength) {
    const std::string longText(100000, 'x');
    TraceRecorder trace;
    IDX_Base_Trace::Debug("%s %d %%", "a", 5);
    IDX_Base_Trace::Info("%s", "");
    IDX_Base_Trace::Info("%s!", longText.c_str());
    EXPECT_EQ(trace.Take(), (Lines{"a 5 %", "", longText + "!"}));
}

/// Traces at both levels without a sink.
void TraceAndExit(const char* level) {
    unsetenv("KEELSTONE_TRACE");
    if (level != nullptr) setenv("KEELSTONE_TRACE", level, 1);
    { const TraceRecorder taken; }
    IDX_Base_Trace::Info("info");
    IDX_Base_Trace::Debug("debug");
    std::exit(0);
}

TEST(TraceDeathTest, GoesToTheStandardErrorByDefault) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(TraceAndExit(nullptr), testing::ExitedWithCode(0), "^info\n$");
    EXPECT_EXIT(TraceAndExit("info"), testing::ExitedWithCode(0), "^info\n$");
    EXPECT_EXIT(TraceAndExit("debug"), testing::ExitedWithCode(0), "^info\ndebug\n$");
}

TEST(FatalErrorDeathTest, NamesThePlaceAndAborts) {
    EXPECT_EXIT(
        VEXFatalError("AssertionFailed: n > 0", nullptr, nullptr, nullptr, "Some.cpp", 42),
        testing::KilledBySignal(SIGABRT), "Some.cpp:42: AssertionFailed: n > 0");
}

}  // namespace
