// gridloom-index: mesh files in, an octree image and a picture for each part out.

#include "CommandLine.h"
#include "Console.h"
#include "ImportProcess.h"
#include "InputFiles.h"
#include "MeshImport.h"
#include "OctreePicture.h"
#include "OutputFile.h"
#include "PartBuild.h"

#include <cstdio>
#include <filesystem>
#include <new>

namespace {

constexpr int kExitDone = 0;
constexpr int kExitSomeFailed = 1;
constexpr int kExitUsage = 2;

/// One run of the tool over all its input.
class Batch {
public:
    Batch(const Options& iOptions, const std::vector<InputFile>& iFiles)
        : _options(iOptions),
          _files(iFiles),
          _console(iFiles.size()),
          _table(
              {"part", "triangles", "skipped", "depth", "cells by level", "solid cells", "inside",
               "image bytes", "ms"}) {}

    /// @return the exit code
    int Run() {
        for (const InputFile& file : _files) {
            try {
                DoFile(file);
            } catch (const std::bad_alloc&) {
                Fail(file.name, "out of memory");
            }
        }
        Summarize();
        return _nFailed == 0 ? kExitDone : kExitSomeFailed;
    }

private:
    void DoFile(const InputFile& iFile) {
        _console.StartFile(iFile.name);
        if (!iFile.failure.empty()) return Fail(iFile.name, iFile.failure);
        const ImportedFile imported = ImportInChild(iFile.path, _options.limits);
        if (!imported.failure.empty()) return Fail(iFile.name, imported.failure);
        for (const std::string& note : imported.notes) _console.Note(iFile.name, note);
        for (std::size_t p = 0; p < imported.parts.size(); ++p) {
            const std::string node = NodeName(imported, p);
            const std::string source = node.empty() ? iFile.name : iFile.name + ", node " + node;
            _console.StartPart(source, p, imported.parts.size());
            DoPart(iFile, imported.parts[p], source, _names.Make(iFile.name, node));
        }
    }

    /// Empty for the only part of a file.
    static std::string NodeName(const ImportedFile& iImported, std::size_t iPart) {
        if (iImported.parts.size() == 1) return {};
        const std::string& name = iImported.parts[iPart].nodeName;
        return name.empty() ? "part" + std::to_string(iPart + 1) : name;
    }

    /// @param iSource  where the part comes from, for people
    /// @param iName    what its files are called
    void DoPart(
        const InputFile& iFile,
        const MeshPart& iPart,
        const std::string& iSource,
        const std::string& iName) {
        const BuiltPart built = BuildPart(iPart, _options.build);
        if (!built.failure.empty())
            return Fail(iSource, WithSkipped(built.failure, iPart.nSkipped));
        if (!built.note.empty()) _console.Note(iSource, built.note);
        if (!Write(iName + ".octree", built.image.get(), built.imageSize)) return;
        if (_options.pictures && !DrawPicture(iFile, iPart, built, iSource, iName)) return;
        AddToTable(iPart, built, iName);
    }

    static std::string WithSkipped(const std::string& iReason, std::uint64_t iSkipped) {
        if (iSkipped == 0) return iReason;
        return iReason + " (" + std::to_string(iSkipped) +
               " faces skipped: fewer than 3 corners, or coordinates that aren't finite)";
    }

    bool DrawPicture(
        const InputFile& iFile,
        const MeshPart& iPart,
        const BuiltPart& iBuilt,
        const std::string& iSource,
        const std::string& iName) {
        SheetFacts facts;
        facts.name = iName;
        facts.source = iSource;
        facts.nTriangles = iPart.triangles.size();
        facts.nSolid = iBuilt.nSolid;
        facts.nInside = iBuilt.nInside;
        facts.up = _options.up.value_or(IsZUpFileName(iFile.path) ? UpAxis::Z : UpAxis::Y);
        std::string png;
        const std::string failure = DrawSheet(*iBuilt.octree, facts, png);
        if (!failure.empty()) {
            Fail(iSource, "its picture: " + failure);
            return false;
        }
        return Write(iName + ".png", png.data(), png.size());
    }

    bool Write(const std::string& iFileName, const void* iBytes, std::size_t iSize) {
        const std::string path = _options.outputFolder + "/" + iFileName;
        const std::string failure = WriteWholeFile(path, iBytes, iSize);
        if (!failure.empty()) Fail(path, "can't be written: " + failure);
        return failure.empty();
    }

    void AddToTable(const MeshPart& iPart, const BuiltPart& iBuilt, const std::string& iName) {
        std::string levels;
        for (const int nCells : iBuilt.cellsByLevel) {
            if (!levels.empty()) levels += '/';
            levels += std::to_string(nCells);
        }
        char time[32];
        std::snprintf(time, sizeof time, "%.1f", iBuilt.milliseconds);
        _table.AddRow(
            {iName, std::to_string(iPart.triangles.size()),
             std::to_string(iPart.nSkipped + iBuilt.nSkipped), std::to_string(iBuilt.depth), levels,
             std::to_string(iBuilt.nSolid),
             iBuilt.nInside > 0 ? std::to_string(iBuilt.nInside) : "no",
             std::to_string(iBuilt.imageSize), time});
        ++_nDone;
    }

    void Fail(const std::string& iName, const std::string& iReason) {
        _console.Fail(iName, iReason);
        ++_nFailed;
    }

    void Summarize() {
        _console.ClearBar();
        if (_nDone > 0) {
            std::printf("\n");
            _table.Print();
            std::printf("\n");
        }
        std::printf(
            "%zu parts of %zu files done, %zu failed; output in %s\n", _nDone, _files.size(),
            _nFailed, _options.outputFolder.c_str());
    }

    const Options& _options;
    const std::vector<InputFile>& _files;
    Console _console;
    PartNames _names;
    Table _table;
    std::size_t _nDone = 0;    ///< parts
    std::size_t _nFailed = 0;  ///< files and parts
};

bool MakeFolder(const std::string& iFolder) {
    std::error_code error;
    std::filesystem::create_directories(iFolder, error);
    if (error) {
        std::fprintf(
            stderr, "gridloom-index: failed: %s: can't be made: %s\n", iFolder.c_str(),
            error.message().c_str());
    }
    return !error;
}

}  // namespace

#ifdef GRIDLOOM_SANITIZED
// A sanitizer's own limit stands in for that of the import, and what the font library keeps until the
// end isn't ours.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
    return "max_allocation_size_mb=4096";
}
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:libfontconfig";
}
#endif

int main(int iCount, char** iArguments) {
    Options options;
    switch (ReadCommandLine(iCount, iArguments, options)) {
        case CommandLineResult::Done:
            return kExitDone;
        case CommandLineResult::Wrong:
            return kExitUsage;
        case CommandLineResult::Run:
            break;
    }
    if (!MakeFolder(options.outputFolder)) return kExitSomeFailed;
    return Batch(options, FindInputFiles(options.inputs)).Run();
}
