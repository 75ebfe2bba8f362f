#ifndef QueryRun_h
#define QueryRun_h

#include "PartIndex.h"
#include "Queries.h"
#include "QueryOptions.h"
#include "Status.h"

#include <set>
#include <string>
#include <vector>

/// One run of the tool that asks an index: a question, its answer on the standard output, and an
/// export of what was found.
class QueryRun {
public:
    explicit QueryRun(const QueryOptions& iOptions) : _options(iOptions) {}

    ExitCode Run();

private:
    Status Answer(ExitCode& oAnswered) const;
    ExitCode Verify() const;
    Status Ask(std::vector<NearPart>& oParts) const;
    Status FindClashesOfName(Parts& oParts) const;
    Status AllParts(Parts& oParts) const;
    Status Export(const std::vector<NearPart>& iParts) const;
    Status ExportPicture(const std::vector<NearPart>& iParts) const;
    Status ExportSurface(const std::vector<NearPart>& iParts) const;
    Status AddAsked(std::set<unsigned int>& ioFound) const;
    ExitCode Fail(const Status& iStatus) const;

    const QueryOptions& _options;
    PartIndex _index;  ///< open while Run() is at work
};

#endif
