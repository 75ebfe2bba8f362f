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
        _index.emplace(PartIndex::OpenBase(_options.base));
        const ExitCode answered = Answer();
        const Status flushed = FlushStandardOutput();
        return flushed.Failed() ? Fail(flushed) : answered;
    } catch (const IndexError& error) {
        return Fail({error.isDamaged ? ExitCode::Damaged : ExitCode::Environment, error.what()});
    } catch (const std::bad_alloc&) {
        return Fail(Status::Environment("out of memory"));
    }
}

ExitCode QueryRun::Answer() const {
    if (_options.question == QueryOptions::Verify) return Verify();
    if (_options.question == QueryOptions::Stats) {
        PrintStats(*_index, _options.json);
        return ExitCode::Done;
    }
    const std::vector<NearPart> parts = Ask();
    if (_options.question != QueryOptions::All) {
        PrintParts(*_index, parts, _options.question == QueryOptions::Near, _options.json);
    }
    const ExitCode answered = parts.empty() ? ExitCode::NothingFound : ExitCode::Done;
    return _options.exported == QueryOptions::None ? answered : Export(parts, answered);
}

ExitCode QueryRun::Verify() const {
    Progress progress("verifying");
    const IndexCheckResult result =
        CheckIndex(*_index, [&](double share) { progress.Show(share); });
    PrintCheck(result, _options.json);
    return result.nProblems == 0 ? ExitCode::Done : ExitCode::Damaged;
}

std::vector<NearPart> QueryRun::Ask() const {
    switch (_options.question) {
        case QueryOptions::Id:
            return WithoutDistance(FindByName(*_index, _options.name));
        case QueryOptions::InBox:
            return WithoutDistance(FindInBox(*_index, _options.box));
        case QueryOptions::At:
            return WithoutDistance(FindAt(*_index, _options.point));
        case QueryOptions::Near:
            return FindNearest(*_index, _options.point, _options.count);
        case QueryOptions::Clash:
            return FindClashesOfName();
        default:
            return AllParts();
    }
}

std::vector<NearPart> QueryRun::FindClashesOfName() const {
    const auto part = _index->Find(_options.name);
    if (part) return WithoutDistance(FindClashes(*_index, *part));
    Fail({ExitCode::NothingFound, "no part is called " + _options.name});
    return {};
}

std::vector<NearPart> QueryRun::AllParts() const {
    std::vector<NearPart> parts;
    _index->ForEach([&](const StoredPart& part) { parts.push_back({part, 0.0}); });
    return parts;
}

ExitCode QueryRun::Export(const std::vector<NearPart>& iParts, ExitCode iAnswered) const {
    const Status status =
        _options.exported == QueryOptions::Png ? ExportPicture(iParts) : ExportSurface(iParts);
    if (status.Failed()) return Fail(status.In(_options.output));
    PrintMessage(_options.tool, "wrote " + _options.output);
    return iAnswered;
}

/// All parts, with those of the answer highlighted.
Status QueryRun::ExportPicture(const std::vector<NearPart>& iParts) const {
    const bool highlights =
        _options.question != QueryOptions::All && _options.question != QueryOptions::List;
    std::set<unsigned int> found;
    for (const NearPart& part : iParts) found.insert(part.part.item);
    if (_options.question == QueryOptions::Clash) AddAsked(found);
    const std::vector<NearPart> all = AllParts();
    AssemblyFacts facts;
    facts.title = std::filesystem::absolute(_options.base + "/.").parent_path().filename();
    facts.up = _options.up;
    for (const NearPart& any : all) {
        const bool isFound = found.count(any.part.item) > 0;
        facts.parts.push_back({any.part.identifier, any.part.record.box, highlights && isFound});
    }
    facts.subtitle = std::to_string(all.size()) + " parts";
    if (highlights) facts.subtitle += ", " + std::to_string(iParts.size()) + " found";
    const auto octreeOf = [&](std::size_t place) -> const PLMIdxIBaseOctree& {
        return _index->OctreeOf(all[place].part);
    };
    Progress progress("drawing");
    const auto show = [&](std::size_t done) {
        progress.Show(static_cast<double>(done) / static_cast<double>(all.size()));
    };
    std::string png;
    const Status status = DrawAssembly(facts, octreeOf, show, png);
    return status.Failed() ? status : WriteWholeFile(_options.output, png.data(), png.size());
}

/// The part whose clashes are shown belongs into their picture.
void QueryRun::AddAsked(std::set<unsigned int>& ioFound) const {
    if (const auto part = _index->Find(_options.name)) ioFound.insert(part->item);
}

/// The parts of the answer alone.
Status QueryRun::ExportSurface(const std::vector<NearPart>& iParts) const {
    const ExportedParts parts = [&](std::size_t place, ExportedPart& part) {
        if (place == iParts.size()) return false;
        part.octree = &_index->OctreeOf(iParts[place].part);
        part.colour = ColourOf(place);
        part.number = static_cast<unsigned int>(place);
        return true;
    };
    return WriteWholeFile(_options.output, [&](std::FILE* file) {
        return _options.exported == QueryOptions::Ply ? WritePly(parts, file)
                                                      : WriteVtk(parts, file);
    });
}

ExitCode QueryRun::Fail(const Status& iStatus) const {
    PrintMessage(_options.tool, iStatus.Text());
    return iStatus.Code();
}
