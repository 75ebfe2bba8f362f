// gridloom-dump: prints a file of an index field by field.

#include "Arguments.h"
#include "Console.h"
#include "Dump.h"
#include "MappedFile.h"

#include <cstdio>

namespace {

constexpr char kAbout[] = R"(usage: gridloom-dump [-json] FILE

Prints a file of an index field by field, with offsets: the octree images of a piece, boxes,
identifiers, or a redirecting file. docs/file-formats.md tells what the fields mean.

Exit code: 0 printed, 2 wrong usage, 4 the file is damaged, 5 it can't be read.
)";

constexpr int kExitPrinted = 0;
constexpr int kExitUsage = 2;
constexpr int kExitDamaged = 4;
constexpr int kExitEnvironment = 5;

int Fail(const std::string& iFile, const std::string& iReason, int iExitCode) {
    const std::string text = iFile.empty() ? iReason : iFile + ": " + iReason;
    std::fprintf(stderr, "gridloom-dump: %s\n", Printable(text).c_str());
    return iExitCode;
}

}  // namespace

int main(int iCount, char** iArguments) {
    Arguments arguments("gridloom-dump", kAbout);
    arguments.DeclareFlag("json", "one object for machines");
    const Arguments::Result result = arguments.Read(iCount, iArguments);
    if (result == Arguments::Result::Done) return kExitPrinted;
    if (result == Arguments::Result::Wrong) return kExitUsage;
    if (arguments.Words().size() != 1) return Fail("", "wants one file", kExitUsage);
    const std::string path = arguments.Words().front();
    MappedFile file;
    const Status status = file.Open(path);
    if (status.Failed()) return Fail(path, status.Text(), NumberOf(status.Code()));
    const Damage damage = DumpFile(path, file.Bytes(), file.Size(), Arguments::IsGiven("json"));
    if (damage) return Fail(path, "is damaged: " + damage.Text(), kExitDamaged);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        return Fail("standard output", "can't be written", kExitEnvironment);
    }
    return kExitPrinted;
}
