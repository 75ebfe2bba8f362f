#ifndef PLMIdxDirectoryManager_h
#define PLMIdxDirectoryManager_h

#include "GridloomExport.h"
#include "PLMIdxDirectory.h"
#include "VEXUnicodeString.h"

/// The kinds of index under one base, from 0 to 4. Kinds 0 and 4 have no directory.
enum Index_Type : unsigned int { Index_Security = 1, Index_UrlMap = 2, Index_Dwh = 3 };

/// The index base of the process: an index directory for each kind of index, and the directory for
/// reports. Operations on a kind call those of its PLMIdxDirectory.
class GRIDLOOM_API PLMIdxDirectoryManager {
public:
    PLMIdxDirectoryManager(const PLMIdxDirectoryManager&) = delete;
    PLMIdxDirectoryManager& operator=(const PLMIdxDirectoryManager&) = delete;
    ~PLMIdxDirectoryManager();

    /// The one manager of the process.
    static PLMIdxDirectoryManager& GetIndexDirectoryManager() { return _IndexDirManager; }

    /// Sets the path of the base and the paths of all kinds. No disk access.
    void SetIndexBaseDirectory(const VEXUnicodeString& iPath);
    void GetIndexBaseDirectory(VEXUnicodeString& oPath) const { oPath = _indexBaseDirectory; }

    /// Creates the report directory unless it exists. BuildDirectoryIfNeeded() creates the
    /// directory of a kind.
    /// @return IDX_S_OK, or IDX_E_FAIL with "Error : Failed to build report directory."
    long int PrepareIndexDirectories();
    long int BuildReportPathIfNeeded();

    /// The path of the report directory; empty before it was created or found.
    void GetReportPath(VEXUnicodeString& oPath) const { oPath = _reportPath; }

    // Of one kind of index, from 0 to 4.

    long int BuildDirectoryIfNeeded(Index_Type iType);

    /// Reads the redirecting file again, to see a swap by another process.
    void ForceInit(Index_Type iType);
    long int GetCurrentPath(Index_Type iType, VEXUnicodeString& oPath);
    long int GetWritablePath(Index_Type iType, VEXUnicodeString& oPath, bool iEmpty, bool iWait);
    long int SwapIndex(Index_Type iType);

private:
    PLMIdxDirectoryManager();

    static PLMIdxDirectoryManager _IndexDirManager;

    VEXUnicodeString _indexBaseDirectory;
    PLMIdxDirectory _directories[5];  ///< by Index_Type
    VEXUnicodeString _reportPath;
};

#endif
