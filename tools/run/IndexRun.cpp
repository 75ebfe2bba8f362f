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

/// What this process, or its children, used: the largest memory of one process, and processor time
/// of all.
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
    Status (IndexRun::*run)();
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
      _console(iOptions.tool, iOptions.progress, iOptions.isQuiet),
      _table(
          {"part", "triangles", "skipped", "depth", "cells by level", "solid cells", "inside",
           "image bytes", "ms"}),
      _base(iOptions.base, iOptions.tool + ".lock") {}

IndexRun::~IndexRun() {
    if (_failedList != nullptr) (void)std::fclose(_failedList);  // each line was flushed
}

/// Whatever ends the steps, what isn't live is discarded, and the report is closed with its exit
/// code.
ExitCode IndexRun::Run() {
    ExitCode exitCode = ExitCode::Done;
    try {
        exitCode = DoSteps().Code();
    } catch (const std::bad_alloc&) {
        const Status status = Status::Environment("out of memory");
        ReportEnd(status);
        exitCode = status.Code();
    }
    if (!_isLive && !_folder.empty()) {
        _writer.reset();
        _base.Discard();
    }
    if (exitCode == ExitCode::Done && _nFailed > 0) exitCode = ExitCode::PartsFailed;
    ReportResult();
    IDX_WT_Report::GetReport()->SetExitcode(NumberOf(exitCode));
    Summarize(exitCode);
    return exitCode;
}

/// Goes through the steps up to the first that doesn't succeed.
Status IndexRun::DoSteps() {
    Status status = _options.isDryRun ? Status() : OpenBase();
    if (status.Failed()) ReportEnd(status);
    for (const Step& step : kSteps) {
        if (status.Failed()) break;
        if (!_options.isDryRun || step.isDry) status = DoStep(step);
    }
    return status;
}

/// The report names the failure before the end of the step.
Status IndexRun::DoStep(const Step& iStep) {
    if (IsInterrupted()) {
        ReportEnd(InterruptedStatus());
        return InterruptedStatus();
    }
    const ReportedStep reported(iStep.name);
    Status status = (this->*iStep.run)();
    if (status.Failed()) ReportEnd(status);
    return status;
}

/// Says why the run ends here.
void IndexRun::ReportEnd(const Status& iStatus) {
    _console.Fail(_options.base, iStatus.Text());
    IDX_WT_Report::GetReport()->AddMsg("Error:%s", Printable(iStatus.Text()).c_str());
}

