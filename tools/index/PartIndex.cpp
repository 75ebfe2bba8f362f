#include "PartIndex.h"

#include "IDX_Base_Constants.h"
#include "PLMIdxDirectory.h"

#include "formats/FinitePoint.h"

#include <filesystem>
#include <sys/stat.h>

namespace fs = std::filesystem;

namespace {

constexpr int kMostAttempts = 100;  // of opening an index that writers swap meanwhile

Status DamagedFile(const std::string& iPath, const std::string& iReason) {
    return Status::Damaged(iPath + " is damaged: " + iReason);
}

Status MapFile(const std::string& iPath, MappedFile& oFile) {
    return oFile.Open(iPath).In(iPath);
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

/// A writer may swap twice while an index is being opened, and delete the files of the
/// sub-directory that was named live before: what was opened counts when the redirecting file
/// wasn't written meanwhile. A failure counts then, too.
Status PartIndex::OpenBase(const std::string& iBase) {
    const std::string directory = iBase + "/" + IDX_Base_Constants::DWH_INDEX_DIRECTORY;
    const std::string redirecting = directory + "/" + IDX_Base_Constants::IDXBUFFER_FILE_BASE_NAME;
    for (int attempt = 1;; ++attempt) {
        const Stamp before = StampOf(redirecting);
        VEXUnicodeString live;
        if (IDX_Failed(PLMIdxDirectory(directory.c_str()).GetCurrentIndexPath(live))) {
            std::error_code error;
            return fs::exists(redirecting, error)
                       ? Status::Damaged(redirecting + " names no live index")
                       : Status::Environment(iBase + " holds no index");
        }
        Status status = Open(live.ConvertToChar());
        if (StampOf(redirecting) == before || attempt == kMostAttempts) return status;
    }
}

Status PartIndex::Open(const std::string& iFolder) {
    _folder = iFolder + "/";
    _examined.clear();
    _octrees.clear();
    Status status = MapFile(_folder + kPartsName, _partsFile);
    if (!status.Failed()) status = MapFile(_folder + kBoxesName, _boxesFile);
    if (!status.Failed()) status = OpenParts();
    if (!status.Failed()) status = OpenBoxes();
    return status.Failed() ? status : MapPieces();
}

/// The library's tree looks identifiers up; the map of the same file is for a check of its bytes.
Status PartIndex::OpenParts() {
    const std::string path = _folder + kPartsName;
    _parts.reset();  // closes its file, which the next one may be on, too
    _parts = std::make_unique<PartTree>(false);
    if (_parts->OpenRead(path.c_str()) != IDX_True) {
        return DamagedFile(path, "isn't an identifier tree");
    }
    if (!_parts->ReadCount(_nParts)) return DamagedFile(path, "isn't the tree of a part index");
    return {};
}

Status PartIndex::OpenBoxes() {
    const Damage damage = RTreeImage::Check(_boxesFile.Bytes(), _boxesFile.Size());
    if (damage) return DamagedFile(_folder + kBoxesName, damage.Text());
    _boxes.emplace(_boxesFile.Bytes());
    return {};
}

Status PartIndex::MapPieces() {
    _pieces.clear();
    std::error_code error;
    while (fs::exists(NameOfPiece(_pieces.size()), error)) {
        MappedFile piece;
        Status status = MapFile(NameOfPiece(_pieces.size()), piece);
        if (status.Failed()) return status;
        _pieces.push_back(std::move(piece));
    }
    return {};
}

std::string PartIndex::NameOfPiece(std::size_t iPiece) const {
    return _folder + kOctreesName + std::to_string(iPiece);
}

std::size_t PartIndex::OctreeBytes() const {
    std::size_t size = 0;
    for (const MappedFile& piece : _pieces) size += piece.Size();
    return size;
}

Status PartIndex::Find(const std::string& iIdentifier, std::optional<StoredPart>& oPart) const {
    oPart.reset();
    unsigned int item = 0;
    if (!_parts->Find(iIdentifier, item)) {
        return DamagedFile(_folder + kPartsName, "a node or an identifier can't be read");
    }
    return item == 0 ? Status() : Read(item, oPart.emplace());
}

Status PartIndex::Read(unsigned int iItem, StoredPart& oPart) const {
    oPart.item = iItem;
    if (!_parts->Read(iItem, oPart.record, oPart.identifier)) {
        return DamagedFile(_folder + kPartsName, "no record at " + std::to_string(iItem));
    }
    const IDX_Base_BoundingBox& box = oPart.record.box;
    if (!HasFiniteCoordinates(box.GetLow()) || !HasFiniteCoordinates(box.GetHigh())) {
        return DamagedFile(
            _folder + kPartsName, "the record at " + std::to_string(iItem) + " has no finite box");
    }
    return {};
}

/// The tree itself doesn't know how many parts it holds: a subtree that is missing shows in their
/// number.
Status PartIndex::ForEach(const std::function<Status(const StoredPart&)>& iVisit) const {
    Status status;
    unsigned int nVisited = 0;
    StoredPart part;
    const bool isWhole = _parts->ForEach([&](unsigned int item) {
        status = Read(item, part);
        if (!status.Failed()) status = iVisit(part);
        ++nVisited;
        return !status.Failed();
    });
    if (status.Failed()) return status;
    if (!isWhole) return DamagedFile(_folder + kPartsName, "a node or an identifier can't be read");
    if (nVisited != _nParts)
        return DamagedFile(_folder + kPartsName, "has another number of parts");
    return {};
}

const unsigned char* PartIndex::BytesOf(const PartRecord& iRecord) const {
    if (iRecord.octreePiece >= _pieces.size()) return nullptr;
    const MappedFile& piece = _pieces[iRecord.octreePiece];
    if (iRecord.octreeOffset > piece.Size()) return nullptr;
    if (iRecord.octreeSize > piece.Size() - iRecord.octreeOffset) return nullptr;
    return piece.Bytes() + iRecord.octreeOffset;
}

Status PartIndex::ExaminedBytesOf(const StoredPart& iPart, const unsigned char*& oImage) const {
    const std::string piece = NameOfPiece(iPart.record.octreePiece);
    oImage = BytesOf(iPart.record);
    if (oImage == nullptr) return DamagedFile(piece, "holds no octree of " + iPart.identifier);
    if (_examined.count(iPart.item) != 0) return {};
    std::uint64_t nOccupied = 0;
    const Damage damage = OctreeImage::Check(oImage, iPart.record.octreeSize, nOccupied);
    if (damage) {
        return DamagedFile(piece, "the octree of " + iPart.identifier + ": " + damage.Text());
    }
    _examined.insert(iPart.item);
    return {};
}

Status PartIndex::ImageOf(const StoredPart& iPart, std::optional<OctreeImage>& oImage) const {
    const unsigned char* image = nullptr;
    Status status = ExaminedBytesOf(iPart, image);
    if (!status.Failed()) oImage.emplace(image);
    return status;
}

Status PartIndex::OctreeOf(const StoredPart& iPart, const PLMIdxIBaseOctree*& oOctree) const {
    const unsigned char* image = nullptr;
    Status status = ExaminedBytesOf(iPart, image);
    if (status.Failed()) return status;
    std::unique_ptr<PLMIdxOctreeLoader>& loader = _octrees[iPart.item];
    if (loader == nullptr) {
        // The loader's argument is a pointer to bytes that may change, and it doesn't change them.
        loader = std::make_unique<PLMIdxOctreeLoader>(const_cast<unsigned char*>(image));
    }
    oOctree = loader->GetOctree();
    return {};
}
