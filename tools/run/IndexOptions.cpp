#include "IndexOptions.h"

#include "Arguments.h"

#include <algorithm>
#include <sched.h>
#include <unistd.h>

namespace {

constexpr int kMostProcesses = 1024;
constexpr int kMostMemoryMiB = 1 << 20;
constexpr int kMostSeconds = 24 * 3600;

constexpr char kAbout[] =
    "Turns every part of the given meshes (STL, OBJ, PLY, glTF, GLB, OFF, 3MF) into a voxel "
    "octree and writes an index of all: octree images, boxes and identifiers. The new index "
    "is written beside the live one under BASE, and takes its place when it is whole. A "
    "folder means all meshes below it.";

const std::vector<std::pair<std::string, ProgressStyle>> kProgressStyles = {
    {"auto",  ProgressStyle::Auto },
    {"bar",   ProgressStyle::Bar  },
    {"plain", ProgressStyle::Plain},
    {"json",  ProgressStyle::Json },
    {"none",  ProgressStyle::None },
};

/// Processors that this process may use.
unsigned int CountProcessors() {
    cpu_set_t set;
    const bool isKnown = sched_getaffinity(0, sizeof set, &set) == 0;
    const long count = isKnown ? CPU_COUNT(&set) : sysconf(_SC_NPROCESSORS_ONLN);
    return static_cast<unsigned int>(std::clamp<long>(count, 1, kMostProcesses));
}

ProgressStyle StyleFor(bool iIsQuiet) {
    if (iIsQuiet) return ProgressStyle::None;
    return isatty(STDERR_FILENO) != 0 ? ProgressStyle::Bar : ProgressStyle::Plain;
}

void AddIndexOptions(IndexOptions& ioOptions, Program& ioProgram) {
    ioProgram.AddGroup("Index");
    ioProgram.Add(Text("index", "BASE", ioOptions.base, "Folder of the index; made when missing.")
                      .Completed(Option::Completion::Folders)
                      .Mandatory());
    ioProgram.Add(WholeNumber(
        "depth", "LEVELS", kShallowest, kDeepest, ioOptions.pipeline.build.parameters.depth,
        "Levels of the octrees at most; 7 means 128 cells a side."));
    ioProgram.Add(Length(
                      "voxel", "LENGTH", ioOptions.pipeline.build.parameters.cellSize,
                      "Stops as soon as the cells are no longer than this, in model units.")
                      .Default("the depth alone counts"));
    ioOptions.pipeline.nProcesses = CountProcessors();
    ioProgram.Add(WholeNumber(
                      "jobs", "N", 1, kMostProcesses, ioOptions.pipeline.nProcesses,
                      "Processes at work at a time.")
                      .Default("the number of processors")
                      .Short('j'));
    ioProgram.Add(Flag(
        "strict", ioOptions.isStrict, "Leaves the live index as it is when any part has failed."));
    ioProgram.Add(Flag(
        "dry-run", ioOptions.isDryRun,
        "Does everything but writing: nothing on the disk changes."));
}

void AddLimits(PipelineSettings& ioSettings, Program& ioProgram) {
    ioProgram.AddGroup("Limits");
    ioProgram.Add(WholeNumber(
        "part-seconds", "S", 1, kMostSeconds, ioSettings.build.seconds,
        "Processor time that the build of one part may take; ten times as long on the clock."));
    ioProgram.Add(WholeNumber(
        "import-seconds", "S", 1, kMostSeconds, ioSettings.import.seconds,
        "The same for the import of one file."));
    ioProgram.Add(WholeNumber(
        "import-memory", "MIB", 1, kMostMemoryMiB, ioSettings.import.memoryMiB,
        "Memory (address space) that the import of one file may use."));
}

void AddOutputOptions(IndexOptions& ioOptions, Program& ioProgram) {
    ioProgram.AddGroup("Output");
    ioProgram.Add(
        Text("pictures", "FOLDER", ioOptions.pictureFolder, "Writes a picture of each part there.")
            .Completed(Option::Completion::Folders)
            .Default("no pictures"));
    ioProgram.Add(Choice<std::optional<UpAxis>>(
                      "up",
                      {
                          {"y", UpAxis::Y},
                          {"z", UpAxis::Z}
    },
                      ioOptions.pipeline.up, "The axis that points upwards in pictures.")
                      .Default("`z` for STL and 3MF, else `y`"));
    ioProgram.Add(Choice<ProgressStyle>(
        "progress", kProgressStyles, ioOptions.progress,
        "`bar` moves on the standard error; `plain` is a line for each part, `json` one JSON "
        "object a line, both on the standard output; `auto` is a bar on a terminal, else plain "
        "lines."));
    ioProgram.Add(Flag("quiet", ioOptions.isQuiet, "Names failures only."));
    ioProgram.Add(
        Flag("verbose", ioOptions.isVerbose, "Shows the library's trace on the standard error."));
}

}  // namespace

Program IndexProgram(IndexOptions& ioOptions) {
    Program program;
    program.name = "gridloom-index";
    program.arguments = "-index BASE [OPTION...] FILE_OR_FOLDER...";
    program.about = kAbout;
    program.takesFiles = true;
    AddIndexOptions(ioOptions, program);
    AddLimits(ioOptions.pipeline, program);
    AddOutputOptions(ioOptions, program);
    program.AddCommonOptions();
    program.AddExit(ExitCode::Done, "Done: the new index is live.");
    program.AddExit(
        ExitCode::Usage, "Wrong usage, or no part to index. The live index is as it was.");
    program.AddExit(
        ExitCode::PartsFailed,
        "Done, but parts failed; `failed.txt` beside the report names them. The new index is live; "
        "with `-strict` the live index is as it was.");
    program.AddExit(
        ExitCode::Damaged,
        "The verification has found the new index damaged. The live index is as it was.");
    program.AddExit(
        ExitCode::Environment,
        "A full disk, no permission, another run that writes there, and the like. The live index "
        "is as it was.");
    program.AddExit(
        ExitCode::Interrupted,
        "Interrupted by SIGINT, SIGTERM or SIGHUP; another signal a second later ends the run at "
        "once. The live index is as it was.");
    return program;
}

std::optional<ExitCode> ReadIndexOptions(int iCount, char** iArguments, IndexOptions& oOptions) {
    const Program program = IndexProgram(oOptions);
    Arguments arguments(program);
    if (const auto end = arguments.Read(iCount, iArguments)) return end;
    oOptions.tool = program.name;
    oOptions.inputs = arguments.Words();
    if (oOptions.inputs.empty()) return arguments.Refuse("no mesh file or folder is named");
    oOptions.pipeline.build.pictures = !oOptions.pictureFolder.empty() && !oOptions.isDryRun;
    if (oOptions.progress == ProgressStyle::Auto) oOptions.progress = StyleFor(oOptions.isQuiet);
    return {};
}
