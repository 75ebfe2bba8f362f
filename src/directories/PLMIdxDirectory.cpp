#include "PLMIdxDirectory.h"

#include "common/TraceFailure.h"

#include "IDX_Base_Constants.h"
#include "IDX_WT_File.h"
#include "IdxFile.h"
#include "VEXDirectory.h"
#include "VEXFile.h"
#include "VEXListValVEXUnicodeString.h"
#include "VEXSleep.h"

#include "formats/RedirectingFile.h"

#include <cstdio>

// An index directory on the disk:
//
//   BASE/IDXBuffer    the redirecting file: the number 1 or 2
//   BASE/1            a sub-directory with an index
//   BASE/2            another one; the number says which of the two is live
//
// Readers follow the number. A writer fills the other sub-directory and then changes the number. A
// write of four bytes is all that readers can see of it, so they find the old index or the new one,
// never a part of one.

namespace {

// Values of _currentIndex beside 1 and 2.
constexpr int kNotKnown = -1;  ///< the redirecting file wasn't read yet
constexpr int kNoIndex = 0;    ///< it can't be read, or isn't valid

/// A new index directory starts with an empty live sub-directory 2. So the first index is written
/// to 1.
constexpr int kFirstLive = 2;

constexpr int kMaxRetries = 12;
constexpr int kRetryPause = 10000;  ///< in half milliseconds

constexpr unsigned int kRegularFile = 0x8000;  ///< bit of st_mode, as VEXFileStat documents it

/// The path of the redirecting file, in a buffer of fixed size: it is needed before every access.
class RedirectingFilePath {
public:
    explicit RedirectingFilePath(const VEXUnicodeString& iBasePath) {
        const int length = std::snprintf(
            _path, sizeof _path, "%s%c%s", iBasePath.ConvertToChar(),
            IDX_Base_Constants::PATH_SEPARATOR, IDX_Base_Constants::IDXBUFFER_FILE_BASE_NAME);
        _fits = length >= 0 && static_cast<std::size_t>(length) < sizeof _path;
    }

    /// False when the path is longer than the buffer. It is cut then and must not be used.
    bool Fits() const { return _fits; }
    const char* Get() const { return _path; }

private:
    char _path[2048];
    bool _fits;
};

/// The path of sub-directory 1 or 2.
VEXUnicodeString SubDirectory(const VEXUnicodeString& iBasePath, int iNumber) {
    VEXUnicodeString number;
    number.BuildFromNum(iNumber, "%d");
    VEXUnicodeString path = iBasePath + IDX_Base_Constants::PATH_SEPARATOR_STR;
    return path.Append(number);
}

/// Deletes one entry of a directory if it is a regular file.
/// @return the status of the service that was called last; a positive one ends the pass, too
long int DeleteEntry(const VEXUnicodeString& iDirectory, VEXUnicodeString& iName) {
    // Sub-directories stay. Any failure of a service becomes IDX_E_FAIL.
    VEXUnicodeString path = iDirectory;
    VEXMakePath(&path, &iName);
    struct stat file = {};
    const long int found = VEXFileStat(&path, &file, 0);
    if (IDX_Failed(found)) {
        return TraceStatus("PLMIdxDirectory.EmptyDir.VEXFileStat", IDX_E_FAIL);
    }
    if ((file.st_mode & kRegularFile) == 0) return found;
    const long int deleted = _VEXDeleteFile(path);
    if (IDX_Failed(deleted)) {
        IDX_Base_Trace::Debug("PLMIdxDirectory.EmptyDir.VEXDeleteFile %s", path.ConvertToChar());
        return IDX_E_FAIL;
    }
    return deleted;
}

/// Deletes the files of a directory. Stops at the first file that can't be deleted. Files with
/// ".nsf" in their names stay: a network file system gives such names to deleted files that are
/// still open.
/// @return false when a file is left that should be deleted
bool DeleteFiles(const VEXUnicodeString& iPath) {
    VEXUnicodeString path = iPath;
    VEXListValVEXUnicodeString names;
    const long int listed = VEXListDirectory(path, names);
    if (IDX_Failed(listed)) return TraceFalse("PLMIdxDirectory.EmptyDir.VEXListDirectory");
    if (listed != IDX_S_OK) return true;
    for (int i = 1; i <= names.Size(); ++i) {
        if (names[i].SearchSubString(".nsf", 0, VEXSearchForward) >= 0) continue;
        const long int status = DeleteEntry(iPath, names[i]);
        if (IDX_Failed(status)) return false;
        if (status != IDX_S_OK) return true;
    }
    return true;
}

}  // namespace

