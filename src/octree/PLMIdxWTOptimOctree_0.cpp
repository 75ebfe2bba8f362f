#include "PLMIdxWTOptimOctree_0.h"

#include "CompactOctreeRecords.h"
#include "WorkingOctreeRecords.h"
#include "common/TraceFailure.h"

#include "IDX_Base_Constants.h"
#include "IDX_WT_SplittedFile.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <typeinfo>

// Writes the stored octree image (docs/file-formats.md, "Octree image"): CompactOctreePacker writes
// the records, HeaderOf() in CompactOctreeRecords.h the header. The records are packed in memory.
// The header is made when the image is handed out or saved, since it has the length of the records.

namespace {

// The packing walk reads its source through one of two classes with the same operations.

/// A source octree of any form, by its virtual Test and Move.
class AnyOctree {
public:
    explicit AnyOctree(const PLMIdxIBaseOctree& iOctree) : _octree(iOctree) {}

    /// The states of the 8 children below a position, child 0 in the lowest two bits.
    unsigned int States(const IDX_Base_Octree_Iterator& iIterator, unsigned int) const {
        unsigned int states = 0;
        for (unsigned int k = 0; k < kChildren; ++k) {
            states |= static_cast<unsigned int>(_octree.Test(iIterator, k)) << (2 * k);
        }
        return states;
    }

    /// Moves into a partial child.
    void Enter(IDX_Base_Octree_Iterator& ioIterator, unsigned int iChild, unsigned int) const {
        (void)_octree.Move(ioIterator, iChild);  // the child is partial
    }

private:
    const PLMIdxIBaseOctree& _octree;
};

/// A working octree, by its records. Most sources are one, and this saves a virtual call for each
/// cell.
class WorkingOctree {
public:
    explicit WorkingOctree(const PLMIdxWorkingOctree& iOctree)
        : _arena(WorkingOctreeAccess::Arena(iOctree)) {}

    unsigned int States(const IDX_Base_Octree_Iterator& iIterator, unsigned int iLevels) const {
        if (iLevels != 2) return WordAt(_arena, iIterator.offset);
        const NodeSet& nodeSet = NodeSetAt(_arena, iIterator.offset);
        unsigned int states = 0;
        for (unsigned int k = 0; k < kChildren; ++k) {
            states |= static_cast<unsigned int>(StateOfGroup(nodeSet.words[k])) << (2 * k);
        }
        return states;
    }

    void Enter(
        IDX_Base_Octree_Iterator& ioIterator, unsigned int iChild, unsigned int iLevels) const {
        if (iLevels >= 3) ioIterator.offset = NodeAt(_arena, ioIterator.offset).children[iChild];
        if (iLevels == 2) ioIterator.offset += OffsetOfGroup(iChild);
        ++ioIterator.depth;
    }

private:
    unsigned char* _arena;
};

/// A mask of the children that are OCTREE_FULL or OCTREE_SURFACE: those whose high bit is set.
unsigned int SolidChildren(unsigned int iStates) {
    return MaskOfChildren(iStates >> 1);
}

/// The positions of the packing walk in the source and in the image.
struct Step {
    IDX_Base_Octree_Iterator source;
    IDX_Base_Octree_Iterator target;
};

}  // namespace

/// The packing walk over a source of type `Source`. It goes depth first, children in rising number.
/// The records of a node's partial children (its child set) get their place when the walk reaches
/// the node, before it enters a child. So they follow each other, and a node needs one offset for
/// all of them.
template <class Source>
class CompactOctreePacker {
public:
    CompactOctreePacker(PLMIdxWTOptimOctree_0& ioOctree, const Source& iSource)
        : _octree(ioOctree), _source(iSource) {}

