// gridloom-dump: prints a file of an index field by field.

#include "Console.h"
#include "Dump.h"
#include "DumpOptions.h"
#include "MappedFile.h"
#include "StandardOutput.h"

namespace {

Status Print(const DumpOptions& iOptions) {
    MappedFile file;
    const Status status = file.Open(iOptions.file);
    if (status.Failed()) return status.In(iOptions.file);
    const Damage damage = DumpFile(iOptions.file, file.Bytes(), file.Size(), iOptions.json);
    if (damage) return Status::Damaged("is damaged: " + damage.Text()).In(iOptions.file);
    return FlushStandardOutput();
}

}  // namespace

int main(int iCount, char** iArguments) {
    DumpOptions options;
    if (const auto end = ReadDumpOptions(iCount, iArguments, options)) return NumberOf(*end);
    const Status status = Print(options);
    if (status.Failed()) PrintMessage(options.tool, status.Text());
    return NumberOf(status.Code());
}
