#include "IDX_WT_RTree.h"

#include "QuadraticSplitter.h"
#include "RTreeInnerNodes.h"
#include "RTreeNode.h"
#include "common/TraceFailure.h"

#include "IDX_WT_File.h"
#include "IDX_WT_SplittedFile.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

using ChildRec = IDX_Base_RTree::ChildRec;

constexpr unsigned int kHeaderSize = sizeof(RTreeImageHeader);
constexpr unsigned int kFirstCapacity = 1024;
constexpr unsigned long long kNodesOfSmallerStep = 1000;  ///< asked for when doubling fails
constexpr unsigned long long kMaxCapacity = std::numeric_limits<unsigned int>::max();

IDX_Base_BoundingBox UnionOf(
    const IDX_Base_BoundingBox& iFirst, const IDX_Base_BoundingBox& iSecond) {
    IDX_Base_BoundingBox both;
    IDX_Base_BoundingBox::Union(iFirst, iSecond, both);
    return both;
}

/// By how much the volume grows when `iBox` is to be enclosed, too. A difference of two volumes.
float Enlargement(
    const IDX_Base_BoundingBox& iCover, float iVolume, const IDX_Base_BoundingBox& iBox) {
    return UnionOf(iCover, iBox).Volume() - iVolume;
}

/// Makes an array at least `iLength` long; false, and as it was, when there is no memory.
template <class T>
bool Lengthen(T*& ioArray, std::size_t iLength) {
    void* longer = std::realloc(static_cast<void*>(ioArray), iLength * sizeof(T));
    if (longer == nullptr) return false;
    ioArray = static_cast<T*>(longer);
    return true;
}

}  // namespace

IDX_WT_RTree::IDX_WT_RTree()
    : m_capacity(0),
      m_boxes(nullptr),
      m_records(nullptr),
      m_groups(nullptr),
      m_volumes(nullptr),
      m_splitMemory(nullptr),
      m_workingLength(0),
      m_innerNodes(nullptr),
      m_soundness(Damaged) {}

IDX_WT_RTree::~IDX_WT_RTree() {
    std::free(m_boxes);
    std::free(m_records);
    std::free(m_groups);
    std::free(m_volumes);
    std::free(m_splitMemory);
    FreeStorage();
}

IDX_Bool IDX_WT_RTree::Init(unsigned short iMinFill, unsigned short iMaxChildren) {
    const bool hasStorage =
        (m_storage != nullptr && m_capacity >= kFirstCapacity) || ResizeStorage(kFirstCapacity);
    if (!hasStorage || !ReserveWorkingArrays(iMaxChildren)) {
        FreeStorage();
        return IDX_False;
    }
    m_minFill = iMinFill;
    m_maxChildren = iMaxChildren;
    m_size = 0;
    m_capacity = kFirstCapacity;
    m_nodeSize = NodeSize();
    if (Alloc(m_nodeSize, m_root) == IDX_False) {
        return TraceNo("IDX_WT_RTree.Init.IDX_WT_RTreeStorageHandler.Alloc");
    }
    m_soundness = Sound;
    DropInnerNodes();
    m_innerNodes = RTreeInnerNodes::Make(iMaxChildren);
    return IDX_True;
}

IDX_Bool IDX_WT_RTree::Insert(const IDX_Base_BoundingBox& iBox, unsigned int iValue) {
    return Insert(ChildRec{iBox, iValue}, 0);
}

unsigned int IDX_WT_RTree::GetSize() const {
    return m_size;
}

IDX_Bool IDX_WT_RTree::Insert(const ChildRec& iRecord, unsigned short iLevel) {
    if (!IsReadyFor(iLevel)) return IDX_False;
    if (m_innerNodes != nullptr && (iLevel != 0 || !m_innerNodes->Reserve())) DropInnerNodes();
    unsigned int node = 0;
    (void)FindNode(iRecord, iLevel, node);  // always finds one
    return AdjustTree(node, iRecord);
}

IDX_Bool IDX_WT_RTree::FindNode(
    const ChildRec& iRecord, unsigned short iLevel, unsigned int& oNode) {
    oNode = m_root;
    if (m_innerNodes != nullptr) {
        if (m_innerNodes->RootLevel() != 0) oNode = m_innerNodes->FindLeaf(iRecord.box);
        return IDX_True;
    }
    while (NodeAt(oNode).Level() != iLevel) oNode = ChooseChild(oNode, iRecord.box);
    return IDX_True;
}

