#include "Queries.h"

#include <algorithm>
#include <cmath>
#include <fnmatch.h>
#include <memory>
#include <optional>
#include <queue>
#include <utility>

namespace {

void SortByIdentifier(Parts& ioParts) {
    std::sort(ioParts.begin(), ioParts.end(), [](const StoredPart& a, const StoredPart& b) {
        return a.identifier < b.identifier;
    });
}

/// @param oSolid  set after success
Status SolidOf(const PartIndex& iIndex, const StoredPart& iPart, std::optional<Solid>& oSolid) {
    std::optional<OctreeImage> image;
    Status status = iIndex.ImageOf(iPart, image);
    if (!status.Failed()) oSolid.emplace(*image, BoxOf(iPart.record.box));
    return status;
}

/// Keeps the parts whose solid passes a test.
template <class Test>
Status KeepSolids(const PartIndex& iIndex, const Test& iTest, Parts& ioParts) {
    Parts kept;
    for (StoredPart& part : ioParts) {
        std::optional<Solid> solid;
        Status status = SolidOf(iIndex, part, solid);
        if (status.Failed()) return status;
        if (iTest(*solid)) kept.push_back(std::move(part));
    }
    ioParts = std::move(kept);
    return {};
}

/// One step of a search for the nearest parts: what may be near, and the least distance at which it
/// can be.
struct Candidate {
    enum Kind { Node, Part, Cell };

    double squaredDistance;
    Kind kind;
    unsigned int
        number;      ///< offset of a node of the boxes, item of a part, or number of an opened part
    SolidCell cell;  ///< of a Cell alone

    /// The nearest is on top of a queue.
    bool operator<(const Candidate& iOther) const {
        return squaredDistance > iOther.squaredDistance;
    }
};

/// Best first: the candidate with the least distance is replaced by what it is made of, a node by
/// its entries, a part by its octree, a cell by its children. The first full cell that comes up is
/// the nearest of its part, as nothing that is still in the queue can be nearer.
class NearestSearch {
public:
    NearestSearch(const PartIndex& iIndex, const Point& iPoint)
        : _index(iIndex), _boxes(iIndex.Boxes()), _point(iPoint) {
        _queue.push({0.0, Candidate::Node, _boxes.Header().root, {}});
    }

    Status Run(unsigned int iCount, std::vector<NearPart>& oParts) {
        while (!_queue.empty() && !IsDone(iCount)) {
            const Candidate nearest = _queue.top();
            _queue.pop();
            if (nearest.kind == Candidate::Node) {
                OpenNode(nearest.number);
            } else if (nearest.kind == Candidate::Part) {
                Status status = OpenPart(nearest.number);
                if (status.Failed()) return status;
            } else {
                OpenCell(nearest);
            }
        }
        oParts = Best(iCount);
        return {};
    }

private:
    /// A part whose cells are in the queue.
    struct Opened {
        StoredPart part;
        Solid solid;
        bool isFound;
    };

    /// All parts at the distance of the last one wanted take part in the choice.
    bool IsDone(unsigned int iCount) const {
        return _found.size() >= iCount && _queue.top().squaredDistance > _lastSquared;
    }

    void OpenNode(unsigned int iNode) {
        const RTreeNodeHeader node = _boxes.Node(iNode);
        for (unsigned int slot = 0; slot < node.count; ++slot) {
            const RTreeImage::Entry entry = _boxes.EntryOf(iNode, slot);
            const Candidate::Kind kind = node.level == 0 ? Candidate::Part : Candidate::Node;
            _queue.push({SquaredDistance(BoxOf(entry.box), _point), kind, entry.value, {}});
        }
    }

    Status OpenPart(unsigned int iItem) {
        StoredPart part;
        Status status = _index.Read(iItem, part);
        std::optional<Solid> solid;
        if (!status.Failed()) status = SolidOf(_index, part, solid);
        if (status.Failed()) return status;
        SolidCell root;
        if (!solid->Root(root)) return {};
        _opened.push_back(std::make_unique<Opened>(Opened{part, *solid, false}));
        PushCell(static_cast<unsigned int>(_opened.size() - 1), root);
        return {};
    }

