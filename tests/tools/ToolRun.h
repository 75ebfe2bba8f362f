#ifndef ToolRun_h
#define ToolRun_h

#include <functional>
#include <string>
#include <sys/ptrace.h>
#include <sys/types.h>
#include <vector>

// A tool as an operator runs it: a process with its exit code and what it prints.

struct Outcome {
    int exitCode = -1;   ///< minus the number of a signal that ended it
    std::string output;  ///< on the standard output
    std::string errors;  ///< on the standard error
};

/// A tool that runs.
class RunningTool {
public:
    /// @param before  called in the new process, for limits
    RunningTool(
        const std::string& program,
        const std::vector<std::string>& arguments,
        const std::function<void()>& before = {});
    RunningTool(const RunningTool&) = delete;
    RunningTool& operator=(const RunningTool&) = delete;
    ~RunningTool();

    pid_t Id() const { return _process; }

    /// Waits until a child of the tool has worked for a while, and gives its number; 0 when the tool has ended.
    pid_t AwaitWorkingChild() const;

    Outcome Wait();

private:
    pid_t _process;
    std::FILE* _output;
    std::FILE* _errors;
};

Outcome RunTool(
    const std::string& program,
    const std::vector<std::string>& arguments,
    const std::function<void()>& before = {});

/// Whether a system call is one of some kinds; of opens only those that may write count.
struct CallsOf {
    std::vector<long> kinds;

    bool Match(const __ptrace_syscall_info& call) const;
};

/// All that change something on the disk.
extern const CallsOf kChangingCalls;

/// Runs a tool up to its n-th system call of some kinds, counted from 1, and does something to it before that call
/// is made. Then the tool goes on, unless it was killed.
/// @return false when it ended before
bool RunToCall(
    const std::string& program,
    const std::vector<std::string>& arguments,
    const CallsOf& calls,
    int count,
    const std::function<void(pid_t)>& act,
    Outcome& outcome);

/// A cube with a corner at (move, 0, 0), as lines of an OBJ file.
/// @param first  vertices of the file before it
std::string ObjCube(double side, double move = 0.0, int first = 0);

/// Cubes, each an object of one OBJ file, side by side.
std::string ObjScene(
    int count, const std::function<std::string(int)>& name, const std::function<double(int)>& side);

#endif
