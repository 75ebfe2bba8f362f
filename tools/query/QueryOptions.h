#ifndef QueryOptions_h
#define QueryOptions_h

#include "Arguments.h"
#include "Projection.h"
#include "Solids.h"

#include <string>

/// What the operator asks an index.
struct QueryOptions {
    enum Question { Id, InBox, At, Near, Clash, List, Stats, Verify, All };
    enum Export { None, Png, Ply, Vtk };

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

/// Reads the command line. Help and version go to the standard output (Done), what is wrong to the standard error.
Arguments::Result ReadQueryOptions(int iCount, char** iArguments, QueryOptions& oOptions);

#endif