    void PushCell(unsigned int iOpened, const SolidCell& iCell) {
        _queue.push({SquaredDistance(iCell.box, _point), Candidate::Cell, iOpened, iCell});
    }

    void OpenCell(const Candidate& iCandidate) {
        Opened& opened = *_opened[iCandidate.number];
        if (opened.isFound) return;
        if (iCandidate.cell.cell.isFull) {
            opened.isFound = true;
            _lastSquared = iCandidate.squaredDistance;
            _found.push_back({opened.part, std::sqrt(_lastSquared)});
            return;
        }
        std::array<SolidCell, 8> children;
        const unsigned int count = opened.solid.Children(iCandidate.cell, children);
        for (unsigned int i = 0; i < count; ++i) PushCell(iCandidate.number, children[i]);
    }

    std::vector<NearPart> Best(unsigned int iCount) {
        std::sort(_found.begin(), _found.end(), [](const NearPart& a, const NearPart& b) {
            if (a.distance != b.distance) return a.distance < b.distance;
            return a.part.identifier < b.part.identifier;
        });
        if (_found.size() > iCount) _found.resize(iCount);
        return std::move(_found);
    }

    const PartIndex& _index;
    const RTreeImage& _boxes;
    Point _point;
    std::priority_queue<Candidate> _queue;
    std::vector<std::unique_ptr<Opened>> _opened;
    std::vector<NearPart> _found;
    double _lastSquared = 0.0;  ///< square of the distance of the part found last
};

}  // namespace

/// A name that a part has is never a pattern: identifiers may hold brackets.
Status FindByName(const PartIndex& iIndex, const std::string& iName, Parts& oParts) {
    oParts.clear();
    std::optional<StoredPart> part;
    Status status = iIndex.Find(iName, part);
    if (status.Failed()) return status;
    if (part) {
        oParts.push_back(*part);
        return {};
    }
    if (iName.find_first_of("*?[") == std::string::npos) return {};
    return iIndex.ForEach([&](const StoredPart& any) {
        if (fnmatch(iName.c_str(), any.identifier.c_str(), 0) == 0) oParts.push_back(any);
        return Status();
    });
}

Status FindInBox(const PartIndex& iIndex, const Box& iBox, Parts& oParts) {
    oParts.clear();
    std::vector<unsigned int> items;
    const auto meets = [&](const IDX_Base_BoundingBox& box) { return Meet(BoxOf(box), iBox); };
    iIndex.Boxes().Search(
        meets, [&](const RTreeImage::Entry& entry) { items.push_back(entry.value); });
    for (const unsigned int item : items) {
        Status status = iIndex.Read(item, oParts.emplace_back());
        if (status.Failed()) return status;
    }
    SortByIdentifier(oParts);
    return {};
}

Status FindAt(const PartIndex& iIndex, const Point& iPoint, Parts& oParts) {
    const Box point = {iPoint, iPoint};
    Status status = FindInBox(iIndex, point, oParts);
    if (status.Failed()) return status;
    return KeepSolids(
        iIndex, [&](const Solid& solid) { return solid.Meets(point); }, oParts);
}

Status FindClashes(const PartIndex& iIndex, const StoredPart& iPart, Parts& oParts) {
    std::optional<Solid> own;
    Status status = SolidOf(iIndex, iPart, own);
    if (!status.Failed()) status = FindInBox(iIndex, BoxOf(iPart.record.box), oParts);
    if (status.Failed()) return status;
    std::erase_if(oParts, [&](const StoredPart& part) { return part.item == iPart.item; });
    return KeepSolids(
        iIndex, [&](const Solid& solid) { return Meet(*own, solid); }, oParts);
}

Status FindNearest(
    const PartIndex& iIndex,
    const Point& iPoint,
    unsigned int iCount,
    std::vector<NearPart>& oParts) {
    oParts.clear();
    return iCount == 0 ? Status() : NearestSearch(iIndex, iPoint).Run(iCount, oParts);
}
