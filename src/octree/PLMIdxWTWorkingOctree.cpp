#include "PLMIdxWTWorkingOctree.h"

#include "WorkingOctreeRecords.h"
#include "common/TraceFailure.h"

#include "IDX_Base_Constants.h"

#include <cstdlib>
#include <cstring>

namespace {

/// The matrix of an octree without a cuboid, made on first use.
const IDX_Base_4x4Matrix& DefaultMatrix() {
    static const IDX_Base_4x4Matrix matrix;
    return matrix;
}

}  // namespace

const int PLMIdxWTWorkingOctree::MAXDEPTH;

PLMIdxWTWorkingOctree::PLMIdxWTWorkingOctree()
    : _capacity(0), _nCellsByDepth{}, _changes(0), _tagged(false) {}

PLMIdxWTWorkingOctree::~PLMIdxWTWorkingOctree() {
    std::free(_buffer);
    _buffer = nullptr;
}

long int PLMIdxWTWorkingOctree::Load(void*) {
    return IDX_E_NOT_IMPLEMENTED;
}

long int PLMIdxWTWorkingOctree::Load(IDX_WT_SplittedFile&, unsigned int, unsigned int) {
    return TraceStatus("PLMIdxWTWorkingOctree.Load - Not Implemented", IDX_E_NOT_IMPLEMENTED);
}

void PLMIdxWTWorkingOctree::SetDepth(int iDepth) {
    _depth = static_cast<unsigned int>(iDepth);
    (void)Reset();  // a missing root is found later: every walk looks for it first
}

void PLMIdxWTWorkingOctree::SetBB(IDX_Point const& iOrigin, IDX_Point const& iSize) {
    SetBBWithoutReset(iOrigin, iSize);
    (void)Reset();  // as in SetDepth
}

void PLMIdxWTWorkingOctree::SetBBWithoutReset(IDX_Point const& iOrigin, IDX_Point const& iSize) {
    _bbOrigin = iOrigin;
    _bbSize = iSize;
}

void PLMIdxWTWorkingOctree::SetCuboid(
    IDX_Base_4x4Matrix const& iMatrix, IDX_Point const& iPoint1, IDX_Point const& iPoint2) {
    _hasCuboid = 1;
    _cuboidMatrix = iMatrix;
    _cuboidPoint1 = iPoint1;
    _cuboidPoint2 = iPoint2;
}

void PLMIdxWTWorkingOctree::UnsetCuboid() {
    _hasCuboid = 0;
    _cuboidMatrix = DefaultMatrix();
    _cuboidPoint1 = {0.0f, 0.0f, 0.0f};
    _cuboidPoint2 = {0.0f, 0.0f, 0.0f};
}

/// The arena is kept, and _Alloc() zeroes what it hands out: so the time doesn't depend on the size
/// of the tree.
long int PLMIdxWTWorkingOctree::Reset() {
    ++_changes;
    _tagged = false;
    _size = 0;
    std::memset(_nCellsByDepth, 0, sizeof(_nCellsByDepth));
    if (_depth == 0) return IDX_S_OK;
    if (_depth == 1 || _depth >= static_cast<unsigned int>(MAXDEPTH)) return IDX_E_FAIL;
    unsigned int root = 0;
    const long int status = _depth == 2 ? _AllocNodeSet(root) : _AllocNode(root);
    ++_nCellsByDepth[0];
    return status;
}

