#include "PLMIdxWorkingOctree.h"

#include "CompactOctreeRecords.h"
#include "WorkingOctreeRecords.h"
#include "common/TraceFailure.h"

PLMIdxWorkingOctree::PLMIdxWorkingOctree()
    : PLMIdxIBaseOctree(IDX_WORKING_OCTREE), _size(0), _buffer(nullptr) {}

PLMIdxWorkingOctree::~PLMIdxWorkingOctree() {
    _buffer = nullptr;
}

/// A node's record and a leaf group both begin with a word of eight states. In a node set a state
/// follows from the word of the leaf group.
IDX_Base_Octree_TestResult PLMIdxWorkingOctree::Test(
    IDX_Base_Octree_Iterator const& iIterator, unsigned int iChild) const {
    switch (_depth - iIterator.depth) {
        case 0:
            return OCTREE_EMPTY;
        case 2:
            return StateOfGroup(NodeSetAt(_buffer, iIterator.offset).words[iChild]);
        default:
            return static_cast<IDX_Base_Octree_TestResult>(
                StateOf(WordAt(_buffer, iIterator.offset), iChild));
    }
}

/// The depth grows even when the move fails: the interface promises that, and a walk that ignores
/// the result still comes to an end.
long int PLMIdxWorkingOctree::Move(
    IDX_Base_Octree_Iterator& ioIterator, unsigned int iChild) const {
    const unsigned int levelsBelow = _depth - ioIterator.depth;
    ++ioIterator.depth;
    switch (levelsBelow) {
        case 0:
            return IDX_E_FAIL;
        case 1:
            ioIterator.offset = 0;
            return IDX_S_OK;
        case 2:
            ioIterator.offset += OffsetOfGroup(iChild);
            return IDX_S_OK;
        default:
            break;
    }
    const Node& node = NodeAt(_buffer, ioIterator.offset);
    if (StateOf(node.states, iChild) == OCTREE_PARTIAL) ioIterator.offset = node.children[iChild];
    return IDX_S_OK;
}

int PLMIdxWorkingOctree::GetSizeInFiles() const {
    return static_cast<int>(_size + kOctreeHeaderSize);
}

long int PLMIdxWorkingOctree::Save(IDX_WT_SplittedFile&, unsigned int&, unsigned int&) const {
    return TraceStatus("PLMIdxWorkingOctree.Save - Not Implemented", IDX_E_NOT_IMPLEMENTED);
}

long int PLMIdxWorkingOctree::Load(void*) {
    return TraceStatus("PLMIdxWorkingOctree.Load - Not Implemented", IDX_E_NOT_IMPLEMENTED);
}
