// The report: lines by hand (the time of day aside), and how it ends with the process.

#include "FileCase.h"

#include "IDX_WT_Report.h"

#include <regex>

namespace {

using Report = FileCase;

/// Ends a child process, which works on a report of its own, and gives the report.
template <class Work>
void ExpectReport(const std::string& path, int exitCode, const Work& work, const std::string& end) {
    const auto child = [&] {
        IDX_WT_Report::GetReport()->OpenWrite(path.c_str());
        work();
    };
    EXPECT_EXIT(child(), testing::ExitedWithCode(exitCode), "");
    EXPECT_EQ(ContentOf(path), end);
}

}  // namespace

TEST_F(Report, LinesAreFormattedAndFlushed) {
    const std::string path = _folder / "report";
    IDX_WT_Report& report = *IDX_WT_Report::GetReport();
    EXPECT_EQ(report.AddMsg("dropped"), IDX_True);
    EXPECT_EQ(report.OpenWrite((_folder / "no/report").c_str()), IDX_False);
    EXPECT_EQ(report.OpenWrite(path.c_str()), IDX_True);
    EXPECT_EQ(report.AddMsg("%d of %s", 3, "7"), IDX_True);
    EXPECT_EQ(IDX_WT_Report::AddTag("100 %d"), IDX_True);
    EXPECT_EQ(IDX_WT_Report::AddTag("%s", -5), IDX_True);
    EXPECT_EQ(IDX_WT_Report::AddTag("a", "%n", 7), IDX_True);
    EXPECT_EQ(IDX_WT_Report::AddTag("a", "b", "c"), IDX_True);
    report.AddMsg("%s", std::string(1500, 'x').c_str());
    IDX_WT_Report::AddTag(std::string(1500, 'y').c_str(), 1);
    const std::string text = "3 of 7\n100 %d\n%s:-5\na:%n:7\na:b:c\n" + std::string(1023, 'x') +
                             "\n" + std::string(1023, 'y') + "\n";
    EXPECT_EQ(ContentOf(path), text) << "each line is flushed";
    EXPECT_EQ(_trace.Take(), Lines());

    // A second file closes the first; one that can't be opened changes nothing.
    EXPECT_EQ(report.OpenWrite((_folder / "second").c_str()), IDX_True);
    EXPECT_EQ(report.OpenWrite((_folder / "no/report").c_str()), IDX_False);
    report.AddMsg("more");
    EXPECT_EQ(ContentOf(path), text);
    EXPECT_EQ(ContentOf(_folder / "second"), "more\n");
}

TEST_F(Report, StepsGoToTheTraceAndToTheReport) {
    const std::string path = _folder / "report";
    IDX_WT_Report::GetReport()->OpenWrite(path.c_str());
    IDX_WT_Report::Begin("100 %s", 0);
    IDX_WT_Report::Begin("inner", 2);
    IDX_WT_Report::End("inner", 2);
    IDX_WT_Report::End("never begun", -3);
    std::string lines;
    for (const std::string& line : _trace.Take()) lines += line + "\n";
    EXPECT_EQ(ContentOf(path), std::regex_replace(lines, std::regex("(^|\n)\n"), "$1"));
    const std::regex times("# \\d\\d:\\d\\d:\\d\\d - (Begin|End  ) ([^\n]*) \\(\\d+\\)\n");
    EXPECT_EQ(
        std::regex_replace(lines, times, "$1 $2\n"),
        "\nBegin 100 %s\n\n\t\tBegin inner\n\t\tEnd   inner\nEnd   never begun\n");

    IDX_WT_Report::Begin("deep", 5000);
    EXPECT_EQ(_trace.Take(), (Lines{"", std::string(1023, '\t')}));
    IDX_WT_Report::Begin(std::string(2000, 'n').c_str(), 1);
    EXPECT_EQ(_trace.Take()[1].size(), 1023u);
}

TEST_F(Report, EndsWithTheProcess) {
    const std::string path = _folder / "report";
    const auto fromDeepInside = [] {
        IDX_WT_Report::GetReport()->AddMsg("working");
        IDX_WT_Report::GetReport()->SetExitcode(3);
        std::exit(3);
    };
    ExpectReport(path, 3, fromDeepInside, "working\n[Return code is] : 3\nEndOfReport\n");
    ExpectReport(
        path, 0, [] { std::exit(0); }, "[Return code is] : 1\nEndOfReport\n");
    ExpectReport(
        path, 4, [] { _exit(4); }, "");
}
