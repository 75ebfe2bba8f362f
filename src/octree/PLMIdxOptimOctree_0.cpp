#include "PLMIdxOptimOctree_0.h"

#include "CompactOctreeRecords.h"
#include "common/TraceFailure.h"

#include "IDX_WT_SplittedFile.h"

PLMIdxOptimOctree_0::PLMIdxOptimOctree_0()
    : PLMIdxIBaseOctree(IDX_OPTIM_OCTREE_0), _size(0), _buffer(nullptr) {}

PLMIdxOptimOctree_0::~PLMIdxOptimOctree_0() {
    _buffer = nullptr;
}

/// The kind of record follows from the levels below it: one is a byte with a bit for each cell, two
/// are eight such bytes, and more are a NodeOptim.
IDX_Base_Octree_TestResult PLMIdxOptimOctree_0::Test(
    IDX_Base_Octree_Iterator const& iIterator, unsigned int iChild) const {
    switch (_depth - iIterator.depth) {
        case 0:
            return OCTREE_EMPTY;
        case 1:
            return (_buffer[iIterator.offset] >> iChild & 1u) != 0 ? OCTREE_FULL : OCTREE_EMPTY;
        case 2:
            return StateOfGroupByte(_buffer[iIterator.offset + iChild]);
        default:
            return static_cast<IDX_Base_Octree_TestResult>(
                StateOf(LoadAt<unsigned short>(_buffer, iIterator.offset), iChild));
    }
}

/// Only partial children have a record, and the records of a node's children follow each other. So
/// the offset of a child's record is found by counting the partial children before it.
long int PLMIdxOptimOctree_0::Move(
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
            ioIterator.offset += iChild;
            return IDX_S_OK;
        default:
            break;
    }
    const NodeOptim node = LoadAt<NodeOptim>(_buffer, ioIterator.offset);
    if (StateOf(node.states, iChild) != OCTREE_PARTIAL) return IDX_E_FAIL;
    const unsigned int rank = CountPartialBefore(node.states, iChild);
    ioIterator.offset = node.childSet + kCompactRecordSize * rank;
    return IDX_S_OK;
}

int PLMIdxOptimOctree_0::GetSizeInFiles() const {
    return static_cast<int>(_size + kOctreeHeaderSize);
}

/// The tags name the writing form of the class: only its images are saved.
long int PLMIdxOptimOctree_0::Save(
    IDX_WT_SplittedFile& ioFile, unsigned int& oPart, unsigned int& oOffset) const {
    oPart = 0;
    oOffset = 0;
    const OctreeHeader header = HeaderOf(*this, _size);
    if (ioFile.Write(&header, kOctreeHeaderSize, oPart, oOffset) == IDX_False) {
        return TraceStatus("PLMIdxWTOptimOctree_0.Save.IDX_WT_SplittedFile.Write", IDX_E_FAIL);
    }
    if (_size == 0) return IDX_S_OK;
    // Not a second append: that could go to another piece.
    const unsigned int records = oOffset + kOctreeHeaderSize;
    if (ioFile.WriteAt(oPart, records, _buffer, _size) == IDX_False) {
        return TraceStatus("PLMIdxWTOptimOctree_0.Save.IDX_WT_SplittedFile.WriteAt", IDX_E_FAIL);
    }
    return IDX_S_OK;
}

/// Copies the header's fields and keeps the address of the records.
long int PLMIdxOptimOctree_0::Load(void* iBuffer) {
    if (iBuffer == nullptr) return IDX_E_FAIL;
    auto* image = static_cast<unsigned char*>(iBuffer);
    // An image of another kind may be shorter than a header. So the first two words come first.
    const auto type = LoadAt<unsigned int>(image, offsetof(OctreeHeader, type));
    if (type != _type) return IDX_E_FAIL;
    const auto version = LoadAt<unsigned int>(image, offsetof(OctreeHeader, version));
    if (version != _version) return IDX_E_FAIL;
    const auto header = LoadAt<OctreeHeader>(image, 0);
    ApplyHeader(header, *this);
    _size = header.size;
    _buffer = image + kOctreeHeaderSize;
    return IDX_S_OK;
}