/// The three branches are the three kinds of position: a leaf group, a node set, a node. Only below
/// a node a record may be missing. The count of the next level grows when the child was empty
/// before. A leaf group counts as empty until its first cell is marked, so a group that is entered
/// twice before that is counted twice.
long int PLMIdxWTWorkingOctree::MoveCreate(
    IDX_Base_Octree_Iterator& ioIterator, unsigned int iChild) {
    if (_size == 0) return IDX_E_FAIL;
    const unsigned int levelsBelow = _depth - ioIterator.depth;
    int& count = _nCellsByDepth[ioIterator.depth + 1];
    if (levelsBelow == 1) {
        unsigned short& word = WordAt(_buffer, ioIterator.offset);
        if (StateOf(word, iChild) == OCTREE_EMPTY) ++count;
        word = static_cast<unsigned short>(word | StateAt(OCTREE_SURFACE, iChild));
        ioIterator.offset = 0;
    } else if (levelsBelow == 2) {
        if (NodeSetAt(_buffer, ioIterator.offset).words[iChild] == kEmptyGroup) ++count;
        ioIterator.offset += OffsetOfGroup(iChild);
    } else {
        Node& node = NodeAt(_buffer, ioIterator.offset);
        if (StateOf(node.states, iChild) != OCTREE_PARTIAL) {
            unsigned int record = 0;
            if (IDX_Failed(levelsBelow == 3 ? _AllocNodeSet(record) : _AllocNode(record))) {
                return IDX_E_OUT_OF_MEMORY;
            }
            node.states =
                static_cast<unsigned short>(node.states | StateAt(OCTREE_PARTIAL, iChild));
            node.children[iChild] = record;
            ++count;
        }
        ioIterator.offset = node.children[iChild];
    }
    ++ioIterator.depth;
    return IDX_S_OK;
}

void PLMIdxWTWorkingOctree::Fill(
    IDX_Base_Octree_Iterator const& iIterator,
    unsigned int iChild,
    IDX_Base_Octree_TestResult iState) {
    ++_changes;
    if (_depth - iIterator.depth == 2) {
        NodeSetAt(_buffer, iIterator.offset).words[iChild] =
            iState == OCTREE_FULL ? kFullGroup : kEmptyGroup;
    } else {
        SetState(WordAt(_buffer, iIterator.offset), iChild, iState);
    }
}

void PLMIdxWTWorkingOctree::GetTag(
    IDX_Base_Octree_Iterator const& iIterator, unsigned int iChild, unsigned short& oTag) {
    unsigned short* tag = nullptr;
    GetTagPtr(iIterator, iChild, tag);
    oTag = *tag;
}

/// At a node set the tag of a child is the first of its leaf group's eight: an unsplit group is one
/// cell.
void PLMIdxWTWorkingOctree::GetTagPtr(
    IDX_Base_Octree_Iterator const& iIterator, unsigned int iChild, unsigned short*& oTag) {
    switch (_depth - iIterator.depth) {
        case 1:
            oTag = TagsOfGroup(_buffer + iIterator.offset) + iChild;
            break;
        case 2:
            oTag = NodeSetAt(_buffer, iIterator.offset).tags[iChild];
            break;
        default:
            oTag = NodeAt(_buffer, iIterator.offset).tags + iChild;
            break;
    }
}

void PLMIdxWTWorkingOctree::SetTag(
    IDX_Base_Octree_Iterator const& iIterator, unsigned int iChild, unsigned short iTag) {
    unsigned short* tag = nullptr;
    GetTagPtr(iIterator, iChild, tag);
    *tag = iTag;
    _tagged = _tagged || iTag > kOutside;  // a caller may name outside cells before a fill
}

/// The arena never grows or moves. So addresses of tags stay valid while a fill holds them.
long int PLMIdxWTWorkingOctree::_Alloc(unsigned int iSize, unsigned int& oOffset) {
    if (_buffer == nullptr) {
        _capacity = IDX_Base_Constants::MAX_OCTREE_SIZE;
        _buffer = static_cast<unsigned char*>(std::malloc(_capacity));
        if (_buffer == nullptr) {
            IDX_Base_Trace::Debug(
                "PLMIdxWTWorkingOctree._Alloc.AllocationFailed ( %d MB )",
                static_cast<int>(_capacity >> 20));
            return IDX_E_OUT_OF_MEMORY;
        }
    }
    if (iSize > _capacity - _size) {
        return TraceStatus("PLMIdxWTWorkingOctree._Alloc.MaxSize", IDX_E_FAIL);
    }
    oOffset = _size;
    _size += iSize;
    std::memset(_buffer + oOffset, 0, iSize);
    return IDX_S_OK;
}

