#include "ToolRun.h"

#include <cstdlib>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::string ContentOf(std::FILE* file) {
    std::rewind(file);
    std::string content;
    for (int c = 0; (c = std::fgetc(file)) != EOF;) content += static_cast<char>(c);
    return content;
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

Prints::~Prints() {
    (void)std::fclose(_output);
    (void)std::fclose(_errors);
}

void Prints::Take() const {
    (void)dup2(fileno(_output), STDOUT_FILENO);
    (void)dup2(fileno(_errors), STDERR_FILENO);
}

Outcome Prints::With(int exitCode) const {
    return {exitCode, ContentOf(_output), ContentOf(_errors)};
}

Outcome RunTool(
    const std::string& program,
    const std::vector<std::string>& arguments,
    const std::function<void()>& before) {
    const Prints prints;
    const pid_t process = fork();
    if (process == 0) {
        prints.Take();
        if (before) before();
        Execute(program, arguments);
    }
    int status = 0;
    (void)waitpid(process, &status, 0);
    return prints.With(WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status));
}

TracedTool::TracedTool(const std::string& program, const std::vector<std::string>& arguments)
    : TracedProcess([&] {
          Take();
          (void)setenv("ASAN_OPTIONS", "detect_leaks=0", 1);  // no leak check under a tracer
          Execute(program, arguments);
      }) {}

bool RunToCall(
    const std::string& program,
    const std::vector<std::string>& arguments,
    const CallsOf& calls,
    int count,
    const std::function<void(pid_t)>& act,
    Outcome& outcome) {
    TracedTool tool(program, arguments);
    const pid_t caller = tool.RunTo(calls, count);
    if (caller == 0) return false;
    act(caller);
    outcome = tool.Wait();
    return true;
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
