#include "IndexOptions.h"

#include <algorithm>
#include <sched.h>
#include <unistd.h>

namespace {

constexpr int kMostProcesses = 1024;
constexpr int kMostMemoryMiB = 1 << 20;
constexpr int kMostSeconds = 24 * 3600;

constexpr char kAbout[] = R"(usage: gridloom-index -index BASE [options] FILE_OR_FOLDER...

Turns every part of the given meshes (STL, OBJ, PLY, glTF, GLB, OFF, 3MF) into a voxel octree and
writes an index of all: octree images, boxes and identifiers, beside the live index under BASE,
which takes its place when it is whole. A folder stands for all meshes below it.

  -name value, --name value and --name=value are the same; -- ends the options.

Exit code: 0 done; 2 wrong usage or nothing to index; 3 done, but parts failed (they are named in
failed.txt beside the report); 4 the new index is damaged; 5 full disk, no permission, locked and
the like; 130 interrupted. With 2, 4, 5 and 130 the live index stays as it was.
)";

void Declare(Arguments& ioArguments) {
    ioArguments.DeclareValue("index", true, "Base folder of the index; made when missing");
    ioArguments.DeclareValue("depth", false, "Levels of the octrees, 2 to 19 (default: 7)");
    ioArguments.DeclareValue(
        "voxel", false,
        "Stop when the cells are no longer than this, in model units (default: only the depth "
        "counts)");
    ioArguments.DeclareValue(
        "jobs", false, "Processes at work at a time (default: the number of processors)");
    ioArguments.DeclareFlag("strict", "Leave the live index as it is when any part has failed");
    ioArguments.DeclareFlag("dry-run", "Do everything but writing");
    ioArguments.DeclareValue(
        "pictures", false, "Folder for a picture of each part (default: no pictures)");
    ioArguments.DeclareValue(
        "up", false,
        "y or z: the axis that points upwards in pictures (default: z for STL and 3MF, else y)");
    ioArguments.DeclareValue(
        "progress", false,
        "auto, bar, plain, json or none (default: auto, which is a bar on a terminal, else lines)");
    ioArguments.DeclareFlag("quiet", "Tell failures only");
    ioArguments.DeclareFlag("verbose", "Show the library's trace on the standard error");
    ioArguments.DeclareValue("part-seconds", false, "Processor time for one part (default: 600)");
    ioArguments.DeclareValue(
        "import-seconds", false, "Processor time for the import of one file (default: 120)");
    ioArguments.DeclareValue(
        "import-memory", false, "Memory for the import of one file, in MiB (default: 4096)");
}

/// Processors that this process may use.
unsigned int CountProcessors() {
    cpu_set_t set;
    const bool isKnown = sched_getaffinity(0, sizeof set, &set) == 0;
    const long count = isKnown ? CPU_COUNT(&set) : sysconf(_SC_NPROCESSORS_ONLN);
    return static_cast<unsigned int>(std::clamp<long>(count, 1, kMostProcesses));
}

ProgressStyle GetProgress(Arguments& ioArguments, bool iIsQuiet) {
    constexpr ProgressStyle kStyles[] = {
        ProgressStyle::Bar, ProgressStyle::Plain, ProgressStyle::Json, ProgressStyle::None};
    std::size_t choice = 0;
    ioArguments.GetChoice("progress", {"auto", "bar", "plain", "json", "none"}, choice);
    if (choice > 0) return kStyles[choice - 1];
    if (iIsQuiet) return ProgressStyle::None;
    return isatty(STDERR_FILENO) != 0 ? ProgressStyle::Bar : ProgressStyle::Plain;
}

void GetPipeline(Arguments& ioArguments, PipelineSettings& oSettings) {
    ioArguments.GetNumber("depth", kShallowest, kDeepest, oSettings.build.parameters.depth);
    ioArguments.GetLength("voxel", oSettings.build.parameters.cellSize);
    oSettings.nProcesses = CountProcessors();
    ioArguments.GetNumber("jobs", 1, kMostProcesses, oSettings.nProcesses);
    ioArguments.GetNumber("part-seconds", 1, kMostSeconds, oSettings.build.seconds);
    ioArguments.GetNumber("import-seconds", 1, kMostSeconds, oSettings.import.seconds);
    ioArguments.GetNumber("import-memory", 1, kMostMemoryMiB, oSettings.import.memoryMiB);
    if (!Arguments::IsGiven("up")) return;
    std::size_t axis = 0;
    ioArguments.GetChoice("up", {"y", "z"}, axis);
    oSettings.up = axis == 0 ? UpAxis::Y : UpAxis::Z;
}

}  // namespace

Arguments::Result ReadIndexOptions(int iCount, char** iArguments, IndexOptions& oOptions) {
    Arguments arguments("gridloom-index", kAbout);
    Declare(arguments);
    const Arguments::Result result = arguments.Read(iCount, iArguments);
    if (result != Arguments::Result::Run) return result;
    arguments.GetText("index", oOptions.base);
    arguments.GetText("pictures", oOptions.pictureFolder);
    oOptions.isStrict = Arguments::IsGiven("strict");
    oOptions.isDryRun = Arguments::IsGiven("dry-run");
    oOptions.isQuiet = Arguments::IsGiven("quiet");
    oOptions.isVerbose = Arguments::IsGiven("verbose");
    oOptions.progress = GetProgress(arguments, oOptions.isQuiet);
    GetPipeline(arguments, oOptions.pipeline);
    oOptions.pipeline.build.pictures = !oOptions.pictureFolder.empty() && !oOptions.isDryRun;
    oOptions.inputs = arguments.Words();
    if (oOptions.inputs.empty()) arguments.Complain("no mesh file or folder is named");
    return arguments.GetResult();
}
