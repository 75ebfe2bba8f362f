#ifndef DumpOptions_h
#define DumpOptions_h

#include "Program.h"

#include <optional>
#include <string>

/// What the operator asks of gridloom-dump.
struct DumpOptions {
    std::string tool;  ///< the program's name, for messages
    std::string file;
    bool json = false;
};

/// The table of the tool, bound to the options that it stores.
Program DumpProgram(DumpOptions& ioOptions);

/// Reads the command line. Help and version go to the standard output, what is wrong to the
/// standard error.
/// @return how the tool ends; nothing when it shall run
std::optional<ExitCode> ReadDumpOptions(int iCount, char** iArguments, DumpOptions& oOptions);

#endif