/// Locks the base, and opens the report.
Status IndexRun::OpenBase() {
    Status status = _base.Prepare();
    if (status.Failed()) return status;
    const std::string path = _base.ReportFolder() + "/" + _options.tool + ".txt";
    errno = 0;
    if (IDX_WT_Report::GetReport()->OpenWrite(path.c_str()) != IDX_True) {
        return Status::System(errno).In(path + " can't be written");
    }
    std::error_code ignored;
    std::filesystem::remove(_base.ReportFolder() + kFailedName, ignored);
    ReportSettings();
    return {};
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

Status IndexRun::OpenFolder() {
    Status status = _base.OpenFolder(_folder);
    if (!status.Failed()) status = _writer.emplace(_folder).Open();
    if (status.Failed() || !_options.pipeline.build.pictures) return status;
    std::error_code error;
    std::filesystem::create_directories(_options.pictureFolder, error);
    return error ? Status::Environment(error.message()).In(_options.pictureFolder) : Status();
}

Status IndexRun::BuildParts() {
    return PartPipeline(_files, _options.pipeline, *this).Run();
}

Status IndexRun::CheckCounts() {
    if (_nDone == 0) return {ExitCode::Usage, "nothing to index"};
    if (_options.isStrict && _nFailed > 0) {
        return Status::PartFailed("parts failed, and -strict is set");
    }
    return {};
}

Status IndexRun::FinishFiles() {
    return _writer->Finish();
}

Status IndexRun::Swap() {
    _folder.clear();  // from here on it may be the live one
    Status status = _base.Swap();
    _isLive = !status.Failed();
    return status;
}

/// Reads from the disk what was written.
Status IndexRun::Verify() {
    ChildProcess check;
    const Status status = check.Start(CheckWork(_folder));
    if (status.Failed()) return status.In("no process");
    CheckMessage latest;
    for (bool isAlive = true; isAlive;) {
        WaitFor(check.Pipe());
        if (IsInterrupted()) return InterruptedStatus();
        isAlive = check.Receive();
        std::string message;
        while (check.NextMessage(message)) isAlive = DecodeCheck(message, latest) && isAlive;
        ShowVerification(latest.share);
    }
    return JudgeVerification(latest, check.End());
}

/// A verification that didn't come to its end has found no sound index either.
Status IndexRun::JudgeVerification(const CheckMessage& iResult, const ChildEnd& iEnd) {
    if (!iResult.isLast || iEnd.cause != ChildEnd::Done) {
        return Status::Damaged("the verification " + DescribeEnd(iEnd, 0));
    }
    if (iResult.nProblems == 0) return {};
    for (const std::string& problem : iResult.problems) ReportEnd(Status::Damaged(problem));
    return Status::Damaged(
        "the new index is damaged: " + std::to_string(iResult.nProblems) + " problems");
}

Status IndexRun::ReceivePart(const FinishedPart& iPart) {
    if (!_options.isDryRun) {
        Status status = WritePart(iPart);
        if (!status.Failed()) status = WritePicture(iPart);
        if (status.Failed()) return status;
    }
    ++_nDone;
    _nTriangles += iPart.result.facts.nTriangles;
    _imageBytes += iPart.result.image.size();
    ShowPart(iPart);
    AddToTable(iPart);
    return {};
}

Status IndexRun::WritePart(const FinishedPart& iPart) {
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

Status IndexRun::WritePicture(const FinishedPart& iPart) {
    if (iPart.result.picture.empty()) return {};
    const std::string& bytes = iPart.result.picture;
    const std::string path =
        _options.pictureFolder + "/" + _pictureNames.Make(iPart.identifier) + ".png";
    return WriteWholeFile(path, bytes.data(), bytes.size()).In(path + " can't be written");
}

void IndexRun::ShowVerification(double iShare) {
    if (_options.progress == ProgressStyle::Plain) return;
    _console.ShowProgress(
        iShare, "verifying",
        {
            {"event", "verify"},
            {"share", iShare  },
    });
}

void IndexRun::ShowPart(const FinishedPart& iPart) {
    const PartFacts& facts = iPart.result.facts;
    const double inFile = static_cast<double>(iPart.iPart + 1) / static_cast<double>(iPart.nParts);
    const double share =
        (static_cast<double>(iPart.iFile) + inFile) / static_cast<double>(_files.size());
    const std::string line = "[file " + std::to_string(iPart.iFile + 1) + " of " +
                             std::to_string(_files.size()) + ", part " +
                             std::to_string(iPart.iPart + 1) + " of " +
                             std::to_string(iPart.nParts) + "] " + iPart.identifier;
    const auto number = [](auto iNumber) { return static_cast<double>(iNumber); };
    _console.ShowProgress(
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

void IndexRun::ReceiveFailure(const std::string& iName, const Status& iStatus) {
    ++_nFailed;
    const std::string& reason = iStatus.Text();
    _console.Fail(iName, reason);
    if (_options.isDryRun) return;
    IDX_WT_Report::GetReport()->AddMsg(
        "Failed:%s:%s", Printable(iName).c_str(), Printable(reason).c_str());
    if (_failedList == nullptr) {
        _failedList = std::fopen((_base.ReportFolder() + kFailedName).c_str(), "we");
    }
    if (_failedList == nullptr) return;  // the report names it, too
    std::fprintf(_failedList, "%s\t%s\n", Field(iName).c_str(), Field(reason).c_str());
    std::fflush(_failedList);
}

void IndexRun::ReceiveNote(const std::string& iName, const std::string& iNote) {
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

void IndexRun::Summarize(ExitCode iExitCode) {
    _console.ClearBar();
    if (_options.progress == ProgressStyle::Json) {
        return _console.ShowProgress(
            1.0,
            {
        },
            {
                {"event", "end"},
                {"exit", static_cast<double>(NumberOf(iExitCode))},
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
