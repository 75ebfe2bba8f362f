#ifndef IndexOptions_h
#define IndexOptions_h

#include "Arguments.h"
#include "Console.h"
#include "PartPipeline.h"

#include <string>
#include <vector>

/// What the operator asks of gridloom-index.
struct IndexOptions {
    std::vector<std::string> inputs;  ///< files and folders
    std::string base;                 ///< of the index
    std::string pictureFolder;        ///< empty: no pictures
    PipelineSettings pipeline;
    ProgressStyle progress = ProgressStyle::Plain;
    bool isStrict = false;   ///< no swap when a part has failed
    bool isDryRun = false;   ///< writes nothing
    bool isQuiet = false;    ///< failures only
    bool isVerbose = false;  ///< all of the library's trace
};

/// Reads the command line. Help and version go to the standard output (Done), what is wrong to the standard
/// error (Wrong).
Arguments::Result ReadIndexOptions(int iCount, char** iArguments, IndexOptions& oOptions);

#endif