/// The child whose box grows least; among equals the smallest, among these the first.
unsigned int IDX_WT_RTree::ChooseChild(unsigned int iNode, const IDX_Base_BoundingBox& iBox) const {
    const RTreeNode node = NodeAt(iNode);
    unsigned int best = 0;
    float bestVolume = node.Box(0).Volume();
    float bestEnlargement = Enlargement(node.Box(0), bestVolume, iBox);
    for (unsigned int slot = 1; slot < node.Count(); ++slot) {
        const float volume = node.Box(slot).Volume();
        const float enlargement = Enlargement(node.Box(slot), volume, iBox);
        if (enlargement < bestEnlargement ||
            (enlargement == bestEnlargement && volume < bestVolume)) {
            best = slot;
            bestVolume = volume;
            bestEnlargement = enlargement;
        }
    }
    return node.Value(best);
}

IDX_Bool IDX_WT_RTree::AdjustTree(unsigned int iNode, const ChildRec& iRecord) {
    unsigned int node = iNode;
    ChildRec record = iRecord;
    while (NodeAt(node).Count() == m_maxChildren) {
        if (node == m_root && GrowRoot() == IDX_False) {
            return TraceNo("IDX_WT_RTree.AdjustTree.IDX_WT_RTreeStorageHandler.Alloc");
        }
        const unsigned int parent = NodeAt(node).Parent();
        const unsigned int slot = NodeAt(node).Slot();
        ChildRec newRecord;
        ChildRec oldRecord;
        if (Split(node, record, newRecord, oldRecord) == IDX_False) {
            return TraceNo("IDX_WT_RTree.AdjustTree.Split");
        }
        SetBox(parent, slot, oldRecord.box);
        node = parent;
        record = newRecord;
    }
    const unsigned int slot = Append(node, record);
    if (node == m_root) return IDX_True;
    if (m_innerNodes != nullptr && node == iNode) return EnlargeBoxes(iNode, record.box);
    return AdjustTree(node, static_cast<unsigned short>(slot), record.box);
}

/// Carries one more box in a leaf upward, to the first box that stays as it is: then so do all above. A
/// box that only grows is the union of what it was and of what came in, but for the sign of a zero.
IDX_Bool IDX_WT_RTree::EnlargeBoxes(unsigned int iLeaf, const IDX_Base_BoundingBox& iBox) {
    unsigned int node = iLeaf;
    IDX_Base_BoundingBox box = iBox;
    for (unsigned int level = 1; level <= m_innerNodes->RootLevel(); ++level) {
        const RTreeInnerNodes::Growth growth = m_innerNodes->Enlarge(level, box);
        if (growth == RTreeInnerNodes::Same) return IDX_True;
        const RTreeInnerNodes::Step step = m_innerNodes->StepAt(level);
        if (growth == RTreeInnerNodes::Unsettled) {
            box = BoxOf(node);
            m_innerNodes->SetBox(level, step.slot, box);
        }
        NodeAt(step.node).SetBox(step.slot, box);
        node = step.node;
    }
    return IDX_True;
}

/// Sets the box of an entry, which is on the path of the way down where there is one.
void IDX_WT_RTree::SetBox(
    unsigned int iNode, unsigned int iSlot, const IDX_Base_BoundingBox& iBox) {
    RTreeNode node = NodeAt(iNode);
    node.SetBox(iSlot, iBox);
    if (m_innerNodes != nullptr && node.Level() != 0) {
        m_innerNodes->SetBox(node.Level(), iSlot, iBox);
    }
}

IDX_Bool IDX_WT_RTree::AdjustTree(
    unsigned int iNode, unsigned short iSlot, const IDX_Base_BoundingBox& iBox) {
    unsigned int node = iNode;
    SetBox(node, iSlot, iBox);
    while (node != m_root) {
        const unsigned int parent = NodeAt(node).Parent();
        const unsigned int slot = NodeAt(node).Slot();
        const IDX_Base_BoundingBox box = BoxOf(node);
        // Beside the second copy all boxes are exact: what doesn't change here changes nothing above.
        if (m_innerNodes != nullptr && RTreeImage::HaveSameBits(NodeAt(parent).Box(slot), box))
            break;
        SetBox(parent, slot, box);
        node = parent;
    }
    return IDX_True;
}

/// Puts a new root above the old one, whose box in it is still to be set.
IDX_Bool IDX_WT_RTree::GrowRoot() {
    unsigned int newRoot = 0;
    if (Alloc(m_nodeSize, newRoot) == IDX_False) return IDX_False;
    RTreeNode root = NodeAt(newRoot);
    root.SetCount(1);
    root.SetLevel(NodeAt(m_root).Level() + 1u);
    root.SetValue(0, m_root);
    NodeAt(m_root).SetPlace(newRoot, 0);
    if (m_innerNodes != nullptr) m_innerNodes->GrowRoot(newRoot, m_root);
    m_root = newRoot;
    return IDX_True;
}

