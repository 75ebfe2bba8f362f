#include "IDX_WT_RTree.h"

#include "QuadraticSplitter.h"
#include "RTreeInnerNodes.h"
#include "RTreeNodes.h"
#include "common/TraceFailure.h"

#include "IDX_WT_File.h"
#include "IDX_WT_SplittedFile.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

// The R-tree of A. Guttman, "R-trees: a dynamic index structure for spatial searching", SIGMOD
// 1984, with volume instead of area. His steps are: ChooseLeaf (FindNode), the quadratic split
// (Split, QuadraticSplitter) and AdjustTree.
//
// One insertion goes down from the root to a leaf, puts the entry there, and goes up again to bring
// the boxes of the nodes above up to date. When the leaf is full, it is split; the new node becomes
// an entry of the parent, which may be full, too.

namespace {

using ChildRec = IDX_Base_RTree::ChildRec;

constexpr unsigned int kFirstCapacity = 1024;
constexpr unsigned long long kNodesOfSmallerStep = 1000;  ///< asked for when doubling fails
constexpr unsigned long long kMaxCapacity = std::numeric_limits<unsigned int>::max();

/// Makes an array at least `iLength` long. Without memory it gives false, and the array stays.
template <class T>
bool Lengthen(T*& ioArray, std::size_t iLength) {
    void* longer = std::realloc(static_cast<void*>(ioArray), iLength * sizeof(T));
    if (longer == nullptr) return false;
    ioArray = static_cast<T*>(longer);
    return true;
}

}  // namespace

/// What the library keeps of an R-tree beside the fields of its header, and the steps of its work.
struct IDX_WT_RTree::Internals {
    /// What is known of the tree in the storage.
    enum Soundness : unsigned char {
        Unknown,  ///< loaded, and not checked yet
        Sound,    ///< an insertion can walk it
        Damaged   ///< an insertion must not touch it
    };

    explicit Internals(IDX_WT_RTree& ioTree) : tree(ioTree) {}
    Internals(const Internals&) = delete;
    Internals& operator=(const Internals&) = delete;
    ~Internals();

    /// The internals of a tree, made at the first call. Null when there is no memory.
    static Internals* Of(IDX_WT_RTree& ioTree);

    // Memory

    bool GrowStorage(unsigned long long iNeeded, unsigned long long iSmallerStep);
    bool ResizeStorage(unsigned long long iCapacity);
    void FreeStorage();
    bool ReserveWorkingArrays(unsigned int iMaxChildren);
    void DropInnerNodes();

    // Nodes

    unsigned int NodeSize() const;
    RTreeNodes Nodes() const;
    RTreeNode NodeAt(unsigned int iOffset) const { return Nodes().At(iOffset); }

    // Insertion

    bool IsReadyFor(unsigned int iLevel);
    unsigned int Append(unsigned int iNode, const ChildRec& iRecord);
    IDX_Bool GrowRoot();
    void Distribute(
        unsigned int iNode, unsigned int iNewNode, ChildRec& oNewRecord, ChildRec& oOldRecord);
    void SetBox(unsigned int iNode, unsigned int iSlot, const IDX_Base_BoundingBox& iBox);
    void EnlargeBoxes(unsigned int iLeaf, const IDX_Base_BoundingBox& iBox);

    // Image

    template <class Read>
    IDX_Bool Load(const Read& iRead);

    IDX_WT_RTree& tree;
    float* splitMemory = nullptr;           ///< of a split: working memory of QuadraticSplitter
    unsigned int workingLength = 0;         ///< elements of each working array of a split
    RTreeInnerNodes* innerNodes = nullptr;  ///< a second copy for the way down; null for none
    Soundness soundness = Damaged;
};

IDX_WT_RTree::IDX_WT_RTree()
    : m_capacity(0),
      m_boxes(nullptr),
      m_records(nullptr),
      m_groups(nullptr),
      m_volumes(nullptr),
      m_internals(nullptr) {}

