#include "ToolRun.h"

#include <csignal>
#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::string ContentOf(std::FILE* file) {
    std::rewind(file);
    std::string content;
    for (int c = 0; (c = std::fgetc(file)) != EOF;) content += static_cast<char>(c);
    return content;
}

}  // namespace

Prints::~Prints() {
    (void)std::fclose(_output);
    (void)std::fclose(_errors);
}

void Prints::Execute(const TemporaryFolder& folder, const std::string& command) const {
    (void)dup2(fileno(_output), STDOUT_FILENO);
    (void)dup2(fileno(_errors), STDERR_FILENO);
    // A shell that runs a test in the background may have had some of them ignored.
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) (void)std::signal(signal, SIG_DFL);
    const std::string path = std::string(GRIDLOOM_TOOLS ":" GRIDLOOM_BOXES ":") + getenv("PATH");
    (void)setenv("PATH", path.c_str(), 1);
    (void)setenv("LC_ALL", "C", 1);
    (void)setenv("MESHES", GRIDLOOM_TRANSCRIPTS "/meshes", 1);
    if (chdir((folder / "").c_str()) == 0) execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    _exit(127);
}

Outcome Prints::With(int exitCode) const {
    return {exitCode, ContentOf(_output), ContentOf(_errors)};
}

Outcome RunIn(const TemporaryFolder& folder, const std::string& command) {
    const Prints prints;
    const pid_t process = fork();
    if (process == 0) prints.Execute(folder, command);
    int status = 0;
    (void)waitpid(process, &status, 0);
    return prints.With(WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status));
}

TracedTool::TracedTool(const TemporaryFolder& folder, const std::string& command)
    : TracedProcess([&] {
          (void)setenv("ASAN_OPTIONS", "detect_leaks=0", 1);  // no leak check under a tracer
          Execute(folder, "exec " + command);
      }) {}

bool RunToCall(
    const TemporaryFolder& folder,
    const std::string& command,
    const CallsOf& calls,
    int count,
    const std::function<void(pid_t)>& act,
    Outcome& outcome) {
    TracedTool tool(folder, command);
    const pid_t caller = tool.RunTo(calls, count);
    if (caller == 0) return false;
    act(caller);
    outcome = tool.Wait();
    return true;
}
