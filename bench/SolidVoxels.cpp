// Mesh to solid voxels, as a whole: Gridloom and the peers on the workloads of Mesh.cpp.
// Every run is a process of its own, and the rounds go over all contestants in turn. Figures are
// medians: processor time (user and kernel) of the work itself, and how far it raised the peak of the
// resident memory over what the process held with the mesh loaded.

#include "Contestants.h"
#include "ScratchFolder.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iomanip>
#include <iostream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

const char* const kUsage =
    "usage: bench_solid [options]\n"
    "  --meshes DIR         folder of the mesh files (default: $GRIDLOOM_MESHES)\n"
    "  --workloads A,B      only these (knot, sphere, gear, panel, armadillo)\n"
    "  --depths A,B         grids of 2^A, 2^B cells a side, 6 to 10 (default 6,8,10)\n"
    "  --contestants A,B    only these (Gridloom, plain, OpenVDB)\n"
    "  --rounds N           (default 5)\n"
    "  --csv FILE           writes all figures, one line for each workload, grid and contestant\n";

struct Options {
    fs::path meshes;
    std::vector<std::string> workloads;  ///< none: all
    std::vector<std::string> contestants = ContestantNames();
    std::vector<unsigned int> depths = {6, 8, 10};
    unsigned int rounds = 5;
    fs::path csv;
};

/// What one run of one contestant gave, as it goes from the process of the run to the driver.
struct Measurement {
    double totalMs = 0.0;   ///< processor time, user and kernel
    double kernelMs = 0.0;  ///< of which in the kernel
    double peakMiB = 0.0;   ///< rise of the peak of the resident memory
    uint64_t imageBytes = 0;
    uint64_t cells = 0;
    std::string hash;  ///< "-" where there is none
};

// The process of a run.

double ProcessorMs() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return 1e3 * static_cast<double>(now.tv_sec) + 1e-6 * static_cast<double>(now.tv_nsec);
}

double KernelMs() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return 1e3 * static_cast<double>(usage.ru_stime.tv_sec) +
           1e-3 * static_cast<double>(usage.ru_stime.tv_usec);
}

/// A line of /proc/self/status in MiB. VmHWM is the peak since this program was started; unlike
/// ru_maxrss it doesn't begin with that of the process which started it.
double StatusMiB(const std::string& iField) {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        double kib = 0.0;
        if (word == iField && status >> kib) return kib / 1024.0;
    }
    throw std::runtime_error("/proc/self/status has no " + iField);
}

void RunOnce(const std::string& iContestant, unsigned int iDepth, const fs::path& iMesh) {
    const Mesh mesh = LoadMesh(iMesh);
    const std::unique_ptr<Contestant> contestant = MakeContestant(iContestant);
    const double memory = StatusMiB("VmRSS:");
    const double kernel = KernelMs();
    const double start = ProcessorMs();
    contestant->Run(mesh, iDepth);
    const double total = ProcessorMs() - start;
    const double kernelTotal = KernelMs() - kernel;
    const double peak = StatusMiB("VmHWM:") - memory;
    const Outcome outcome = contestant->Describe();
    std::cout << total << ' ' << kernelTotal << ' ' << peak << ' ' << outcome.imageBytes << ' '
              << outcome.cells << ' ';
    if (outcome.hash) {
        std::cout << std::hex << std::setw(16) << std::setfill('0') << *outcome.hash << '\n';
    } else {
        std::cout << "-\n";
    }
}

// The driver.

/// Runs this program again with the given arguments and gives what it printed.
std::string RunSelf(const std::vector<std::string>& iArguments) {
    std::vector<char*> arguments = {const_cast<char*>("bench_solid")};
    for (const std::string& a : iArguments) arguments.push_back(const_cast<char*>(a.c_str()));
    arguments.push_back(nullptr);
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("no pipe");
    const pid_t child = fork();
    if (child < 0) throw std::runtime_error("no process");
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        close(ends[0]);
        close(ends[1]);
        setenv("LD_BIND_NOW", "1", 1);  // no symbol is looked up while the work is measured
        execv("/proc/self/exe", arguments.data());
        _exit(127);
    }
    close(ends[1]);
    std::string output;
    char buffer[256];
    for (ssize_t n = 0; (n = read(ends[0], buffer, sizeof buffer)) > 0;) {
        output.append(buffer, static_cast<size_t>(n));
    }
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (status != 0) throw std::runtime_error("a run failed: " + iArguments[1]);
    return output;
}

Measurement Measure(const std::string& iContestant, unsigned int iDepth, const fs::path& iMesh) {
    std::istringstream line(
        RunSelf({"--run", iContestant, std::to_string(iDepth), iMesh.string()}));
    Measurement m;
    line >> m.totalMs >> m.kernelMs >> m.peakMiB >> m.imageBytes >> m.cells >> m.hash;
    if (!line) throw std::runtime_error("a run gave no figures: " + iContestant);
    return m;
}

double Median(std::vector<double> iValues) {
    std::sort(iValues.begin(), iValues.end());
    const size_t n = iValues.size();
    return (iValues[(n - 1) / 2] + iValues[n / 2]) / 2.0;
}