IDX_WT_RTree::~IDX_WT_RTree() {
    delete m_internals;
    std::free(m_boxes);
    std::free(m_records);
    std::free(m_groups);
    std::free(m_volumes);
    std::free(m_storage);
}

IDX_WT_RTree::Internals::~Internals() {
    DropInnerNodes();
    std::free(splitMemory);
}

IDX_WT_RTree::Internals* IDX_WT_RTree::Internals::Of(IDX_WT_RTree& ioTree) {
    if (ioTree.m_internals == nullptr) ioTree.m_internals = new (std::nothrow) Internals(ioTree);
    return ioTree.m_internals;
}

/// Makes one empty leaf, the root. The blocks of an earlier tree are used again where they are
/// large enough.
IDX_Bool IDX_WT_RTree::Init(unsigned short iMinFill, unsigned short iMaxChildren) {
    Internals* internals = Internals::Of(*this);
    if (internals == nullptr) return IDX_False;
    const bool hasStorage = (m_storage != nullptr && m_capacity >= kFirstCapacity) ||
                            internals->ResizeStorage(kFirstCapacity);
    if (!hasStorage || !internals->ReserveWorkingArrays(iMaxChildren)) {
        internals->FreeStorage();
        return IDX_False;
    }
    m_minFill = iMinFill;
    m_maxChildren = iMaxChildren;
    m_size = 0;
    m_capacity = kFirstCapacity;  // a larger block counts as one of this size from now on
    m_nodeSize = internals->NodeSize();
    if (Alloc(m_nodeSize, m_root) == IDX_False) {
        return TraceNo("IDX_WT_RTree.Init.IDX_WT_RTreeStorageHandler.Alloc");
    }
    internals->soundness = Internals::Sound;
    internals->DropInnerNodes();
    internals->innerNodes = RTreeInnerNodes::Make(iMaxChildren);
    return IDX_True;
}

IDX_Bool IDX_WT_RTree::Insert(const IDX_Base_BoundingBox& iBox, unsigned int iValue) {
    return Insert(ChildRec{iBox, iValue}, 0);
}

unsigned int IDX_WT_RTree::GetSize() const {
    return m_size;
}

/// Adds an entry to a node of the given level, which isn't above the root's.
IDX_Bool IDX_WT_RTree::Insert(const ChildRec& iRecord, unsigned short iLevel) {
    if (m_internals == nullptr || !m_internals->IsReadyFor(iLevel)) return IDX_False;
    // The second copy knows ways to leaves only. All memory that it may need is taken here, so that
    // nothing can fail later, when both are being changed.
    RTreeInnerNodes* innerNodes = m_internals->innerNodes;
    if (innerNodes != nullptr && (iLevel != 0 || !innerNodes->Reserve())) {
        m_internals->DropInnerNodes();
    }
    unsigned int node = 0;
    (void)FindNode(iRecord, iLevel, node);  // always finds one
    return AdjustTree(node, iRecord);
}

/// Whether an entry of a level can go in. Checks a loaded tree at its first insertion.
bool IDX_WT_RTree::Internals::IsReadyFor(unsigned int iLevel) {
    if (tree.m_storage == nullptr || tree.m_maxChildren < 2) return false;
    if (soundness == Unknown) {
        soundness = Nodes().AreSound() ? Sound : Damaged;
        if (soundness == Sound) innerNodes = RTreeInnerNodes::CopyOf(Nodes());
    }
    if (soundness == Damaged) return false;
    return ReserveWorkingArrays(tree.m_maxChildren) && iLevel <= Nodes().RootLevel();
}

/// ChooseLeaf: the node of a level that takes `iRecord`.
/// @return always IDX_True
IDX_Bool IDX_WT_RTree::FindNode(
    const ChildRec& iRecord, unsigned short iLevel, unsigned int& oNode) {
    RTreeInnerNodes* innerNodes = m_internals->innerNodes;
    if (innerNodes == nullptr) {
        oNode = m_internals->Nodes().Choose(iRecord.box, iLevel);
    } else {
        oNode = innerNodes->RootLevel() == 0 ? m_root : innerNodes->FindLeaf(iRecord.box);
    }
    return IDX_True;
}

