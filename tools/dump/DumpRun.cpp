#include "DumpRun.h"

#include "Console.h"
#include "Dump.h"
#include "MappedFile.h"
#include "StandardOutput.h"

ExitCode DumpRun::Run() const {
    const Status status = Print();
    if (status.Failed()) PrintMessage(_options.tool, status.Text());
    return status.Code();
}

Status DumpRun::Print() const {
    MappedFile file;
    const Status status = file.Open(_options.file);
    if (status.Failed()) return status.In(_options.file);
    const Damage damage = DumpFile(_options.file, file.Bytes(), file.Size(), _options.json);
    if (damage) return Status::Damaged("is damaged: " + damage.Text()).In(_options.file);
    return FlushStandardOutput();
}
