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

/// One run of gridloom-index: a new index is written beside the live one, checked, and made live.
/// Whatever ends the run before that leaves the live index as it was.
///
/// The report of the run is a file under the name of the tool in the report folder of the base, and
/// failed.txt beside it names what failed, a line each: the name, a tab, the reason.
class IndexRun final : public BatchReceiver {
public:
    explicit IndexRun(const IndexOptions& iOptions);
    ~IndexRun() override;

    ExitCode Run();

    Status ReceivePart(const FinishedPart& iPart) override;
    void ReceiveFailure(const std::string& iName, const Status& iStatus) override;
    void ReceiveNote(const std::string& iName, const std::string& iNote) override;

private:
    struct Step;
    static const Step kSteps[];

    // The steps, in their order.
    Status OpenFolder();
    Status BuildParts();
    Status CheckCounts();
    Status FinishFiles();
    Status Verify();
    Status Swap();

    Status DoSteps();
    Status DoStep(const Step& iStep);
    Status OpenBase();
    void ReportEnd(const Status& iStatus);
    Status WritePart(const FinishedPart& iPart);
    Status WritePicture(const FinishedPart& iPart);
    Status JudgeVerification(const CheckMessage& iResult, const ChildEnd& iEnd);
    void ShowVerification(double iShare);
    void ShowPart(const FinishedPart& iPart);
    void AddToTable(const FinishedPart& iPart);
    void ReportSettings() const;
    void ReportResult() const;
    void Summarize(ExitCode iExitCode);

    const IndexOptions& _options;
    std::vector<InputFile> _files;
    Console _console;
    Table _table;
    PartFileNames _pictureNames;
    IndexBase _base;
    std::string _folder;  ///< of the new index, while it is being written
    std::optional<IndexWriter> _writer;
    std::FILE* _failedList = nullptr;  ///< failed.txt, once something has failed
    std::size_t _nDone = 0;            ///< parts
    std::size_t _nFailed = 0;          ///< files and parts
    std::uint64_t _nTriangles = 0;
    std::uint64_t _imageBytes = 0;
    bool _isLive = false;  ///< the new index
};

#endif