/// Puts an entry into the next slot of a node that has room, and gives the slot.
unsigned int IDX_WT_RTree::Append(unsigned int iNode, const ChildRec& iRecord) {
    RTreeNode node = NodeAt(iNode);
    const unsigned int slot = node.Count();
    node.SetEntry(slot, iRecord);
    node.SetCount(slot + 1);
    if (node.Level() != 0) {
        NodeAt(iRecord.value).SetPlace(iNode, slot);
        if (m_innerNodes != nullptr) m_innerNodes->Append(node.Level(), iRecord.box);
    }
    return slot;
}

/// The union of the entries, in the order of their slots.
IDX_Base_BoundingBox IDX_WT_RTree::BoxOf(unsigned int iNode) const {
    const RTreeNode node = NodeAt(iNode);
    IDX_Base_BoundingBox box = node.Box(0);
    for (unsigned int slot = 1; slot < node.Count(); ++slot) box.Union(node.Box(slot));
    return box;
}

IDX_Bool IDX_WT_RTree::Split(
    unsigned int iNode, const ChildRec& iRecord, ChildRec& oNewRecord, ChildRec& oOldRecord) {
    unsigned int newNode = 0;
    if (Alloc(m_nodeSize, newNode) == IDX_False) {
        return TraceNo("IDX_WT_RTree.Split.IDX_WT_RTreeStorageHandler.Alloc");
    }
    const RTreeNode node = NodeAt(iNode);
    for (unsigned int i = 0; i < m_maxChildren; ++i) m_records[i] = node.Entry(i);
    m_records[m_maxChildren] = iRecord;
    for (unsigned int i = 0; i <= m_maxChildren; ++i) m_boxes[i] = m_records[i].box;
    QuadraticSplit();
    Distribute(iNode, newNode, oNewRecord, oOldRecord);
    return IDX_True;
}

/// Lays the entries out in the two nodes, in their order. The slots above stay as they were.
void IDX_WT_RTree::Distribute(
    unsigned int iNode, unsigned int iNewNode, ChildRec& oNewRecord, ChildRec& oOldRecord) {
    const unsigned int offsets[2] = {iNode, iNewNode};
    RTreeNode nodes[2] = {NodeAt(iNode), NodeAt(iNewNode)};
    const unsigned short level = nodes[0].Level();
    ChildRec covers[2];
    unsigned int counts[2] = {0, 0};
    for (unsigned int i = 0; i <= m_maxChildren; ++i) {
        const unsigned int g = m_groups[i];
        const unsigned int slot = counts[g]++;
        nodes[g].SetEntry(slot, m_records[i]);
        if (level != 0) NodeAt(m_records[i].value).SetPlace(offsets[g], slot);
        if (slot == 0) {
            covers[g].box = m_records[i].box;
        } else {
            covers[g].box.Union(m_records[i].box);
        }
    }
    nodes[1].SetLevel(level);
    for (unsigned int g = 0; g < 2; ++g) {
        nodes[g].SetCount(counts[g]);
        covers[g].value = offsets[g];
    }
    oOldRecord = covers[0];
    oNewRecord = covers[1];
    if (m_innerNodes == nullptr) return;
    if (level == 0) {
        m_innerNodes->SplitLeaf(iNewNode);
    } else {
        m_innerNodes->SplitInner(level, m_groups, iNewNode, nodes[0], nodes[1]);
    }
}

void IDX_WT_RTree::QuadraticSplit() {
    QuadraticSplitter(m_splitMemory, m_boxes, m_maxChildren + 1u, m_volumes, m_groups)
        .Run(m_minFill);
}

void IDX_WT_RTree::LinearSplit() {}

IDX_Bool IDX_WT_RTree::Alloc(const unsigned int& iSize, unsigned int& oOffset) {
    const unsigned long long needed = 0ull + m_size + iSize;
    if (needed > m_capacity && !GrowStorage(needed, m_size + kNodesOfSmallerStep * iSize)) {
        FreeStorage();
        return TraceNo("IDX_WT_RTreeStorageHandler.Alloc(realloc)");
    }
    // Zeroed here and not when the storage grows: memory is touched when it is used.
    std::memset(m_storage + m_size, 0, iSize);
    oOffset = m_size;
    m_size = static_cast<unsigned int>(needed);
    return IDX_True;
}

