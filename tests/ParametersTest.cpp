// The command line: what is printed and traced, in its order, and what is stored; and the order in
// which the objects of the process go.

#include "BBDMessage.h"
#include "TemporaryFolder.h"

#include "IDX_Base_Trace.h"
#include "IDX_Status.h"
#include "IDX_WT_File.h"
#include "IDX_WT_Report.h"
#include "PLMIdxConnexionParametersReader.h"
#include "PLMIdxDirectoryManager.h"
#include "PLMIdxParameters.h"
#include "PLMIdxParametersReader.h"

#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <new>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

int newsUntilRefusal = -1;  ///< requests of new (std::nothrow) that still succeed; below 0 for all

bool IsRefused() {
    return newsUntilRefusal >= 0 && newsUntilRefusal-- == 0;
}

void (*atClose)(FILE*) = nullptr;  ///< called at each fclose
bool areDirectoriesGone = false;

}  // namespace

// The program's own services, which the libraries call.

#pragma GCC visibility push(default)

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return IsRefused() ? nullptr : ::operator new(size);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return IsRefused() ? nullptr : ::operator new[](size);
}

extern "C" int fclose(FILE* stream) {
    static auto* genuine = reinterpret_cast<decltype(fclose)*>(dlsym(RTLD_NEXT, "fclose"));
    if (atClose != nullptr) atClose(stream);
    return genuine(stream);
}

/// The destructor of the directory manager, as the end of the process calls it.
extern "C" void _ZN22PLMIdxDirectoryManagerD1Ev(PLMIdxDirectoryManager* manager) {
    static auto* genuine = reinterpret_cast<void (*)(PLMIdxDirectoryManager*)>(
        dlsym(RTLD_NEXT, "_ZN22PLMIdxDirectoryManagerD1Ev"));
    genuine(manager);
    areDirectoriesGone = true;
}

#pragma GCC visibility pop

namespace {

void PrintTrace(IDX_Base_Trace::Level level, const char* line, void*) {
    std::printf("%c: %s\n", level == IDX_Base_Trace::LevelInfo ? 'I' : 'D', line);
}

/// Runs something in a process of its own. Gives what it printed and traced, in the order of both.
std::string InChild(const std::function<void()>& run) {
    const TemporaryFolder folder;
    const std::string path = folder / "output";
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        if (std::freopen(path.c_str(), "w", stdout) == nullptr) _exit(1);
        IDX_Base_Trace::SetSink(PrintTrace, nullptr);
        run();
        std::fflush(stdout);
        _exit(0);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    return ContentOf(path);
}

/// Reads a command line whose arguments are separated by blanks; _ is the empty argument. The
/// status and what is stored then is printed as the last line.
void Read(PLMIdxParametersReader& reader, const std::string& line) {
    std::vector<std::string> words = {"-help"};  // the program's own name, which isn't looked at
    std::istringstream stream(line);
    for (std::string word; stream >> word;) words.push_back(word == "_" ? "" : word);
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    const long int status = reader.Read(static_cast<int>(arguments.size()), arguments.data());
    std::printf(status == IDX_E_FAIL ? "failed" : "%ld", status);
    for (const char* name : {"in", "fast", "größe", "hidden", "old", "c", "h"}) {
        const char* value = PLMIdxParameters::Get(name);
        if (value != nullptr) std::printf(" %s=%s", name, value);
    }
}

/// A tool with parameters of all kinds.
struct Tool {
    Tool() {
        EXPECT_EQ(reader.DeclareParameter("in", false, false, "Input folder"), IDX_S_OK);
        EXPECT_EQ(reader.DeclareParameter("fast", false, true, "100% unchecked"), IDX_S_OK);
        EXPECT_EQ(reader.RedirectParameter("c", &connexion), IDX_S_OK);
        EXPECT_EQ(reader.DeclareParameter("hidden", false, false, ""), IDX_S_OK);
        EXPECT_EQ(reader.IgnoreParameter("old"), IDX_S_OK);
        EXPECT_EQ(reader.IgnoreParameter("longer-than-any-other"), IDX_S_OK);
        EXPECT_EQ(reader.DeclareParameter("größe", false, false, "Size"), IDX_S_OK);
        EXPECT_EQ(reader.DeclareParameter("h", false, true, ""), IDX_S_OK);
    }

