#ifndef PartIndex_h
#define PartIndex_h

#include "IndexFiles.h"
#include "MappedFile.h"
#include "PartTree.h"

#include "PLMIdxOctreeLoader.h"

#include "formats/OctreeImage.h"
#include "formats/RTreeImage.h"

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

/// An index that can't be read: no index, no permission, or damaged. The text names the file and the reason.
class IndexError : public std::runtime_error {
public:
    /// @param iDamaged  true when the index is there, and its bytes are wrong
    IndexError(const std::string& iText, bool iDamaged)
        : std::runtime_error(iText), isDamaged(iDamaged) {}

    bool isDamaged;
};

/// One part of an index, as it is stored.
struct StoredPart {
    unsigned int item = 0;  ///< where its record stands
    std::string identifier;
    PartRecord record = {};
};

/// An index open for reading. Its files are mapped, its octrees are walked where they lie. Nothing is trusted:
/// what is damaged is told by an IndexError before it is used. A swap by a writer doesn't touch an index that is
/// open. In a process only one may be open on a folder at a time: the first that goes closes the identifier tree
/// for the others, which tell it from then on as damaged.
class PartIndex {
public:
    /// Opens the live index under a base.
    static PartIndex OpenBase(const std::string& iBase);

    /// Opens the index in a folder, live or not.
    explicit PartIndex(const std::string& iFolder);

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

    /// The part of an identifier.
    std::optional<StoredPart> Find(const std::string& iIdentifier) const;

    /// The part whose record stands at an offset that this index gave.
    StoredPart Read(unsigned int iItem) const;

    /// All parts, in rising byte order of their identifiers.
    void ForEach(const std::function<void(const StoredPart&)>& iTake) const;

    const RTreeImage& Boxes() const { return *_boxes; }

    /// The image of a part's octree, examined before its first use. Its bytes live as long as this index.
    OctreeImage ImageOf(const StoredPart& iPart) const;

    /// The same as the library sees it.
    const PLMIdxIBaseOctree& OctreeOf(const StoredPart& iPart) const;

    /// Where the image of a record lies, not examined.
    /// @return null when no file holds it
    const unsigned char* BytesOf(const PartRecord& iRecord) const;

    std::string NameOfPiece(std::size_t iPiece) const;  ///< path

private:
    MappedFile Map(const std::string& iPath) const;

    /// Where the image of a part lies, examined before its first use.
    const unsigned char* ExaminedBytesOf(const StoredPart& iPart) const;

    void MapPieces();

    std::string _folder;  ///< with '/' behind it
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