/// The runs of one contestant on one workload and grid, put together.
Measurement Combine(const std::vector<Measurement>& iRuns) {
    Measurement median = iRuns.front();
    for (double Measurement::*field :
         {&Measurement::totalMs, &Measurement::kernelMs, &Measurement::peakMiB}) {
        std::vector<double> values;
        for (const Measurement& run : iRuns) values.push_back(run.*field);
        median.*field = Median(values);
    }
    for (const Measurement& run : iRuns) {
        if (run.hash != median.hash) throw std::runtime_error("the image differs from run to run");
    }
    return median;
}

/// One workload on one grid.
struct Task {
    std::string workload;
    fs::path mesh;
    size_t triangles;
    unsigned int depth;
    std::map<std::string, std::vector<Measurement>> runs;  ///< by contestant
};

/// Makes the meshes and stores them flat, so that a run's memory doesn't know how they were read.
std::vector<Task> Prepare(const Options& iOptions, const fs::path& iFolder) {
    std::vector<Task> tasks;
    for (const Workload& workload : FindWorkloads(iOptions.meshes)) {
        const auto& wanted = iOptions.workloads;
        if (!wanted.empty() && std::count(wanted.begin(), wanted.end(), workload.name) == 0)
            continue;
        const Mesh mesh = MakeMesh(workload);
        const fs::path path = iFolder / (workload.name + ".mesh");
        SaveMesh(mesh, path);
        for (const unsigned int depth : iOptions.depths) {
            tasks.push_back({workload.name, path, mesh.triangles.size(), depth, {}});
        }
    }
    return tasks;
}

void RunAll(const Options& iOptions, std::vector<Task>& ioTasks) {
    const bool onTerminal = isatty(STDERR_FILENO) != 0;
    for (unsigned int round = 1; round <= iOptions.rounds; round++) {
        for (Task& task : ioTasks) {
            std::cerr << (onTerminal ? "\r\033[K" : "") << "round " << round << " of "
                      << iOptions.rounds << ": " << task.workload << " 2^" << task.depth
                      << (onTerminal ? "" : "\n") << std::flush;
            for (const std::string& name : iOptions.contestants) {
                task.runs[name].push_back(Measure(name, task.depth, task.mesh));
            }
        }
    }
    if (onTerminal) std::cerr << "\r\033[K";
}

/// Three digits, as far as they mean anything.
std::string Digits(double iValue) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(iValue < 10.0 ? 2 : iValue < 100.0 ? 1 : 0) << iValue;
    return text.str();
}

/// One figure of a peer over the same of this run, or "-".
std::string Ratio(
    const Task& iTask,
    const Measurement& iRun,
    const char* iPeer,
    double Measurement::*iField,
    bool iPeerOnTop) {
    const auto peer = iTask.runs.find(iPeer);
    if (peer == iTask.runs.end()) return "-";
    const double other = Combine(peer->second).*iField;
    const double own = iRun.*iField;
    return Digits(iPeerOnTop ? other / own : own / other);
}

void WriteCsv(const std::vector<Task>& iTasks, const Options& iOptions) {
    if (iOptions.csv.empty()) return;
    std::ofstream csv(iOptions.csv);
    csv << "workload,triangles,depth,contestant,rounds,cpu_ms,kernel_ms,peak_mib,image_bytes,cells,"
           "fnv1a64,times_faster_than_openvdb,time_over_plain\n";
    for (const Task& task : iTasks) {
        for (const std::string& name : iOptions.contestants) {
            const Measurement m = Combine(task.runs.at(name));
            csv << task.workload << ',' << task.triangles << ',' << task.depth << ',' << name << ','
                << iOptions.rounds << ',' << m.totalMs << ',' << m.kernelMs << ',' << m.peakMiB
                << ',' << m.imageBytes << ',' << m.cells << ',' << m.hash << ','
                << Ratio(task, m, "OpenVDB", &Measurement::totalMs, true) << ','
                << Ratio(task, m, "plain", &Measurement::totalMs, false) << '\n';
        }
    }
    if (!csv.flush()) throw std::runtime_error(iOptions.csv.string() + ": can't be written");
}

/// A row of a Markdown table.
void PrintRow(const std::vector<std::string>& iCells) {
    std::cout << '|';
    for (const std::string& cell : iCells) std::cout << ' ' << cell << " |";
    std::cout << '\n';
}

/// A line for each workload and grid. The first two columns name them, the others are made by `iCells`.
template <class CellsOf>
void PrintTable(
    const std::vector<Task>& iTasks, std::vector<std::string> iTitles, const CellsOf& iCells) {
    iTitles.insert(iTitles.begin(), {"mesh, triangles", "grid"});
    PrintRow(iTitles);
    PrintRow(std::vector<std::string>(iTitles.size(), "---"));
    for (const Task& task : iTasks) {
        std::vector<std::string> row = {
            task.workload + ", " + std::to_string(task.triangles),
            "2^" + std::to_string(task.depth)};
        for (std::string& cell : iCells(task)) row.push_back(std::move(cell));
        PrintRow(row);
    }
    std::cout << '\n';
}