    void Run(const std::string& line) {
        Read(reader, line);
        PLMIdxConnexionParametersReader pairs(connexion);
        for (int i = 1; i <= pairs.GetNames().Size(); ++i) {
            const char* name = pairs.GetNames()[i];
            std::printf(" (%s|%s)", name, pairs.GetValues()[i].ConvertToChar());
        }
    }

    PLMIdxParametersReader reader;
    PLMIdxConnexionParametersReader connexion;
};

/// A specific reader that answers as it should for a test.
struct Answering : PLMIdxISpecificParametersReader {
    long int Set(const char*) override { return status; }
    void GetUsage(
        VEXListValVEXUnicodeString& values,
        VEXListValVEXUnicodeString& usages,
        VEXListValVEXBoolean& mandatories) override {
        for (int i = 0; i < nLines[0]; ++i) values.Append("X=Y");
        for (int i = 0; i < nLines[1]; ++i) usages.Append("pair");
        for (int i = 0; i < nLines[2]; ++i) mandatories.Append(static_cast<VEXBoolean>(i % 2));
    }

    long int status = 0;
    int nLines[3] = {};  ///< of values, texts, and whether they are mandatory
};

void RunTool(const std::string& line) {
    Tool().Run(line);
}

/// The store has values from elsewhere when the second tool reads, and the first again.
void RunTwoTools(const std::string& line) {
    Tool first;
    Tool second;
    first.Run(line);
    second.Run("-fast -in b -old 1");
    first.Run("-in c");
}

void DeclareAgain(const std::string& line) {
    Tool tool;
    for (const char* name : {"in", "old", "c"}) {
        EXPECT_EQ(tool.reader.DeclareParameter(name, true, true, "its own"), IDX_E_FAIL);
        EXPECT_EQ(tool.reader.IgnoreParameter(name), IDX_E_FAIL);
        EXPECT_EQ(tool.reader.RedirectParameter(name, &tool.connexion), IDX_E_FAIL);
    }
    tool.Run(line);
}

void RunMandatory(const std::string& line) {
    PLMIdxParametersReader reader;
    reader.DeclareParameter("in", true, false, "In");
    reader.IgnoreParameter("old");
    reader.DeclareParameter("hidden", true, false, "");
    reader.DeclareParameter("fast", true, true, "Fast");
    Read(reader, line);
}

void RunAnswering(const std::string& line) {
    std::istringstream numbers(line);
    Answering answering;
    numbers >> answering.status;
    for (int& n : answering.nLines) numbers >> n;
    PLMIdxParametersReader reader;
    reader.RedirectParameter("special", &answering);
    reader.DeclareParameter("in", false, false, "In");
    Read(reader, "-special a -special b -in x");
}

/// The blocks are the record, the buckets and the entry. A record without an entry stays.
void DeclareWithoutMemory(const std::string&) {
    PLMIdxParametersReader reader;
    for (int nBlocks = 0; nBlocks < 5; ++nBlocks) {
        newsUntilRefusal = nBlocks;
        const long int status = reader.DeclareParameter("in", true, false, "In");
        newsUntilRefusal = -1;
        std::printf("%d", status == IDX_E_FAIL);
    }
    reader.Usage();
}

/// Tools by name: each reads a command line.
const std::map<std::string, void (*)(const std::string&)> kTools = {
    {"all kinds",                                                           RunTool             },
    {"all kinds, read by two tools",                                        RunTwoTools         },
    {"each name declared again in each way",                                DeclareAgain        },
    {"mandatory parameters",                                                RunMandatory        },
    {"a reader of its own: status, lines of values, texts and mandatories", RunAnswering        },
    {"no memory for the first, second, ... block of a declaration",         DeclareWithoutMemory},
};

/// tests/golden/command-line.txt has command lines after "$ ", for the tool that "== " names, each
/// with what is printed for it. It was compared with docs/file-formats.md, "Command line".
TEST(CommandLine, PrintsAndStoresAsTheGoldenText) {
    const std::string golden = ContentOf(GRIDLOOM_GOLDEN_FOLDER "/command-line.txt");
    std::istringstream lines(golden);
    std::string all;
    std::string tool;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with("== ")) tool = line.substr(3);
        if (line.starts_with("== ")) all += line + '\n';
        if (!line.starts_with("$ ")) continue;
        all += line + '\n' + InChild([&] { kTools.at(tool)(line.substr(2)); }) + '\n';
    }
    EXPECT_EQ(all, golden);
}

