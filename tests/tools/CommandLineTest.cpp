// Command lines, what they print, and their exit codes, as tests/golden/tools tells them. Each of
// its lines was compared with docs/tools.md. In these files
//   "# "  begins a remark,
//   "$ "  a command line of the shell,
//   "! "  a line on the standard error, after those on the standard output,
//   "= "  the exit code, when it isn't 0.
// T stands for a time. After a failure NAME.txt in the folder where the test runs has what comes
// now.

#include "ToolRun.h"

#include <gtest/gtest.h>
#include <regex>
#include <sstream>

namespace {

/// Times, and the width of the column that they are in, differ from run to run.
std::string WithoutTimes(const std::string& text) {
    const std::regex heading(" +ms\n");
    const std::regex row("([0-9]) +[0-9]+[.][0-9]\n");
    const std::regex event("\"ms\":[0-9.e+-]+");
    const std::string table = regex_replace(regex_replace(text, heading, " ms\n"), row, "$1 T\n");
    return regex_replace(table, event, "\"ms\":T");
}

std::string Shown(const Outcome& outcome) {
    std::string text = WithoutTimes(outcome.output);
    if (!text.empty() && !text.ends_with('\n')) text += "(no line break)\n";
    std::istringstream errors(outcome.errors);
    for (std::string line; std::getline(errors, line);) text += "! " + line + "\n";
    return outcome.exitCode == 0 ? text : text + "= " + std::to_string(outcome.exitCode) + "\n";
}

/// The transcript as it is now.
std::string Replay(const std::string& transcript) {
    const TemporaryFolder folder;
    std::string replay;
    bool wasRemark = true;
    std::istringstream lines(transcript);
    for (std::string line; std::getline(lines, line);) {
        const bool isRemark = line.starts_with("# ");
        const bool isCommand = line.starts_with("$ ");
        if (!isRemark && !isCommand) continue;
        if (isRemark && !wasRemark) replay += "\n";
        replay += line + "\n";
        if (isCommand) replay += Shown(RunIn(folder, line.substr(2)));
        wasRemark = isRemark;
    }
    return replay;
}

class CommandLine : public testing::TestWithParam<const char*> {};

TEST_P(CommandLine, GivesItsTranscript) {
    const std::string name = std::string(GetParam()) + ".txt";
    const std::string transcript = ContentOf(GRIDLOOM_TRANSCRIPTS "/" + name);
    ASSERT_FALSE(transcript.empty());
    const std::string replay = Replay(transcript);
    EXPECT_EQ(replay, transcript);
    if (replay != transcript) SetContent(name, replay);
}

INSTANTIATE_TEST_SUITE_P(
    Tools,
    CommandLine,
    testing::Values(
        "answers",
        "damage",
        "determinism",
        "dump",
        "exports",
        "index",
        "input",
        "limits",
        "progress",
        "usage"),
    [](const auto& test) { return std::string(test.param); });

}  // namespace
