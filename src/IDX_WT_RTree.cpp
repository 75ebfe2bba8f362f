#include "IDX_WT_RTree.h"

#include "RTreeNode.h"
#include "TraceFailure.h"

#include "IDX_WT_File.h"
#include "IDX_WT_SplittedFile.h"

#include <algorithm>
#include <cmath>
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

/// One half of a split so far.
struct Group {
    IDX_Base_BoundingBox cover;
    unsigned int count;

    bool NeedsAll(unsigned int iUndecided, unsigned int iMinFill) const {
        return count + iUndecided == iMinFill;
    }
};

/// The group that gets an entry: the one with the smaller enlargement, then the smaller volume, then
/// fewer entries; group 0 when none of the numbers of group 1 comes out smaller.
unsigned int PreferredGroup(const Group (&iGroups)[2], const IDX_Base_BoundingBox& iBox) {
    float numbers[2][3];
    for (unsigned int g = 0; g < 2; ++g) {
        const float volume = iGroups[g].cover.Volume();
        numbers[g][0] = Enlargement(iGroups[g].cover, volume, iBox);
        numbers[g][1] = volume;
        numbers[g][2] = static_cast<float>(iGroups[g].count);
    }
    for (unsigned int k = 0; k < 3; ++k) {
        if (numbers[0][k] < numbers[1][k]) return 0;
        if (numbers[1][k] < numbers[0][k]) return 1;
    }
    return 0;
}

}  // namespace

IDX_WT_RTree::IDX_WT_RTree()
    : m_capacity(0),
      m_boxes(nullptr),
      m_records(nullptr),
      m_groups(nullptr),
      m_volumes(nullptr),
      m_workingLength(0),
      m_soundness(Damaged) {}

IDX_WT_RTree::~IDX_WT_RTree() {
    std::free(m_boxes);
    std::free(m_records);
    std::free(m_groups);
    std::free(m_volumes);
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
    unsigned int node = 0;
    (void)FindNode(iRecord, iLevel, node);  // always finds one
    return AdjustTree(node, iRecord);
}

IDX_Bool IDX_WT_RTree::FindNode(
    const ChildRec& iRecord, unsigned short iLevel, unsigned int& oNode) {
    oNode = m_root;
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
        NodeAt(parent).SetBox(slot, oldRecord.box);
        node = parent;
        record = newRecord;
    }
    const unsigned int slot = Append(node, record);
    if (node == m_root) return IDX_True;
    return AdjustTree(node, static_cast<unsigned short>(slot), record.box);
}

IDX_Bool IDX_WT_RTree::AdjustTree(
    unsigned int iNode, unsigned short iSlot, const IDX_Base_BoundingBox& iBox) {
    unsigned int node = iNode;
    NodeAt(node).SetBox(iSlot, iBox);
    while (node != m_root) {
        const unsigned int parent = NodeAt(node).Parent();
        NodeAt(parent).SetBox(NodeAt(node).Slot(), BoxOf(node));
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
    m_root = newRoot;
    return IDX_True;
}

/// Puts an entry into the next slot of a node that has room, and gives the slot.
unsigned int IDX_WT_RTree::Append(unsigned int iNode, const ChildRec& iRecord) {
    RTreeNode node = NodeAt(iNode);
    const unsigned int slot = node.Count();
    node.SetEntry(slot, iRecord);
    node.SetCount(slot + 1);
    if (node.Level() != 0) NodeAt(iRecord.value).SetPlace(iNode, slot);
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
        if (slot == 0) covers[g].box = m_records[i].box;
        covers[g].box.Union(m_records[i].box);
    }
    nodes[1].SetLevel(level);
    for (unsigned int g = 0; g < 2; ++g) {
        nodes[g].SetCount(counts[g]);
        covers[g].value = offsets[g];
    }
    oOldRecord = covers[0];
    oNewRecord = covers[1];
}

void IDX_WT_RTree::QuadraticSplit() {
    const unsigned int n = m_maxChildren + 1u;
    for (unsigned int i = 0; i < n; ++i) {
        m_groups[i] = 2;
        m_volumes[i] = m_boxes[i].Volume();
    }
    const auto waste = [this](unsigned int iFirst, unsigned int iSecond) {
        const float both = UnionOf(m_boxes[iFirst], m_boxes[iSecond]).Volume();
        return both - m_volumes[iFirst] - m_volumes[iSecond];
    };
    unsigned int seeds[2] = {0, 1};
    float worst = waste(0, 1);
    for (unsigned int i = 0; i + 1 < n; ++i) {
        for (unsigned int j = i + 1; j < n; ++j) {
            const float w = waste(i, j);
            if (w > worst) {
                worst = w;
                seeds[0] = i;
                seeds[1] = j;
            }
        }
    }
    Group groups[2] = {
        {m_boxes[seeds[0]], 1},
        {m_boxes[seeds[1]], 1}
    };
    m_groups[seeds[0]] = 0;
    m_groups[seeds[1]] = 1;
    for (unsigned int undecided = n - 2; undecided > 0; --undecided) {
        for (unsigned int g = 0; g < 2; ++g) {
            if (!groups[g].NeedsAll(undecided, m_minFill)) continue;
            std::replace(
                m_groups, m_groups + n, static_cast<unsigned char>(2),
                static_cast<unsigned char>(g));
            return;
        }
        unsigned int chosen = n;
        float best = -1.0f;
        const float volumes[2] = {groups[0].cover.Volume(), groups[1].cover.Volume()};
        for (unsigned int i = 0; i < n; ++i) {
            if (m_groups[i] != 2) continue;
            if (chosen == n) chosen = i;
            const float d0 = Enlargement(groups[0].cover, volumes[0], m_boxes[i]);
            const float d1 = Enlargement(groups[1].cover, volumes[1], m_boxes[i]);
            if (std::fabs(d0 - d1) > best) {
                best = std::fabs(d0 - d1);
                chosen = i;
            }
        }
        const unsigned int g = PreferredGroup(groups, m_boxes[chosen]);
        m_groups[chosen] = static_cast<unsigned char>(g);
        groups[g].cover.Union(m_boxes[chosen]);
        ++groups[g].count;
    }
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
}

/// The arrays know their length on their own: the tree may come from an image.
bool IDX_WT_RTree::ReserveWorkingArrays(unsigned int iMaxChildren) {
    const unsigned int length = iMaxChildren + 1;
    if (length <= m_workingLength) return true;
    if (!Lengthen(m_boxes, length) || !Lengthen(m_records, length) || !Lengthen(m_groups, length) ||
        !Lengthen(m_volumes, length)) {
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
    if (m_soundness == Unknown) m_soundness = IsTreeSound() ? Sound : Damaged;
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
