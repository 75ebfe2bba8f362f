#include "PartPipeline.h"

#include "Interrupt.h"
#include "MeshImport.h"

#include <algorithm>
#include <poll.h>

namespace {

// More than this isn't read ahead.
constexpr std::size_t kHeldBytes = 64U << 20U;
constexpr std::size_t kHeldParts = 1024;

/// Small parts go to a child by the dozen, or starting it would cost more than building them.
constexpr std::size_t kLongestRun = 32;
constexpr std::size_t kRunsPerProcess = 3;  // so that the last ones end at about the same time

std::size_t BytesOf(const MeshPart& iMesh) {
    return iMesh.points.size() * sizeof(IDX_Point) + iMesh.triangles.size() * sizeof(IDX_Triangle);
}

std::size_t BytesOf(const PartResult& iResult) {
    return iResult.image.size() + iResult.picture.size();
}

std::string WithSkipped(const std::string& iReason, std::uint64_t iSkipped) {
    if (iSkipped == 0) return iReason;
    return iReason + " (" + std::to_string(iSkipped) +
           " faces skipped: fewer than 3 corners, or coordinates that aren't finite)";
}

}  // namespace

PartPipeline::PartPipeline(
    const std::vector<InputFile>& iFiles,
    const PipelineSettings& iSettings,
    BatchReceiver& ioReceiver)
    : _files(iFiles), _settings(iSettings), _receiver(ioReceiver) {}

PartPipeline::Outcome PartPipeline::Run() {
    while (true) {
        if (IsInterrupted()) return Outcome::Interrupted;
        if (!HandOn()) return Outcome::Ended;
        if (IsOver()) return Outcome::Done;
        if (!StartProcesses()) return Outcome::NoProcess;
        Wait();
    }
}

bool PartPipeline::IsOver() const {
    return _next.iFile == _files.size();
}

/// Fills the places of work: with imports that go on, then the next files up to long runs of parts, then such runs.
bool PartPipeline::StartProcesses() {
    const std::size_t enough = kLongestRun * _settings.nProcesses;
    std::size_t slots = ResumeImports(_settings.nProcesses - _builds.size());
    for (; slots > 0; --slots) {
        if (_waiting.size() < enough && _nStarted < _files.size() && HasRoom()) {
            if (!StartImport()) return false;
        } else if (!_waiting.empty()) {
            if (!StartBuild()) return false;
        } else {
            break;
        }
    }
    return true;
}

/// Says which imports may go on. The others soon wait at their full pipes.
/// @return places of work that are left
std::size_t PartPipeline::ResumeImports(std::size_t iSlots) {
    for (auto& [place, file] : _openFiles) {
        file.isRead = file.isImporting && iSlots > 0 && MayRead(place);
        if (file.isRead) --iSlots;
    }
    return iSlots;
}

/// Whether to take more of a file: when there is room, or when all waits for this one.
bool PartPipeline::MayRead(std::size_t iFile) const {
    if (HasRoom()) return true;
    return iFile == _next.iFile && !_openParts.contains(_next);
}

bool PartPipeline::HasRoom() const {
    return _heldBytes < kHeldBytes && _openParts.size() < kHeldParts;
}

bool PartPipeline::StartImport() {
    const InputFile& input = _files[_nStarted];
    OpenFile& file = _openFiles[_nStarted++];
    file.failure = input.failure;
    if (!file.failure.empty()) return true;
    _failure = file.import.Start(ImportWork(input.path, _settings.import));
    file.isImporting = file.isRead = _failure.empty();
    return file.isImporting;
}

bool PartPipeline::StartBuild() {
    Build& build = _builds.emplace_back();
    build.places = NextRun();
    std::vector<PartToBuild> parts;
    for (const Place& place : build.places) parts.push_back(Describe(place));
    _failure = build.process.Start(BuildWork(parts, _settings.build));
    for (const Place& place : build.places) _waiting.erase(place);
    return _failure.empty();
}

/// The first parts that wait: as many as leave enough for the other processes.
std::vector<PartPipeline::Place> PartPipeline::NextRun() const {
    const std::size_t share = _waiting.size() / (kRunsPerProcess * _settings.nProcesses);
    const std::size_t length = std::clamp<std::size_t>(share, 1, kLongestRun);
    return {_waiting.begin(), std::next(_waiting.begin(), static_cast<std::ptrdiff_t>(length))};
}

PartToBuild PartPipeline::Describe(const Place& iPlace) const {
    const bool isZUp = IsZUpFileName(_files[iPlace.iFile].path);
    const UpAxis usual = isZUp ? UpAxis::Z : UpAxis::Y;
    return {&_openParts.at(iPlace).mesh, IdentifierOf(iPlace), _settings.up.value_or(usual)};
}

/// A part of a file that holds several bears its node's path.
std::string PartPipeline::IdentifierOf(const Place& iPlace) const {
    const std::string& name = _files[iPlace.iFile].name;
    if (_openFiles.at(iPlace.iFile).told->nParts == 1) return name;
    return name + "#" + _openParts.at(iPlace).mesh.nodePath;
}

/// Waits until a child that may go on has sent something or has ended, or a request to stop comes.
void PartPipeline::Wait() {
    std::vector<pollfd> pipes = {
        {InterruptDescriptor(), POLLIN, 0}
    };
    for (const Build& build : _builds) pipes.push_back({build.process.Pipe(), POLLIN, 0});
    for (const auto& [place, file] : _openFiles) {
        if (file.isRead) pipes.push_back({file.import.Pipe(), POLLIN, 0});
    }
    if (pipes.size() == 1 || poll(pipes.data(), pipes.size(), -1) <= 0) return;

    auto pipe = std::next(pipes.begin());
    std::erase_if(
        _builds, [&](Build& ioBuild) { return (pipe++)->revents != 0 && !ReceiveBuild(ioBuild); });
    for (auto& [place, file] : _openFiles) {
        if (file.isRead && (pipe++)->revents != 0) ReceiveImport(place, file);
    }
}

