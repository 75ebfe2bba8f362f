#include "QueryRun.h"

#include "Answers.h"
#include "AssemblyPicture.h"
#include "Console.h"
#include "IndexCheck.h"
#include "OutputFile.h"
#include "StandardOutput.h"
#include "SurfaceExport.h"

#include <cstdio>
#include <filesystem>
#include <new>
#include <optional>
#include <unistd.h>

namespace {

/// A share of work that is done, on a terminal only.
class Progress {
public:
    explicit Progress(const char* iWork) : _work(iWork), _onTerminal(isatty(STDERR_FILENO) != 0) {}
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress() {
        if (_shown >= 0) std::fputs("\r\033[K", stderr);
    }

    void Show(double iShare) {
        const int percent = static_cast<int>(100.0 * iShare);
        if (!_onTerminal || percent == _shown) return;
        std::fprintf(stderr, "\r%s %3d%%", _work, percent);
        std::fflush(stderr);
        _shown = percent;
    }

private:
    const char* _work;
    bool _onTerminal;
    int _shown = -1;
};

std::vector<NearPart> WithoutDistance(const Parts& iParts) {
    std::vector<NearPart> parts;
    for (const StoredPart& part : iParts) parts.push_back({part, 0.0});
    return parts;
}

}  // namespace

ExitCode QueryRun::Run() {
    try {
        ExitCode answered = ExitCode::Done;
        Status status = _index.OpenBase(_options.base);
        if (!status.Failed()) status = Answer(answered);
        if (!status.Failed()) status = FlushStandardOutput();
        return status.Failed() ? Fail(status) : answered;
    } catch (const std::bad_alloc&) {
        return Fail(Status::Environment("out of memory"));
    }
}

/// @param oAnswered  whether something was found, or the index is sound
Status QueryRun::Answer(ExitCode& oAnswered) const {
    if (_options.question == QueryOptions::Verify) {
        oAnswered = Verify();
        return {};
    }
    if (_options.question == QueryOptions::Stats) return PrintStats(_index, _options.json);
    std::vector<NearPart> parts;
    Status status = Ask(parts);
    if (status.Failed()) return status;
    if (_options.question != QueryOptions::All) {
        PrintParts(_index, parts, _options.question == QueryOptions::Near, _options.json);
    }
    oAnswered = parts.empty() ? ExitCode::NothingFound : ExitCode::Done;
    return _options.exported == QueryOptions::None ? Status() : Export(parts);
}

ExitCode QueryRun::Verify() const {
    Progress progress("verifying");
    const IndexCheckResult result = CheckIndex(_index, [&](double share) { progress.Show(share); });
    PrintCheck(result, _options.json);
    return result.nProblems == 0 ? ExitCode::Done : ExitCode::Damaged;
}

Status QueryRun::Ask(std::vector<NearPart>& oParts) const {
    Parts parts;
    Status status;
    switch (_options.question) {
        case QueryOptions::Near:
            return FindNearest(_index, _options.point, _options.count, oParts);
        case QueryOptions::Id:
            status = FindByName(_index, _options.name, parts);
            break;
        case QueryOptions::InBox:
            status = FindInBox(_index, _options.box, parts);
            break;
        case QueryOptions::At:
            status = FindAt(_index, _options.point, parts);
            break;
        case QueryOptions::Clash:
            status = FindClashesOfName(parts);
            break;
        default:
            status = AllParts(parts);
            break;
    }
    oParts = WithoutDistance(parts);
    return status;
}

/// A name that no part has is an answer, and none that was asked for: the operator is informed.
Status QueryRun::FindClashesOfName(Parts& oParts) const {
    std::optional<StoredPart> part;
    Status status = _index.Find(_options.name, part);
    if (status.Failed()) return status;
    if (part) return FindClashes(_index, *part, oParts);
    Fail({ExitCode::NothingFound, "no part is called " + _options.name});
    return {};
}

Status QueryRun::AllParts(Parts& oParts) const {
    return _index.ForEach([&](const StoredPart& part) {
        oParts.push_back(part);
        return Status();
    });
}

/// A damaged index names its own file; any other failure is one of the export.
Status QueryRun::Export(const std::vector<NearPart>& iParts) const {
    const Status status =
        _options.exported == QueryOptions::Png ? ExportPicture(iParts) : ExportSurface(iParts);
    if (status.Failed()) {
        return status.Code() == ExitCode::Damaged ? status : status.In(_options.output);
    }
    PrintMessage(_options.tool, "wrote " + _options.output);
    return {};
}

/// All parts, with those of the answer highlighted.
Status QueryRun::ExportPicture(const std::vector<NearPart>& iParts) const {
    const bool highlights =
        _options.question != QueryOptions::All && _options.question != QueryOptions::List;
    Parts all;
    std::set<unsigned int> found;
    for (const NearPart& part : iParts) found.insert(part.part.item);
    Status status = _options.question == QueryOptions::Clash ? AddAsked(found) : Status();
    if (!status.Failed()) status = AllParts(all);
    if (status.Failed()) return status;
    AssemblyFacts facts;
    facts.title = std::filesystem::absolute(_options.base + "/.").parent_path().filename();
    facts.up = _options.up;
    for (const StoredPart& part : all) {
        const bool isFound = found.count(part.item) > 0;
        facts.parts.push_back({part.identifier, part.record.box, highlights && isFound});
    }
    facts.subtitle = std::to_string(all.size()) + " parts";
    if (highlights) facts.subtitle += ", " + std::to_string(iParts.size()) + " found";
    const auto octreeOf = [&](std::size_t number, const PLMIdxIBaseOctree*& octree) {
        return _index.OctreeOf(all[number], octree);
    };
    Progress progress("drawing");
    const auto show = [&](std::size_t done) {
        progress.Show(static_cast<double>(done) / static_cast<double>(all.size()));
    };
    std::string png;
    status = DrawAssembly(facts, octreeOf, show, png);
    return status.Failed() ? status : WriteWholeFile(_options.output, png.data(), png.size());
}

/// The part whose clashes are shown is to be seen in their picture.
Status QueryRun::AddAsked(std::set<unsigned int>& ioFound) const {
    std::optional<StoredPart> part;
    Status status = _index.Find(_options.name, part);
    if (part) ioFound.insert(part->item);
    return status;
}

/// The parts of the answer alone.
Status QueryRun::ExportSurface(const std::vector<NearPart>& iParts) const {
    const auto get = [&](std::size_t number, ExportedPart& part) {
        part.colour = ColourOf(number);
        part.number = static_cast<unsigned int>(number);
        return _index.OctreeOf(iParts[number].part, part.octree);
    };
    const ExportedParts parts = {iParts.size(), get};
    return WriteWholeFile(_options.output, [&](std::FILE* file) {
        return _options.exported == QueryOptions::Ply ? WritePly(parts, file)
                                                      : WriteVtk(parts, file);
    });
}

ExitCode QueryRun::Fail(const Status& iStatus) const {
    PrintMessage(_options.tool, iStatus.Text());
    return iStatus.Code();
}
