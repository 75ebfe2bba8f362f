#include "StandardOutput.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

StandardOutputSilence::StandardOutputSilence() : _output(-1) {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere < 0) return;
    (void)std::fflush(stdout);
    _output = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
    if (_output >= 0) (void)dup2(nowhere, STDOUT_FILENO);
    (void)close(nowhere);
}

StandardOutputSilence::~StandardOutputSilence() {
    if (_output < 0) return;
    (void)std::fflush(stdout);
    (void)dup2(_output, STDOUT_FILENO);
    (void)close(_output);
}

Status FlushStandardOutput() {
    errno = 0;
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return {};
    const Status reason =
        errno != 0 ? Status::System(errno) : Status::Environment("a write failed");
    return reason.In("standard output");
}
