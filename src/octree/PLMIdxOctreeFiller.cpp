#include "PLMIdxOctreeFiller.h"

#include "WorkingOctreeRecords.h"
#include "common/TraceFailure.h"

// The first walk carries the neighbours of its cell along: the neighbour of a child is its sibling,
// or a child of the neighbour of its parent. So no neighbour is searched from the root.

namespace {

constexpr int kMaxTags = 65535;

/// The four children of a cell on its low face along X, Y and Z.
constexpr unsigned int kLowFace[3][4] = {
    {0, 2, 4, 6},
    {0, 1, 4, 5},
    {0, 1, 2, 3}
};

/// Links every tag directly to the last tag of its chain of links. A link leads to a lower tag. So
/// when the pass from below reaches a tag, the tag that it links to is done already.
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

/// The cells that the tagging of a leaf group looks at: its own eight, then for each axis the four
/// past its high face, in the order of kLowFace.
constexpr unsigned int kCellsAround = kChildren + 3 * 4;

/// The index of the +X, +Y and +Z neighbour of each cell of a leaf group among these cells.
struct HighNeighboursTable {
    unsigned char index[kChildren][3];
    /// The neighbour of a cell differs from it in one bit. A higher number is a cell of the same
    /// group; a lower one is on the low face of the cells past the high face.
    constexpr HighNeighboursTable() : index() {
        for (unsigned int c = 0; c < kChildren; ++c) {
            for (unsigned int axis = 0; axis < 3; ++axis) {
                const unsigned int opposite = c ^ 1u << axis;
                unsigned int found = opposite;
                for (unsigned int i = 0; i < 4 && opposite < c; ++i) {
                    if (kLowFace[axis][i] == opposite) found = kChildren + 4 * axis + i;
                }
                index[c][axis] = static_cast<unsigned char>(found);
            }
        }
    }
};
constexpr HighNeighboursTable kHighNeighbours;

/// The tags of the eight cells of a leaf group. A unit in its place has one tag for all eight.
class GroupTags {
public:
    /// @param iRecord    the word of the leaf group, null when a unit or a wall is in its place
    /// @param iUnitTag   the tag of that unit, null for a wall; means nothing with a record
    /// @param ioWallTag  serves as the tag of every wall, so that there is always one to read and
    ///                   write
    GroupTags(unsigned char* iRecord, unsigned short* iUnitTag, unsigned short& ioWallTag)
        : _wallTag(&ioWallTag),
          _tags(iUnitTag != nullptr ? iUnitTag : &ioWallTag),
          _walls(0),
          _cellMask(0) {
        if (iRecord == nullptr) return;
        const unsigned int states = *WordOf(iRecord);
        _tags = TagsOfGroup(iRecord);
        _walls = states & states >> 1;  // both bits are set: OCTREE_SURFACE
        _cellMask = kChildren - 1;
    }

    unsigned short* TagOf(unsigned int iCell) const {
        return (_walls >> (2 * iCell) & 1u) != 0 ? _wallTag : _tags + (iCell & _cellMask);
    }

private:
    unsigned short* _wallTag;
    unsigned short* _tags;
    unsigned int _walls;     ///< the low bit of each wall's state
    unsigned int _cellMask;  ///< 0 for a unit: makes the number of every cell that of its one tag
};

/// The tags past the three high faces of one cell of the last level, as a collection that
/// _Propagate() can read.
struct FaceTags {
    unsigned short* tags[3];
    static constexpr int Size() { return 3; }
    unsigned short* operator[](int iPosition) const { return tags[iPosition - 1]; }
};

/// Makes one unit full: a cell of a leaf group, a leaf group of a node set, or a child of a node.
template <unsigned int kLevels>
void MakeFull(unsigned char* iRecord, unsigned int iChild) {
    if constexpr (kLevels == 1) SetState(*WordOf(iRecord), iChild, OCTREE_FULL);
    if constexpr (kLevels == 2) NodeSetOf(iRecord).words[iChild] = kFullGroup;
    if constexpr (kLevels == 3) SetState(NodeOf(iRecord).states, iChild, OCTREE_FULL);
}

}  // namespace

PLMIdxOctreeFiller::PLMIdxOctreeFiller(PLMIdxWTWorkingOctree& ioOctree)
    : _octree(ioOctree), _arena(WorkingOctreeAccess::Arena(ioOctree)), _tagPointers(0) {}

