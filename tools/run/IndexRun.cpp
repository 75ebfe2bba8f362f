#include "IndexRun.h"

#include "Interrupt.h"
#include "OutputFile.h"
#include "TraceOutput.h"

#include "IDX_WT_Report.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <limits>
#include <new>
#include <poll.h>
#include <sys/resource.h>

namespace {

constexpr char kReportName[] = "/gridloom-index.txt";
constexpr char kFailedName[] = "/failed.txt";
constexpr std::size_t kMostRows = 1000;  // of the table: what is kept doesn't grow with the parts

/// The lines of the report about one step of the run.
class ReportedStep {
public:
    explicit ReportedStep(const char* iName) : _name(iName) {
        const TraceSilence silence;
        IDX_WT_Report::Begin(_name, 0);
    }
    ReportedStep(const ReportedStep&) = delete;
    ReportedStep& operator=(const ReportedStep&) = delete;
    ~ReportedStep() {
        const TraceSilence silence;
        IDX_WT_Report::End(_name, 0);
    }

private:
    const char* _name;
};

/// Waits until a pipe has something, or a request to stop comes.
void WaitFor(int iPipe) {
    pollfd pipes[] = {
        {InterruptDescriptor(), POLLIN, 0},
        {iPipe,                 POLLIN, 0},
    };
    (void)poll(pipes, std::size(pipes), -1);
}

/// A report holds numbers as int.
int ReportNumber(std::uint64_t iNumber) {
    constexpr std::uint64_t kLargest = std::numeric_limits<int>::max();
    return static_cast<int>(std::min(iNumber, kLargest));
}

/// What this process, or its children, used: the largest memory of one process, and processor time of all.
void ReportUsage(const char* iWhose, __rusage_who iWho) {
    rusage usage = {};
    (void)getrusage(iWho, &usage);
    const std::int64_t seconds = usage.ru_utime.tv_sec + usage.ru_stime.tv_sec;
    const std::int64_t microseconds = usage.ru_utime.tv_usec + usage.ru_stime.tv_usec;
    IDX_WT_Report::AddTag("PeakMemoryKiB", iWhose, static_cast<int>(usage.ru_maxrss));
    IDX_WT_Report::AddTag(
        "ProcessorMs", iWhose, static_cast<int>(seconds * 1000 + microseconds / 1000));
}

std::string LevelsOf(const PartFacts& iFacts) {
    std::string levels;
    for (std::size_t level = 0; level <= iFacts.depth; ++level) {
        if (level > 0) levels += '/';
        levels += std::to_string(iFacts.cellsByLevel[level]);
    }
    return levels;
}

/// A field of failed.txt holds neither tab nor newline.
std::string Field(const std::string& iText) {
    return Printable(iText);
}

}  // namespace

/// A step, under the name that the report gives it.
struct IndexRun::Step {
    const char* name;
    int (IndexRun::*run)();
    bool isDry;  ///< writes nothing
};

const IndexRun::Step IndexRun::kSteps[] = {
    {"empty the folder of the new index", &IndexRun::OpenFolder,  false},
    {"build the parts",                   &IndexRun::BuildParts,  true },
    {"count",                             &IndexRun::CheckCounts, true },
    {"finish the files",                  &IndexRun::FinishFiles, false},
    {"verify",                            &IndexRun::Verify,      false},
    {"swap",                              &IndexRun::Swap,        false},
};

IndexRun::IndexRun(const IndexOptions& iOptions)
    : _options(iOptions),
      _files(FindInputFiles(iOptions.inputs)),
      _console(iOptions.progress, iOptions.isQuiet),
      _table(
          {"part", "triangles", "skipped", "depth", "cells by level", "solid cells", "inside",
           "image bytes", "ms"}),
      _base(iOptions.base) {}

IndexRun::~IndexRun() {
    if (_failedList != nullptr) (void)std::fclose(_failedList);  // each line was flushed
}

