#ifndef FileCase_h
#define FileCase_h

#include "TemporaryFolder.h"
#include "TraceRecorder.h"
#include "Transcript.h"

#include "IDX_Bool.h"

#include <csignal>
#include <gtest/gtest.h>
#include <sys/resource.h>

/// A test on files, with a folder of its own and the trace.
class FileCase : public testing::Test {
protected:
    /// What an operation gave: success without a trace, or failure with these tags.
    void Expect(IDX_Bool result, const Lines& tags = {}) {
        EXPECT_EQ(result, tags.empty() ? IDX_True : IDX_False);
        EXPECT_EQ(_trace.Take(), tags);
    }

    /// Failure without a trace.
    void Refused(IDX_Bool result) {
        EXPECT_EQ(result, IDX_False);
        EXPECT_EQ(_trace.Take(), Lines{});
    }

    TemporaryFolder _folder;
    TraceRecorder _trace;
};

/// A test on files, with a folder of its own and a transcript of what may fail, which has "DIR" for the path.
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
