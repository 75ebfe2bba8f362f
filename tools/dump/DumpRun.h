#ifndef DumpRun_h
#define DumpRun_h

#include "DumpOptions.h"
#include "Status.h"

/// One run of the tool that prints a file.
class DumpRun {
public:
    explicit DumpRun(const DumpOptions& iOptions) : _options(iOptions) {}

    ExitCode Run() const;

private:
    Status Print() const;

    const DumpOptions& _options;
};

#endif
