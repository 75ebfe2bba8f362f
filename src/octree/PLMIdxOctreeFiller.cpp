#include "PLMIdxOctreeFiller.h"

#include "WorkingOctreeRecords.h"
#include "common/TraceFailure.h"

// The first walk knows the places around the cell on which it stands, so that it never walks from the
// root: the neighbour of a child is either its sibling or a child of the neighbour of its parent.

namespace {

constexpr int kMaxTags = 65535;

/// The four children of a cell on its low face along X, Y and Z.
constexpr unsigned int kLowFace[3][4] = {
    {0, 2, 4, 6},
    {0, 1, 4, 5},
    {0, 1, 2, 3}
};

/// Links every tag straight to the smallest tag of its chain. A link never points upward, so that one
/// pass from below finds each chain's end already at its first step.
void Flatten(VEXRawCollint& ioTagTable) {
    for (int tag = 1; tag <= ioTagTable.Size(); ++tag) {
        ioTagTable[tag] = ioTagTable[ioTagTable[tag]];
    }
}

unsigned short* WordOf(unsigned char* iRecord) {
    return reinterpret_cast<unsigned short*>(iRecord);
}

NodeSet& NodeSetOf(unsigned char* iRecord) {
    return NodeSetAt(iRecord, 0);
}

Node& NodeOf(unsigned char* iRecord) {
    return NodeAt(iRecord, 0);
}

/// The cells around which a leaf group is tagged: its own eight, then for each axis the four beyond its high
/// face, in the order of the face table.
constexpr unsigned int kCellsAround = kChildren + 3 * 4;

/// Where the +X, +Y and +Z neighbour of each cell of a leaf group stands among them.
struct HighNeighboursTable {
    unsigned char place[kChildren][3];
    constexpr HighNeighboursTable() : place() {
        for (unsigned int c = 0; c < kChildren; ++c) {
            for (unsigned int axis = 0; axis < 3; ++axis) {
                const unsigned int opposite = c ^ 1u << axis;
                unsigned int found = opposite;
                for (unsigned int i = 0; i < 4 && opposite < c; ++i) {
                    if (kLowFace[axis][i] == opposite) found = kChildren + 4 * axis + i;
                }
                place[c][axis] = static_cast<unsigned char>(found);
            }
        }
    }
};
constexpr HighNeighboursTable kHighNeighbours;

/// The tags of the eight cells of a leaf group, or of the one unit that takes its place.
class GroupTags {
public:
    /// @param iUnitTag   of the unit, null for a wall; where there is a record, it isn't looked at
    /// @param ioNowhere  stands for the tag of a wall
    GroupTags(unsigned char* iRecord, unsigned short* iUnitTag, unsigned short& ioNowhere)
        : _nowhere(&ioNowhere),
          _tags(iUnitTag != nullptr ? iUnitTag : &ioNowhere),
          _walls(0),
          _cellMask(0) {
        if (iRecord == nullptr) return;
        unsigned short* word = WordOf(iRecord);
        _tags = TagsOfGroup(word);
        _walls = static_cast<unsigned int>(*word & *word >> 1);
        _cellMask = kChildren - 1;
    }

    unsigned short* TagOf(unsigned int iCell) const {
        return (_walls >> (2 * iCell) & 1u) != 0 ? _nowhere : _tags + (iCell & _cellMask);
    }

private:
    unsigned short* _nowhere;
    unsigned short* _tags;
    unsigned int _walls;     ///< bit 2 j for cell j
    unsigned int _cellMask;  ///< leads every cell of a unit to its one tag
};

/// The tags beyond the three high faces of one cell of the last level.
struct FaceTags {
    unsigned short* tags[3];
    static constexpr int Size() { return 3; }
    unsigned short* operator[](int iPosition) const { return tags[iPosition - 1]; }
};

/// Makes one unit full: a cell, a whole leaf group or a child of a node.
template <unsigned int kLevels>
void MakeFull(unsigned char* iRecord, unsigned int iChild) {
    if constexpr (kLevels == 1) SetState(*WordOf(iRecord), iChild, OCTREE_FULL);
    if constexpr (kLevels == 2) NodeSetOf(iRecord).words[iChild] = kFullGroup;
    if constexpr (kLevels == 3) SetState(NodeOf(iRecord).states, iChild, OCTREE_FULL);
}

}  // namespace

PLMIdxOctreeFiller::PLMIdxOctreeFiller(PLMIdxWTWorkingOctree& ioOctree)
    : _octree(ioOctree), _arena(WorkingOctreeAccess::Arena(ioOctree)), _tagPointers(0) {}