/// Tags all units, makes the table flat, fills. A tree of depth 2 has a node set as its root, any
/// other a node.
long int PLMIdxOctreeFiller::Fill() {
    VEXRawCollint tagTable(0);
    tagTable.Append(kOutside);
    if (!WorkingOctreeAccess::HasRoot(_octree)) return IDX_S_OK;
    if (WorkingOctreeAccess::IsTagged(_octree)) return IDX_E_FAIL;
    WorkingOctreeAccess::MarkFilled(_octree);

    // Past its high faces the root meets itself: the box closes on itself.
    const Region self = {_arena, nullptr};
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

/// What a child is to its neighbours: see Region. Its record and the place of its tag depend on the
/// kind of record that the parent has.
template <unsigned int kLevels>
PLMIdxOctreeFiller::Region PLMIdxOctreeFiller::ChildOf(
    unsigned char* iRecord, unsigned int iChild) const {
    if constexpr (kLevels == 1) {
        if (StateOf(*WordOf(iRecord), iChild) == OCTREE_SURFACE) return {nullptr, nullptr};
        return {nullptr, TagsOfGroup(iRecord) + iChild};
    } else if constexpr (kLevels == 2) {
        NodeSet& nodeSet = NodeSetOf(iRecord);
        if (!IsSplitGroup(nodeSet.words[iChild])) return {nullptr, nodeSet.tags[iChild]};
        return {iRecord + OffsetOfGroup(iChild), nullptr};
    } else {
        Node& node = NodeOf(iRecord);
        const unsigned int state = StateOf(node.states, iChild);
        if (state == OCTREE_PARTIAL) return {_arena + node.children[iChild], nullptr};
        if (state == OCTREE_SURFACE) return {nullptr, nullptr};
        return {nullptr, &node.tags[iChild]};
    }
}

/// The neighbour differs from the child in one bit of its number. A child on the low side has its
/// sibling there. For a child on the high side it is the child with that number of the cell past
/// the parent's face; if that cell isn't subdivided, it is that cell itself.
template <unsigned int kLevels>
PLMIdxOctreeFiller::Region PLMIdxOctreeFiller::NeighbourOf(
    const Cell& iCell, unsigned int iChild, unsigned int iAxis) const {
    const unsigned int opposite = iChild ^ 1u << iAxis;
    if (opposite > iChild) return ChildOf<kLevels>(iCell.record, opposite);
    const Region& beyond = iCell.beyond[iAxis];
    return beyond.record != nullptr ? ChildOf<kLevels>(beyond.record, opposite) : beyond;
}

/// The order of the walk counts, since tags are handed out and links are replaced in that order.
template <unsigned int kLevels>
bool PLMIdxOctreeFiller::_TagConnectedComponents(
    const Cell& iCell, unsigned int iLevels, VEXRawCollint& ioTagTable) {
    for (unsigned int c = 0; c < kChildren; ++c) {
        const Region child = ChildOf<kLevels>(iCell.record, c);
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

/// Enters a subdivided child: works out what is past its own high faces, and goes on with the kind
/// of record that it has.
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

/// Finds the tags of the group and of the cells past its high faces once, 20 in all, and not anew
/// for each of its eight cells.
bool PLMIdxOctreeFiller::_TagLeafGroup(const Cell& iCell, VEXRawCollint& ioTagTable) {
    // Every wall shares one tag. It is 0 whenever a cell is joined with its neighbours, and a tag
    // of 0 joins nothing; what the joining writes into it is erased.
    unsigned short wallTag = 0;
    unsigned short* tags[kCellsAround];
    const GroupTags own(iCell.record, nullptr, wallTag);
    for (unsigned int c = 0; c < kChildren; ++c) tags[c] = own.TagOf(c);
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const GroupTags beyond(iCell.beyond[axis].record, iCell.beyond[axis].tag, wallTag);
        for (unsigned int i = 0; i < 4; ++i) {
            tags[kChildren + 4 * axis + i] = beyond.TagOf(kLowFace[axis][i]);
        }
    }
    for (unsigned int c = 0; c < kChildren; ++c) {
        if (tags[c] == &wallTag) continue;
        TagOnBorder(*tags[c], iCell, c);
        const auto& index = kHighNeighbours.index[c];
        const FaceTags neighbours = {
            {tags[index[0]], tags[index[1]], tags[index[2]]}
        };
        if (!_Propagate(*tags[c], neighbours, ioTagTable)) {
            return TraceFalse("PLMIdxOctreeFiller._FillOctrees._TagConnectedComponents._Propagate");
        }
        wallTag = 0;
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

/// The tags of the units of a region that touch its low face along an axis. They may be smaller
/// than the unit on the other side of that face, so a subdivided region is entered.
template <unsigned int kLevels>
void PLMIdxOctreeFiller::_ExpandOverFace(
    unsigned int iAxis, const Region& iRegion, unsigned int iLevels) {
    if (iRegion.tag != nullptr) {
        _tagPointers.Append(iRegion.tag);
        return;
    }
    if (iRegion.record == nullptr) return;
    for (const unsigned int c : kLowFace[iAxis]) {
        if constexpr (kLevels == 3) {
            if (iLevels > 3) {
                _ExpandOverFace<3>(iAxis, ChildOf<3>(iRegion.record, c), iLevels - 1);
                continue;
            }
        }
        if constexpr (kLevels >= 2) {
            _ExpandOverFace<kLevels - 1>(
                iAxis, ChildOf<kLevels - 1>(iRegion.record, c), iLevels - 1);
        }
    }
}

/// All of them get the lowest tag among them, or a new tag when none has one. The table links each
/// other tag to the lowest one so far, in the order in which the neighbours come.
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

/// The second walk. Each link of the table leads to the end of its chain by now, so one look
/// decides whether a tag is the outside.
template <unsigned int kLevels>
void PLMIdxOctreeFiller::_SetAsEmptyOrFull(
    unsigned char* iRecord, unsigned int iLevels, VEXRawCollint& iTagTable) {
    for (unsigned int c = 0; c < kChildren; ++c) {
        const Region child = ChildOf<kLevels>(iRecord, c);
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
