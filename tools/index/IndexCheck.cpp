#include "IndexCheck.h"

#include "formats/OctreeImage.h"
#include "formats/PartIndexFiles.h"
#include "formats/SplitFile.h"

#include <algorithm>
#include <tuple>

namespace {

/// A box of the R-tree with the item that it leads to.
struct BoxOfItem {
    unsigned int item;
    IDX_Base_BoundingBox box;
};

/// Where an image is in the pieces.
struct ImageRange {
    std::uint32_t piece;
    std::uint32_t offset;
    std::uint32_t size;
};

/// Whether a part's box is within its octree's: a box that isn't would lose what the part holds
/// there.
bool Encloses(const PLMIdxIBaseOctree& iOctree, const IDX_Base_BoundingBox& iBox) {
    const float origin[3] = {iOctree._bbOrigin.x, iOctree._bbOrigin.y, iOctree._bbOrigin.z};
    const float size[3] = {iOctree._bbSize.x, iOctree._bbSize.y, iOctree._bbSize.z};
    const IDX_Point lowPoint = iBox.GetLow();
    const IDX_Point highPoint = iBox.GetHigh();
    const float low[3] = {lowPoint.x, lowPoint.y, lowPoint.z};
    const float high[3] = {highPoint.x, highPoint.y, highPoint.z};
    for (int axis = 0; axis < 3; ++axis) {
        const double end = double{origin[axis]} + double{size[axis]};
        // The far end of an octree's box is a rounded sum.
        const double slack = 1e-6 * std::max(std::abs(end), std::abs(double{origin[axis]}));
        if (!(low[axis] <= high[axis])) return false;
        if (double{low[axis]} < origin[axis] - slack || double{high[axis]} > end + slack)
            return false;
    }
    return true;
}

IndexCheckResult OneProblem(const Status& iStatus) {
    IndexCheckResult result;
    result.problems.push_back(iStatus.Text());
    result.nProblems = 1;
    return result;
}

/// One verification.
class Check {
public:
    Check(const PartIndex& iIndex, const std::function<void(double)>& iProgress)
        : _index(iIndex), _progress(iProgress) {}

    /// Identifiers first: their records lead to everything else.
    IndexCheckResult Run() {
        std::vector<unsigned int> items;
        const MappedFile& parts = _index.PartsFile();
        const Damage damage = CheckPartsFile(parts.Bytes(), parts.Size(), items);
        if (damage) {
            Add(_index.Folder() + kPartsName, damage.Text());
            return std::move(_result);  // nothing leads to the rest
        }
        _result.nParts = static_cast<unsigned int>(items.size());
        _result.nBytes = parts.Size() + _index.BoxesFile().Size() + _index.OctreeBytes();
        CollectBoxes();
        for (std::size_t i = 0; i < items.size(); ++i) {
            StoredPart part;
            const Status status = _index.Read(items[i], part);
            if (status.Failed()) return OneProblem(status);
            CheckPart(part);
            if (_progress)
                _progress(static_cast<double>(i + 1) / static_cast<double>(items.size()));
        }
        if (_boxes.size() != items.size())
            Add(_index.Folder() + kBoxesName, "has another number of boxes");
        CheckCover();
        return std::move(_result);
    }

private:
    void Add(const std::string& iWhere, const std::string& iWhat) {
        if (_result.nProblems++ < IndexCheckResult::kMostProblems) {
            _result.problems.push_back(iWhere + ": " + iWhat);
        }
    }

    void CollectBoxes() {
        const auto all = [](const IDX_Base_BoundingBox&) { return true; };
        _index.Boxes().Search(all, [&](const RTreeImage::Entry& entry) {
            _boxes.push_back({entry.value, entry.box});
        });
        std::sort(_boxes.begin(), _boxes.end(), [](const BoxOfItem& a, const BoxOfItem& b) {
            return a.item < b.item;
        });
    }

    /// What a record leads to: its box, its image, and that they fit together.
    void CheckPart(const StoredPart& iPart) {
        CheckBox(iPart);
        const PartRecord& record = iPart.record;
        const unsigned char* image = _index.BytesOf(record);
        if (image == nullptr) return Add(iPart.identifier, "its record leads to no octree");
        std::uint64_t nOccupied = 0;
        const Damage damage = OctreeImage::Check(image, record.octreeSize, nOccupied);
        if (damage) return Add(iPart.identifier, "its octree: " + damage.Text());
        if (nOccupied != record.CountOccupied()) {
            Add(iPart.identifier, "its record tells another number of occupied cells");
        }
        PLMIdxOctreeLoader loader(const_cast<unsigned char*>(image));
        if (!Encloses(*loader.GetOctree(), record.box)) {
            Add(iPart.identifier, "its box isn't within its octree");
        }
        _images.push_back({record.octreePiece, record.octreeOffset, record.octreeSize});
    }

    void CheckBox(const StoredPart& iPart) {
        const auto found = std::lower_bound(
            _boxes.begin(), _boxes.end(), iPart.item,
            [](const BoxOfItem& a, unsigned int item) { return a.item < item; });
        if (found == _boxes.end() || found->item != iPart.item) {
            Add(iPart.identifier, "no box leads to it");
        } else if (!RTreeImage::HaveSameBits(found->box, iPart.record.box)) {
            Add(iPart.identifier, "its box and that of its record differ");
        }
    }

    /// Whether the images follow on each other in their pieces, and fill them.
    void CheckCover() {
        std::sort(_images.begin(), _images.end(), [](const ImageRange& a, const ImageRange& b) {
            return std::tie(a.piece, a.offset) < std::tie(b.piece, b.offset);
        });
        std::vector<std::size_t> ends(_index.Pieces().size(), 0);
        for (const ImageRange& image : _images) {
            std::size_t& end = ends[image.piece];
            const std::size_t start = NextAppend(end);
            if (image.offset != start) {
                return Add(
                    _index.NameOfPiece(image.piece),
                    "at " + std::to_string(start) + ": bytes of no part, or of two");
            }
            end = start + image.size;
        }
        for (std::size_t piece = 0; piece < ends.size(); ++piece) {
            if (ends[piece] != _index.Pieces()[piece].Size()) {
                Add(_index.NameOfPiece(piece), "holds bytes behind its last octree");
            }
        }
    }

    const PartIndex& _index;
    const std::function<void(double)>& _progress;
    IndexCheckResult _result;
    std::vector<BoxOfItem> _boxes;  ///< in rising order of the items
    std::vector<ImageRange> _images;
};

}  // namespace

IndexCheckResult CheckIndex(const PartIndex& iIndex, const std::function<void(double)>& iProgress) {
    return Check(iIndex, iProgress).Run();
}

IndexCheckResult CheckIndex(
    const std::string& iFolder, const std::function<void(double)>& iProgress) {
    PartIndex index;
    const Status status = index.Open(iFolder);
    return status.Failed() ? OneProblem(status) : CheckIndex(index, iProgress);
}
