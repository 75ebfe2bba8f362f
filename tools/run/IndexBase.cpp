#include "IndexBase.h"

#include "FileSync.h"
#include "IndexFiles.h"
#include "TraceOutput.h"

#include "IDX_Base_Constants.h"
#include "IDX_Status.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/file.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

PLMIdxDirectoryManager& Manager() {
    return PLMIdxDirectoryManager::GetIndexDirectoryManager();
}

/// What failed, and what the system and the library say about it.
Status Failure(const std::string& iWhat) {
    std::string text = iWhat;
    if (errno != 0) text += std::string(": ") + std::strerror(errno);
    if (!LatestTag().empty()) text += " (" + LatestTag() + ")";
    return Status::Environment(text);
}

}  // namespace

IndexBase::~IndexBase() {
    if (_lock >= 0) close(_lock);
}

Status IndexBase::Prepare() {
    errno = 0;
    Manager().SetIndexBaseDirectory(_path.c_str());
    if (IDX_Failed(Manager().PrepareIndexDirectories())) {
        return Failure(_path + ": the report folder can't be made");
    }
    VEXUnicodeString folder;
    Manager().GetReportPath(folder);
    _reportFolder = folder.ConvertToChar();
    return Lock();
}

Status IndexBase::Lock() {
    constexpr mode_t kReadableByAll = 0666;  // less what the user's mask takes away
    const std::string path = _path + "/" + _lockName;
    _lock = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kReadableByAll);
    if (_lock < 0) return Status::System(errno).In(path);
    if (flock(_lock, LOCK_EX | LOCK_NB) == 0) return {};
    if (errno == EWOULDBLOCK) {
        return Status::Environment(_path + " is locked: another process writes an index there");
    }
    return Status::System(errno).In(path);
}

/// The library empties the sub-directory; what it doesn't do is made up for here: sub-directories
/// that are missing, and the way of all names to the disk.
Status IndexBase::OpenFolder(std::string& oFolder) {
    errno = 0;
    VEXUnicodeString live;
    VEXUnicodeString writable;
    if (IDX_Failed(Manager().BuildDirectoryIfNeeded(kIndexKind)) ||
        IDX_Failed(Manager().GetCurrentPath(kIndexKind, live)) ||
        IDX_Failed(Manager().GetWritablePath(kIndexKind, writable, false, false))) {
        return Failure(_path + ": the index directory can't be made");
    }
    // A run that was ended just after it had named the live sub-directory may not have made the
    // two.
    for (const VEXUnicodeString& folder : {live, writable}) {
        std::error_code error;
        fs::create_directories(folder.ConvertToChar(), error);
        if (error) return Status::Environment(error.message()).In(folder.ConvertToChar());
    }
    if (IDX_Failed(Manager().GetWritablePath(kIndexKind, writable, true, true))) {
        return Failure(std::string(writable.ConvertToChar()) + " can't be emptied");
    }
    oFolder = _folder = writable.ConvertToChar();
    return SyncDirectory();
}

/// The library doesn't say whether the redirecting file was written: it is read back.
Status IndexBase::Swap() {
    errno = 0;
    if (IDX_Failed(Manager().SwapIndex(kIndexKind))) {
        return Failure(_path + ": the new index can't be made live");
    }
    VEXUnicodeString live;
    if (IDX_Failed(Manager().GetCurrentPath(kIndexKind, live)) || live != _folder.c_str()) {
        return Failure(_path + ": the new index didn't become live");
    }
    return SyncDirectory().In("the new index is live, but may not be on the disk");
}

/// The redirecting file and the names beside it.
Status IndexBase::SyncDirectory() const {
    VEXUnicodeString live;
    if (IDX_Failed(Manager().GetCurrentPath(kIndexKind, live))) {
        return Failure(_path + ": the redirecting file can't be read back");
    }
    const std::string directory = fs::path(live.ConvertToChar()).parent_path().string();
    for (const std::string& path :
         {directory + "/" + IDX_Base_Constants::IDXBUFFER_FILE_BASE_NAME, directory, _path}) {
        Status status = SyncPath(path);
        if (status.Failed()) return status;
    }
    return {};
}

void IndexBase::Discard() {
    VEXUnicodeString ignored;
    (void)Manager().GetWritablePath(
        kIndexKind, ignored, true, false);  // the next run empties it, too
}