int IndexRun::Run() {
    int exitCode = kExitDone;
    try {
        exitCode = DoSteps();
    } catch (const std::bad_alloc&) {
        exitCode = FailRun("out of memory");
    }
    if (!_isLive && !_folder.empty()) {
        _writer.reset();
        _base.Discard();
    }
    if (exitCode == kExitDone && _nFailed > 0) exitCode = kExitPartsFailed;
    ReportResult();
    IDX_WT_Report::GetReport()->SetExitcode(exitCode);
    Summarize(exitCode);
    return exitCode;
}

/// Goes through the steps up to the first that doesn't succeed.
int IndexRun::DoSteps() {
    const int opened = _options.isDryRun ? kExitDone : OpenBase();
    if (opened != kExitDone) return opened;
    for (const Step& step : kSteps) {
        if (_options.isDryRun && !step.isDry) continue;
        if (IsInterrupted()) return FailRun("interrupted", kExitInterrupted);
        const ReportedStep reported(step.name);
        const int exitCode = (this->*step.run)();
        if (exitCode != kExitDone) return exitCode;
    }
    return kExitDone;
}

/// Tells why the run ends here.
int IndexRun::FailRun(const std::string& iReason, int iExitCode) {
    _console.Fail(_options.base, iReason);
    IDX_WT_Report::GetReport()->AddMsg("Error:%s", Printable(iReason).c_str());
    return iExitCode;
}

/// Takes the right to write, and opens the report.
int IndexRun::OpenBase() {
    const std::string failure = _base.Prepare();
    if (!failure.empty()) return FailRun(failure);
    const std::string path = _base.ReportFolder() + kReportName;
    errno = 0;
    if (IDX_WT_Report::GetReport()->OpenWrite(path.c_str()) != IDX_True) {
        return FailRun(path + " can't be written: " + std::strerror(errno));
    }
    std::error_code ignored;
    std::filesystem::remove(_base.ReportFolder() + kFailedName, ignored);
    ReportSettings();
    return kExitDone;
}

void IndexRun::ReportSettings() const {
    const PipelineSettings& settings = _options.pipeline;
    IDX_WT_Report::GetReport()->AddMsg("Index:%s", Printable(_options.base).c_str());
    IDX_WT_Report::AddTag("Files", ReportNumber(_files.size()));
    IDX_WT_Report::AddTag("Depth", settings.build.parameters.depth);
    IDX_WT_Report::GetReport()->AddMsg(
        "Voxel:%g", static_cast<double>(settings.build.parameters.cellSize));
    IDX_WT_Report::AddTag("Jobs", ReportNumber(settings.nProcesses));
}

int IndexRun::OpenFolder() {
    std::string failure = _base.OpenFolder(_folder);
    if (failure.empty()) failure = _writer.emplace(_folder).Open();
    if (failure.empty() && _options.pipeline.build.pictures) {
        std::error_code error;
        std::filesystem::create_directories(_options.pictureFolder, error);
        if (error) failure = _options.pictureFolder + ": " + error.message();
    }
    return failure.empty() ? kExitDone : FailRun(failure);
}

int IndexRun::BuildParts() {
    PartPipeline pipeline(_files, _options.pipeline, *this);
    switch (pipeline.Run()) {
        case PartPipeline::Outcome::Done:
            return kExitDone;
        case PartPipeline::Outcome::Interrupted:
            return FailRun("interrupted", kExitInterrupted);
        case PartPipeline::Outcome::NoProcess:
            return FailRun("no process: " + pipeline.Failure());
        case PartPipeline::Outcome::Ended:
            break;
    }
    return FailRun(_writeFailure);
}

int IndexRun::CheckCounts() {
    if (_nDone == 0) return FailRun("nothing to index", kExitUsage);
    if (_options.isStrict && _nFailed > 0) {
        return FailRun("parts failed, and -strict is set", kExitPartsFailed);
    }
    return kExitDone;
}