/// By doubling, else to `iSmallerStep`, else to what is needed.
bool IDX_WT_RTree::GrowStorage(unsigned long long iNeeded, unsigned long long iSmallerStep) {
    if (iNeeded > kMaxCapacity) return false;
    unsigned long long doubled = std::max(m_capacity, 1u);
    while (doubled < iNeeded) doubled *= 2;
    return ResizeStorage(doubled) || ResizeStorage(iSmallerStep) || ResizeStorage(iNeeded);
}

bool IDX_WT_RTree::ResizeStorage(unsigned long long iCapacity) {
    const auto capacity = static_cast<unsigned int>(std::min(iCapacity, kMaxCapacity));
    if (!Lengthen(m_storage, capacity)) return false;
    m_capacity = capacity;
    return true;
}

void IDX_WT_RTree::FreeStorage() {
    std::free(m_storage);
    m_storage = nullptr;
    m_capacity = 0;
    DropInnerNodes();
}

void IDX_WT_RTree::DropInnerNodes() {
    delete m_innerNodes;
    m_innerNodes = nullptr;
}

/// The arrays know their length on their own: the tree may come from an image.
bool IDX_WT_RTree::ReserveWorkingArrays(unsigned int iMaxChildren) {
    const unsigned int length = iMaxChildren + 1;
    if (length <= m_workingLength) return true;
    if (!Lengthen(m_boxes, length) || !Lengthen(m_records, length) || !Lengthen(m_groups, length) ||
        !Lengthen(m_volumes, length) ||
        !Lengthen(m_splitMemory, QuadraticSplitter::LengthFor(length))) {
        return false;
    }
    m_workingLength = length;
    return true;
}

unsigned int IDX_WT_RTree::NodeSize() const {
    return m_nodeHeaderSize + m_maxChildren * static_cast<unsigned int>(sizeof(ChildRec));
}

RTreeNode IDX_WT_RTree::NodeAt(unsigned int iOffset) const {
    return RTreeNode(m_storage + iOffset, m_nodeHeaderSize);
}

/// Whether an entry of a level can go in. Looks at a loaded tree first.
bool IDX_WT_RTree::IsReadyFor(unsigned int iLevel) {
    if (m_storage == nullptr || m_maxChildren < 2) return false;
    if (m_soundness == Unknown) {
        m_soundness = IsTreeSound() ? Sound : Damaged;
        if (m_soundness == Sound) CopyInnerNodes();
    }
    if (m_soundness == Damaged) return false;
    return ReserveWorkingArrays(m_maxChildren) && iLevel <= NodeAt(m_root).Level();
}

bool IDX_WT_RTree::IsNode(unsigned int iOffset) const {
    return iOffset < m_size && iOffset % m_nodeSize == 0;
}

/// Whether every way down or up leads along nodes and comes to an end. Looks at the nodes in turn: a walk
/// from the root could go round in a circle.
bool IDX_WT_RTree::IsTreeSound() const {
    if (m_size == 0 || m_size % m_nodeSize != 0 || !IsNode(m_root)) return false;
    for (unsigned long long node = 0; node < m_size; node += m_nodeSize) {
        if (!IsNodeSound(static_cast<unsigned int>(node))) return false;
    }
    return true;
}

bool IDX_WT_RTree::IsNodeSound(unsigned int iOffset) const {
    const RTreeNode node = NodeAt(iOffset);
    if (node.Count() > m_maxChildren) return false;
    const bool isLoneLeaf = iOffset == m_root && node.Level() == 0;
    if (node.Count() == 0 && !isLoneLeaf) return false;
    if (node.Level() == 0) return true;
    for (unsigned int slot = 0; slot < node.Count(); ++slot) {
        if (!IsNode(node.Value(slot))) return false;
        const RTreeNode child = NodeAt(node.Value(slot));
        const bool isBelow = child.Level() + 1u == node.Level();
        if (!isBelow || child.Parent() != iOffset || child.Slot() != slot) return false;
    }
    return true;
}

/// Makes the second copy of the inner nodes of a sound tree, unless there is no memory, or a box is larger
/// than it need be.
void IDX_WT_RTree::CopyInnerNodes() {
    const unsigned int rootLevel = NodeAt(m_root).Level();
    auto* numbers = static_cast<unsigned int*>(
        std::malloc(std::size_t{m_size / m_nodeSize} * sizeof(unsigned int)));
    m_innerNodes = RTreeInnerNodes::Make(m_maxChildren);
    const bool isCopied = numbers != nullptr && m_innerNodes != nullptr && CopyInnerNodes(numbers);
    if (isCopied && rootLevel != 0) m_innerNodes->SetRoot(numbers[m_root / m_nodeSize], rootLevel);
    if (!isCopied) DropInnerNodes();
    std::free(numbers);
}

