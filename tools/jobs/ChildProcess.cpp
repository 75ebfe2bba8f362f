#include "ChildProcess.h"

#include "Interrupt.h"
#include "TraceOutput.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr int kChildPipe = 3;  // after the three standard files

/// What a child ends with. The parent alone sees it.
enum ChildExitCode { kExitDone = 0, kExitFailed = 1, kExitNoMemory = 2 };

constexpr int kPipeSize = 1 << 20;  // spares changes between the processes
constexpr unsigned int kClockFactor = 10;

/// Goes before each message. 8 bytes.
using MessageSize = std::uint64_t;
constexpr MessageSize kLargestMessage = MessageSize{1} << 36U;
constexpr MessageSize kMostReserved = MessageSize{1} << 28U;  // larger ones grow as they come

/// Without the limit the work can still be done.
void SetLimit(__rlimit_resource iResource, rlim_t iLimit) {
    rlimit limit = {};
    if (getrlimit(iResource, &limit) != 0) return;
    limit.rlim_cur = std::min(iLimit, limit.rlim_max);
    (void)setrlimit(iResource, &limit);
}

/// What the library prints while it builds is no answer of the tool. What the C library says about
/// a crash is left out, too: the parent names it.
void SilenceConsole() {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere < 0) return;
    (void)dup2(nowhere, STDOUT_FILENO);
#ifndef GRIDLOOM_SANITIZED  // a sanitizer reports on the standard error
    if (!IsTraceShown()) (void)dup2(nowhere, STDERR_FILENO);
#endif
}

/// Leaves the child with the pipe alone: the parent's files and its lock aren't the child's.
void CloseAllBut(int iPipe) {
    if (iPipe != kChildPipe && dup2(iPipe, kChildPipe) < 0) _exit(kExitFailed);
    (void)close_range(kChildPipe + 1, ~0U, 0);
}

/// The child's whole life.
[[noreturn]] void Live(int iPipe, pid_t iParent, const ChildProcess::Work& iWork) {
    IgnoreInterrupts();
    (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != iParent) _exit(kExitFailed);  // it died before we were tied to it
    CloseAllBut(iPipe);
    SilenceConsole();
    SetLimit(RLIMIT_CORE, 0);
    try {
        iWork(Outlet(kChildPipe));
    } catch (const std::bad_alloc&) {
        EndWithoutMemory();
    }
    _exit(kExitDone);
}

rlim_t SecondsUsed() {
    rusage usage = {};
    (void)getrusage(RUSAGE_SELF, &usage);
    return static_cast<rlim_t>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) + 1;
}

/// @param iStatus  as waitpid() gives it
ChildEnd EndOf(int iStatus) {
    if (WIFEXITED(iStatus)) {
        switch (WEXITSTATUS(iStatus)) {
            case kExitDone:
                return {};
            case kExitNoMemory:
                return {ChildEnd::NoMemory, 0};
            default:
                return {ChildEnd::Early, 0};
        }
    }
    switch (WTERMSIG(iStatus)) {
        case SIGXCPU:
            return {ChildEnd::ProcessorTime, 0};
        case SIGALRM:
            return {ChildEnd::Clock, 0};
        case SIGKILL:
            return {ChildEnd::Killed, 0};
        default:
            return {ChildEnd::Crash, WTERMSIG(iStatus)};
    }
}

}  // namespace

/// A pipe takes a part of what is written when it is nearly full.
void Outlet::Send(const std::string& iMessage) const {
    const MessageSize size = iMessage.size();
    const auto sendAll = [this](const void* iBytes, std::size_t iSize) {
        const auto* bytes = static_cast<const char*>(iBytes);
        while (iSize > 0) {
            const ssize_t nWritten = write(_pipe, bytes, iSize);
            if (nWritten < 0 && errno == EINTR) continue;
            if (nWritten < 0) _exit(kExitFailed);
            bytes += nWritten;
            iSize -= static_cast<std::size_t>(nWritten);
        }
    };
    sendAll(&size, sizeof size);
    sendAll(iMessage.data(), iMessage.size());
}

ChildProcess::ChildProcess(ChildProcess&& ioOther) noexcept {
    *this = std::move(ioOther);
}

ChildProcess& ChildProcess::operator=(ChildProcess&& ioOther) noexcept {
    std::swap(_child, ioOther._child);
    std::swap(_pipe, ioOther._pipe);
    std::swap(_header, ioOther._header);
    std::swap(_message, ioOther._message);
    std::swap(_messages, ioOther._messages);
    return *this;
}

