// One whole run of gridloom-index, from the files to the index that is live, in one process and in two: milliseconds of
// the wall clock, as the work of several processes is what is asked. The index is always built anew beside the last one.
//   The assembly is looked for in $GRIDLOOM_MESHES/assembly/saw; without it there is nothing to run. Depth 7.

#include "RunProgram.h"
#include "ScratchFolder.h"
#include "TableReporter.h"

#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

const std::string kRow = "saw";

std::string ColumnOf(int iJobs) {
    return "-jobs " + std::to_string(iJobs) + ", ms";
}

/// @return whether the tool ended with exit code 0
bool BuildIndex(const fs::path& iBase, const fs::path& iMeshes, int iJobs) {
    const std::string jobs = std::to_string(iJobs);
    const char* const words[] = {
        BENCH_INDEX_TOOL, "-index",    iBase.c_str(), "-depth",        "7",    "-jobs",
        jobs.c_str(),     "-progress", "none",        iMeshes.c_str(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t tool = -1;
    const int error = posix_spawn(
        &tool, BENCH_INDEX_TOOL, &actions, nullptr, const_cast<char* const*>(words), environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    return error == 0 && waitpid(tool, &status, 0) == tool && WIFEXITED(status) &&
           WEXITSTATUS(status) == 0;
}

void TimeRuns(
    benchmark::State& ioState, const fs::path& iBase, const fs::path& iMeshes, int iJobs) {
    using Clock = std::chrono::steady_clock;
    double time = 0.0;
    for (auto _ : ioState) {
        const Clock::time_point start = Clock::now();
        if (!BuildIndex(iBase, iMeshes, iJobs)) ioState.SkipWithError("the run failed");
        time += std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    }
    ioState.counters[ColumnOf(iJobs)] =
        benchmark::Counter(time, benchmark::Counter::kAvgIterations);
}

void Main() {
    const char* const meshes = std::getenv("GRIDLOOM_MESHES");
    const fs::path assembly = fs::path(meshes == nullptr ? "" : meshes) / "assembly" / "saw";
    if (!fs::exists(assembly)) return;
    const ScratchFolder folder;
    TableReporter reporter(
        "assembly", {
                        {"times as fast", ColumnOf(1), ColumnOf(2)}
    });
    for (const int jobs : {1, 2}) {
        reporter.Announce(kRow, {ColumnOf(jobs)});
        const auto run = [&, jobs](benchmark::State& ioState) {
            TimeRuns(ioState, folder.path / "index", assembly, jobs);
        };
        const std::string name = kRow + "/" + std::to_string(jobs);
        benchmark::RegisterBenchmark(name.c_str(), run)->Iterations(1);
    }
    benchmark::RunSpecifiedBenchmarks(&reporter);
}

}  // namespace

int main(int iCount, char** iArguments) {
    return RunProgram("bench_runs", Main, iCount, iArguments);
}