/// @param oNumbers  for each node, in the order of the storage: its number in the copy, or its offset
///                  when it is a leaf
bool IDX_WT_RTree::CopyInnerNodes(unsigned int* oNumbers) {
    const unsigned int count = m_size / m_nodeSize;
    for (unsigned int i = 0; i < count; ++i) {
        oNumbers[i] = i * m_nodeSize;
        if (NodeAt(i * m_nodeSize).Level() == 0) continue;
        if (!m_innerNodes->ReserveRecords(1)) return false;
        oNumbers[i] = m_innerNodes->AddNode(i * m_nodeSize);
    }
    for (unsigned int i = 0; i < count; ++i) {
        const RTreeNode node = NodeAt(i * m_nodeSize);
        if (node.Level() == 0) continue;
        for (unsigned int slot = 0; slot < node.Count(); ++slot) {
            const unsigned int child = node.Value(slot);
            if (!RTreeImage::HaveSameBits(node.Box(slot), BoxOf(child))) return false;
            m_innerNodes->AddEntry(oNumbers[i], node.Box(slot), oNumbers[child / m_nodeSize]);
        }
    }
    return true;
}

IDX_Bool IDX_WT_RTree::Save(IDX_WT_File& ioFile, unsigned int& oOffset) {
    oOffset = ioFile.GetSize();
    return SaveImage(
        [&](const void* iData, unsigned int iSize) { return ioFile.Write(iData, iSize); },
        [&](const void* iData, unsigned int iSize) {
            return ioFile.WriteAt(oOffset + kHeaderSize, iData, iSize);
        });
}

IDX_Bool IDX_WT_RTree::Save(IDX_WT_SplittedFile& ioFile, unsigned int iPart, unsigned int iOffset) {
    return SaveImage(
        [&](const void* iData, unsigned int iSize) {
            return ioFile.WriteAt(iPart, iOffset, iData, iSize);
        },
        [&](const void* iData, unsigned int iSize) {
            return ioFile.WriteAt(iPart, iOffset + kHeaderSize, iData, iSize);
        });
}

template <class WriteHeader, class WriteNodes>
IDX_Bool IDX_WT_RTree::SaveImage(
    const WriteHeader& iWriteHeader, const WriteNodes& iWriteNodes) const {
    const RTreeImageHeader header = {m_minFill, m_maxChildren, m_root, m_size};
    if (iWriteHeader(&header, kHeaderSize) == IDX_False) {
        return TraceNo("IDX_WT_RTree.Save.IDX_WT_SplittedFile.Write(Header)");
    }
    if (iWriteNodes(m_storage, m_size) == IDX_False) {
        return TraceNo("IDX_WT_RTree.Save.IDX_WT_SplittedFile.WriteAt");
    }
    return IDX_True;
}

IDX_Bool IDX_WT_RTree::Load(IDX_WT_File& ioFile, unsigned int iOffset) {
    return LoadImage([&](unsigned int iFrom, void* oData, unsigned int iSize) {
        return ioFile.ReadAt(iOffset + iFrom, oData, iSize);
    });
}

IDX_Bool IDX_WT_RTree::Load(IDX_WT_SplittedFile& ioFile, unsigned int iPart, unsigned int iOffset) {
    return LoadImage([&](unsigned int iFrom, void* oData, unsigned int iSize) {
        return ioFile.ReadAt(iPart, iOffset + iFrom, oData, iSize);
    });
}

template <class Read>
IDX_Bool IDX_WT_RTree::LoadImage(const Read& iRead) {
    RTreeImageHeader header;
    if (iRead(0, &header, kHeaderSize) == IDX_False) {
        return TraceNo("IDX_WT_RTree.Load.IDX_WT_File.ReadAt(Header)");
    }
    if ((m_storage == nullptr || m_capacity < header.size) && !ResizeStorage(header.size)) {
        FreeStorage();
        return IDX_False;
    }
    m_soundness = Damaged;  // the bytes of the former tree go now
    DropInnerNodes();
    if (iRead(kHeaderSize, m_storage, header.size) == IDX_False) {
        return TraceNo("IDX_WT_RTree.Load.IDX_WT_File.ReadAt(Tree)");
    }
    m_minFill = header.minFill;
    m_maxChildren = header.maxChildren;
    m_root = header.root;
    m_size = header.size;
    m_capacity = header.size;
    m_nodeSize = NodeSize();
    m_soundness = Unknown;
    return IDX_True;
}
