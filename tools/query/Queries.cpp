#include "Queries.h"

#include <algorithm>
#include <cmath>
#include <fnmatch.h>
#include <memory>
#include <queue>

namespace {

void SortByIdentifier(Parts& ioParts) {
    std::sort(ioParts.begin(), ioParts.end(), [](const StoredPart& a, const StoredPart& b) {
        return a.identifier < b.identifier;
    });
}

Solid SolidOf(const PartIndex& iIndex, const StoredPart& iPart) {
    return {iIndex.ImageOf(iPart), BoxOf(iPart.record.box)};
}

/// One step of a search for the nearest parts: what may be near, and the least distance at which it
/// can be.
struct Candidate {
    enum Kind { Node, Part, Cell };

    double squaredDistance;
    Kind kind;
    unsigned int
        number;  ///< a node of the boxes, the item of a part, or which of the parts that were opened
    SolidCell cell;  ///< of a Cell alone

    /// The nearest is on top of a queue.
    bool operator<(const Candidate& iOther) const {
        return squaredDistance > iOther.squaredDistance;
    }
};

class NearestSearch {
public:
    NearestSearch(const PartIndex& iIndex, const Point& iPoint)
        : _index(iIndex), _boxes(iIndex.Boxes()), _point(iPoint) {
        _queue.push({0.0, Candidate::Node, _boxes.Header().root, {}});
    }

    std::vector<NearPart> Run(unsigned int iCount) {
        while (!_queue.empty() && !IsDone(iCount)) {
            const Candidate nearest = _queue.top();
            _queue.pop();
            if (nearest.kind == Candidate::Node) {
                OpenNode(nearest.number);
            } else if (nearest.kind == Candidate::Part) {
                OpenPart(nearest.number);
            } else {
                OpenCell(nearest);
            }
        }
        return Best(iCount);
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

    void OpenPart(unsigned int iItem) {
        const StoredPart part = _index.Read(iItem);
        const Solid solid = SolidOf(_index, part);
        SolidCell root;
        if (!solid.Root(root)) return;
        _opened.push_back(std::make_unique<Opened>(Opened{part, solid, false}));
        PushCell(static_cast<unsigned int>(_opened.size() - 1), root);
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

Parts FindByName(const PartIndex& iIndex, const std::string& iName) {
    Parts parts;
    if (const auto part = iIndex.Find(iName)) {
        parts.push_back(*part);
    } else if (iName.find_first_of("*?[") != std::string::npos) {
        iIndex.ForEach([&](const StoredPart& any) {
            if (fnmatch(iName.c_str(), any.identifier.c_str(), 0) == 0) parts.push_back(any);
        });
    }
    return parts;
}

Parts FindInBox(const PartIndex& iIndex, const Box& iBox) {
    Parts parts;
    const auto meets = [&](const IDX_Base_BoundingBox& box) { return Meet(BoxOf(box), iBox); };
    iIndex.Boxes().Search(
        meets, [&](const RTreeImage::Entry& entry) { parts.push_back(iIndex.Read(entry.value)); });
    SortByIdentifier(parts);
    return parts;
}

Parts FindAt(const PartIndex& iIndex, const Point& iPoint) {
    const Box point = {iPoint, iPoint};
    Parts parts = FindInBox(iIndex, point);
    std::erase_if(
        parts, [&](const StoredPart& part) { return !SolidOf(iIndex, part).Meets(point); });
    return parts;
}

Parts FindClashes(const PartIndex& iIndex, const StoredPart& iPart) {
    const Solid solid = SolidOf(iIndex, iPart);
    Parts parts = FindInBox(iIndex, BoxOf(iPart.record.box));
    std::erase_if(parts, [&](const StoredPart& part) {
        return part.item == iPart.item || !Meet(solid, SolidOf(iIndex, part));
    });
    return parts;
}

std::vector<NearPart> FindNearest(
    const PartIndex& iIndex, const Point& iPoint, unsigned int iCount) {
    return iCount == 0 ? std::vector<NearPart>() : NearestSearch(iIndex, iPoint).Run(iCount);
}