ChildProcess::~ChildProcess() {
    (void)End();
}

/// Both ends of the pipe close when the process executes another program; the child keeps the one
/// for writing.
Status ChildProcess::Start(const Work& iWork) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return Status::System(errno);
    (void)fcntl(ends[0], F_SETPIPE_SZ, kPipeSize);
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child == 0) Live(ends[1], parent, iWork);
    const int error = errno;
    close(ends[1]);
    if (child < 0) {
        close(ends[0]);
        return Status::System(error);
    }
    _child = child;
    _pipe = ends[0];
    return {};
}

/// Bytes come in pieces that end anywhere in a message: each piece is cut into what still belongs
/// to the message that is coming, and what starts the next ones.
bool ChildProcess::Receive() {
    static std::array<char, 1U << 18U> piece;
    const ssize_t nRead = read(_pipe, piece.data(), piece.size());
    if (nRead < 0) return errno == EINTR;
    if (nRead == 0) return false;
    const char* next = piece.data();
    const char* const end = next + nRead;
    while (next < end) {
        if (!AppendHeader(next, end)) return false;
        AppendContent(next, end);
    }
    return true;
}

/// Moves what is missing of a message's length from a piece to the header.
/// @return false for a length that no message has
bool ChildProcess::AppendHeader(const char*& ioBytes, const char* iEnd) {
    MessageSize size = 0;
    if (_header.size() == sizeof size) return true;
    const std::size_t missing = sizeof size - _header.size();
    const std::size_t count = std::min(missing, static_cast<std::size_t>(iEnd - ioBytes));
    _header.append(ioBytes, count);
    ioBytes += count;
    if (_header.size() < sizeof size) return true;
    std::memcpy(&size, _header.data(), sizeof size);
    if (size > kLargestMessage) return false;
    _message.reserve(static_cast<std::size_t>(std::min(size, kMostReserved)));
    return true;
}

/// The same for the message itself, once its length is there. A whole message is queued.
void ChildProcess::AppendContent(const char*& ioBytes, const char* iEnd) {
    MessageSize size = 0;
    if (_header.size() < sizeof size) return;
    std::memcpy(&size, _header.data(), sizeof size);
    const MessageSize missing = size - _message.size();
    const auto count =
        static_cast<std::size_t>(std::min(missing, static_cast<MessageSize>(iEnd - ioBytes)));
    _message.append(ioBytes, count);
    ioBytes += count;
    if (count < missing) return;
    _messages.push_back(std::move(_message));
    _message.clear();
    _header.clear();
}

bool ChildProcess::NextMessage(std::string& oMessage) {
    if (_messages.empty()) return false;
    oMessage = std::move(_messages.front());
    _messages.pop_front();
    return true;
}

ChildEnd ChildProcess::End() {
    if (_pipe >= 0) close(_pipe);
    _pipe = -1;
    if (_child < 0) return {};
    int status = 0;
    // One that has ended by itself keeps its status until it is waited for.
    (void)kill(_child, SIGKILL);
    while (waitpid(_child, &status, 0) < 0 && errno == EINTR) {
    }
    _child = -1;
    return EndOf(status);
}

void LimitMemory([[maybe_unused]] unsigned int iMiB) {
#ifndef GRIDLOOM_SANITIZED  // a sanitizer maps its shadow memory
    SetLimit(RLIMIT_AS, rlim_t{iMiB} << 20U);
#endif
}

void LimitTime(unsigned int iSeconds) {
    SetLimit(RLIMIT_CPU, SecondsUsed() + iSeconds);
    (void)alarm(kClockFactor * iSeconds);
}

void EndTimeLimit() {
    (void)alarm(0);
}

void EndWithoutMemory() {
    _exit(kExitNoMemory);
}

std::string DescribeEnd(const ChildEnd& iEnd, unsigned int iSeconds) {
    const std::string limit = std::to_string(iSeconds);
    switch (iEnd.cause) {
        case ChildEnd::NoMemory:
            return "ran out of memory";
        case ChildEnd::ProcessorTime:
            return "was stopped: it may use " + limit + " s of processor time";
        case ChildEnd::Clock:
            return "was stopped: it hung, and may use " + limit + " s of processor time";
        case ChildEnd::Killed:
            return "was killed, as when the machine runs out of memory";
        case ChildEnd::Crash:
            return std::string("crashed: ") + strsignal(iEnd.signal);
        case ChildEnd::Done:
        case ChildEnd::Early:
            break;
    }
    return "ended early";
}