void PartPipeline::ReceiveImport(std::size_t iFile, OpenFile& ioFile) {
    const bool isAlive = ioFile.import.Receive();
    std::string message;
    while (ioFile.import.TakeMessage(message)) {
        if (TakeImportMessage(iFile, ioFile, message)) continue;
        return EndImport(ioFile, false, _settings.import.seconds);
    }
    if (!isAlive) EndImport(ioFile, true, _settings.import.seconds);
}

/// @return false for a message that can't be from a sound import
bool PartPipeline::TakeImportMessage(
    std::size_t iFile, OpenFile& ioFile, const std::string& iMessage) {
    if (!ioFile.told) return DecodeFile(iMessage, ioFile.told.emplace());
    OpenPart part;
    if (ioFile.nReceived == ioFile.told->nParts || !DecodePart(iMessage, part.mesh)) return false;
    const Place place = {iFile, ioFile.nReceived++};
    part.size = BytesOf(part.mesh);
    _heldBytes += part.size;
    _openParts.emplace(place, std::move(part));
    _waiting.insert(place);
    return true;
}

/// @param iIsSound  false when the import has sent what can't be
void PartPipeline::EndImport(OpenFile& ioFile, bool iIsSound, unsigned int iSeconds) {
    const int status = ioFile.import.End();
    ioFile.isImporting = ioFile.isRead = false;
    const bool isComplete = ioFile.told && ioFile.nReceived == ioFile.told->nParts;
    if (ioFile.told) ioFile.failure = ioFile.told->failure;
    if (!ioFile.failure.empty() || (isComplete && iIsSound && status == 0)) return;
    ioFile.failure =
        "the import " + (iIsSound ? ReasonOfDeath(status, iSeconds) : "sent what can't be read");
}

/// @return false when the child has ended: what it hasn't finished waits again, but for the part it died of
bool PartPipeline::ReceiveBuild(Build& ioBuild) {
    const bool isAlive = ioBuild.process.Receive();
    bool isSound = true;
    std::string message;
    while (isSound && ioBuild.process.TakeMessage(message)) {
        PartResult result;
        isSound = ioBuild.nFinished < ioBuild.places.size() && DecodeResult(message, result);
        if (isSound) Finish(ioBuild.places[ioBuild.nFinished++], std::move(result));
    }
    if (isAlive && isSound) return true;
    const int status = ioBuild.process.End();
    if (ioBuild.nFinished == ioBuild.places.size()) return false;
    PartResult result;
    result.failure = "its build " + ReasonOfDeath(status, _settings.build.seconds);
    Finish(ioBuild.places[ioBuild.nFinished++], std::move(result));
    _waiting.insert(
        std::next(ioBuild.places.begin(), static_cast<std::ptrdiff_t>(ioBuild.nFinished)),
        ioBuild.places.end());
    return false;
}

/// Puts the result of a part in the place of its mesh.
void PartPipeline::Finish(const Place& iPlace, PartResult iResult) {
    OpenPart& part = _openParts.at(iPlace);
    if (!iResult.failure.empty()) {
        iResult.failure = WithSkipped(iResult.failure, part.mesh.nSkipped);
    }
    _heldBytes -= part.size;
    part.size = BytesOf(iResult);
    _heldBytes += part.size;
    part.result = std::move(iResult);
    part.mesh.points = {};
    part.mesh.triangles = {};
    part.isFinished = true;
}

/// Hands on what has come up to the first gap.
/// @return false when the receiver wants no more
bool PartPipeline::HandOn() {
    while (true) {
        const auto found = _openFiles.find(_next.iFile);
        if (found == _openFiles.end()) return true;
        OpenFile& file = found->second;
        if (!HandOnParts(file)) return false;
        if (file.isImporting || _next.iPart < file.nReceived) return true;
        if (!file.failure.empty()) _receiver.TakeFailure(_files[_next.iFile].name, file.failure);
        _openFiles.erase(found);
        _next = {_next.iFile + 1, 0};
    }
}

bool PartPipeline::HandOnParts(OpenFile& ioFile) {
    if (ioFile.told && !ioFile.areNotesTold) {
        for (const std::string& note : ioFile.told->notes) {
            _receiver.TakeNote(_files[_next.iFile].name, note);
        }
        ioFile.areNotesTold = true;
    }
    for (; _next.iPart < ioFile.nReceived; ++_next.iPart) {
        const auto part = _openParts.find(_next);
        if (!part->second.isFinished) return true;
        if (!HandOnPart(part->second)) return false;
        _heldBytes -= part->second.size;
        _openParts.erase(part);
    }
    return true;
}

bool PartPipeline::HandOnPart(OpenPart& ioPart) {
    const std::string identifier = IdentifierOf(_next);
    if (!ioPart.result.note.empty()) _receiver.TakeNote(identifier, ioPart.result.note);
    if (!ioPart.result.failure.empty()) {
        _receiver.TakeFailure(identifier, ioPart.result.failure);
        return true;
    }
    const std::size_t nParts = _openFiles.at(_next.iFile).told->nParts;
    return _receiver.TakePart(
        {identifier, _next.iFile, _next.iPart, nParts, std::move(ioPart.result)});
}
