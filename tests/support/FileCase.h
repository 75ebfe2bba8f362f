#ifndef FileCase_h
#define FileCase_h

#include "TemporaryFolder.h"
#include "TraceRecorder.h"
#include "Transcript.h"

#include <csignal>
#include <gtest/gtest.h>
#include <sys/resource.h>

/// A test on files, with a folder of its own and the trace.
class FileCase : public testing::Test {
protected:
    TemporaryFolder _folder;
    TraceRecorder _trace;
};

/// A test on files, with a folder of its own and a transcript of what may fail, which has "DIR" for
/// the path.
class FileFailures : public testing::Test {
protected:
    const TemporaryFolder _folder;
    const std::string _path = _folder / "file";
    Transcript _transcript{_path};
};

/// No file may grow beyond some bytes until the end of the scope.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t bytes) {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &_before);
        const rlimit limit = {bytes, _before.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() { setrlimit(RLIMIT_FSIZE, &_before); }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit _before;
};

#endif