    /// Packs what is below a position. The record of the position has its place already and is
    /// zero.
    [[nodiscard]] long int Pack(const Step& iStep) {
        if (iStep.target.depth >= _octree._depth) return IDX_S_OK;
        const unsigned int levels = _octree._depth - iStep.target.depth;
        const unsigned int states = _source.States(iStep.source, levels);
        unsigned char* record = _octree._buffer + iStep.target.offset;
        if (levels == 1) {
            *record = static_cast<unsigned char>(*record | SolidChildren(states));
            return IDX_S_OK;
        }
        const unsigned int partial = PartialChildren(states);
        if (levels == 2) {
            FillGroups(iStep, states);
        } else if (IDX_Failed(StoreNode(record, states, partial, levels))) {
            return IDX_E_FAIL;
        }
        return PackChildren(iStep, partial, levels);
    }

private:
    void FillGroups(const Step& iStep, unsigned int iStates) {
        for (unsigned int k = 0; k < kChildren; ++k) {
            if (StateOf(iStates, k) >= OCTREE_FULL) (void)_octree._FillCell(iStep.target, k);
        }
    }

    /// Writes a node and lays out its child set, one record for each partial child. In a node
    /// without partial children OCTREE_SURFACE becomes OCTREE_FULL: only the high bits are written.
    [[nodiscard]] long int StoreNode(
        unsigned char* ioRecord,
        unsigned int iStates,
        unsigned int iPartial,
        unsigned int iLevels) {
        const unsigned int before = LoadAt<unsigned short>(ioRecord, 0);
        const unsigned int added = iPartial == 0 ? iStates & kHighBits : iStates;
        StoreAt(ioRecord, 0, static_cast<unsigned short>(before | added));
        if (iPartial == 0) return IDX_S_OK;
        unsigned int childSet = 0;
        const auto count = static_cast<unsigned int>(std::popcount(iPartial));
        if (IDX_Failed(_octree._Alloc(kCompactRecordSize * count, childSet))) {
            return TraceStatus(
                iLevels == 3 ? "PLMIdxWTOptimOctree_0._SubConstructFrom._AllocOptim(NodeSetOptim)"
                             : "PLMIdxWTOptimOctree_0._SubConstructFrom._AllocOptim(NodeOptim)",
                IDX_E_FAIL);
        }
        StoreAt(ioRecord, offsetof(NodeOptim, childSet), childSet);
        return IDX_S_OK;
    }

    [[nodiscard]] long int PackChildren(
        const Step& iStep, unsigned int iPartial, unsigned int iLevels) {
        for (unsigned int rest = iPartial; rest != 0; rest &= rest - 1) {
            const auto k = static_cast<unsigned int>(std::countr_zero(rest)) / 2;
            Step child = iStep;
            _source.Enter(child.source, k, iLevels);
            (void)_octree.PLMIdxOptimOctree_0::Move(child.target, k);  // partial here as there
            if (IDX_Failed(Pack(child))) return IDX_E_FAIL;
        }
        return IDX_S_OK;
    }

    PLMIdxWTOptimOctree_0& _octree;
    const Source& _source;
};

PLMIdxWTOptimOctree_0::PLMIdxWTOptimOctree_0() : _capacity(0) {}

PLMIdxWTOptimOctree_0::~PLMIdxWTOptimOctree_0() {
    std::free(_buffer);
    _buffer = nullptr;
}

long int PLMIdxWTOptimOctree_0::Load(void*) {
    return IDX_E_FAIL;
}

/// An image without records is taken whatever its type: it is the empty octree of any form.
long int PLMIdxWTOptimOctree_0::Load(
    IDX_WT_SplittedFile& ioFile, unsigned int iPart, unsigned int iOffset) {
    OctreeHeader header;
    if (ioFile.ReadAt(iPart, iOffset, &header, kOctreeHeaderSize) == IDX_False) {
        return TraceStatus("PLMIdxWTOptimOctree_0.Load.ReadAt(OctreeHeader)", IDX_E_FAIL);
    }
    if (header.size != 0) {
        if (IDX_Failed(ClearBlock(header.size))) return IDX_E_OUT_OF_MEMORY;
        if (header.type != _type) {
            return TraceStatus("PLMIdxWTOptimOctree_0.Load.InvalidType", IDX_E_FAIL);
        }
        const unsigned int records = iOffset + kOctreeHeaderSize;
        if (ioFile.ReadAt(iPart, records, _buffer, header.size) == IDX_False) {
            return TraceStatus("PLMIdxWTOptimOctree_0.Load.ReadAt(OctreeBuffer)", IDX_E_FAIL);
        }
    }
    ApplyHeader(header, *this);
    _size = header.size;
    _capacity = header.size;
    return IDX_S_OK;
}