long int PLMIdxOctreeFiller::Fill() {
    VEXRawCollint tagTable(0);
    tagTable.Append(kOutside);
    if (!WorkingOctreeAccess::HasRoot(_octree)) return IDX_S_OK;
    if (WorkingOctreeAccess::IsTagged(_octree)) return IDX_E_FAIL;
    WorkingOctreeAccess::NoteFill(_octree);

    // On its high sides the root meets itself.
    const Place self = {_arena, nullptr};
    const Cell root = {
        _arena, {self, self, self},
         PLMIdxOctreeCode()
    };
    const bool tagged = _octree._depth == 2
                            ? _TagConnectedComponents<2>(root, _octree._depth, tagTable)
                            : _TagConnectedComponents<3>(root, _octree._depth, tagTable);
    if (!tagged) {
        return TraceStatus("PLMIdxOctreeFiller._FillOctrees._TagConnectedComponents", IDX_E_FAIL);
    }
    Flatten(tagTable);
    if (_octree._depth == 2) {
        _SetAsEmptyOrFull<2>(_arena, _octree._depth, tagTable);
    } else {
        _SetAsEmptyOrFull<3>(_arena, _octree._depth, tagTable);
    }
    return IDX_S_OK;
}

template <unsigned int kLevels>
PLMIdxOctreeFiller::Place PLMIdxOctreeFiller::ChildOf(
    unsigned char* iRecord, unsigned int iChild) const {
    if constexpr (kLevels == 1) {
        unsigned short* word = WordOf(iRecord);
        if (StateOf(*word, iChild) == OCTREE_SURFACE) return {nullptr, nullptr};
        return {nullptr, TagsOfGroup(word) + iChild};
    } else if constexpr (kLevels == 2) {
        NodeSet& nodeSet = NodeSetOf(iRecord);
        unsigned short& word = nodeSet.words[iChild];
        if (!IsSplitGroup(word)) return {nullptr, nodeSet.tags[iChild]};
        return {reinterpret_cast<unsigned char*>(&word), nullptr};
    } else {
        Node& node = NodeOf(iRecord);
        const unsigned int state = StateOf(node.states, iChild);
        if (state == OCTREE_PARTIAL) return {_arena + node.children[iChild], nullptr};
        if (state == OCTREE_SURFACE) return {nullptr, nullptr};
        return {nullptr, &node.tags[iChild]};
    }
}

template <unsigned int kLevels>
PLMIdxOctreeFiller::Place PLMIdxOctreeFiller::NeighbourOf(
    const Cell& iCell, unsigned int iChild, unsigned int iAxis) const {
    const unsigned int opposite = iChild ^ 1u << iAxis;
    if (opposite > iChild) return ChildOf<kLevels>(iCell.record, opposite);
    const Place& beyond = iCell.beyond[iAxis];
    return beyond.record != nullptr ? ChildOf<kLevels>(beyond.record, opposite) : beyond;
}

template <unsigned int kLevels>
bool PLMIdxOctreeFiller::_TagConnectedComponents(
    const Cell& iCell, unsigned int iLevels, VEXRawCollint& ioTagTable) {
    for (unsigned int c = 0; c < kChildren; ++c) {
        const Place child = ChildOf<kLevels>(iCell.record, c);
        if (child.record != nullptr) {
            if (!_TagBelow<kLevels>(iCell, c, child.record, iLevels, ioTagTable)) {
                return TraceFalse(
                    "PLMIdxOctreeFiller._FillOctrees._TagConnectedComponents.Recursive");
            }
        } else if (child.tag != nullptr) {
            TagOnBorder(*child.tag, iCell, c);
            AddNeighbourCellsTags<kLevels>(iCell, c, iLevels);
            if (!_Propagate(*child.tag, _tagPointers, ioTagTable)) {
                return TraceFalse(
                    "PLMIdxOctreeFiller._FillOctrees._TagConnectedComponents._Propagate");
            }
            _tagPointers.RemoveAll(VEXCollec::KeepMemory);
        }
    }
    return true;
}

template <unsigned int kLevels>
bool PLMIdxOctreeFiller::_TagBelow(
    const Cell& iCell,
    unsigned int iChild,
    unsigned char* iRecord,
    unsigned int iLevels,
    VEXRawCollint& ioTagTable) {
    Cell child = {iRecord, {}, iCell.code};
    child.code.AddChild(iChild);
    for (unsigned int axis = 0; axis < 3; ++axis) {
        child.beyond[axis] = NeighbourOf<kLevels>(iCell, iChild, axis);
    }
    if constexpr (kLevels == 3) {
        if (iLevels > 3) return _TagConnectedComponents<3>(child, iLevels - 1, ioTagTable);
    }
    if constexpr (kLevels == 3) {
        return _TagConnectedComponents<2>(child, iLevels - 1, ioTagTable);
    } else {
        return _TagLeafGroup(child, ioTagTable);
    }
}

void PLMIdxOctreeFiller::TagOnBorder(
    unsigned short& ioTag, const Cell& iCell, unsigned int iChild) {
    if (ioTag != 0) return;
    PLMIdxOctreeCode code = iCell.code;
    code.AddChild(iChild);
    if (code.IsOnBorder()) ioTag = kOutside;
}

