#ifndef ToolRun_h
#define ToolRun_h

#include "TemporaryFolder.h"
#include "TracedProcess.h"

#include <cstdio>
#include <functional>
#include <string>

// The batch tools as an operator runs them: by command lines of the shell, in a folder of the
// test's own. The tools are in the path, and so is tests/tools/boxes, which makes meshes. MESHES
// names the folder of the others.

/// What came of a command line.
struct Outcome {
    int exitCode = -1;   ///< minus the number of a signal that ended it
    std::string output;  ///< on the standard output
    std::string errors;  ///< on the standard error
};

Outcome RunIn(const TemporaryFolder& folder, const std::string& command);

/// What a process prints on its two outputs.
class Prints {
public:
    Prints() : _output(std::tmpfile()), _errors(std::tmpfile()) {}
    Prints(const Prints&) = delete;
    Prints& operator=(const Prints&) = delete;
    ~Prints();

    /// In the process: becomes the command.
    [[noreturn]] void Execute(const TemporaryFolder& folder, const std::string& command) const;

    Outcome With(int exitCode) const;

private:
    std::FILE* _output;
    std::FILE* _errors;
};

/// A tool that is held where a test wants to meet it or its children.
class TracedTool : private Prints, public TracedProcess {
public:
    /// @param command  the tool and its arguments
    TracedTool(const TemporaryFolder& folder, const std::string& command);

    Outcome Wait(bool isHeldOn = false) { return With(TracedProcess::Wait(isHeldOn)); }
};

/// Runs a tool up to its n-th system call of some kinds, counted from 1, and does something to it
/// before it makes that call. Then the tool goes on, unless it was killed.
/// @return false when it ended before
bool RunToCall(
    const TemporaryFolder& folder,
    const std::string& command,
    const CallsOf& calls,
    int count,
    const std::function<void(pid_t)>& act,
    Outcome& outcome);

#endif