/// Copies box, depth and cuboid, then packs the cells.
long int PLMIdxWTOptimOctree_0::ConstructFrom(const PLMIdxIBaseOctree& iSource) {
    iSource.GetBB(_bbOrigin, _bbSize);
    _depth = iSource._depth;
    _hasCuboid = iSource._hasCuboid;
    iSource.GetCuboid(_cuboidMatrix, _cuboidPoint1, _cuboidPoint2);
    if (IDX_Failed(Reset())) return IDX_E_FAIL;
    IDX_Base_Octree_Iterator sourceIterator;
    IDX_Base_Octree_Iterator iterator;
    return IDX_Failed(_SubConstructFrom(iSource, sourceIterator, iterator)) ? IDX_E_FAIL : IDX_S_OK;
}

/// The root of an octree of depth 2 is a node set: eight bytes of ones are 64 full cells.
long int PLMIdxWTOptimOctree_0::ConstructFullOctree(
    const IDX_Point& iOrigin, const IDX_Point& iSize) {
    constexpr unsigned int kOneNodeSet = sizeof(NodeSetOptim);
    auto* block = static_cast<unsigned char*>(std::malloc(kOneNodeSet));
    if (block == nullptr) return IDX_E_OUT_OF_MEMORY;
    std::free(_buffer);
    _buffer = block;
    _bbOrigin = iOrigin;
    _bbSize = iSize;
    _depth = 2;
    _hasCuboid = 0;
    _size = kOneNodeSet;
    _capacity = kOneNodeSet;
    std::memset(_buffer, kFullGroupByte, kOneNodeSet);
    return IDX_S_OK;
}

unsigned char* PLMIdxWTOptimOctree_0::GetOctreeBuffer(unsigned int& oSize) const {
    oSize = _size + kOctreeHeaderSize;
    auto* image = new unsigned char[oSize];
    StoreAt(image, 0, HeaderOf(*this, _size));
    if (_size != 0) std::memcpy(image + kOctreeHeaderSize, _buffer, _size);
    return image;
}

bool PLMIdxWTOptimOctree_0::operator==(const PLMIdxWTOptimOctree_0& iOther) const {
    if (_depth != iOther._depth) return false;
    IDX_Base_Octree_Iterator iterator;
    IDX_Base_Octree_Iterator otherIterator;
    return _SubEqual(iterator, otherIterator, iOther) == 0;
}

long int PLMIdxWTOptimOctree_0::Reset() {
    _size = 0;
    if (_depth == 0) return IDX_S_OK;
    if (_depth == 1) return IDX_E_FAIL;
    unsigned int root = 0;
    return _Alloc(kCompactRecordSize, root);
}

/// A new block comes from calloc, which touches none of its pages. So a damaged header that claims
/// gigabytes costs no memory before the read of the records fails.
long int PLMIdxWTOptimOctree_0::ClearBlock(unsigned int iSize) {
    if (_buffer != nullptr && iSize <= _capacity) {
        std::memset(_buffer, 0, iSize);
        return IDX_S_OK;
    }
    auto* block = static_cast<unsigned char*>(std::calloc(iSize, 1));
    if (block == nullptr) {
        return TraceStatus("PLMIdxWTOptimOctree_0._Alloc.AllocationFailed", IDX_E_OUT_OF_MEMORY);
    }
    std::free(_buffer);
    _buffer = block;
    // _Alloc() sets the capacity before it asks for memory. Without memory, _capacity may be larger
    // than any block that exists.
    _capacity = std::min(_capacity, iSize);
    return IDX_S_OK;
}