std::vector<std::string> TitlesFor(const Options& iOptions, const std::string& iWhat) {
    std::vector<std::string> titles;
    for (const std::string& name : iOptions.contestants) titles.push_back(name + ", " + iWhat);
    return titles;
}

/// Speed and memory: what the contestants need, and the ratios of the first one to its peers.
void PrintEffort(const std::vector<Task>& iTasks, const Options& iOptions) {
    const std::string& first = iOptions.contestants.front();
    std::vector<std::string> titles = TitlesFor(iOptions, "ms");
    for (std::string& title : TitlesFor(iOptions, "MiB")) titles.push_back(std::move(title));
    for (const char* ratio :
         {"times faster than OpenVDB", "of plain's time", "of OpenVDB's memory"}) {
        titles.push_back(first + ", " + ratio);
    }
    PrintTable(iTasks, titles, [&](const Task& iTask) {
        std::vector<std::string> cells;
        for (double Measurement::*field : {&Measurement::totalMs, &Measurement::peakMiB}) {
            for (const std::string& name : iOptions.contestants) {
                cells.push_back(Digits(Combine(iTask.runs.at(name)).*field));
            }
        }
        const Measurement own = Combine(iTask.runs.at(first));
        cells.push_back(Ratio(iTask, own, "OpenVDB", &Measurement::totalMs, true));
        cells.push_back(Ratio(iTask, own, "plain", &Measurement::totalMs, false));
        cells.push_back(Ratio(iTask, own, "OpenVDB", &Measurement::peakMiB, false));
        return cells;
    });
}

/// The results: occupied cells, bytes of the stored form, and the hash of the first one's image.
void PrintResults(const std::vector<Task>& iTasks, const Options& iOptions) {
    std::vector<std::string> titles = TitlesFor(iOptions, "cells");
    for (std::string& title : TitlesFor(iOptions, "bytes")) titles.push_back(std::move(title));
    titles.push_back(iOptions.contestants.front() + ", FNV-1a of the image");
    PrintTable(iTasks, titles, [&](const Task& iTask) {
        std::vector<std::string> cells;
        for (uint64_t Measurement::*field : {&Measurement::cells, &Measurement::imageBytes}) {
            for (const std::string& name : iOptions.contestants) {
                cells.push_back(std::to_string(iTask.runs.at(name).front().*field));
            }
        }
        cells.push_back(iTask.runs.at(iOptions.contestants.front()).front().hash);
        return cells;
    });
}

std::vector<std::string> Split(const std::string& iText) {
    std::vector<std::string> parts;
    std::istringstream text(iText);
    for (std::string part; std::getline(text, part, ',');) parts.push_back(part);
    return parts;
}

unsigned int ToNumber(const std::string& iText, unsigned int iLow, unsigned int iHigh) {
    const unsigned long value = std::strtoul(iText.c_str(), nullptr, 10);
    if (value < iLow || value > iHigh) throw std::runtime_error("out of range: " + iText);
    return static_cast<unsigned int>(value);
}

Options ReadOptions(const std::vector<std::string>& iArguments) {
    Options options;
    if (const char* folder = std::getenv("GRIDLOOM_MESHES")) options.meshes = folder;
    const std::map<std::string, std::function<void(const std::string&)>> known = {
        {"--meshes",      [&](const std::string& iText) { options.meshes = iText; }                   },
        {"--workloads",   [&](const std::string& iText) { options.workloads = Split(iText); }         },
        {"--contestants", [&](const std::string& iText) { options.contestants = Split(iText); }       },
        {"--depths",
         [&](const std::string& iText) {
             options.depths.clear();
             for (const std::string& d : Split(iText)) options.depths.push_back(ToNumber(d, 6, 10));
         }                                                                                            },
        {"--rounds",      [&](const std::string& iText) { options.rounds = ToNumber(iText, 1, 1000); }},
        {"--csv",         [&](const std::string& iText) { options.csv = iText; }                      },
    };
    for (size_t i = 0; i < iArguments.size(); i += 2) {
        const auto option = known.find(iArguments[i]);
        if (option == known.end() || i + 1 == iArguments.size()) throw std::runtime_error(kUsage);
        option->second(iArguments[i + 1]);
    }
    return options;
}

void Main(const std::vector<std::string>& iArguments) {
    if (iArguments.size() == 4 && iArguments[0] == "--run") {
        RunOnce(iArguments[1], ToNumber(iArguments[2], 6, 10), iArguments[3]);
        return;
    }
    const Options options = ReadOptions(iArguments);
    const ScratchFolder folder;
    std::vector<Task> tasks = Prepare(options, folder.path);
    RunAll(options, tasks);
    WriteCsv(tasks, options);
    PrintEffort(tasks, options);
    PrintResults(tasks, options);
}

}  // namespace

int main(int iCount, char** iArguments) {
    try {
        Main(std::vector<std::string>(iArguments + 1, iArguments + iCount));
        return 0;
    } catch (const std::exception& failure) {
        std::cerr << "bench_solid: " << failure.what() << '\n';
        return 1;
    }
}
