#ifndef PartIndex_h
#define PartIndex_h

#include "IndexFiles.h"
#include "MappedFile.h"
#include "PartTree.h"
#include "Status.h"

#include "PLMIdxOctreeLoader.h"

#include "formats/OctreeImage.h"
#include "formats/RTreeImage.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

/// One part of an index, as it is stored.
struct StoredPart {
    unsigned int item = 0;  ///< offset of its record in the file of the identifiers
    std::string identifier;
    PartRecord record = {};
};

/// An index open for reading. Its files are mapped, its octrees are walked where they lie. Nothing
/// is trusted: what is damaged is a failure before it is used. A swap by a writer doesn't touch an
/// index that is open. In a process only one may be open on a folder at a time: the first that is
/// destroyed closes the identifier tree for the others, which then fail as if it were damaged.
///
/// Failures name the file and the reason. Their code is ExitCode::Damaged when the index is there
/// and its bytes are wrong, else ExitCode::Environment: no index, no permission.
class PartIndex {
public:
    /// Not open: Open() or OpenBase() comes first.
    PartIndex() = default;

    /// Opens the live index under a base.
    Status OpenBase(const std::string& iBase);

    /// Opens the index in a folder, live or not.
    Status Open(const std::string& iFolder);

    PartIndex(PartIndex&&) = default;
    PartIndex(const PartIndex&) = delete;
    PartIndex& operator=(const PartIndex&) = delete;
    PartIndex& operator=(PartIndex&&) = delete;
    ~PartIndex() = default;

    const std::string& Folder() const { return _folder; }
    unsigned int CountParts() const { return _nParts; }
    std::size_t OctreeBytes() const;  ///< of all pieces
    const MappedFile& BoxesFile() const { return _boxesFile; }
    const MappedFile& PartsFile() const { return _partsFile; }
    const std::vector<MappedFile>& Pieces() const { return _pieces; }

    /// The part of an identifier; not set when there is none.
    Status Find(const std::string& iIdentifier, std::optional<StoredPart>& oPart) const;

    /// The part whose record is at an offset that this index gave.
    Status Read(unsigned int iItem, StoredPart& oPart) const;

    /// Calls back for all parts, in rising byte order of their identifiers. A failure of the
    /// callback ends the walk, which fails with it.
    Status ForEach(const std::function<Status(const StoredPart&)>& iVisit) const;

    const RTreeImage& Boxes() const { return *_boxes; }

    /// The image of a part's octree, examined before its first use. Its bytes live as long as this
    /// index.
    /// @param oImage  set after success
    Status ImageOf(const StoredPart& iPart, std::optional<OctreeImage>& oImage) const;

    /// The same as the library sees it.
    /// @param oOctree  belongs to this index and lives as long
    Status OctreeOf(const StoredPart& iPart, const PLMIdxIBaseOctree*& oOctree) const;

    /// Where the image of a record lies, not examined.
    /// @return null when no file holds it
    const unsigned char* BytesOf(const PartRecord& iRecord) const;

    std::string NameOfPiece(std::size_t iPiece) const;  ///< path

private:
    /// Where the image of a part lies, examined before its first use.
    Status ExaminedBytesOf(const StoredPart& iPart, const unsigned char*& oImage) const;

    Status OpenParts();
    Status OpenBoxes();
    Status MapPieces();

    std::string _folder;  ///< with '/' at its end
    std::unique_ptr<PartTree> _parts;
    MappedFile _partsFile;
    MappedFile _boxesFile;
    std::optional<RTreeImage> _boxes;  ///< examined when the index is opened
    std::vector<MappedFile> _pieces;
    unsigned int _nParts = 0;
    mutable std::unordered_set<unsigned int> _examined;  ///< items whose images are sound
    mutable std::unordered_map<unsigned int, std::unique_ptr<PLMIdxOctreeLoader>>
        _octrees;  ///< by item
};

#endif