/// Puts `iRecord` into a node and brings the boxes above up to date.
IDX_Bool IDX_WT_RTree::AdjustTree(unsigned int iNode, const ChildRec& iRecord) {
    unsigned int node = iNode;
    ChildRec record = iRecord;
    // Each turn splits one full node. The node that is new then is an entry for the parent, and the
    // next turn is about that one.
    while (m_internals->NodeAt(node).Count() == m_maxChildren) {
        // The root gets a parent first, so that a split always has a parent to report to.
        if (node == m_root && m_internals->GrowRoot() == IDX_False) {
            return TraceNo("IDX_WT_RTree.AdjustTree.IDX_WT_RTreeStorageHandler.Alloc");
        }
        const unsigned int parent = m_internals->NodeAt(node).Parent();
        const unsigned int slot = m_internals->NodeAt(node).Slot();
        ChildRec newRecord;
        ChildRec oldRecord;
        if (Split(node, record, newRecord, oldRecord) == IDX_False) {
            return TraceNo("IDX_WT_RTree.AdjustTree.Split");
        }
        m_internals->SetBox(parent, slot, oldRecord.box);
        node = parent;
        record = newRecord;
    }
    const unsigned int slot = m_internals->Append(node, record);
    if (node == m_root) return IDX_True;
    // Where nothing was split, boxes only grow, which is quicker than to unite all entries again.
    if (m_internals->innerNodes != nullptr && node == iNode) {
        m_internals->EnlargeBoxes(iNode, record.box);
        return IDX_True;
    }
    return AdjustTree(node, static_cast<unsigned short>(slot), record.box);
}

/// Sets the box of one entry and carries the change up to the root.
IDX_Bool IDX_WT_RTree::AdjustTree(
    unsigned int iNode, unsigned short iSlot, const IDX_Base_BoundingBox& iBox) {
    unsigned int node = iNode;
    m_internals->SetBox(node, iSlot, iBox);
    while (node != m_root) {
        const RTreeNodes nodes = m_internals->Nodes();
        const unsigned int parent = nodes.At(node).Parent();
        const unsigned int slot = nodes.At(node).Slot();
        const IDX_Base_BoundingBox box = nodes.BoxOf(node);
        // Every box in a tree with a second copy is the union of the entries below it, bit for bit.
        // So when one doesn't change, none above it does. A loaded tree without a copy may have
        // larger boxes: the way goes on to the root there.
        if (m_internals->innerNodes != nullptr &&
            RTreeImage::HaveSameBits(nodes.At(parent).Box(slot), box)) {
            break;
        }
        m_internals->SetBox(parent, slot, box);
        node = parent;
    }
    return IDX_True;
}

/// Cuts a full node in two, with `iRecord` as one entry more.
/// @param oNewRecord  the entry of the new node for its parent
/// @param oOldRecord  the entry of the node that was cut
IDX_Bool IDX_WT_RTree::Split(
    unsigned int iNode, const ChildRec& iRecord, ChildRec& oNewRecord, ChildRec& oOldRecord) {
    unsigned int newNode = 0;
    if (Alloc(m_nodeSize, newNode) == IDX_False) {
        return TraceNo("IDX_WT_RTree.Split.IDX_WT_RTreeStorageHandler.Alloc");
    }
    const RTreeNode node = m_internals->NodeAt(iNode);  // only now: Alloc may move the storage
    for (unsigned int i = 0; i < m_maxChildren; ++i) m_records[i] = node.Entry(i);
    m_records[m_maxChildren] = iRecord;
    for (unsigned int i = 0; i <= m_maxChildren; ++i) m_boxes[i] = m_records[i].box;
    QuadraticSplit();
    m_internals->Distribute(iNode, newNode, oNewRecord, oOldRecord);
    return IDX_True;
}