int IndexRun::FinishFiles() {
    const std::string failure = _writer->Finish();
    return failure.empty() ? kExitDone : FailRun(failure);
}

int IndexRun::Swap() {
    _folder.clear();  // from here on it may be the live one
    const std::string failure = _base.Swap();
    _isLive = failure.empty();
    return _isLive ? kExitDone : FailRun(failure);
}

/// Reads from the disk what was written.
int IndexRun::Verify() {
    ChildProcess check;
    const std::string failure = check.Start(CheckWork(_folder));
    if (!failure.empty()) return FailRun("no process: " + failure);
    CheckMessage latest;
    for (bool isAlive = true; isAlive;) {
        WaitFor(check.Pipe());
        if (IsInterrupted()) return FailRun("interrupted", kExitInterrupted);
        isAlive = check.Receive();
        std::string message;
        while (check.TakeMessage(message)) isAlive = DecodeCheck(message, latest) && isAlive;
        TellVerification(latest.share);
    }
    return JudgeVerification(latest, check.End());
}

int IndexRun::JudgeVerification(const CheckMessage& iResult, int iStatus) {
    if (!iResult.isLast || iStatus != 0) {
        return FailRun("the verification " + ReasonOfDeath(iStatus, 0), kExitDamaged);
    }
    for (const std::string& problem : iResult.problems) (void)FailRun(problem);
    if (iResult.nProblems == 0) return kExitDone;
    return FailRun(
        "the new index is damaged: " + std::to_string(iResult.nProblems) + " problems",
        kExitDamaged);
}

bool IndexRun::TakePart(const FinishedPart& iPart) {
    if (!_options.isDryRun) {
        _writeFailure = WritePart(iPart);
        if (_writeFailure.empty()) _writeFailure = WritePicture(iPart);
        if (!_writeFailure.empty()) return false;
    }
    ++_nDone;
    _nTriangles += iPart.result.facts.nTriangles;
    _imageBytes += iPart.result.image.size();
    TellPart(iPart);
    AddToTable(iPart);
    return true;
}

std::string IndexRun::WritePart(const FinishedPart& iPart) {
    const PartResult& result = iPart.result;
    IndexedPart part;
    part.identifier = iPart.identifier;
    part.image = reinterpret_cast<const unsigned char*>(result.image.data());
    part.imageSize = result.facts.imageSize;
    part.box = result.facts.box;
    part.nTriangles = result.facts.nTriangles;
    part.nOccupied = result.facts.nSolid;
    return _writer->Add(part);
}

std::string IndexRun::WritePicture(const FinishedPart& iPart) {
    if (iPart.result.picture.empty()) return {};
    const std::string& bytes = iPart.result.picture;
    const std::string path =
        _options.pictureFolder + "/" + _pictureNames.Make(iPart.identifier) + ".png";
    const std::string failure = WriteWholeFile(path, bytes.data(), bytes.size());
    return failure.empty() ? "" : path + " can't be written: " + failure;
}

void IndexRun::TellVerification(double iShare) {
    if (_options.progress == ProgressStyle::Plain) return;
    _console.Tell(
        iShare, "verifying",
        {
            {"event", "verify"},
            {"share", iShare  },
    });
}

void IndexRun::TellPart(const FinishedPart& iPart) {
    const PartFacts& facts = iPart.result.facts;
    const double inFile = static_cast<double>(iPart.iPart + 1) / static_cast<double>(iPart.nParts);
    const double share =
        (static_cast<double>(iPart.iFile) + inFile) / static_cast<double>(_files.size());
    const std::string line = "[file " + std::to_string(iPart.iFile + 1) + " of " +
                             std::to_string(_files.size()) + ", part " +
                             std::to_string(iPart.iPart + 1) + " of " +
                             std::to_string(iPart.nParts) + "] " + iPart.identifier;
    const auto number = [](auto iNumber) { return static_cast<double>(iNumber); };
    _console.Tell(
        share, _options.progress == ProgressStyle::Bar ? iPart.identifier : line,
        {
            {"event",     "part"                  },
            {"id",        iPart.identifier        },
            {"file",      number(iPart.iFile + 1) },
            {"files",     number(_files.size())   },
            {"part",      number(iPart.iPart + 1) },
            {"parts",     number(iPart.nParts)    },
            {"triangles", number(facts.nTriangles)},
            {"skipped",   number(facts.nSkipped)  },
            {"depth",     number(facts.depth)     },
            {"solid",     number(facts.nSolid)    },
            {"inside",    number(facts.nInside)   },
            {"bytes",     number(facts.imageSize) },
            {"ms",        facts.milliseconds      },
    });
}

