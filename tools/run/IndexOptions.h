#ifndef IndexOptions_h
#define IndexOptions_h

#include "Console.h"
#include "PartPipeline.h"
#include "Program.h"

#include <optional>
#include <string>
#include <vector>

/// What the operator asks of gridloom-index.
struct IndexOptions {
    std::string tool;                 ///< the program's name, for messages and the report
    std::vector<std::string> inputs;  ///< files and folders
    std::string base;                 ///< of the index
    std::string pictureFolder;        ///< empty: no pictures
    PipelineSettings pipeline;
    ProgressStyle progress = ProgressStyle::Auto;  ///< never Auto after ReadIndexOptions()
    bool isStrict = false;                         ///< no swap when a part has failed
    bool isDryRun = false;                         ///< writes nothing
    bool isQuiet = false;                          ///< failures only
    bool isVerbose = false;                        ///< all of the library's trace
};

/// The table of the tool, bound to the options that it stores.
Program IndexProgram(IndexOptions& ioOptions);

/// Reads the command line. Help and version go to the standard output, what is wrong to the
/// standard error.
/// @return how the tool ends; nothing when it shall run
std::optional<ExitCode> ReadIndexOptions(int iCount, char** iArguments, IndexOptions& oOptions);

#endif
