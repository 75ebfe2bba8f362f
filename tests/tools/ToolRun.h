#ifndef ToolRun_h
#define ToolRun_h

#include "TracedProcess.h"

#include <cstdio>
#include <functional>
#include <string>
#include <vector>

// A tool as an operator runs it: a process with its exit code and what it prints.

struct Outcome {
    int exitCode = -1;   ///< minus the number of a signal that ended it
    std::string output;  ///< on the standard output
    std::string errors;  ///< on the standard error
};

Outcome RunTool(
    const std::string& program,
    const std::vector<std::string>& arguments,
    const std::function<void()>& before = {});  ///< called in the new process, for limits

/// What a process has printed, on its two outputs.
class Prints {
public:
    Prints() : _output(std::tmpfile()), _errors(std::tmpfile()) {}
    Prints(const Prints&) = delete;
    Prints& operator=(const Prints&) = delete;
    ~Prints();

    /// In the process: from here on all goes here.
    void Take() const;

    Outcome With(int exitCode) const;

private:
    std::FILE* _output;
    std::FILE* _errors;
};

/// A tool that is held where a test wants to meet it or its children.
class TracedTool : private Prints, public TracedProcess {
public:
    TracedTool(const std::string& program, const std::vector<std::string>& arguments);

    Outcome Wait(bool isHeldOn = false) { return With(TracedProcess::Wait(isHeldOn)); }
};

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