void IndexRun::AddToTable(const FinishedPart& iPart) {
    if (_table.CountRows() == kMostRows) return;
    const PartFacts& facts = iPart.result.facts;
    char time[32];
    std::snprintf(time, sizeof time, "%.1f", facts.milliseconds);
    _table.AddRow(
        {Printable(iPart.identifier), std::to_string(facts.nTriangles),
         std::to_string(facts.nSkipped), std::to_string(facts.depth), LevelsOf(facts),
         std::to_string(facts.nSolid), facts.nInside > 0 ? std::to_string(facts.nInside) : "no",
         std::to_string(facts.imageSize), time});
}

void IndexRun::TakeFailure(const std::string& iName, const std::string& iReason) {
    ++_nFailed;
    _console.Fail(iName, iReason);
    if (_options.isDryRun) return;
    IDX_WT_Report::GetReport()->AddMsg(
        "Failed:%s:%s", Printable(iName).c_str(), Printable(iReason).c_str());
    if (_failedList == nullptr) {
        _failedList = std::fopen((_base.ReportFolder() + kFailedName).c_str(), "we");
    }
    if (_failedList == nullptr) return;  // the report names it, too
    std::fprintf(_failedList, "%s\t%s\n", Field(iName).c_str(), Field(iReason).c_str());
    std::fflush(_failedList);
}

void IndexRun::TakeNote(const std::string& iName, const std::string& iNote) {
    _console.Note(iName, iNote);
    IDX_WT_Report::GetReport()->AddMsg(
        "Note:%s:%s", Printable(iName).c_str(), Printable(iNote).c_str());
}

void IndexRun::ReportResult() const {
    IDX_WT_Report::AddTag("Parts", ReportNumber(_nDone));
    IDX_WT_Report::AddTag("FailedParts", ReportNumber(_nFailed));
    IDX_WT_Report::AddTag("Triangles", ReportNumber(_nTriangles));
    IDX_WT_Report::AddTag("ImageKiB", ReportNumber(_imageBytes >> 10U));
    ReportUsage("tool", RUSAGE_SELF);
    ReportUsage("children", RUSAGE_CHILDREN);
    IDX_WT_Report::AddTag("Live", _isLive ? 1 : 0);
}

void IndexRun::Summarize(int iExitCode) {
    _console.ClearBar();
    if (_options.progress == ProgressStyle::Json) {
        return _console.Tell(
            1.0,
            {
        },
            {
                {"event", "end"},
                {"exit", static_cast<double>(iExitCode)},
                {"parts", static_cast<double>(_nDone)},
                {"failed", static_cast<double>(_nFailed)},
                {"live", _isLive ? 1.0 : 0.0},
            });
    }
    if (_options.isQuiet) return;
    if (_nDone > 0) {
        std::printf("\n");
        _table.Print();
        if (_nDone > kMostRows) std::printf("... and %zu more\n", _nDone - kMostRows);
        std::printf("\n");
    }
    const char* live = _isLive ? "the new index is live" : "the live index is as it was";
    std::printf(
        "%zu part%s of %zu file%s done, %zu failed; %s: %s\n", _nDone, _nDone == 1 ? "" : "s",
        _files.size(), _files.size() == 1 ? "" : "s", _nFailed, _options.base.c_str(), live);
}
