#include "FileQueue.h"

#include "RunLength.h"

#include <cstdint>
#include <filesystem>
#include <limits>

namespace {

constexpr std::size_t kMostFiles = 16;
constexpr std::uint64_t kMostBytes = 4U << 20U;  // of a run

std::uint64_t BytesOf(const InputFile& iFile) {
    std::error_code error;
    const std::uint64_t size = std::filesystem::file_size(iFile.path, error);
    return error ? std::numeric_limits<std::uint32_t>::max() : size;
}

}  // namespace

FileRun FileQueue::Take() {
    if (_returned.empty()) {
        const FileRun run = NextRun();
        _nTaken = run.end;
        return run;
    }
    const auto [first, end] = *_returned.begin();
    _returned.erase(_returned.begin());
    return {first, end};
}

void FileQueue::GiveBack(const FileRun& iRun) {
    if (iRun.Size() > 0) _returned.emplace(iRun.first, iRun.end);
}

/// A run ends before a file that can't be read, and before it grows beyond kMostBytes.
FileRun FileQueue::NextRun() const {
    const std::size_t most = RunLength(_files.size() - _nTaken, _nProcesses, kMostFiles);
    FileRun run = {_nTaken, _nTaken + 1};
    std::uint64_t nBytes = BytesOf(_files[run.first]);
    if (_files[run.first].status.Failed()) return run;
    for (; run.Size() < most && !_files[run.end].status.Failed(); ++run.end) {
        nBytes += BytesOf(_files[run.end]);
        if (nBytes > kMostBytes) break;
    }
    return run;
}
