#ifndef PLMIdxDirectory_h
#define PLMIdxDirectory_h

#include "GridloomExport.h"
#include "IDX_Status.h"
#include "VEXUnicodeString.h"

/// An index directory. A new index is built in it while readers use the live one. It has two
/// sub-directories, "1" and "2", and the redirecting file. The four bytes of this file are the
/// number of the live sub-directory. So a reader always finds a complete index, the old one or the
/// new one.
///
/// The steps of a rebuild: IsValidIndexPath(); BuildIndexPath() if it gave false;
/// GetWritableIndexPath(), which empties the other sub-directory; writing the index there;
/// SwapIndexPath().
///
/// The redirecting file is read once and its number is kept: a swap by another process isn't
/// noticed. Two writers at the same time aren't prevented. A status is IDX_S_OK or IDX_E_FAIL
/// unless stated.
class GRIDLOOM_API PLMIdxDirectory {
public:
    /// A directory without a path.
    PLMIdxDirectory();
    explicit PLMIdxDirectory(const VEXUnicodeString& iPath);
    PLMIdxDirectory(const PLMIdxDirectory& iOther);
    PLMIdxDirectory& operator=(const PLMIdxDirectory& iOther);

    /// Changes to another index directory and forgets the number that was read. No disk access.
    void SetIndexDirectory(const VEXUnicodeString& iPath);

    const VEXUnicodeString& GetBasePath() const { return _basePath; }
    void GetBasePath(VEXUnicodeString& oPath) const { oPath = _basePath; }

    /// Whether the redirecting file names a live sub-directory.
    bool IsValidIndexPath();

    /// Creates an index directory with two empty sub-directories, of which 2 is live. Directories
    /// that exist already are used.
    /// Tags: "PLMIdxDirectory.BuildIndexPath.VEXCloseDirectory", ".VEXCreateDirectoryR",
    /// ".WriteAt", ".snprintf" (the path is too long).
    /// @return IDX_S_NOTHING_DONE when a valid index directory exists
    long int BuildIndexPath();

    /// The path of the live sub-directory. Without one it fails and sets `oPath` to the base path.
    long int GetCurrentIndexPath(VEXUnicodeString& oPath);

    /// The path of the other sub-directory, which isn't created here. Without a live one it fails
    /// and sets `oPath` to the base path.
    /// @param iEmpty  deletes the files in it first, but not sub-directories and files with ".nsf"
    ///                in their names. Tag: "PLMIdxDirectory.GetWritableIndexPath.EmptyDir", after
    ///                those of the step that failed
    /// @param iWait   repeats a failed deletion up to 12 times, every 5 seconds, with a message
    long int GetWritableIndexPath(VEXUnicodeString& oPath, bool iEmpty, bool iWait);

    /// Makes the other sub-directory live, by one write of four bytes. Before that, writes the
    /// delayed bytes of all open IDX_WT_File objects of the process to their files.
    /// Tags: "PLMIdxDirectory.Swap3DIndexPath.Flush", ".IDX_WT_File.OpenWrite",
    /// ".IDX_WT_File.WriteAt", ".snprintf"; then the old one stays live. Without a live one it
    /// fails.
    long int SwapIndexPath();

private:
    friend class PLMIdxDirectoryManager;

    /// Reads the redirecting file unless it was read before, or always when `iForce` is true.
    void Init(const bool& iForce);
    void Init_Internal();

    bool HasLiveIndex() const { return _currentIndex == 1 || _currentIndex == 2; }

    /// The path of one of the two sub-directories; fails without a live one.
    long int GetSubDirectory(bool iLive, VEXUnicodeString& oPath);

    long int MakeBaseDirectory() const;
    long int WriteFirstNumber(const char* iRedirectingFile);
    long int EmptyDir(VEXUnicodeString& iPath, bool iWait);

    VEXUnicodeString _basePath;
    int _currentIndex;  ///< number of the live sub-directory; 0 for none, -1 when not read yet
};

#endif
