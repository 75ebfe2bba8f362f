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
    BuildParameters& parameters = ioOptions.pipeline.build.parameters;
    ioProgram.AddGroup("Index");
    Option& base = ioProgram.Add(
        Text({"index", "BASE", "Folder of the index; made when missing."}, ioOptions.base));
    base.completion = Option::Completion::Folders;
    base.isMandatory = true;
    ioProgram.Add(WholeNumber(
        {"depth", "LEVELS", "Levels of the octrees at most; 7 means 128 cells a side."},
        kShallowest, kDeepest, parameters.depth));
    Option& voxel = ioProgram.Add(Length(
        {"voxel", "LENGTH", "Stops as soon as the cells are no longer than this, in model units."},
        parameters.cellSize));
    voxel.standard = "the depth alone counts";
    ioOptions.pipeline.nProcesses = CountProcessors();
    Option& jobs = ioProgram.Add(WholeNumber(
        {"jobs", "N", "Processes at work at a time."}, 1, kMostProcesses,
        ioOptions.pipeline.nProcesses));
    jobs.standard = "the number of processors";
    jobs.letter = 'j';
    ioProgram.Add(Flag(
        {"strict", "", "Leaves the live index as it is when any part has failed."},
        ioOptions.isStrict));
    ioProgram.Add(Flag(
        {"dry-run", "", "Does everything but writing: nothing on the disk changes."},
        ioOptions.isDryRun));
}

void AddLimits(PipelineSettings& ioSettings, Program& ioProgram) {
    ioProgram.AddGroup("Limits");
    ioProgram.Add(WholeNumber(
        {"part-seconds", "S",
         "Processor time that the build of one part may take; ten times as long on the clock."},
        1, kMostSeconds, ioSettings.build.seconds));
    ioProgram.Add(WholeNumber(
        {"import-seconds", "S",
         "Processor time that the import of one file may take; ten times as long on the clock."},
        1, kMostSeconds, ioSettings.import.seconds));
    ioProgram.Add(WholeNumber(
        {"import-memory", "MIB", "Memory (address space) that the import of one file may use."}, 1,
        kMostMemoryMiB, ioSettings.import.memoryMiB));
}

void AddOutputOptions(IndexOptions& ioOptions, Program& ioProgram) {
    ioProgram.AddGroup("Output");
    Option& pictures = ioProgram.Add(Text(
        {"pictures", "FOLDER", "Writes a picture of each part there."}, ioOptions.pictureFolder));
    pictures.completion = Option::Completion::Folders;
    pictures.standard = "no pictures";
    Option& up = ioProgram.Add(Choice<std::optional<UpAxis>>(
        {
            "up", "", "The axis that points upwards in pictures."
    },
        {{"y", UpAxis::Y}, {"z", UpAxis::Z}}, ioOptions.pipeline.up));
    up.standard = "`z` for STL and 3MF, else `y`";
    ioProgram.Add(Choice(
        {"progress", "",
         "`bar` moves on the standard error; `plain` is a line for each part, `json` one JSON "
         "object a line, both on the standard output; `auto` is a bar on a terminal, else plain "
         "lines."},
        kProgressStyles, ioOptions.progress));
    ioProgram.Add(Flag({"quiet", "", "Names failures only."}, ioOptions.isQuiet));
    ioProgram.Add(Flag(
        {"verbose", "", "Shows the library's trace on the standard error."}, ioOptions.isVerbose));
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
