#include "DumpOptions.h"

#include "Arguments.h"

Program DumpProgram(DumpOptions& ioOptions) {
    Program program;
    program.name = "gridloom-dump";
    program.arguments = "[OPTION...] FILE";
    program.about =
        "Prints a file of an index field by field, with offsets: the octree images of a piece, "
        "boxes, identifiers, or a redirecting file. The content says which it is.";
    program.takesFiles = true;
    program.AddGroup("Options");
    program.Add(Flag(
        {"json", "",
         "One JSON object with `file`, `kind`, `size` and `blocks`; a block has `at`, `block` and "
         "`fields`, a field has `at`, `name` and `value`."},
        ioOptions.json));
    program.AddCommonOptions();
    program.AddExit(ExitCode::Done, "Printed.");
    program.AddExit(ExitCode::Usage, "Wrong usage.");
    program.AddExit(
        ExitCode::Damaged,
        "The file is damaged. The message says what is wrong; what lies before the damage may be "
        "printed.");
    program.AddExit(
        ExitCode::Environment, "The file can't be read, or the output can't be written.");
    return program;
}

std::optional<ExitCode> ReadDumpOptions(int iCount, char** iArguments, DumpOptions& oOptions) {
    const Program program = DumpProgram(oOptions);
    Arguments arguments(program);
    if (const auto end = arguments.Read(iCount, iArguments)) return end;
    oOptions.tool = program.name;
    if (arguments.Words().size() != 1) return arguments.Refuse("wants one file");
    oOptions.file = arguments.Words().front();
    return {};
}
