// What gridloom-dump prints of each file of a small index, against a page that was compared with docs/file-formats.md
// field by field. GRIDLOOM_GOLDEN has that page.

#include "TemporaryFolder.h"
#include "ToolRun.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

const char* const kFiles[] = {"IDXBuffer", "1/Octrees0", "1/Boxes", "1/Parts"};

class GridloomDump : public testing::Test {
protected:
    GridloomDump() {
        SetContent(
            _folder / "cubes.obj", ObjScene(
                                       2, [](int n) { return "cube" + std::to_string(n); },
                                       [](int n) { return 1.0 + n; }));
        const Outcome outcome = RunTool(
            GRIDLOOM_INDEX, {"-index", _folder / "index", "-depth", "3", "-progress", "none",
                             _folder / "cubes.obj"});
        EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
    }

    std::string PathOf(const std::string& file) const { return _folder / ("index/Dwh/" + file); }

    TemporaryFolder _folder;
};

}  // namespace

TEST_F(GridloomDump, PrintsEveryFieldWithItsOffset) {
    std::string all;
    for (const char* file : kFiles) {
        const Outcome text = RunTool(GRIDLOOM_DUMP, {PathOf(file)});
        EXPECT_EQ(text.exitCode, 0) << text.errors;
        all += text.output.substr(text.output.find(file));

        const Outcome json = RunTool(GRIDLOOM_DUMP, {"-json", PathOf(file)});
        std::size_t nLines = 1;  // of the file
        const auto root = nlohmann::json::parse(json.output);
        for (const auto& block : root["blocks"]) nLines += 1 + block["fields"].size();
        const std::string& lines = text.output;
        EXPECT_EQ(nLines, std::count(lines.begin() + 1, lines.end(), '\n'));
    }
    EXPECT_EQ(all, ContentOf(GRIDLOOM_GOLDEN));
}

TEST_F(GridloomDump, ADamagedFileIsToldAsSuch) {
    for (const char* file : kFiles) {
        std::string bytes = ContentOf(PathOf(file));
        bytes[0] = '\7';
        SetContent(PathOf(file), bytes);
        EXPECT_EQ(RunTool(GRIDLOOM_DUMP, {PathOf(file)}).exitCode, file == kFiles[2] ? 0 : 4)
            << file;
        bytes.pop_back();
        SetContent(PathOf(file), bytes);
        EXPECT_EQ(RunTool(GRIDLOOM_DUMP, {PathOf(file)}).exitCode, 4) << file;
    }
    EXPECT_EQ(RunTool(GRIDLOOM_DUMP, {_folder / "none"}).exitCode, 5);
    EXPECT_EQ(RunTool(GRIDLOOM_DUMP, {}).exitCode, 2);
}