/// Fills m_groups from m_boxes.
void IDX_WT_RTree::QuadraticSplit() {
    QuadraticSplitter(m_internals->splitMemory, m_boxes, m_maxChildren + 1u, m_volumes, m_groups)
        .Run(m_minFill);
}

/// The interface names it. Nothing calls it.
void IDX_WT_RTree::LinearSplit() {}

/// Takes zeroed bytes from the storage. The storage may move.
IDX_Bool IDX_WT_RTree::Alloc(const unsigned int& iSize, unsigned int& oOffset) {
    const unsigned long long needed = 0ull + m_size + iSize;
    if (needed > m_capacity &&
        !m_internals->GrowStorage(needed, m_size + kNodesOfSmallerStep * iSize)) {
        m_internals->FreeStorage();
        return TraceNo("IDX_WT_RTreeStorageHandler.Alloc(realloc)");
    }
    // Zeroed here and not when the storage grows: no page of memory is touched before it is used.
    std::memset(m_storage + m_size, 0, iSize);
    oOffset = m_size;
    m_size = static_cast<unsigned int>(needed);
    return IDX_True;
}

// Steps of an insertion. Each change of an inner node is made twice: in the storage, which is the
// tree, and in the second copy.

/// Puts an entry into the next slot of a node that has room.
/// @return the slot
unsigned int IDX_WT_RTree::Internals::Append(unsigned int iNode, const ChildRec& iRecord) {
    RTreeNode node = NodeAt(iNode);
    const unsigned int slot = node.Count();
    node.SetEntry(slot, iRecord);
    node.SetCount(slot + 1);
    if (node.Level() != 0) {
        NodeAt(iRecord.value).SetPlace(iNode, slot);
        if (innerNodes != nullptr) innerNodes->Append(node.Level(), iRecord.box);
    }
    return slot;
}

/// Puts a new root above the old one. The old root's box in it isn't set yet.
IDX_Bool IDX_WT_RTree::Internals::GrowRoot() {
    unsigned int newRoot = 0;
    if (tree.Alloc(tree.m_nodeSize, newRoot) == IDX_False) return IDX_False;
    RTreeNode root = NodeAt(newRoot);
    root.SetCount(1);
    root.SetLevel(NodeAt(tree.m_root).Level() + 1u);
    root.SetValue(0, tree.m_root);
    NodeAt(tree.m_root).SetPlace(newRoot, 0);
    if (innerNodes != nullptr) innerNodes->GrowRoot(newRoot, tree.m_root);
    tree.m_root = newRoot;
    return IDX_True;
}

/// Lays the entries of a split out in the two nodes, in their order. The slots after the last entry
/// keep what was in them: those bytes go into the image, too.
void IDX_WT_RTree::Internals::Distribute(
    unsigned int iNode, unsigned int iNewNode, ChildRec& oNewRecord, ChildRec& oOldRecord) {
    const unsigned int offsets[2] = {iNode, iNewNode};
    RTreeNode nodes[2] = {NodeAt(iNode), NodeAt(iNewNode)};
    const unsigned short level = nodes[0].Level();
    ChildRec covers[2];
    unsigned int counts[2] = {0, 0};
    for (unsigned int i = 0; i <= tree.m_maxChildren; ++i) {
        const unsigned int g = tree.m_groups[i];
        const ChildRec& record = tree.m_records[i];
        const unsigned int slot = counts[g]++;
        nodes[g].SetEntry(slot, record);
        if (level != 0) NodeAt(record.value).SetPlace(offsets[g], slot);
        if (slot == 0) {
            covers[g].box = record.box;
        } else {
            covers[g].box.Union(record.box);
        }
    }
    nodes[1].SetLevel(level);
    for (unsigned int g = 0; g < 2; ++g) {
        nodes[g].SetCount(counts[g]);
        covers[g].value = offsets[g];
    }
    oOldRecord = covers[0];
    oNewRecord = covers[1];
    if (innerNodes == nullptr) return;
    if (level == 0) {
        innerNodes->SplitLeaf(iNewNode);
    } else {
        innerNodes->SplitInner(level, tree.m_groups, iNewNode, nodes[0], nodes[1]);
    }
}

