#include "TracedProcess.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int kCallStop = SIGTRAP | 0x80;
constexpr long kOptions = PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEFORK | PTRACE_O_EXITKILL;

std::string TextAt(pid_t process, unsigned long address) {
    std::ifstream memory("/proc/" + std::to_string(process) + "/mem", std::ios::binary);
    memory.seekg(static_cast<std::streamoff>(address));
    std::string text;
    std::getline(memory, text, '\0');
    return text;
}

}  // namespace

const CallsOf kChangingCalls = {
    {SYS_openat, SYS_write, SYS_pwrite64, SYS_writev, SYS_unlink, SYS_unlinkat, SYS_rename,
     SYS_renameat2, SYS_mkdir, SYS_mkdirat, SYS_rmdir, SYS_ftruncate, SYS_fallocate, SYS_fsync,
     SYS_fdatasync}
};

TracedProcess::TracedProcess(const std::function<void()>& run) : _id(fork()), _held(_id) {
    if (_id == 0) {
        (void)setpgid(0, 0);  // with those that it forks: they are waited for as one group
        (void)ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        (void)raise(SIGSTOP);
        run();
        _exit(0);
    }
    (void)waitpid(_id, nullptr, 0);
    (void)ptrace(PTRACE_SETOPTIONS, _id, nullptr, kOptions);
}

TracedProcess::~TracedProcess() {
    (void)kill(-_id, SIGKILL);
    for (pid_t stopped = 0; Step(PTRACE_CONT, stopped);) {
    }
}

pid_t TracedProcess::RunTo(const CallsOf& calls, int count) {
    Release(PTRACE_SYSCALL);
    for (pid_t caller = 0; !_ends.contains(_id) && Step(PTRACE_SYSCALL, caller);) {
        if (caller == 0) continue;
        _held = caller;
        if (Matches(caller, calls) && --count == 0) return caller;
        Release(PTRACE_SYSCALL);
    }
    return 0;
}

int TracedProcess::Wait(bool isHeldOn) {
    if (!isHeldOn) Release(PTRACE_CONT);
    for (pid_t stopped = 0; !_ends.contains(_id) && Step(PTRACE_CONT, stopped);) {
    }
    Release(PTRACE_CONT);
    for (pid_t stopped = 0; Step(PTRACE_CONT, stopped);) {
    }
    return EndOf(_id);
}

bool TracedProcess::Matches(pid_t caller, const CallsOf& calls) const {
    constexpr unsigned long kWriting = O_WRONLY | O_RDWR | O_CREAT;
    if (calls.areOfChildren == (caller == _id)) return false;
    __ptrace_syscall_info call = {};
    (void)ptrace(PTRACE_GET_SYSCALL_INFO, caller, sizeof call, &call);
    if (call.op != PTRACE_SYSCALL_INFO_ENTRY) return false;
    const auto number = static_cast<long>(call.entry.nr);
    if (std::find(calls.kinds.begin(), calls.kinds.end(), number) == calls.kinds.end())
        return false;
    if (number != SYS_openat) return true;
    if (calls.path.empty()) return (call.entry.args[2] & kWriting) != 0;
    return TextAt(caller, call.entry.args[1]).ends_with(calls.path);
}

void TracedProcess::Release(__ptrace_request how) {
    if (_held != 0) (void)ptrace(how, _held, nullptr, nullptr);
    _held = 0;
}

/// Waits until something has happened to one of the processes.
/// @param how      in which way one goes on that has only got a signal
/// @param stopped  one that stays stopped at a call; else 0
/// @return false when none is left
bool TracedProcess::Step(__ptrace_request how, pid_t& stopped) {
    stopped = 0;
    int status = 0;
    const pid_t process = waitpid(-_id, &status, __WALL);
    if (process < 0) return false;
    if (!WIFSTOPPED(status)) {
        _ends[process] = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    } else if (WSTOPSIG(status) == kCallStop && how == PTRACE_SYSCALL) {
        stopped = process;
    } else {
        // Stops that tracing itself makes are no signals to the process.
        const int signal = WSTOPSIG(status);
        const bool isOurs = signal == SIGSTOP || signal == SIGTRAP || signal == kCallStop;
        (void)ptrace(how, process, nullptr, isOurs ? 0L : signal);
    }
    return true;
}
