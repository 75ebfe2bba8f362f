#ifndef QueryRun_h
#define QueryRun_h

#include "PartIndex.h"
#include "Queries.h"
#include "QueryOptions.h"
#include "Status.h"

#include <optional>
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
    ExitCode Answer() const;
    ExitCode Verify() const;
    std::vector<NearPart> Ask() const;
    std::vector<NearPart> FindClashesOfName() const;
    std::vector<NearPart> AllParts() const;
    ExitCode Export(const std::vector<NearPart>& iParts, ExitCode iAnswered) const;
    Status ExportPicture(const std::vector<NearPart>& iParts) const;
    Status ExportSurface(const std::vector<NearPart>& iParts) const;
    void AddAsked(std::set<unsigned int>& ioFound) const;
    ExitCode Fail(const Status& iStatus) const;

    const QueryOptions& _options;
    std::optional<PartIndex> _index;  ///< set while Run() is at work
};

#endif