/// The block is taken once, at its full size: the system gives memory only for the pages that are
/// used. So no record ever moves, and nothing is copied while the image grows.
long int PLMIdxWTOptimOctree_0::_Alloc(unsigned int iSize, unsigned int& oOffset) {
    if (_buffer == nullptr) {
        _capacity = IDX_Base_Constants::MAX_OCTREE_SIZE;
        _buffer = static_cast<unsigned char*>(std::malloc(_capacity));
        if (_buffer == nullptr) {
            return TraceStatus(
                "PLMIdxWTOptimOctree_0._Alloc.AllocationFailed", IDX_E_OUT_OF_MEMORY);
        }
    }
    if (iSize > _capacity - _size) {
        return TraceStatus("PLMIdxWTOptimOctree_0._Alloc.MaxSize", IDX_E_FAIL);
    }
    oOffset = _size;
    _size += iSize;
    std::memset(_buffer + oOffset, 0, iSize);
    return IDX_S_OK;
}

/// The record is zero or holds states of the same walk, so the bits of the cell are only added.
long int PLMIdxWTOptimOctree_0::_FillCell(
    const IDX_Base_Octree_Iterator& iIterator, unsigned int iChild) {
    unsigned char* record = _buffer + iIterator.offset;
    switch (_depth - iIterator.depth) {
        case 0:
            return IDX_E_FAIL;
        case 1:
            *record = static_cast<unsigned char>(*record | 1u << iChild);
            return 1;
        case 2:
            record[iChild] = kFullGroupByte;
            return 1;
        default:
            break;
    }
    const unsigned int states = LoadAt<unsigned short>(record, 0);
    StoreAt(record, 0, static_cast<unsigned short>(states | StateAt(OCTREE_FULL, iChild)));
    return 1;
}

/// Chooses how the source is read: by its records if it is a working octree itself. A class derived
/// from one may have a Test and Move of its own, so the exact class counts.
long int PLMIdxWTOptimOctree_0::_SubConstructFrom(
    const PLMIdxIBaseOctree& iSource,
    IDX_Base_Octree_Iterator& ioSourceIterator,
    IDX_Base_Octree_Iterator& ioIterator) {
    const Step step = {ioSourceIterator, ioIterator};
    const std::type_info& form = typeid(iSource);
    const bool isWorking =
        form == typeid(PLMIdxWTWorkingOctree) || form == typeid(PLMIdxWorkingOctree);
    if (isWorking) {
        const auto& source = static_cast<const PLMIdxWorkingOctree&>(iSource);
        if (source._depth != 0 && !WorkingOctreeAccess::HasRoot(source)) return IDX_E_FAIL;
        // The kind of a record follows from the levels below it. The walk counts those of the
        // image, so both positions must have the same number.
        if (source._depth - ioSourceIterator.depth == _depth - ioIterator.depth) {
            return CompactOctreePacker<WorkingOctree>(*this, WorkingOctree(source)).Pack(step);
        }
    }
    return CompactOctreePacker<AnyOctree>(*this, AnyOctree(iSource)).Pack(step);
}

/// Walks both octrees in step. Iterators are copied: their offsets differ when the records of the
/// two are in another order.
long int PLMIdxWTOptimOctree_0::_SubEqual(
    IDX_Base_Octree_Iterator& ioIterator,
    IDX_Base_Octree_Iterator& ioOtherIterator,
    const PLMIdxWTOptimOctree_0& iOther) const {
    IDX_Base_Octree_TestResult states[kChildren];
    for (unsigned int k = 0; k < kChildren; ++k) states[k] = Test(ioIterator, k);
    for (unsigned int k = 0; k < kChildren; ++k) {
        if (states[k] != iOther.Test(ioOtherIterator, k)) return 1;
        if (states[k] != OCTREE_PARTIAL) continue;
        IDX_Base_Octree_Iterator child = ioIterator;
        IDX_Base_Octree_Iterator otherChild = ioOtherIterator;
        (void)Move(child, k);
        (void)iOther.Move(otherChild, k);
        if (_SubEqual(child, otherChild, iOther) != 0) return 1;
    }
    return 0;
}
