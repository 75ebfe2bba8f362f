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
    std::size_t iFile;       ///< number of its file in the input, from 0
    std::size_t iPart;       ///< number in its file, from 0
    std::size_t nParts;      ///< parts in its file
    PartResult result;       ///< never a failure
};

/// Receives what became of a batch, in the order of the input.
class BatchReceiver {
public:
    BatchReceiver() = default;
    BatchReceiver(const BatchReceiver&) = delete;
    BatchReceiver& operator=(const BatchReceiver&) = delete;
    virtual ~BatchReceiver() = default;

    /// A failure ends the batch.
    virtual Status ReceivePart(const FinishedPart& iPart) = 0;

    /// A file that can't be used, or a part of which there is no octree.
    virtual void ReceiveFailure(const std::string& iName, const Status& iStatus) = 0;

    /// Something odd that is no failure.
    virtual void ReceiveNote(const std::string& iName, const std::string& iNote) = 0;
};

/// Imports files and builds their parts in child processes, several at a time, and delivers the
/// results in the order of the input: what comes out doesn't depend on the number of processes.
///
///     files -> import child -> parts that wait -> build child -> results in order
///              (a run of files)                   (a run of parts)
///
/// A file that fails in a run is imported once more, alone: no file suffers from another one.
///
/// One thread, which starts the children and gathers what they send. What it holds is bounded,
/// whatever the number of parts: it leaves the pipes of imports alone while it holds more than
/// enough.
class PartPipeline {
public:
    PartPipeline(
        const std::vector<InputFile>& iFiles,
        const PipelineSettings& iSettings,
        BatchReceiver& ioReceiver);

    /// Goes through all files. Parts and files that failed are the receiver's: the run itself fails
    /// with the receiver's failure, when it was interrupted, and when the system has no process for
    /// a child.
    Status Run();

private:
    /// Number of a part: of its file among the files, and of itself in the file, both from 0.
    struct PartNumber {
        std::size_t iFile = 0;
        std::size_t iPart = 0;
        bool operator<(const PartNumber& iOther) const {
            return std::tie(iFile, iPart) < std::tie(iOther.iFile, iOther.iPart);
        }
    };

    /// A file of which not all is delivered yet.
    struct OpenFile {
        bool isImporting = false;              ///< or waits for it
        std::optional<ImportedFile> imported;  ///< once the import has sent it
        std::size_t nReceived = 0;             ///< parts
        Status status;                         ///< of the file, or of the rest of it
        bool areNotesDelivered = false;
    };

    /// A part that was received and isn't delivered yet.
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
        std::vector<PartNumber> parts;
        std::size_t nFinished = 0;
    };

    // Starting
    Status StartProcesses();
    std::size_t ResumeImports(std::size_t iSlots);
    bool MayRead(std::size_t iFile) const;
    bool HasRoom() const;
    bool WantsImport() const;
    Status StartImport();
    Status StartBuild();
    std::vector<PartNumber> NextRun() const;
    PartToBuild Describe(const PartNumber& iPart) const;
    std::string IdentifierOf(const PartNumber& iPart) const;

    // Gathering
    void Wait();
    bool ReceiveImport(Import& ioImport);
    bool ReceiveImportMessage(Import& ioImport, const std::string& iMessage);
    bool ReceiveMesh(const PartNumber& iPart, const std::string& iMessage);
    void CloseFile(Import& ioImport, const Status& iStatus);
    void EndImport(Import& ioImport, bool iIsSound);
    bool ReceiveBuild(Build& ioBuild);
    void Finish(const PartNumber& iPart, PartResult iResult);

    // Delivering
    Status Deliver();
    Status DeliverParts(OpenFile& ioFile);
    Status DeliverPart(OpenPart& ioPart);
    bool IsOver() const;

    const std::vector<InputFile>& _files;
    const PipelineSettings& _settings;
    BatchReceiver& _receiver;

    FileQueue _queue;
    PartNumber _next;  ///< what is delivered next
    std::map<std::size_t, OpenFile> _openFiles;
    std::map<PartNumber, OpenPart> _openParts;
    std::set<PartNumber> _waiting;  ///< parts that no child builds yet
    std::vector<Import> _imports;
    std::vector<Build> _builds;
    std::size_t _heldBytes = 0;  ///< of all open parts
};

#endif
