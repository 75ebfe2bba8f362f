#include "ToolRun.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <sstream>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr int kCallStop = SIGTRAP | 0x80;

std::string ContentOf(std::FILE* file) {
    std::rewind(file);
    std::string content;
    for (int c = 0; (c = std::fgetc(file)) != EOF;) content += static_cast<char>(c);
    return content;
}

int ExitCode(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

/// Seconds of processor time that a process has used; negative when it is gone.
double SecondsUsed(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    const std::string stat{std::istreambuf_iterator<char>(file), {}};
    if (stat.empty()) return -1.0;
    std::istringstream fields(stat.substr(stat.rfind(')') + 1));
    const std::vector<std::string> values{std::istream_iterator<std::string>(fields), {}};
    return std::stod(values.at(11)) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

[[noreturn]] void Execute(const std::string& program, const std::vector<std::string>& arguments) {
    std::vector<char*> pointers = {const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments) {
        pointers.push_back(const_cast<char*>(argument.c_str()));
    }
    pointers.push_back(nullptr);
    execv(program.c_str(), pointers.data());
    _exit(127);
}

}  // namespace

RunningTool::RunningTool(
    const std::string& program,
    const std::vector<std::string>& arguments,
    const std::function<void()>& before)
    : _process(-1), _output(std::tmpfile()), _errors(std::tmpfile()) {
    _process = fork();
    if (_process != 0) return;
    (void)dup2(fileno(_output), STDOUT_FILENO);
    (void)dup2(fileno(_errors), STDERR_FILENO);
    if (before) before();
    Execute(program, arguments);
}

RunningTool::~RunningTool() {
    if (_process > 0) {
        (void)kill(_process, SIGKILL);
        (void)waitpid(_process, nullptr, 0);
    }
    (void)std::fclose(_output);
    (void)std::fclose(_errors);
}

pid_t RunningTool::AwaitWorkingChild() const {
    const std::string id = std::to_string(_process);
    while (kill(_process, 0) == 0) {
        std::ifstream children("/proc/" + id + "/task/" + id + "/children");
        for (pid_t child = 0; children >> child;) {
            if (SecondsUsed(child) > 0.2) return child;
        }
        if (waitid(P_PID, static_cast<id_t>(_process), nullptr, WEXITED | WNOHANG | WNOWAIT) != 0) {
            return 0;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return 0;
}

Outcome RunningTool::Wait() {
    int status = 0;
    (void)waitpid(_process, &status, 0);
    _process = -1;
    return {ExitCode(status), ContentOf(_output), ContentOf(_errors)};
}

Outcome RunTool(
    const std::string& program,
    const std::vector<std::string>& arguments,
    const std::function<void()>& before) {
    return RunningTool(program, arguments, before).Wait();
}

const CallsOf kChangingCalls = {
    {SYS_openat, SYS_write, SYS_pwrite64, SYS_writev, SYS_unlink, SYS_unlinkat, SYS_rename,
     SYS_renameat2, SYS_mkdir, SYS_mkdirat, SYS_rmdir, SYS_ftruncate, SYS_fallocate, SYS_fsync,
     SYS_fdatasync}
};

bool CallsOf::Match(const __ptrace_syscall_info& call) const {
    constexpr unsigned long kWriting = O_WRONLY | O_RDWR | O_CREAT;
    const auto number = static_cast<long>(call.entry.nr);
    if (number == SYS_openat && (call.entry.args[2] & kWriting) == 0) return false;
    return std::find(kinds.begin(), kinds.end(), number) != kinds.end();
}

bool RunToCall(
    const std::string& program,
    const std::vector<std::string>& arguments,
    const CallsOf& calls,
    int count,
    const std::function<void(pid_t)>& act,
    Outcome& outcome) {
    RunningTool tool(program, arguments, [] {
        (void)setenv("ASAN_OPTIONS", "detect_leaks=0", 1);  // no leak check under a tracer
        (void)ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    });
    const pid_t id = tool.Id();
    int status = 0;
    (void)waitpid(id, &status, 0);  // stopped at its start
    (void)ptrace(PTRACE_SETOPTIONS, id, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    long signal = 0;
    while (WIFSTOPPED(status)) {
        (void)ptrace(PTRACE_SYSCALL, id, nullptr, signal);
        (void)waitpid(id, &status, __WALL);
        signal = WIFSTOPPED(status) && WSTOPSIG(status) != kCallStop ? WSTOPSIG(status) : 0;
        if (!WIFSTOPPED(status) || WSTOPSIG(status) != kCallStop) continue;
        __ptrace_syscall_info call = {};
        (void)ptrace(PTRACE_GET_SYSCALL_INFO, id, sizeof call, &call);
        if (call.op != PTRACE_SYSCALL_INFO_ENTRY) continue;
        if (!calls.Match(call) || --count > 0) continue;
        act(id);
        (void)ptrace(PTRACE_DETACH, id, nullptr, nullptr);
        outcome = tool.Wait();
        return true;
    }
    return false;
}

std::string ObjCube(double side, double move, int first) {
    std::ostringstream text;
    for (int c = 0; c < 8; ++c) {
        text << "v " << (c & 1) * side + move << " " << (c >> 1 & 1) * side << " "
             << (c >> 2 & 1) * side << "\n";
    }
    constexpr char kQuads[] = "023145760154267304621375";  // corners, four for each face
    for (int q = 0; q < 6; ++q) {
        text << "f";
        for (int c = 0; c < 4; ++c) text << " " << first + kQuads[4 * q + c] - '0' + 1;
        text << "\n";
    }
    return text.str();
}

std::string ObjScene(
    int count,
    const std::function<std::string(int)>& name,
    const std::function<double(int)>& side) {
    std::string text;
    for (int n = 0; n < count; ++n) {
        text += "o " + name(n) + "\n" + ObjCube(side(n), 8.0 * n, 8 * n);
    }
    return text;
}
