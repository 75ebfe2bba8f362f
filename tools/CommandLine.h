#ifndef CommandLine_h
#define CommandLine_h

#include "ImportProcess.h"
#include "PartBuild.h"
#include "VoxelView.h"

#include <optional>
#include <string>
#include <vector>

/// What the operator asks for.
struct Options {
    std::vector<std::string> inputs;  ///< files and folders
    std::string outputFolder = "gridloom-out";
    BuildParameters build;
    ImportLimits limits;
    bool pictures = true;
    std::optional<UpAxis> up;  ///< not set: by the file's format
};

enum class CommandLineResult { Run, Done, Wrong };

/// Reads the command line. Help and version go to the standard output (Done), what is wrong to the
/// standard error (Wrong).
CommandLineResult ReadCommandLine(int iCount, char** iArguments, Options& oOptions);

#endif
