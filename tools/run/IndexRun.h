#ifndef IndexRun_h
#define IndexRun_h

#include "CheckJob.h"
#include "Console.h"
#include "IndexBase.h"
#include "IndexOptions.h"
#include "IndexWriter.h"
#include "InputFiles.h"
#include "PartPipeline.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// Exit codes of the tools. kExitInterrupted stands in Interrupt.h.
constexpr int kExitDone = 0;
constexpr int kExitUsage = 2;        ///< or nothing to index
constexpr int kExitPartsFailed = 3;  ///< the rest is done
constexpr int kExitDamaged = 4;
constexpr int kExitEnvironment = 5;  ///< full disk, no permission, locked and the like

/// One run of gridloom-index: a new index is written beside the live one, checked, and made live. Whatever ends the
/// run before that leaves the live index as it was.
///
/// The report of the run is gridloom-index.txt in the report folder of the base, and failed.txt beside it names
/// what failed, a line each: the name, a tab, the reason.
class IndexRun final : public BatchReceiver {
public:
    explicit IndexRun(const IndexOptions& iOptions);
    ~IndexRun() override;

    /// @return the exit code
    int Run();

    bool TakePart(const FinishedPart& iPart) override;
    void TakeFailure(const std::string& iName, const std::string& iReason) override;
    void TakeNote(const std::string& iName, const std::string& iNote) override;

private:
    struct Step;
    static const Step kSteps[];

    // The steps, in their order. Each gives an exit code, 0 to go on.
    int OpenFolder();
    int BuildParts();
    int CheckCounts();
    int FinishFiles();
    int Verify();
    int Swap();

    int DoSteps();
    int OpenBase();
    int FailRun(const std::string& iReason, int iExitCode = kExitEnvironment);
    std::string WritePart(const FinishedPart& iPart);
    std::string WritePicture(const FinishedPart& iPart);
    int JudgeVerification(const CheckMessage& iResult, int iStatus);
    void TellVerification(double iShare);
    void TellPart(const FinishedPart& iPart);
    void AddToTable(const FinishedPart& iPart);
    void ReportSettings() const;
    void ReportResult() const;
    void Summarize(int iExitCode);

    const IndexOptions& _options;
    std::vector<InputFile> _files;
    Console _console;
    Table _table;
    PartFileNames _pictureNames;
    IndexBase _base;
    std::string _folder;  ///< of the new index, while it is being written
    std::optional<IndexWriter> _writer;
    std::FILE* _failedList = nullptr;  ///< failed.txt, once something has failed
    std::string _writeFailure;         ///< why the batch was ended
    std::size_t _nDone = 0;            ///< parts
    std::size_t _nFailed = 0;          ///< files and parts
    std::uint64_t _nTriangles = 0;
    std::uint64_t _imageBytes = 0;
    bool _isLive = false;  ///< the new index
};

#endif