long int PLMIdxWTWorkingOctree::_AllocNode(unsigned int& oOffset) {
    return _Alloc(sizeof(Node), oOffset);
}

long int PLMIdxWTWorkingOctree::_AllocNodeSet(unsigned int& oOffset) {
    const long int status = _Alloc(sizeof(NodeSet), oOffset);
    if (!IDX_Failed(status)) _InitNodeSet(oOffset);
    return status;
}

/// TagsOfGroup() says what the numbers mean.
void PLMIdxWTWorkingOctree::_InitNodeSet(unsigned int& iOffset) {
    NodeSet& nodeSet = NodeSetAt(_buffer, iOffset);
    for (unsigned int i = 0; i < kChildren; ++i) {
        nodeSet.tagIndex[i] = static_cast<unsigned short>(7 * i + 8);
    }
}

long int PLMIdxWTWorkingOctree::ConstructFrom(PLMIdxIBaseOctree const& iSource) {
    return ConstructFrom(iSource, static_cast<int>(iSource._depth));
}

long int PLMIdxWTWorkingOctree::ConstructFrom(PLMIdxIBaseOctree const& iSource, int iDepth) {
    iSource.GetBB(_bbOrigin, _bbSize);
    _depth = static_cast<unsigned int>(iDepth);
    (void)Reset();  // the next line finds a missing root
    if (_depth != 0 && _size == 0) return IDX_E_FAIL;
    IDX_Base_Octree_Iterator sourceIterator;
    IDX_Base_Octree_Iterator iterator;
    return IDX_Failed(_SubConstructFrom(iSource, sourceIterator, iterator)) ? IDX_E_FAIL : IDX_S_OK;
}

/// Copies the cells below one position, depth first. Where this octree is less deep than the
/// source, MoveCreate() makes a surface cell of a partial one: this is how a depth is reduced. All
/// eight states are read before the first child is entered, so they don't depend on what the walk
/// changes.
long int PLMIdxWTWorkingOctree::_SubConstructFrom(
    PLMIdxIBaseOctree const& iSource,
    IDX_Base_Octree_Iterator& ioSourceIterator,
    IDX_Base_Octree_Iterator& ioIterator) {
    if (ioIterator.depth >= _depth) return IDX_S_OK;
    IDX_Base_Octree_TestResult states[kChildren];
    for (unsigned int c = 0; c < kChildren; ++c) states[c] = iSource.Test(ioSourceIterator, c);
    for (unsigned int c = 0; c < kChildren; ++c) {
        if (states[c] == OCTREE_EMPTY || states[c] == OCTREE_FULL) {
            Fill(ioIterator, c, states[c]);
            continue;
        }
        IDX_Base_Octree_Iterator sourceChild = ioSourceIterator;
        IDX_Base_Octree_Iterator child = ioIterator;
        (void)iSource.Move(sourceChild, c);  // a surface cell of the last level has nothing below
        if (IDX_Failed(MoveCreate(child, c))) return IDX_E_FAIL;
        if (IDX_Failed(_SubConstructFrom(iSource, sourceChild, child))) return IDX_E_FAIL;
    }
    return IDX_S_OK;
}

/// Hands the arena to a second octree and copies from there into a new arena. The records can't be
/// rewritten in place: where a node of 52 bytes was, the lower depth may have a node set of 160.
long int PLMIdxWTWorkingOctree::ReduceDepth(int iDepth) {
    if (static_cast<unsigned int>(iDepth) >= _depth) return IDX_E_INVALID_ARGUMENT;
    if (_size == 0) return IDX_E_FAIL;
    PLMIdxWTWorkingOctree old;
    old._capacity = _capacity;
    old._buffer = _buffer;
    old._depth = _depth;
    old._size = _size;
    old.SetBBWithoutReset(_bbOrigin, _bbSize);
    _buffer = nullptr;
    _capacity = 0;
    return ConstructFrom(old, iDepth);
}