/// Sets the box of an entry. An entry of an inner node is on the path of the last way down.
void IDX_WT_RTree::Internals::SetBox(
    unsigned int iNode, unsigned int iSlot, const IDX_Base_BoundingBox& iBox) {
    RTreeNode node = NodeAt(iNode);
    node.SetBox(iSlot, iBox);
    if (innerNodes != nullptr && node.Level() != 0) {
        innerNodes->SetBox(node.Level(), iSlot, iBox);
    }
}

/// Enlarges the boxes above a leaf by one more box in it. Stops at the first box that stays the
/// same: all boxes above it stay the same, too. A box that grows becomes the union of its old value
/// and the new box. The union of all entries would be the same, except perhaps for the sign of a
/// zero; there all entries are united again.
void IDX_WT_RTree::Internals::EnlargeBoxes(unsigned int iLeaf, const IDX_Base_BoundingBox& iBox) {
    unsigned int node = iLeaf;
    IDX_Base_BoundingBox box = iBox;
    for (unsigned int level = 1; level <= innerNodes->RootLevel(); ++level) {
        const RTreeInnerNodes::Growth growth = innerNodes->Enlarge(level, box);
        if (growth == RTreeInnerNodes::Same) return;
        const RTreeInnerNodes::Step step = innerNodes->StepAt(level);
        if (growth == RTreeInnerNodes::Unsettled) {
            box = Nodes().BoxOf(node);
            innerNodes->SetBox(level, step.slot, box);
        }
        NodeAt(step.node).SetBox(step.slot, box);
        node = step.node;
    }
}

unsigned int IDX_WT_RTree::Internals::NodeSize() const {
    return tree.m_nodeHeaderSize + tree.m_maxChildren * static_cast<unsigned int>(sizeof(ChildRec));
}

RTreeNodes IDX_WT_RTree::Internals::Nodes() const {
    return {tree.m_storage,        tree.m_size,        tree.m_nodeSize,
            tree.m_nodeHeaderSize, tree.m_maxChildren, tree.m_root};
}

/// Makes room by doubling. Without memory for that tries `iSmallerStep`, then just what is needed.
bool IDX_WT_RTree::Internals::GrowStorage(
    unsigned long long iNeeded, unsigned long long iSmallerStep) {
    if (iNeeded > kMaxCapacity) return false;
    unsigned long long doubled = std::max(tree.m_capacity, 1u);
    while (doubled < iNeeded) doubled *= 2;
    return ResizeStorage(doubled) || ResizeStorage(iSmallerStep) || ResizeStorage(iNeeded);
}

bool IDX_WT_RTree::Internals::ResizeStorage(unsigned long long iCapacity) {
    const auto capacity = static_cast<unsigned int>(std::min(iCapacity, kMaxCapacity));
    if (!Lengthen(tree.m_storage, capacity)) return false;
    tree.m_capacity = capacity;
    return true;
}

void IDX_WT_RTree::Internals::FreeStorage() {
    std::free(tree.m_storage);
    tree.m_storage = nullptr;
    tree.m_capacity = 0;
    DropInnerNodes();
}

void IDX_WT_RTree::Internals::DropInnerNodes() {
    delete innerNodes;
    innerNodes = nullptr;
}

/// Their length has a field of its own: m_maxChildren may come from an image, and says nothing
/// about them then.
bool IDX_WT_RTree::Internals::ReserveWorkingArrays(unsigned int iMaxChildren) {
    const unsigned int length = iMaxChildren + 1;
    if (length <= workingLength) return true;
    if (!Lengthen(tree.m_boxes, length) || !Lengthen(tree.m_records, length) ||
        !Lengthen(tree.m_groups, length) || !Lengthen(tree.m_volumes, length) ||
        !Lengthen(splitMemory, QuadraticSplitter::LengthFor(length))) {
        return false;
    }
    workingLength = length;
    return true;
}