// A copy has the number that the other object has read.

PLMIdxDirectory::PLMIdxDirectory() : _currentIndex(kNotKnown) {}

PLMIdxDirectory::PLMIdxDirectory(const VEXUnicodeString& iPath)
    : _basePath(iPath), _currentIndex(kNotKnown) {}

PLMIdxDirectory::PLMIdxDirectory(const PLMIdxDirectory& iOther) = default;

PLMIdxDirectory& PLMIdxDirectory::operator=(const PLMIdxDirectory& iOther) = default;

void PLMIdxDirectory::SetIndexDirectory(const VEXUnicodeString& iPath) {
    _currentIndex = kNotKnown;
    _basePath = iPath;
}

bool PLMIdxDirectory::IsValidIndexPath() {
    Init(false);
    return HasLiveIndex();
}

void PLMIdxDirectory::Init(const bool& iForce) {
    if (iForce || _currentIndex == kNotKnown) Init_Internal();
}

void PLMIdxDirectory::Init_Internal() {
    // Any other content than 1 or 2 leaves the directory without a live index. A missing file does
    // so without a trace, since that is the state before the first BuildIndexPath().
    _currentIndex = kNoIndex;
    const RedirectingFilePath path(_basePath);
    if (!path.Fits()) {
        IDX_Base_Trace::Debug("PLMIdxDirectory.Init_Internal.snprintf");
        return;
    }
    IDX_WT_File file;
    if (file.OpenRead(path.Get()) == IDX_False) return;
    RedirectingFile content = {0};
    const bool read = file.ReadAt(0, &content, sizeof content) == IDX_True;
    file.Close();
    if (read && content.IsValid()) {
        _currentIndex = static_cast<int>(content.number);
    } else {
        IDX_Base_Trace::Debug("PLMIdxDirectory.Init_Internal.Invalid redirecting file !");
    }
}

long int PLMIdxDirectory::BuildIndexPath() {
    // Parts that exist already, of an earlier try for example, are used as they are.
    Init(false);
    if (HasLiveIndex()) return IDX_S_NOTHING_DONE;
    const RedirectingFilePath path(_basePath);
    if (!path.Fits()) return TraceStatus("PLMIdxDirectory.BuildIndexPath.snprintf", IDX_E_FAIL);
    if (IDX_Failed(MakeBaseDirectory())) return IDX_E_FAIL;
    if (IDX_Failed(WriteFirstNumber(path.Get()))) return IDX_E_FAIL;
    for (const int number : {1, 2}) {
        if (IDX_Failed(_VEXCreateDirectory(SubDirectory(_basePath, number)))) {
            return TraceStatus("PLMIdxDirectory.BuildIndexPath.VEXCreateDirectoryR", IDX_E_FAIL);
        }
    }
    _currentIndex = kFirstLive;
    return IDX_S_OK;
}

long int PLMIdxDirectory::MakeBaseDirectory() const {
    // An opening that succeeds is the proof that the directory exists. Only IDX_S_OK counts as one:
    // another program may replace the service and give other values.
    VEXDirHandle directory = {};
    if (VEXOpenDirectory(_basePath.ConvertToChar(), &directory) == IDX_S_OK) {
        if (IDX_Failed(VEXCloseDirectory(&directory))) {
            return TraceStatus("PLMIdxDirectory.BuildIndexPath.VEXCloseDirectory", IDX_E_FAIL);
        }
    } else if (IDX_Failed(VEXCreateDirectory(_basePath.ConvertToChar()))) {
        return TraceStatus("PLMIdxDirectory.BuildIndexPath.VEXCreateDirectoryR", IDX_E_FAIL);
    }
    return IDX_S_OK;
}

