#ifndef PartPipeline_h
#define PartPipeline_h

#include "BuildJob.h"
#include "FileQueue.h"
#include "ImportJob.h"
#include "InputFiles.h"

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

/// How the parts of mesh files become octrees.
struct PipelineSettings {
    BuildSettings build;
    ImportLimits import;
    unsigned int nProcesses = 1;  ///< at work at a time
    std::optional<UpAxis> up;     ///< in pictures; not set: by the file's format
};

/// One part that was built.
struct FinishedPart {
    std::string identifier;  ///< unique in the batch
    std::size_t iFile;       ///< place of its file, from 0
    std::size_t iPart;       ///< place in its file, from 0
    std::size_t nParts;      ///< parts in its file
    PartResult result;       ///< never a failure
};

/// Is told what became of a batch, in the order of the input.
class BatchReceiver {
public:
    BatchReceiver() = default;
    BatchReceiver(const BatchReceiver&) = delete;
    BatchReceiver& operator=(const BatchReceiver&) = delete;
    virtual ~BatchReceiver() = default;

    /// @return false to end the batch
    virtual bool TakePart(const FinishedPart& iPart) = 0;

    /// A file that can't be used, or a part of which there is no octree.
    virtual void TakeFailure(const std::string& iName, const std::string& iReason) = 0;
    virtual void TakeNote(const std::string& iName, const std::string& iNote) = 0;
};

/// Imports files and builds their parts in child processes, several at a time, and hands the results on in the
/// order of the input: what comes out doesn't depend on the number of processes.
///
///     files -> import child (a run of files) -> parts that wait -> build child (a run of parts) -> results in order
///
/// A file that fails in a run is imported once more, alone: no file suffers from another one.
///
/// One thread, which starts the children and gathers what they send. What it holds is bounded, whatever the number
/// of parts: it leaves the pipes of imports alone while it holds more than enough.
class PartPipeline {
public:
    enum class Outcome { Done, Ended, Interrupted, NoProcess };  ///< Ended: by the receiver

    PartPipeline(
        const std::vector<InputFile>& iFiles,
        const PipelineSettings& iSettings,
        BatchReceiver& ioReceiver);

    Outcome Run();

    /// Why there is no process.
    const std::string& Failure() const { return _failure; }

private:
    /// Place of a part: of its file among the files, and of itself in the file.
    struct Place {
        std::size_t iFile = 0;
        std::size_t iPart = 0;
        bool operator<(const Place& iOther) const {
            return std::tie(iFile, iPart) < std::tie(iOther.iFile, iOther.iPart);
        }
    };

    /// A file of which not all is handed on yet.
    struct OpenFile {
        bool isImporting = false;          ///< or waits for it
        std::optional<ImportedFile> told;  ///< once the import has told of it
        std::size_t nReceived = 0;         ///< parts
        std::string failure;               ///< of the file, or of the rest of it
        bool areNotesTold = false;
    };

    /// A part that was received and isn't handed on yet.
    struct OpenPart {
        MeshPart mesh;  ///< until there is a result
        PartResult result;
        bool isFinished = false;
        std::size_t size = 0;  ///< bytes of the mesh or the result
    };

    /// A child that imports a run of files.
    struct Import {
        ChildProcess process;
        FileRun files;        ///< without those that have come; the first one comes now
        bool isAlone;         ///< from the start: no other file can have harmed it
        bool isRead = false;  ///< it may go on
    };

    /// A child that builds a run of parts.
    struct Build {
        ChildProcess process;
        std::vector<Place> places;
        std::size_t nFinished = 0;
    };

    // Starting
    bool StartProcesses();
    std::size_t ResumeImports(std::size_t iSlots);
    bool MayRead(std::size_t iFile) const;
    bool HasRoom() const;
    bool WantsImport() const;
    bool StartImport();
    bool StartBuild();
    std::vector<Place> NextRun() const;
    PartToBuild Describe(const Place& iPlace) const;
    std::string IdentifierOf(const Place& iPlace) const;

    // Gathering
    void Wait();
    bool ReceiveImport(Import& ioImport);
    bool TakeImportMessage(Import& ioImport, const std::string& iMessage);
    bool TakeMesh(const Place& iPlace, const std::string& iMessage);
    void CloseImport(Import& ioImport, const std::string& iFailure);
    void EndImport(Import& ioImport, bool iIsSound);
    bool ReceiveBuild(Build& ioBuild);
    void Finish(const Place& iPlace, PartResult iResult);

    // Handing on
    bool HandOn();
    bool HandOnParts(OpenFile& ioFile);
    bool HandOnPart(OpenPart& ioPart);
    bool IsOver() const;

    const std::vector<InputFile>& _files;
    const PipelineSettings& _settings;
    BatchReceiver& _receiver;
    std::string _failure;

    FileQueue _queue;
    Place _next;  ///< what is handed on next
    std::map<std::size_t, OpenFile> _openFiles;
    std::map<Place, OpenPart> _openParts;
    std::set<Place> _waiting;  ///< parts that no child builds yet
    std::vector<Import> _imports;
    std::vector<Build> _builds;
    std::size_t _heldBytes = 0;  ///< of all open parts
};

#endif