namespace {

/// Both forms of Save: the header, then the nodes, each by one call that the caller gives.
template <class WriteHeader, class WriteNodes>
IDX_Bool SaveImage(const WriteHeader& iWriteHeader, const WriteNodes& iWriteNodes) {
    if (iWriteHeader() == IDX_False) {
        return TraceNo("IDX_WT_RTree.Save.IDX_WT_SplittedFile.Write(Header)");
    }
    if (iWriteNodes() == IDX_False) {
        return TraceNo("IDX_WT_RTree.Save.IDX_WT_SplittedFile.WriteAt");
    }
    return IDX_True;
}

}  // namespace

IDX_Bool IDX_WT_RTree::Save(IDX_WT_File& ioFile, unsigned int& oOffset) {
    const RTreeImageHeader header = {m_minFill, m_maxChildren, m_root, m_size};
    oOffset = ioFile.GetSize();
    return SaveImage(
        [&] { return ioFile.Write(&header, kRTreeImageHeaderSize); },
        [&] { return ioFile.WriteAt(oOffset + kRTreeImageHeaderSize, m_storage, m_size); });
}

IDX_Bool IDX_WT_RTree::Save(IDX_WT_SplittedFile& ioFile, unsigned int iPart, unsigned int iOffset) {
    const RTreeImageHeader header = {m_minFill, m_maxChildren, m_root, m_size};
    return SaveImage(
        [&] { return ioFile.WriteAt(iPart, iOffset, &header, kRTreeImageHeaderSize); },
        [&] { return ioFile.WriteAt(iPart, iOffset + kRTreeImageHeaderSize, m_storage, m_size); });
}

IDX_Bool IDX_WT_RTree::Load(IDX_WT_File& ioFile, unsigned int iOffset) {
    Internals* internals = Internals::Of(*this);
    if (internals == nullptr) return IDX_False;
    return internals->Load([&](unsigned int iFrom, void* oData, unsigned int iSize) {
        return ioFile.ReadAt(iOffset + iFrom, oData, iSize);
    });
}

IDX_Bool IDX_WT_RTree::Load(IDX_WT_SplittedFile& ioFile, unsigned int iPart, unsigned int iOffset) {
    Internals* internals = Internals::Of(*this);
    if (internals == nullptr) return IDX_False;
    return internals->Load([&](unsigned int iFrom, void* oData, unsigned int iSize) {
        return ioFile.ReadAt(iPart, iOffset + iFrom, oData, iSize);
    });
}

/// Both forms of Load. The nodes are read straight into the storage. From the moment when that
/// begins the former tree can't be used, so it counts as damaged until all is read.
/// @param iRead  reads bytes from an offset of the image
template <class Read>
IDX_Bool IDX_WT_RTree::Internals::Load(const Read& iRead) {
    RTreeImageHeader header;
    if (iRead(0u, &header, kRTreeImageHeaderSize) == IDX_False) {
        return TraceNo("IDX_WT_RTree.Load.IDX_WT_File.ReadAt(Header)");
    }
    const bool isLargeEnough = tree.m_storage != nullptr && tree.m_capacity >= header.size;
    if (!isLargeEnough && !ResizeStorage(header.size)) {
        FreeStorage();
        return IDX_False;
    }
    soundness = Damaged;
    DropInnerNodes();
    if (iRead(kRTreeImageHeaderSize, tree.m_storage, header.size) == IDX_False) {
        return TraceNo("IDX_WT_RTree.Load.IDX_WT_File.ReadAt(Tree)");
    }
    tree.m_minFill = header.minFill;
    tree.m_maxChildren = header.maxChildren;
    tree.m_root = header.root;
    tree.m_size = header.size;
    tree.m_capacity = header.size;
    tree.m_nodeSize = NodeSize();
    soundness = Unknown;
    return IDX_True;
}
