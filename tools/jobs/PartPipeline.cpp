#include "PartPipeline.h"

#include "Interrupt.h"
#include "MeshImport.h"
#include "RunLength.h"

#include <iterator>
#include <poll.h>

namespace {

// More than this isn't read ahead.
constexpr std::size_t kHeldBytes = 64U << 20U;
constexpr std::size_t kHeldParts = 1024;

/// Small parts go to a child by the dozen, or starting it would cost more than building them.
constexpr std::size_t kLongestRun = 32;

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
    : _files(iFiles),
      _settings(iSettings),
      _receiver(ioReceiver),
      _queue(iFiles, iSettings.nProcesses) {}

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

/// Fills the places of work: with imports that go on, then the next files, then parts that wait.
bool PartPipeline::StartProcesses() {
    std::size_t slots = ResumeImports(_settings.nProcesses - _builds.size());
    for (; slots > 0; --slots) {
        if (WantsImport()) {
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
    for (Import& import : _imports) {
        import.isRead = iSlots > 0 && MayRead(import.files.first);
        if (import.isRead) --iSlots;
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

/// Whether a file is to be taken: while there is room, up to what fills long runs of parts, or when all waits for it.
bool PartPipeline::WantsImport() const {
    if (_queue.IsEmpty()) return false;
    if (_queue.First() == _next.iFile) return true;
    return HasRoom() && _waiting.size() < kLongestRun * _settings.nProcesses;
}

bool PartPipeline::StartImport() {
    const FileRun files = _queue.Take();
    std::vector<std::string> paths;
    for (std::size_t place = files.first; place < files.end; ++place) {
        OpenFile& file = _openFiles[place];
        file.failure = _files[place].failure;
        file.isImporting = file.failure.empty();
        if (file.isImporting) paths.push_back(_files[place].path);
    }
    if (paths.empty()) return true;
    Import& import = _imports.emplace_back();
    import.files = files;
    import.isAlone = files.Size() == 1;
    import.isRead = true;
    _failure = import.process.Start(ImportWork(paths, _settings.import));
    return _failure.empty();
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
    const std::size_t length = RunLength(_waiting.size(), _settings.nProcesses, kLongestRun);
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
    for (const Import& import : _imports) {
        if (import.isRead) pipes.push_back({import.process.Pipe(), POLLIN, 0});
    }
    if (pipes.size() == 1 || poll(pipes.data(), pipes.size(), -1) <= 0) return;

    auto pipe = std::next(pipes.begin());
    std::erase_if(
        _builds, [&](Build& ioBuild) { return (pipe++)->revents != 0 && !ReceiveBuild(ioBuild); });
    std::erase_if(_imports, [&](Import& ioImport) {
        return ioImport.isRead && (pipe++)->revents != 0 && !ReceiveImport(ioImport);
    });
}

/// @return false when the child has ended
bool PartPipeline::ReceiveImport(Import& ioImport) {
    const bool isAlive = ioImport.process.Receive();
    bool isSound = true;
    std::string message;
    while (isSound && ioImport.process.TakeMessage(message)) {
        isSound = TakeImportMessage(ioImport, message);
    }
    if (isAlive && isSound) return true;
    EndImport(ioImport, isSound);
    return false;
}

/// @return false for a message that can't be from a sound import
bool PartPipeline::TakeImportMessage(Import& ioImport, const std::string& iMessage) {
    if (ioImport.files.Size() == 0) return false;
    const std::size_t place = ioImport.files.first;
    OpenFile& file = _openFiles.at(place);
    if (file.told) {
        if (!TakeMesh({place, file.nReceived}, iMessage)) return false;
        ++file.nReceived;
    } else {
        ImportedFile told;
        if (!DecodeFile(iMessage, told)) return false;
        file.told = std::move(told);
    }
    if (file.nReceived == file.told->nParts) CloseImport(ioImport, file.told->failure);
    return true;
}

bool PartPipeline::TakeMesh(const Place& iPlace, const std::string& iMessage) {
    OpenPart part;
    if (!DecodePart(iMessage, part.mesh)) return false;
    part.size = BytesOf(part.mesh);
    _heldBytes += part.size;
    _openParts.emplace(iPlace, std::move(part));
    _waiting.insert(iPlace);
    return true;
}

/// Ends the file that comes now; one that failed beside others waits again.
void PartPipeline::CloseImport(Import& ioImport, const std::string& iFailure) {
    const std::size_t place = ioImport.files.first++;
    OpenFile& file = _openFiles.at(place);
    if (!iFailure.empty() && file.nReceived == 0 && !ioImport.isAlone) {
        file.told.reset();
        return _queue.GiveBack({place, place + 1});
    }
    file.failure = iFailure;
    file.isImporting = false;
}

/// @param iIsSound  false when the import has sent what can't be
void PartPipeline::EndImport(Import& ioImport, bool iIsSound) {
    const int status = ioImport.process.End();
    if (ioImport.files.Size() == 0) return;
    const std::string reason = iIsSound ? ReasonOfDeath(status, _settings.import.seconds)
                                        : std::string("sent what can't be read");
    CloseImport(ioImport, "the import " + reason);
    _queue.GiveBack(ioImport.files);
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
