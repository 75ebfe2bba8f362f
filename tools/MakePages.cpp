// Keeps the pages about the tools as their tables of options are: `make-pages write FOLDER` renews
// the generated parts of the pages in a source tree, `make-pages check FOLDER` names the pages that
// differ.
//
// A generated part of a page begins after a line with "generated: NAME", where NAME is that of the
// tool or of a section, and ends before the next line with "generated: end".

#include "DumpOptions.h"
#include "IndexOptions.h"
#include "Pages.h"
#include "QueryOptions.h"

#include <cstdio>
#include <fstream>
#include <sstream>

namespace {

std::string ContentOf(const std::string& iPath) {
    std::ostringstream content;
    content << std::ifstream(iPath, std::ios::binary).rdbuf();
    return content.str();
}

class Pages {
public:
    Pages(std::string iFolder, bool iWrites) : _folder(std::move(iFolder)), _writes(iWrites) {}

    /// Renews one part of a page, or compares it.
    void Set(const std::string& iPage, const std::string& iMark, const std::string& iPart) {
        const std::string path = _folder + "/" + iPage;
        const std::string before = ContentOf(path);
        const std::size_t mark = before.find("generated: " + iMark);
        const std::size_t end = before.find("generated: end", mark);
        if (mark == std::string::npos || end == std::string::npos) {
            return Fail(iPage, "has no lines 'generated: " + iMark + "' and 'generated: end'");
        }
        const std::size_t from = before.find('\n', mark) + 1;
        const std::size_t to = before.rfind('\n', end) + 1;
        const std::string after = before.substr(0, from) + iPart + before.substr(to);
        if (after == before) return;
        if (!_writes) return Fail(iPage, "isn't what the options of the tool give");
        if (!(std::ofstream(path, std::ios::binary) << after << std::flush)) {
            Fail(iPage, "can't be written");
        }
    }

    bool AreGood() const { return _areGood; }

private:
    void Fail(const std::string& iPage, const std::string& iReason) {
        std::fprintf(stderr, "make-pages: %s %s\n", iPage.c_str(), iReason.c_str());
        _areGood = false;
    }

    std::string _folder;
    bool _writes;
    bool _areGood = true;
};

}  // namespace

int main(int iCount, char** iArguments) {
    const std::string command = iCount == 3 ? iArguments[1] : "";
    if (command != "write" && command != "check") {
        std::fputs("usage: make-pages write|check FOLDER\n", stderr);
        return NumberOf(ExitCode::Usage);
    }
    IndexOptions index;
    QueryOptions query;
    DumpOptions dump;
    Pages pages(iArguments[2], command == "write");
    for (const Program& tool : {IndexProgram(index), QueryProgram(query), DumpProgram(dump)}) {
        const std::string manPage = "docs/man/" + tool.name + ".1";
        pages.Set("docs/tools.md", tool.name, MarkdownOf(tool));
        pages.Set(manPage, "synopsis", ManSynopsisOf(tool));
        pages.Set(manPage, "options", ManOptionsOf(tool));
        pages.Set("tools/completion/" + tool.name, tool.name, CompletionOf(tool));
    }
    return pages.AreGood() ? 0 : 1;
}
