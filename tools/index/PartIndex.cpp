#include "PartIndex.h"

#include "IDX_Base_Constants.h"
#include "PLMIdxDirectory.h"

#include "formats/FinitePoint.h"

#include <filesystem>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace {

constexpr int kMostAttempts = 100;  // of opening an index that writers swap meanwhile

[[noreturn]] void ThrowDamaged(const std::string& iPath, const std::string& iReason) {
    throw IndexError(iPath + " is damaged: " + iReason, true);
}

/// When a file was written last. A swap writes the redirecting file.
struct Stamp {
    long seconds;
    long nanoseconds;

    bool operator==(const Stamp&) const = default;
};

Stamp StampOf(const std::string& iPath) {
    struct stat status = {};
    if (stat(iPath.c_str(), &status) != 0) return {0, 0};
    return {status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

}  // namespace

PartIndex PartIndex::OpenBase(const std::string& iBase) {
    const std::string directory = iBase + "/" + IDX_Base_Constants::DWH_INDEX_DIRECTORY;
    const std::string redirecting = directory + "/" + IDX_Base_Constants::IDXBUFFER_FILE_BASE_NAME;
    for (int attempt = 1;; ++attempt) {
        const Stamp before = StampOf(redirecting);
        VEXUnicodeString live;
        if (IDX_Failed(PLMIdxDirectory(directory.c_str()).GetCurrentIndexPath(live))) {
            std::error_code error;
            const bool isThere = fs::exists(redirecting, error);
            throw IndexError(
                isThere ? redirecting + " names no live index" : iBase + " holds no index",
                isThere);
        }
        try {
            PartIndex index(live.ConvertToChar());
            if (StampOf(redirecting) == before || attempt == kMostAttempts) return index;
        } catch (const IndexError&) {
            // Behind a second swap its files go away: then there is a newer one.
            if (StampOf(redirecting) == before || attempt == kMostAttempts) throw;
        }
    }
}

PartIndex::PartIndex(const std::string& iFolder)
    : _folder(iFolder + "/"),
      _parts(std::make_unique<PartTree>(false)),
      _partsFile(Map(_folder + kPartsName)),
      _boxesFile(Map(_folder + kBoxesName)) {
    const std::string parts = _folder + kPartsName;
    if (_parts->OpenRead(parts.c_str()) != IDX_True)
        ThrowDamaged(parts, "isn't an identifier tree");
    if (!_parts->ReadCount(_nParts)) ThrowDamaged(parts, "isn't the tree of a part index");
    const Damage damage = RTreeImage::Check(_boxesFile.Bytes(), _boxesFile.Size());
    if (damage) ThrowDamaged(_folder + kBoxesName, damage.Text());
    _boxes.emplace(_boxesFile.Bytes());
    MapPieces();
}

MappedFile PartIndex::Map(const std::string& iPath) const {
    MappedFile file;
    const Status status = file.Open(iPath).In(iPath);
    if (status.Failed()) throw IndexError(status.Text(), false);
    return file;
}

void PartIndex::MapPieces() {
    std::error_code error;
    while (fs::exists(NameOfPiece(_pieces.size()), error)) {
        _pieces.push_back(Map(NameOfPiece(_pieces.size())));
    }
}

std::string PartIndex::NameOfPiece(std::size_t iPiece) const {
    return _folder + kOctreesName + std::to_string(iPiece);
}

std::size_t PartIndex::OctreeBytes() const {
    std::size_t size = 0;
    for (const MappedFile& piece : _pieces) size += piece.Size();
    return size;
}

std::optional<StoredPart> PartIndex::Find(const std::string& iIdentifier) const {
    unsigned int item = 0;
    if (!_parts->Find(iIdentifier, item)) {
        ThrowDamaged(_folder + kPartsName, "a node or an identifier can't be read");
    }
    if (item == 0) return {};
    return Read(item);
}

StoredPart PartIndex::Read(unsigned int iItem) const {
    StoredPart part;
    part.item = iItem;
    if (!_parts->Read(iItem, part.record, part.identifier)) {
        ThrowDamaged(_folder + kPartsName, "no record at " + std::to_string(iItem));
    }
    const IDX_Base_BoundingBox& box = part.record.box;
    if (!HasFiniteCoordinates(box.GetLow()) || !HasFiniteCoordinates(box.GetHigh())) {
        ThrowDamaged(
            _folder + kPartsName, "the record at " + std::to_string(iItem) + " has no finite box");
    }
    return part;
}

void PartIndex::ForEach(const std::function<void(const StoredPart&)>& iTake) const {
    unsigned int nTaken = 0;
    const bool isWhole = _parts->ForEach([&](unsigned int item) {
        iTake(Read(item));
        ++nTaken;
        return true;
    });
    if (!isWhole) ThrowDamaged(_folder + kPartsName, "a node or an identifier can't be read");
    if (nTaken != _nParts) ThrowDamaged(_folder + kPartsName, "has another number of parts");
}

const unsigned char* PartIndex::BytesOf(const PartRecord& iRecord) const {
    if (iRecord.octreePiece >= _pieces.size()) return nullptr;
    const MappedFile& piece = _pieces[iRecord.octreePiece];
    if (iRecord.octreeOffset > piece.Size()) return nullptr;
    if (iRecord.octreeSize > piece.Size() - iRecord.octreeOffset) return nullptr;
    return piece.Bytes() + iRecord.octreeOffset;
}

const unsigned char* PartIndex::ExaminedBytesOf(const StoredPart& iPart) const {
    const std::string piece = NameOfPiece(iPart.record.octreePiece);
    const unsigned char* image = BytesOf(iPart.record);
    if (image == nullptr) ThrowDamaged(piece, "holds no octree of " + iPart.identifier);
    if (_examined.count(iPart.item) != 0) return image;
    std::uint64_t nOccupied = 0;
    const Damage damage = OctreeImage::Check(image, iPart.record.octreeSize, nOccupied);
    if (damage) ThrowDamaged(piece, "the octree of " + iPart.identifier + ": " + damage.Text());
    _examined.insert(iPart.item);
    return image;
}

OctreeImage PartIndex::ImageOf(const StoredPart& iPart) const {
    return OctreeImage(ExaminedBytesOf(iPart));
}

const PLMIdxIBaseOctree& PartIndex::OctreeOf(const StoredPart& iPart) const {
    std::unique_ptr<PLMIdxOctreeLoader>& loader = _octrees[iPart.item];
    if (loader == nullptr) {
        // The loader takes a pointer to bytes that may change, and doesn't change them.
        loader = std::make_unique<PLMIdxOctreeLoader>(
            const_cast<unsigned char*>(ExaminedBytesOf(iPart)));
    }
    return *loader->GetOctree();
}
