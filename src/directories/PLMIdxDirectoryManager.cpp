#include "PLMIdxDirectoryManager.h"

#include "common/TraceFailure.h"

#include "IDX_Base_Constants.h"
#include "VEXDirectory.h"

PLMIdxDirectoryManager::PLMIdxDirectoryManager() = default;

PLMIdxDirectoryManager::~PLMIdxDirectoryManager() = default;

void PLMIdxDirectoryManager::SetIndexBaseDirectory(const VEXUnicodeString& iPath) {
    // Each kind of index has a directory of a fixed name under the base.
    _indexBaseDirectory = iPath;
    const struct {
        Index_Type type;
        const char* name;
    } kinds[] = {
        {Index_Security, IDX_Base_Constants::SECURITY_INDEX_DIRECTORY},
        {Index_UrlMap,   IDX_Base_Constants::URLMAP_INDEX_DIRECTORY  },
        {Index_Dwh,      IDX_Base_Constants::DWH_INDEX_DIRECTORY     },
    };
    for (const auto& kind : kinds) {
        _directories[kind.type].SetIndexDirectory(
            iPath + IDX_Base_Constants::PATH_SEPARATOR_STR + kind.name);
    }
}

long int PLMIdxDirectoryManager::PrepareIndexDirectories() {
    // A positive status of the service is passed on as it is.
    const long int status = BuildReportPathIfNeeded();
    if (IDX_Failed(status)) {
        return TraceStatus("Error : Failed to build report directory.", IDX_E_FAIL);
    }
    return status;
}

long int PLMIdxDirectoryManager::BuildReportPathIfNeeded() {
    // A directory that can be opened exists, and isn't created.
    IDX_Base_Trace::GetBBDMonitorDir(_indexBaseDirectory, _reportPath);
    VEXDIR directory;
    if (IDX_Failed(VEXOpenDirectory(&_reportPath, &directory))) {
        return _VEXCreateDirectory(_reportPath);
    }
    return VEXCloseDirectory(&directory);
}

long int PLMIdxDirectoryManager::BuildDirectoryIfNeeded(Index_Type iType) {
    // An index directory that is valid stays as it is: its live index is in use.
    PLMIdxDirectory& directory = _directories[iType];
    return directory.IsValidIndexPath() ? IDX_S_OK : directory.BuildIndexPath();
}

void PLMIdxDirectoryManager::ForceInit(Index_Type iType) {
    _directories[iType].Init_Internal();
}

// The operations on a kind call those of its directory. The kind is the position in the array, so a
// value above 4 is an error of the caller.

long int PLMIdxDirectoryManager::GetCurrentPath(Index_Type iType, VEXUnicodeString& oPath) {
    return _directories[iType].GetCurrentIndexPath(oPath);
}

long int PLMIdxDirectoryManager::GetWritablePath(
    Index_Type iType, VEXUnicodeString& oPath, bool iEmpty, bool iWait) {
    return _directories[iType].GetWritableIndexPath(oPath, iEmpty, iWait);
}

long int PLMIdxDirectoryManager::SwapIndex(Index_Type iType) {
    return _directories[iType].SwapIndexPath();
}
