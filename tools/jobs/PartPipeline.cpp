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

/// A mesh that lost faces may have failed because of that.
Status WithSkipped(const Status& iStatus, std::uint64_t iSkipped) {
    if (!iStatus.Failed() || iSkipped == 0) return iStatus;
    return Status(
        iStatus.Code(),
        iStatus.Text() + " (" + std::to_string(iSkipped) +
            " faces skipped: fewer than 3 corners, or coordinates that aren't finite)");
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

Status PartPipeline::Run() {
    while (true) {
        if (IsInterrupted()) return InterruptedStatus();
        Status status = Deliver();
        if (status.Failed() || IsOver()) return status;
        status = StartProcesses();
        if (status.Failed()) return status.In("no process");
        Wait();
    }
}

bool PartPipeline::IsOver() const {
    return _next.iFile == _files.size();
}

/// Keeps as many processes at work as there may be: imports that go on, then the next files, then
/// parts that wait.
Status PartPipeline::StartProcesses() {
    std::size_t slots = ResumeImports(_settings.nProcesses - _builds.size());
    for (; slots > 0; --slots) {
        if (!WantsImport() && _waiting.empty()) break;
        Status status = WantsImport() ? StartImport() : StartBuild();
        if (status.Failed()) return status;
    }
    return {};
}

/// Says which imports may go on. The others soon wait at their full pipes.
/// @return how many more processes may be at work
std::size_t PartPipeline::ResumeImports(std::size_t iSlots) {
    for (Import& import : _imports) {
        import.isRead = iSlots > 0 && MayRead(import.files.first);
        if (import.isRead) --iSlots;
    }
    return iSlots;
}

/// Whether to read more of a file: when there is room, or when all waits for this one.
bool PartPipeline::MayRead(std::size_t iFile) const {
    if (HasRoom()) return true;
    return iFile == _next.iFile && !_openParts.contains(_next);
}

bool PartPipeline::HasRoom() const {
    return _heldBytes < kHeldBytes && _openParts.size() < kHeldParts;
}

/// Whether to start with a file: while there is room, up to what fills long runs of parts, or when
/// all waits for it.
bool PartPipeline::WantsImport() const {
    if (_queue.IsEmpty()) return false;
    if (_queue.First() == _next.iFile) return true;
    return HasRoom() && _waiting.size() < kLongestRun * _settings.nProcesses;
}

/// Starts a child for the next files. A file that isn't there has failed already, and needs none.
Status PartPipeline::StartImport() {
    const FileRun files = _queue.Take();
    std::vector<std::string> paths;
    for (std::size_t number = files.first; number < files.end; ++number) {
        OpenFile& file = _openFiles[number];
        file.status = _files[number].status;
        file.isImporting = !file.status.Failed();
        if (file.isImporting) paths.push_back(_files[number].path);
    }
    if (paths.empty()) return {};
    Import& import = _imports.emplace_back();
    import.files = files;
    import.isAlone = files.Size() == 1;
    import.isRead = true;
    return import.process.Start(ImportWork(paths, _settings.import));
}

Status PartPipeline::StartBuild() {
    Build& build = _builds.emplace_back();
    build.parts = NextRun();
    std::vector<PartToBuild> parts;
    for (const PartNumber& part : build.parts) parts.push_back(Describe(part));
    Status status = build.process.Start(BuildWork(parts, _settings.build));
    for (const PartNumber& part : build.parts) _waiting.erase(part);
    return status;
}

/// The first parts that wait: as many as leave enough for the other processes.
std::vector<PartPipeline::PartNumber> PartPipeline::NextRun() const {
    const std::size_t length = RunLength(_waiting.size(), _settings.nProcesses, kLongestRun);
    return {_waiting.begin(), std::next(_waiting.begin(), static_cast<std::ptrdiff_t>(length))};
}

PartToBuild PartPipeline::Describe(const PartNumber& iPart) const {
    const bool isZUp = IsZUpFileName(_files[iPart.iFile].path);
    const UpAxis usual = isZUp ? UpAxis::Z : UpAxis::Y;
    return {&_openParts.at(iPart).mesh, IdentifierOf(iPart), _settings.up.value_or(usual)};
}

/// The file's name alone, or with the node's path when the file holds several parts.
std::string PartPipeline::IdentifierOf(const PartNumber& iPart) const {
    const std::string& name = _files[iPart.iFile].name;
    if (_openFiles.at(iPart.iFile).imported->nParts == 1) return name;
    return name + "#" + _openParts.at(iPart).mesh.nodePath;
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
    while (isSound && ioImport.process.NextMessage(message)) {
        isSound = ReceiveImportMessage(ioImport, message);
    }
    if (isAlive && isSound) return true;
    EndImport(ioImport, isSound);
    return false;
}

/// @return false for a message that can't be from a sound import
bool PartPipeline::ReceiveImportMessage(Import& ioImport, const std::string& iMessage) {
    if (ioImport.files.Size() == 0) return false;
    const std::size_t number = ioImport.files.first;
    OpenFile& file = _openFiles.at(number);
    if (file.imported) {
        if (!ReceiveMesh({number, file.nReceived}, iMessage)) return false;
        ++file.nReceived;
    } else {
        ImportedFile imported;
        if (!DecodeFile(iMessage, imported)) return false;
        file.imported = std::move(imported);
    }
    if (file.nReceived == file.imported->nParts) CloseFile(ioImport, file.imported->status);
    return true;
}

bool PartPipeline::ReceiveMesh(const PartNumber& iPart, const std::string& iMessage) {
    OpenPart part;
    if (!DecodePart(iMessage, part.mesh)) return false;
    part.size = BytesOf(part.mesh);
    _heldBytes += part.size;
    _openParts.emplace(iPart, std::move(part));
    _waiting.insert(iPart);
    return true;
}

/// Ends the file that comes now. One that failed beside others waits again, for an import of its
/// own.
void PartPipeline::CloseFile(Import& ioImport, const Status& iStatus) {
    const std::size_t number = ioImport.files.first++;
    OpenFile& file = _openFiles.at(number);
    if (iStatus.Failed() && file.nReceived == 0 && !ioImport.isAlone) {
        file.imported.reset();
        return _queue.GiveBack({number, number + 1});
    }
    file.status = iStatus;
    file.isImporting = false;
}

/// @param iIsSound  false when the import has sent what can't be
void PartPipeline::EndImport(Import& ioImport, bool iIsSound) {
    const ChildEnd end = ioImport.process.End();
    if (ioImport.files.Size() == 0) return;
    const std::string reason =
        iIsSound ? DescribeEnd(end, _settings.import.seconds) : "sent what can't be read";
    CloseFile(ioImport, Status::PartFailed("the import " + reason));
    _queue.GiveBack(ioImport.files);
}

/// @return false when the child has ended: what it hasn't finished waits again, but for the part
///         that ended it
bool PartPipeline::ReceiveBuild(Build& ioBuild) {
    const bool isAlive = ioBuild.process.Receive();
    bool isSound = true;
    std::string message;
    while (isSound && ioBuild.process.NextMessage(message)) {
        PartResult result;
        isSound = ioBuild.nFinished < ioBuild.parts.size() && DecodeResult(message, result);
        if (isSound) Finish(ioBuild.parts[ioBuild.nFinished++], std::move(result));
    }
    if (isAlive && isSound) return true;
    const ChildEnd end = ioBuild.process.End();
    if (ioBuild.nFinished == ioBuild.parts.size()) return false;
    PartResult result;
    result.status = Status::PartFailed("its build " + DescribeEnd(end, _settings.build.seconds));
    Finish(ioBuild.parts[ioBuild.nFinished++], std::move(result));
    _waiting.insert(
        std::next(ioBuild.parts.begin(), static_cast<std::ptrdiff_t>(ioBuild.nFinished)),
        ioBuild.parts.end());
    return false;
}

/// Puts the result of a part in the place of its mesh.
void PartPipeline::Finish(const PartNumber& iPart, PartResult iResult) {
    OpenPart& part = _openParts.at(iPart);
    iResult.status = WithSkipped(iResult.status, part.mesh.nSkipped);
    _heldBytes -= part.size;
    part.size = BytesOf(iResult);
    _heldBytes += part.size;
    part.result = std::move(iResult);
    part.mesh.points = {};
    part.mesh.triangles = {};
    part.isFinished = true;
}

/// Delivers what has come up to the first gap.
Status PartPipeline::Deliver() {
    while (true) {
        const auto found = _openFiles.find(_next.iFile);
        if (found == _openFiles.end()) return {};
        OpenFile& file = found->second;
        Status status = DeliverParts(file);
        if (status.Failed()) return status;
        if (file.isImporting || _next.iPart < file.nReceived) return {};
        if (file.status.Failed()) {
            _receiver.ReceiveFailure(_files[_next.iFile].name, file.status);
        }
        _openFiles.erase(found);
        _next = {_next.iFile + 1, 0};
    }
}

/// Delivers the parts of the next file, from the next one on to the first that isn't built yet.
Status PartPipeline::DeliverParts(OpenFile& ioFile) {
    if (ioFile.imported && !ioFile.areNotesDelivered) {
        for (const std::string& note : ioFile.imported->notes) {
            _receiver.ReceiveNote(_files[_next.iFile].name, note);
        }
        ioFile.areNotesDelivered = true;
    }
    for (; _next.iPart < ioFile.nReceived; ++_next.iPart) {
        const auto part = _openParts.find(_next);
        if (!part->second.isFinished) return {};
        Status status = DeliverPart(part->second);
        if (status.Failed()) return status;
        _heldBytes -= part->second.size;
        _openParts.erase(part);
    }
    return {};
}

Status PartPipeline::DeliverPart(OpenPart& ioPart) {
    const std::string identifier = IdentifierOf(_next);
    if (!ioPart.result.note.empty()) _receiver.ReceiveNote(identifier, ioPart.result.note);
    if (ioPart.result.status.Failed()) {
        _receiver.ReceiveFailure(identifier, ioPart.result.status);
        return {};
    }
    const std::size_t nParts = _openFiles.at(_next.iFile).imported->nParts;
    return _receiver.ReceivePart(
        {identifier, _next.iFile, _next.iPart, nParts, std::move(ioPart.result)});
}
