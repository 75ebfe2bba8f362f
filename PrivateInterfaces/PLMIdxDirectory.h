#ifndef PLMIdxDirectory_h
#define PLMIdxDirectory_h

#include "GridloomExport.h"
#include "IDX_Status.h"
#include "VEXUnicodeString.h"

/// An index directory, in which a new index is built beside the live one: two sub-directories, "1" and "2", and
/// the redirecting file, whose four bytes are the number of the live one. Whoever reads that file is
/// led to a complete index, the old one or the new one.
///
/// A rebuild goes: IsValidIndexPath(), else BuildIndexPath(); GetWritableIndexPath() with the
/// sub-directory emptied; the index written into it; SwapIndexPath().
///
/// What was read of the redirecting file is kept: a swap by another process isn't seen. Nothing
/// guards against two writers. Operations that give a status give IDX_S_OK or IDX_E_FAIL.
class GRIDLOOM_API PLMIdxDirectory {
public:
    /// A directory without a path.
    PLMIdxDirectory();
    explicit PLMIdxDirectory(const VEXUnicodeString& iPath);
    PLMIdxDirectory(const PLMIdxDirectory& iOther);
    PLMIdxDirectory& operator=(const PLMIdxDirectory& iOther);

    /// Moves to another index directory, and forgets what was read. No disk access.
    void SetIndexDirectory(const VEXUnicodeString& iPath);

    const VEXUnicodeString& GetBasePath() const { return _basePath; }
    void GetBasePath(VEXUnicodeString& oPath) const { oPath = _basePath; }

    /// Whether the redirecting file names a live sub-directory.
    bool IsValidIndexPath();

    /// Lays out an index directory whose sub-directory 2 is live, both being empty. Directories that are
    /// there already are taken over.
    /// Tags: "PLMIdxDirectory.BuildIndexPath.VEXCloseDirectory", ".VEXCreateDirectoryR", ".WriteAt",
    /// ".snprintf" (the path is too long).
    /// @return IDX_S_NOTHING_DONE when there is a valid one
    long int BuildIndexPath();

    /// The path of the live sub-directory. Without one it fails, and gives the base path.
    long int GetCurrentIndexPath(VEXUnicodeString& oPath);

    /// The path of the other sub-directory, which isn't made here. Without a live one it fails, and gives
    /// the base path.
    /// @param iEmpty  deletes the files in it first, but not sub-directories and files with ".nsf" in
    ///                their names. Tag: "PLMIdxDirectory.GetWritableIndexPath.EmptyDir", behind
    ///                those of the step that failed
    /// @param iWait   tries again up to 12 times, 5 seconds apart, and says so to the operator
    long int GetWritableIndexPath(VEXUnicodeString& oPath, bool iEmpty, bool iWait);

    /// Makes the other sub-directory live, by one write of four bytes in place. Brings to their files, before
    /// that, what was written to any IDX_WT_File of the process and isn't closed yet.
    /// Tags: "PLMIdxDirectory.Swap3DIndexPath.Flush", ".IDX_WT_File.OpenWrite", ".IDX_WT_File.WriteAt",
    /// ".snprintf"; the old one stays live then. Without a live one it fails.
    long int SwapIndexPath();

private:
    friend class PLMIdxDirectoryManager;

    /// Reads the redirecting file if nothing is known of it, or if forced to.
    void Init(const bool& iForce);
    void Init_Internal();

    bool HasLiveIndex() const { return _currentIndex == 1 || _currentIndex == 2; }

    /// The path of one of the two sub-directories; fails without a live one.
    long int GetSubDirectory(bool iLive, VEXUnicodeString& oPath);

    long int MakeBaseDirectory() const;
    long int WriteFirstNumber(const char* iRedirectingFile);
    long int EmptyDir(VEXUnicodeString& iPath, bool iWait);

    VEXUnicodeString _basePath;
    int _currentIndex;  ///< number of the live sub-directory; 0 when there is none, -1 when not known
};

#endif
