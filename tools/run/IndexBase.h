#ifndef IndexBase_h
#define IndexBase_h

#include "Status.h"

#include <string>

/// The folders of an index base, and the right to write there: one writer at a time, kept by an
/// advisory lock that goes with the process.
///
/// Prepare() first, then OpenFolder(), then Swap(). Failures name the folder or the file.
class IndexBase {
public:
    /// @param iLockName  of the file in it that is locked
    IndexBase(std::string iPath, std::string iLockName)
        : _path(std::move(iPath)), _lockName(std::move(iLockName)) {}
    IndexBase(const IndexBase&) = delete;
    IndexBase& operator=(const IndexBase&) = delete;
    ~IndexBase();

    /// Makes the base and its report folder, and takes the lock.
    Status Prepare();

    /// Where the report of the run goes.
    const std::string& ReportFolder() const { return _reportFolder; }

    /// Makes the index directory, empties its writable sub-directory and gives its path. What an
    /// earlier run left half made is made whole.
    Status OpenFolder(std::string& oFolder);

    /// Makes what was written live, and forces that to the disk.
    Status Swap();

    /// Deletes what was written, after a failure.
    void Discard();

private:
    Status Lock();
    Status SyncDirectory() const;

    std::string _path;
    std::string _lockName;
    std::string _reportFolder;
    std::string _folder;  ///< where the new index is written
    int _lock = -1;
};

#endif