bool PLMIdxOctreeFiller::_TagLeafGroup(const Cell& iCell, VEXRawCollint& ioTagTable) {
    // A wall has a tag that goes nowhere: 0 whenever it is looked at.
    unsigned short nowhere = 0;
    unsigned short* tags[kCellsAround];
    const GroupTags own(iCell.record, nullptr, nowhere);
    for (unsigned int c = 0; c < kChildren; ++c) tags[c] = own.TagOf(c);
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const GroupTags beyond(iCell.beyond[axis].record, iCell.beyond[axis].tag, nowhere);
        for (unsigned int i = 0; i < 4; ++i) {
            tags[kChildren + 4 * axis + i] = beyond.TagOf(kLowFace[axis][i]);
        }
    }
    for (unsigned int c = 0; c < kChildren; ++c) {
        if (tags[c] == &nowhere) continue;
        TagOnBorder(*tags[c], iCell, c);
        const auto& place = kHighNeighbours.place[c];
        const FaceTags neighbours = {
            {tags[place[0]], tags[place[1]], tags[place[2]]}
        };
        if (!_Propagate(*tags[c], neighbours, ioTagTable)) {
            return TraceFalse("PLMIdxOctreeFiller._FillOctrees._TagConnectedComponents._Propagate");
        }
        nowhere = 0;
    }
    return true;
}

template <unsigned int kLevels>
void PLMIdxOctreeFiller::AddNeighbourCellsTags(
    const Cell& iCell, unsigned int iChild, unsigned int iLevels) {
    for (unsigned int axis = 0; axis < 3; ++axis) {
        _ExpandOverFace<kLevels>(axis, NeighbourOf<kLevels>(iCell, iChild, axis), iLevels);
    }
}

template <unsigned int kLevels>
void PLMIdxOctreeFiller::_ExpandOverFace(
    unsigned int iAxis, const Place& iPlace, unsigned int iLevels) {
    if (iPlace.tag != nullptr) {
        _tagPointers.Append(iPlace.tag);
        return;
    }
    if (iPlace.record == nullptr) return;
    for (const unsigned int c : kLowFace[iAxis]) {
        if constexpr (kLevels == 3) {
            if (iLevels > 3) {
                _ExpandOverFace<3>(iAxis, ChildOf<3>(iPlace.record, c), iLevels - 1);
                continue;
            }
        }
        if constexpr (kLevels >= 2) {
            _ExpandOverFace<kLevels - 1>(
                iAxis, ChildOf<kLevels - 1>(iPlace.record, c), iLevels - 1);
        }
    }
}

template <class Tags>
bool PLMIdxOctreeFiller::_Propagate(
    unsigned short& ioTag, const Tags& iTags, VEXRawCollint& ioTagTable) {
    int common = ioTag;
    const int neighbours = iTags.Size();
    for (int i = 1; i <= neighbours; ++i) {
        const int tag = *static_cast<unsigned short*>(iTags[i]);
        if (tag == 0 || tag == common) continue;
        if (common == 0) {
            common = tag;
        } else if (tag > common) {
            ioTagTable[tag] = common;
        } else {
            ioTagTable[common] = tag;
            common = tag;
        }
    }
    if (common == 0) {
        if (ioTagTable.Size() >= kMaxTags) {
            return TraceFalse("PLMIdxOctreeFiller._Propagate. Too Many Tags !");
        }
        common = ioTagTable.Size() + 1;
        ioTagTable.Append(common);
    }
    ioTag = static_cast<unsigned short>(common);
    for (int i = 1; i <= neighbours; ++i) {
        *static_cast<unsigned short*>(iTags[i]) = static_cast<unsigned short>(common);
    }
    return true;
}

template <unsigned int kLevels>
void PLMIdxOctreeFiller::_SetAsEmptyOrFull(
    unsigned char* iRecord, unsigned int iLevels, VEXRawCollint& iTagTable) {
    for (unsigned int c = 0; c < kChildren; ++c) {
        const Place child = ChildOf<kLevels>(iRecord, c);
        if (child.tag != nullptr) {
            if (*child.tag != 0 && iTagTable[*child.tag] != kOutside) MakeFull<kLevels>(iRecord, c);
        } else if (child.record != nullptr) {
            _SetBelow<kLevels>(child.record, iLevels, iTagTable);
        }
    }
}

template <unsigned int kLevels>
void PLMIdxOctreeFiller::_SetBelow(
    unsigned char* iRecord, unsigned int iLevels, VEXRawCollint& iTagTable) {
    if constexpr (kLevels == 3) {
        if (iLevels > 3) return _SetAsEmptyOrFull<3>(iRecord, iLevels - 1, iTagTable);
    }
    if constexpr (kLevels >= 2) {
        _SetAsEmptyOrFull<kLevels - 1>(iRecord, iLevels - 1, iTagTable);
    }
}
