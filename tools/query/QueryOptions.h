#ifndef QueryOptions_h
#define QueryOptions_h

#include "Program.h"
#include "Projection.h"
#include "Solids.h"

#include <optional>
#include <string>

/// What the operator asks of gridloom-query.
struct QueryOptions {
    enum Question { Id, InBox, At, Near, Clash, List, Stats, Verify, All };
    enum Export { None, Png, Ply, Vtk };

    std::string tool;         ///< the program's name, for messages
    std::string base;         ///< of the index
    Question question = All;  ///< All: what is exported is everything
    std::string name;         ///< Id, Clash
    Box box = {};             ///< InBox
    Point point = {};         ///< At, Near
    unsigned int count = 1;   ///< Near
    Export exported = None;   ///< what is written of the answer besides
    std::string output;       ///< file of the export
    UpAxis up = UpAxis::Z;    ///< in a picture
    bool json = false;
};

/// The table of the tool, bound to the options that it stores.
Program QueryProgram(QueryOptions& ioOptions);

/// Reads the command line. Help and version go to the standard output, what is wrong to the
/// standard error.
/// @return how the tool ends; nothing when it shall run
std::optional<ExitCode> ReadQueryOptions(int iCount, char** iArguments, QueryOptions& oOptions);

#endif