long int PLMIdxDirectory::WriteFirstNumber(const char* iRedirectingFile) {
    // Without a redirecting file there is no live index, and later calls needn't read it again.
    IDX_WT_File file;
    if (file.OpenWrite(iRedirectingFile) == IDX_False) {
        _currentIndex = kNoIndex;
        return IDX_E_FAIL;
    }
    const RedirectingFile content = {kFirstLive};
    if (file.WriteAt(0, &content, sizeof content) == IDX_False) {
        return TraceStatus("PLMIdxDirectory.BuildIndexPath.WriteAt", IDX_E_FAIL);
    }
    file.Close();
    return IDX_S_OK;
}

long int PLMIdxDirectory::GetSubDirectory(bool iLive, VEXUnicodeString& oPath) {
    Init(false);
    oPath = _basePath;
    if (!HasLiveIndex()) return IDX_E_FAIL;
    oPath = SubDirectory(_basePath, iLive ? _currentIndex : OtherSubDirectory(_currentIndex));
    return IDX_S_OK;
}

long int PLMIdxDirectory::GetCurrentIndexPath(VEXUnicodeString& oPath) {
    return GetSubDirectory(true, oPath);
}

long int PLMIdxDirectory::GetWritableIndexPath(VEXUnicodeString& oPath, bool iEmpty, bool iWait) {
    // The sub-directory that isn't live: no reader uses it.
    const long int status = GetSubDirectory(false, oPath);
    if (IDX_Failed(status) || !iEmpty) return status;
    if (IDX_Failed(EmptyDir(oPath, iWait))) {
        return TraceStatus("PLMIdxDirectory.GetWritableIndexPath.EmptyDir", IDX_E_FAIL);
    }
    return IDX_S_OK;
}

long int PLMIdxDirectory::SwapIndexPath() {
    Init(false);
    if (!HasLiveIndex()) return IDX_E_FAIL;
    const RedirectingFilePath path(_basePath);
    if (!path.Fits()) return TraceStatus("PLMIdxDirectory.Swap3DIndexPath.snprintf", IDX_E_FAIL);
    // The swap publishes the new index. A tool may swap before it closes the index, so dirty bytes
    // of all files are written back first: readers must find the whole of it.
    if (!IdxFile::FlushAll()) {
        return TraceStatus("PLMIdxDirectory.Swap3DIndexPath.Flush", IDX_E_FAIL);
    }
    IDX_WT_File file;
    if (file.OpenWrite(path.Get()) == IDX_False) {
        return TraceStatus("PLMIdxDirectory.Swap3DIndexPath.IDX_WT_File.OpenWrite", IDX_E_FAIL);
    }
    const RedirectingFile content = {static_cast<unsigned int>(OtherSubDirectory(_currentIndex))};
    if (file.WriteAt(0, &content, sizeof content) == IDX_False) {
        file.Close();
        return TraceStatus("PLMIdxDirectory.Swap3DIndexPath.IDX_WT_File.WriteAt", IDX_E_FAIL);
    }
    file.Close();  // here the four bytes reach the file, by one write
    _currentIndex = kNotKnown;
    VEXUnicodeString live;
    (void)GetCurrentIndexPath(live);  // reads the number back from the file
    return IDX_S_OK;
}

long int PLMIdxDirectory::EmptyDir(VEXUnicodeString& iPath, bool iWait) {
    VEXDIR directory;
    // The directory is opened only to see whether it exists. A status of the service between
    // success and failure leaves it as it is.
    const long int opened = VEXOpenDirectory(&iPath, &directory);
    if (IDX_Failed(opened)) {
        return TraceStatus("PLMIdxDirectory.EmptyDir.VEXCreateDirectoryR", IDX_E_FAIL);
    }
    if (opened != IDX_S_OK) return IDX_S_OK;
    if (IDX_Failed(VEXCloseDirectory(&directory))) {
        return TraceStatus("PLMIdxDirectory.EmptyDir.VEXCloseDirectory", IDX_E_FAIL);
    }
    // A file may be in use by another process, which is why a caller may ask for retries.
    bool emptied = DeleteFiles(iPath);
    for (int retry = 0; iWait && !emptied && retry < kMaxRetries; ++retry) {
        IDX_Base_Trace::Info(
            "Directory %s in use by another process. Will retry in 5 seconds...",
            iPath.ConvertToChar());
        VEXSleep(kRetryPause);
        emptied = DeleteFiles(iPath);
    }
    if (emptied) return IDX_S_OK;
    return TraceStatus("PLMIdxDirectory.EmptyDir.VEXRemoveDirectoryR", IDX_E_FAIL);
}