TEST(Store, AValueIsSetOnceAndStaysWhereItIs) {
    EXPECT_EQ(PLMIdxParameters::Get("store"), nullptr);
    for (int nBlocks = 0; nBlocks < 3; ++nBlocks) {  // the table, its buckets
        newsUntilRefusal = nBlocks;
        EXPECT_EQ(PLMIdxParameters::Set("store", "first"), nBlocks < 2 ? IDX_E_FAIL : IDX_S_OK);
        newsUntilRefusal = -1;
    }
    const char* value = PLMIdxParameters::Get("store");
    for (int i = 0; i < 1000; ++i) {
        EXPECT_EQ(PLMIdxParameters::Set(("store" + std::to_string(i)).c_str(), ""), IDX_S_OK);
    }
    EXPECT_EQ(PLMIdxParameters::Set("store", "second"), IDX_E_FAIL);
    EXPECT_EQ(PLMIdxParameters::Get("store"), value);
    EXPECT_STREQ(value, "first");
    EXPECT_STREQ(PLMIdxParameters::Get("store999"), "");
    EXPECT_EQ(PLMIdxParameters::Get("Store"), nullptr);
}

/// Runs when the report and the registry of files close what is open, at the end of the process.
void TellWhatIsGone(FILE* stream) {
    const std::filesystem::path path =
        std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fileno(stream)));
    if (path.extension() == ".gcda") return;  // of a build that measures coverage
    VEXString code;
    VEXUnicodeString text;
    BBDMessageSeverity severity;
    const bool hasMessage = BBDMessage::Pop(severity, code, text);
    std::fprintf(
        stderr, "%s: parameters %s, directories %s, message %s\n", path.filename().c_str(),
        PLMIdxParameters::Get("order") == nullptr ? "gone" : "there",
        areDirectoriesGone ? "gone" : "there", hasMessage ? text.ConvertToChar() : "gone");
}

/// Uses all objects that live as long as the process, the last ones first.
void EndWithOpenFiles(const TemporaryFolder& folder) {
    PLMIdxParameters::Set("order", "a value that is too long to lie inside a text");
    if (IDX_WT_Report::GetReport()->OpenWrite((folder / "report").c_str()) == 0) std::abort();
    IDX_WT_File file;
    if (!file.OpenWrite((folder / "file").c_str()) || !file.Write(7u)) std::abort();
    for (const char* text : {"read at the end of the registry", "read at the end of the report"}) {
        BBDMessage::Push(static_cast<BBDMessageSeverity>(1), "", text);
    }
    atClose = TellWhatIsGone;
    std::atexit([] {
        const bool isThere = PLMIdxParameters::Get("order") != nullptr && !areDirectoriesGone;
        std::fprintf(stderr, "%s\n", isThere ? "all there" : "too early");
    });
    std::exit(0);
}

TEST(ProcessObjectsDeathTest, GoInTheReverseOrder) {
    const TemporaryFolder folder;
    EXPECT_EXIT(
        EndWithOpenFiles(folder), testing::ExitedWithCode(0),
        "^all there\n"
        "report: parameters gone, directories gone, message read at the end of the report\n"
        "file: parameters gone, directories gone, message read at the end of the registry\n$");
    EXPECT_EQ(ContentOf(folder / "report"), "[Return code is] : 1\nEndOfReport\n");
}

}  // namespace
