#include "IDX_WT_Tree234.h"

#include "Require.h"
#include "TraceFailure.h"
#include "Tree234Records.h"

#include "IDX_Base_Endian.h"
#include "IDX_Base_Identifier.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>

namespace {

constexpr unsigned short kVersion = 45;
constexpr unsigned int kAlignment = 4;
constexpr unsigned int kNodeSize = sizeof(Tree234Node);
constexpr unsigned int kUsualIdentifierSize = 20;  ///< with its length before it
constexpr unsigned int kRootOffset = offsetof(IDX_234Struct_Manifest, root);

/// No sound tree is higher: one of h levels has 2^h - 1 nodes or more, each with an item, which take 28 and 20
/// bytes, and a file ends before 2^31.
constexpr unsigned int kMaxLevels = 32;

bool HasOurEndian(const IDX_234Struct_Manifest& iManifest) {
    return iManifest.endian == IDX_Base_Endian::one();
}

}  // namespace

/// One search on its way down: what is asked, and the node that it has come to.
struct IDX_WT_Tree234::Visit {
    const IDX_234Struct_ItemSlot* item;  ///< to be inserted
    const IDX_Base_Identifier& id;
    bool insert;
    unsigned int& itemOffset;

    unsigned int parentOffset;  ///< 0 above the root
    unsigned int childIndex;    ///< of the node in its parent
    unsigned int nodeOffset = 0;
    unsigned int siblingOffset = 0;
    unsigned int place = 0;   ///< of the identifier among the items of the node
    bool isThere = false;     ///< the item at `place` has this identifier
    bool isFinished = false;  ///< nothing is left to do

    Tree234Node node = {};
    Tree234Node parent = {};
    Tree234Node sibling = {};  ///< the right half of a split

    bool Finish(unsigned int iItemOffset) {
        itemOffset = iItemOffset;
        isFinished = true;
        return true;
    }

    /// Makes the child at `place` the node to visit next.
    bool Descend() {
        parentOffset = nodeOffset;
        childIndex = place;
        return true;
    }
};

/// Keeps a walk through a damaged file from going on for ever.
struct IDX_WT_Tree234::Walk {
    unsigned int level = 0;
    unsigned long long nNodes = 0;
    unsigned long long end = 0;  ///< of the node that lies furthest back in the file

    /// Nodes that don't overlap need their bytes: as long as the nodes before fit before the furthest one's
    /// end, none has to have been visited twice. Two walks down a cycle double with each level.
    bool Enter(unsigned int iNode) {
        end = std::max(end, 0ULL + iNode + kNodeSize);
        return ++level <= kMaxLevels && ++nNodes * kNodeSize <= end;
    }
    void Leave() { --level; }
};

IDX_WT_Tree234::IDX_WT_Tree234(
    unsigned int iItemSize, unsigned int iManifestSize, bool iUseMemoryFile)
    : m_file(iUseMemoryFile ? &m_memFile : &m_diskFile),
      m_itemSize(iItemSize),
      m_manifestSize(iManifestSize),
      m_openMode(NotOpened),
      m_manifest{} {
    Require(
        m_itemSize >= sizeof(IDX_234Struct_ItemSlot),
        "AssertionFailed:m_itemSize >= sizeof(IDX_234Struct_ItemSlot)");
    Require(
        m_manifestSize >= sizeof(IDX_234Struct_Manifest),
        "AssertionFailed:m_manifestSize >= sizeof(IDX_234Struct_Manifest)");
}

IDX_WT_Tree234::~IDX_WT_Tree234() {
    IDX_WT_Tree234::Close();
}

IDX_Bool IDX_WT_Tree234::OpenRead(const char* iPath) {
    if (IsOpened()) Close();
    if (!OpenStoreForReading(iPath)) {
        (void)m_file->Close();  // the failure is told already
        return IDX_False;
    }
    m_openMode = ReadOnly;
    return IDX_True;
}

IDX_Bool IDX_WT_Tree234::OpenStoreForReading(const char* iPath) {
    if (!m_file->OpenRead(iPath)) return TraceNo("IDX_WT_Tree234.OpenRead.IDX_WT_File.OpenRead");
    if (!_GetManifest(m_manifest)) return TraceNo("IDX_WT_Tree234.OpenRead._GetManifest");
    if (!HasOurEndian(m_manifest)) return TraceNo("IDX_WT_Tree234.OpenRead.InvalidEndian");
    if (m_manifest.version != kVersion) {
        IDX_Base_Trace::Debug(
            "IDX_WT_Tree234.OpenRead.InvalidVersion(current=%ld, previous=%ld)", long{kVersion},
            long{m_manifest.version});
        return IDX_False;
    }
    return IDX_True;
}

IDX_Bool IDX_WT_Tree234::OpenWrite(const char* iPath) {
    if (IsOpened()) Close();
    if (!OpenStoreForWriting(iPath)) {
        (void)m_file->Close();  // the failure is told already
        return IDX_False;
    }
    m_openMode = ReadWrite;
    return IDX_True;
}

IDX_Bool IDX_WT_Tree234::OpenStoreForWriting(const char* iPath) {
    if (!m_file->OpenWrite(iPath)) {
        return TraceNo("IDX_WT_Tree234.OpenWrite.IDX_WT_File.OpenWrite");
    }
    if (m_file->GetSize() == 0) return AppendManifest();
    if (!_GetManifest(m_manifest)) return TraceNo("IDX_WT_Tree234.OpenWrite._GetManifest");
    if (!HasOurEndian(m_manifest)) return TraceNo("IDX_WT_Tree234.OpenWrite.InvalidEndian");
    if (m_manifest.version != kVersion) {
        IDX_Base_Trace::Debug(
            "IDX_WT_Tree234.OpenWrite.InvalidVersion(current=%ld, previous=%ld)", long{kVersion},
            long{m_manifest.version});
        return IDX_False;
    }
    return CompleteLastWord();
}

IDX_Bool IDX_WT_Tree234::AppendManifest() {
    struct Free {
        void operator()(void* iBytes) const { std::free(iBytes); }
    };
    const std::unique_ptr<void, Free> bytes(std::calloc(1, m_manifestSize));
    const IDX_234Struct_Manifest manifest = {IDX_Base_Endian::one(), kVersion, 0};
    if (bytes != nullptr) std::memcpy(bytes.get(), &manifest, sizeof manifest);
    if (bytes == nullptr || !m_file->Write(bytes.get(), m_manifestSize)) {
        return TraceNo("IDX_WT_Tree234.OpenWrite.IDX_WT_File.Write");
    }
    m_file->Flush();
    return IDX_True;
}

/// Has the store end at a multiple of 4. The disk store's end always is at one.
IDX_Bool IDX_WT_Tree234::CompleteLastWord() {
    const unsigned char zeros[kAlignment] = {};
    const unsigned int past = m_file->GetSize() % kAlignment;
    if (past != 0 && !m_file->Write(zeros, kAlignment - past)) {
        return TraceNo("IDX_WT_Tree234.OpenWrite.IDX_WT_File.Write");
    }
    return IDX_True;
}

void IDX_WT_Tree234::Close() {
    if (!IsOpened()) return;
    (void)m_file->Close();  // there is nobody to tell; the store has traced it
    m_openMode = NotOpened;
}

IDX_Bool IDX_WT_Tree234::IsOpened() const {
    return m_openMode != NotOpened ? IDX_True : IDX_False;
}

IDX_Bool IDX_WT_Tree234::IsRead() const {
    return IsOpened();
}

IDX_Bool IDX_WT_Tree234::IsReadWrite() const {
    return m_openMode == ReadWrite ? IDX_True : IDX_False;
}

long int IDX_WT_Tree234::CheckVersion(const char* iPath) {
    if (IsOpened()) Close();
    if (!m_file->OpenRead(iPath)) {
        return TraceStatus(
            "IDX_WT_Tree234.CheckVersion.IDX_WT_File.OpenRead failed", IDX_E_INVALID_ARGUMENT);
    }
    if (!_GetManifest(m_manifest)) {
        return TraceStatus(
            "IDX_WT_Tree234.CheckVersion._GetManifest failed", IDX_E_INVALID_ARGUMENT);
    }
    if (m_manifest.version == kVersion) return IDX_S_OK;
    IDX_Base_Trace::Debug(
        "IDX_WT_Tree234.CheckVersion incompatible version(current=%ld, previous=%ld)",
        long{kVersion}, long{m_manifest.version});
    return IDX_E_FAIL;
}

IDX_Bool IDX_WT_Tree234::_GetManifest(IDX_234Struct_Manifest& oManifest) {
    if (m_file->ReadAt(0, &oManifest, sizeof oManifest)) return IDX_True;
    return TraceNo("IDX_WT_Tree234._GetManifest.IDX_WT_File.ReadAt");
}

IDX_Bool IDX_WT_Tree234::_GetRoot(unsigned int* oRoot) {
    if (oRoot == nullptr) return TraceNo("IDX_WT_Tree234._GetRoot.InvalidOutput");
    *oRoot = 0;
    if (!_GetManifest(m_manifest)) return TraceNo("IDX_WT_Tree234._GetRoot._GetManifest");
    *oRoot = m_manifest.root;
    return IDX_True;
}

IDX_Bool IDX_WT_Tree234::_SetRoot(unsigned int iRoot) {
    if (m_file->WriteAt(kRootOffset, &iRoot, sizeof iRoot)) return IDX_True;
    return TraceNo("IDX_WT_Tree234._SetRoot.IDX_WT_File.WriteAt");
}

IDX_Bool IDX_WT_Tree234::_HasRoot() {
    return _GetManifest(m_manifest) && m_manifest.root != 0 ? IDX_True : IDX_False;
}

IDX_Bool IDX_WT_Tree234::EnumItems(ItemCallback iCallback, void* ioData) {
    if (iCallback == nullptr) return TraceNo("IDX_WT_Tree234.EnumItems.UndefinedCallback");
    if (!_HasRoot()) return IDX_True;
    unsigned int root = 0;
    if (!_GetRoot(&root)) return TraceNo("IDX_WT_Tree234.EnumItems._GetRoot");
    Walk walk;
    if (!_EnumItems(root, iCallback, ioData, walk)) {
        return TraceNo("IDX_WT_Tree234.EnumItems._EnumItems");
    }
    return IDX_True;
}

IDX_Bool IDX_WT_Tree234::_EnumItems(
    unsigned int iNode, ItemCallback iCallback, void* ioData, Walk& ioWalk) {
    if (iCallback == nullptr) return TraceNo("IDX_WT_Tree234._EnumItems.InvalidCallback");
    if (!ioWalk.Enter(iNode)) return TraceNo("IDX_WT_Tree234._EnumItems.InvalidNode");
    Tree234Node node;
    if (!m_file->ReadAt(iNode, &node, kNodeSize)) {
        return TraceNo("IDX_WT_Tree234._EnumItems.IDX_WT_File.ReadAt");
    }
    for (unsigned int i = 0; i <= Tree234Node::kMaxItems; ++i) {
        if (node.LacksChild(i)) return TraceNo("IDX_WT_Tree234._EnumItems.InvalidNode");
        if (node.children[i] != 0 && !_EnumItems(node.children[i], iCallback, ioData, ioWalk)) {
            return TraceNo("IDX_WT_Tree234._EnumItems._EnumItems");
        }
        const bool hasItem = i < Tree234Node::kMaxItems && node.items[i] != 0;
        if (hasItem && !iCallback(this, node.items[i], ioData)) {
            return TraceNo("IDX_WT_Tree234._EnumItems.Callback");
        }
    }
    ioWalk.Leave();
    return IDX_True;
}

/// A search doesn't change what a caller can see, but it uses the scratch fields. No tree is const from
/// the start: nobody could open it.
IDX_Bool IDX_WT_Tree234::Query(const IDX_Base_Identifier& iId, unsigned int& oItemOffset) const {
    return const_cast<IDX_WT_Tree234*>(this)->_Query(nullptr, iId, 0, 0, IDX_False, oItemOffset);
}

IDX_Bool IDX_WT_Tree234::Insert(
    IDX_234Struct_ItemSlot* iItem, const IDX_Base_Identifier& iId, unsigned int& oItemOffset) {
    return _Query(iItem, iId, 0, 0, IDX_True, oItemOffset);
}

IDX_Bool IDX_WT_Tree234::_Query(
    IDX_234Struct_ItemSlot* iItem,
    const IDX_Base_Identifier& iId,
    unsigned int iParentOffset,
    unsigned int iChildIndex,
    IDX_Bool iInsert,
    unsigned int& oItemOffset) {
    oItemOffset = 0;
    Visit visit = {iItem, iId, iInsert != IDX_False, oItemOffset, iParentOffset, iChildIndex};
    for (unsigned int level = 0; level < kMaxLevels; ++level) {
        if (!VisitNode(visit)) return IDX_False;
        if (visit.isFinished) return IDX_True;
    }
    return TraceNo("IDX_WT_Tree234._Query.InvalidNode");
}

/// Finishes the search, or leads it one level down.
bool IDX_WT_Tree234::VisitNode(Visit& ioVisit) {
    if (!ioVisit.insert && !_HasRoot()) return ioVisit.Finish(0);
    if (ioVisit.insert && ioVisit.item == nullptr) {
        return TraceFalse("IDX_WT_Tree234._Query.InvalidItem");
    }
    if (!FindNode(ioVisit)) return false;
    if (ioVisit.insert && ioVisit.node.IsFull() && !Split(ioVisit)) return false;
    if (ioVisit.isFinished) return true;
    return ioVisit.node.IsLeaf() ? SearchLeaf(ioVisit) : SearchInnerNode(ioVisit);
}

bool IDX_WT_Tree234::FindNode(Visit& ioVisit) {
    const bool isFound = ioVisit.parentOffset == 0 ? FindRoot(ioVisit) : FindChild(ioVisit);
    if (!isFound) return false;
    if (ioVisit.nodeOffset == 0) return TraceFalse("IDX_WT_Tree234._Query.InvalidNode");
    if (!m_file->ReadAt(ioVisit.nodeOffset, &ioVisit.node, kNodeSize)) {
        return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.ReadAt (2)");
    }
    PrefetchBelow(ioVisit);
    return true;
}

/// Has the processor fetch the identifiers of the node and its children side by side: read one after the
/// other, each would wait for the one before.
void IDX_WT_Tree234::PrefetchBelow(const Visit& iVisit) const {
    const auto prefetch = [this](unsigned int iOffset, unsigned int iSize) {
        if (m_file == &m_memFile) {
            m_memFile.Prefetch(iOffset, iSize);
        } else if (m_file == &m_diskFile) {
            m_diskFile.Prefetch(iOffset, iSize);
        }
    };
    for (const unsigned int item : iVisit.node.items) {
        if (item != 0) prefetch(item + m_itemSize, kUsualIdentifierSize);
    }
    for (const unsigned int child : iVisit.node.children) {
        if (child != 0) prefetch(child, kNodeSize);
    }
}

bool IDX_WT_Tree234::FindRoot(Visit& ioVisit) {
    if (!_GetRoot(&ioVisit.nodeOffset)) return TraceFalse("IDX_WT_Tree234._Query._GetRoot");
    return ioVisit.nodeOffset != 0 || !ioVisit.insert || AppendEmptyRoot(ioVisit);
}

bool IDX_WT_Tree234::FindChild(Visit& ioVisit) {
    if (!m_file->ReadAt(ioVisit.parentOffset, &ioVisit.parent, kNodeSize)) {
        return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.ReadAt (1)");
    }
    ioVisit.nodeOffset = ioVisit.parent.children[ioVisit.childIndex];
    return true;
}

bool IDX_WT_Tree234::AppendEmptyRoot(Visit& ioVisit) {
    ioVisit.nodeOffset = m_file->GetSize();
    if (!m_file->Write(&ioVisit.node, kNodeSize)) {
        return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.Write (1)");
    }
    if (!_SetRoot(ioVisit.nodeOffset)) return TraceFalse("IDX_WT_Tree234._Query._SetRoot (1)");
    return true;
}

/// Cuts a full node in two: its right half moves to a new node, and its middle item up into the parent, which
/// has room, since it was cut before it was left. Goes on in the half where the identifier belongs.
bool IDX_WT_Tree234::Split(Visit& ioVisit) {
    if (ioVisit.parentOffset == 0 && !AppendParent(ioVisit)) return false;
    return OpenGapInParent(ioVisit) && AppendSibling(ioVisit) && FillGapInParent(ioVisit) &&
           TrimNode(ioVisit) && ChooseHalf(ioVisit);
}

/// Puts a new root above the root.
bool IDX_WT_Tree234::AppendParent(Visit& ioVisit) {
    ioVisit.childIndex = 0;
    ioVisit.parentOffset = m_file->GetSize();
    if (!m_file->Write(&ioVisit.parent, kNodeSize)) {
        return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.Write (2)");
    }
    if (!_SetRoot(ioVisit.parentOffset)) return TraceFalse("IDX_WT_Tree234._Query._SetRoot (2)");
    return true;
}

bool IDX_WT_Tree234::OpenGapInParent(Visit& ioVisit) {
    if (!m_file->ReadAt(ioVisit.parentOffset, &ioVisit.parent, kNodeSize)) {
        return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.ReadAt (3)");
    }
    ioVisit.parent.OpenGap(ioVisit.childIndex);
    if (!m_file->WriteAt(ioVisit.parentOffset, &ioVisit.parent, kNodeSize)) {
        return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.WriteAt (1)");
    }
    return true;
}

bool IDX_WT_Tree234::AppendSibling(Visit& ioVisit) {
    const Tree234Node& node = ioVisit.node;
    if (!m_file->ReadAt(ioVisit.nodeOffset, &ioVisit.node, kNodeSize)) {
        return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.ReadAt (4)");
    }
    ioVisit.sibling = {
        {node.children[2], node.children[3], 0, 0},
        {node.items[2],                0,                    0    }
    };
    ioVisit.siblingOffset = m_file->GetSize();
    if (!m_file->Write(&ioVisit.sibling, kNodeSize)) {
        return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.Write (3)");
    }
    return true;
}

bool IDX_WT_Tree234::FillGapInParent(Visit& ioVisit) {
    ioVisit.parent.items[ioVisit.childIndex] = ioVisit.node.items[1];
    ioVisit.parent.children[ioVisit.childIndex] = ioVisit.nodeOffset;
    ioVisit.parent.children[ioVisit.childIndex + 1] = ioVisit.siblingOffset;
    if (!m_file->WriteAt(ioVisit.parentOffset, &ioVisit.parent, kNodeSize)) {
        return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.WriteAt (3)");
    }
    return true;
}

bool IDX_WT_Tree234::TrimNode(Visit& ioVisit) {
    const Tree234Node& node = ioVisit.node;
    ioVisit.node = {
        {node.children[0], node.children[1], 0, 0},
        {node.items[0],                0,                    0    }
    };
    if (!m_file->WriteAt(ioVisit.nodeOffset, &ioVisit.node, kNodeSize)) {
        return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.WriteAt (4)");
    }
    return true;
}

/// Finishes when the item that moved up has the identifier: its record isn't replaced.
bool IDX_WT_Tree234::ChooseHalf(Visit& ioVisit) {
    const unsigned int middle = ioVisit.parent.items[ioVisit.childIndex];
    if (!ReadIdentifier(middle)) {
        return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.ReadAt (5)");
    }
    short order = 0;
    if (!ioVisit.id.SortCompare(m_id, order)) {
        return TraceFalse("IDX_WT_Tree234._Query.IDX_Base_Identifier.SortCompare (1)");
    }
    if (order == 0) return ioVisit.Finish(middle);
    if (order > 0) {
        ioVisit.nodeOffset = ioVisit.siblingOffset;
        ioVisit.node = ioVisit.sibling;
    }
    return true;
}

bool IDX_WT_Tree234::SearchInnerNode(Visit& ioVisit) {
    const bool isSearched = FindPlace(
        ioVisit, "IDX_WT_Tree234._Query.IDX_WT_File.ReadAt (7)",
        "IDX_WT_Tree234._Query.IDX_Base_Identifier.SortCompare (3)");
    if (!isSearched) return false;
    if (!ioVisit.isThere) return ioVisit.Descend();
    if (!ioVisit.insert) return ioVisit.Finish(ioVisit.node.items[ioVisit.place]);
    return AppendItem(
        ioVisit, "IDX_WT_Tree234._Query.IDX_WT_File.Write(Item) (3)",
        "IDX_WT_Tree234._Query.IDX_WT_File.Write(ItemId) (3)",
        "IDX_WT_Tree234._Query.IDX_WT_File.WriteAt(UpdateNode) (3)");
}

bool IDX_WT_Tree234::SearchLeaf(Visit& ioVisit) {
    const bool isSearched = FindPlace(
        ioVisit, "IDX_WT_Tree234._Query.IDX_WT_File.ReadAt (6)",
        "IDX_WT_Tree234._Query.IDX_Base_Identifier.SortCompare (2)");
    if (!isSearched) return false;
    if (!ioVisit.insert) {
        return ioVisit.Finish(ioVisit.isThere ? ioVisit.node.items[ioVisit.place] : 0);
    }
    if (!ioVisit.isThere) return InsertIntoLeaf(ioVisit);
    return AppendItem(
        ioVisit, "IDX_WT_Tree234._Query.IDX_WT_File.Write(Item) (1)",
        "IDX_WT_Tree234._Query.IDX_WT_File.Write(ItemId) (1)",
        "IDX_WT_Tree234._Query.IDX_WT_File.WriteAt(UpdateNode) (1)");
}

/// Finds the first item of the node that doesn't come before the identifier; its place is the number of items
/// when there is none.
bool IDX_WT_Tree234::FindPlace(Visit& ioVisit, const char* iReadTag, const char* iCompareTag) {
    const Tree234Node& node = ioVisit.node;
    unsigned int& place = ioVisit.place;
    for (place = 0; place < Tree234Node::kMaxItems && node.items[place] != 0; ++place) {
        if (!ReadIdentifier(node.items[place])) return TraceFalse(iReadTag);
        short order = 0;
        if (!ioVisit.id.SortCompare(m_id, order)) return TraceFalse(iCompareTag);
        ioVisit.isThere = order == 0;
        if (order <= 0) break;
    }
    return true;
}

/// The gap is written before the item, and settled behind it.
bool IDX_WT_Tree234::InsertIntoLeaf(Visit& ioVisit) {
    ioVisit.node.OpenGapInItems(ioVisit.place);
    if (!m_file->WriteAt(ioVisit.nodeOffset, &ioVisit.node, kNodeSize)) {
        return TraceFalse("IDX_WT_Tree234._Query.IDX_WT_File.WriteAt (7)");
    }
    return AppendItem(
        ioVisit, "IDX_WT_Tree234._Query.IDX_WT_File.Write(Item) (2)",
        "IDX_WT_Tree234._Query.IDX_WT_File.Write(ItemId) (2)",
        "IDX_WT_Tree234._Query.IDX_WT_File.WriteAt(UpdateNode) (2)");
}

/// Appends record and identifier, and has the place in the node point to them, whatever it pointed to before.
bool IDX_WT_Tree234::AppendItem(
    Visit& ioVisit, const char* iItemTag, const char* iIdentifierTag, const char* iNodeTag) {
    const unsigned int newItem = m_file->GetSize();
    if (!m_file->Write(ioVisit.item, m_itemSize)) return TraceFalse(iItemTag);
    if (!m_file->Write(ioVisit.id)) return TraceFalse(iIdentifierTag);
    ioVisit.node.items[ioVisit.place] = newItem;
    if (!m_file->WriteAt(ioVisit.nodeOffset, &ioVisit.node, kNodeSize)) return TraceFalse(iNodeTag);
    return ioVisit.Finish(newItem);
}

/// Reads the identifier behind a record. An offset past 2^32 fails like any that lies behind the end.
bool IDX_WT_Tree234::ReadIdentifier(unsigned int iItem) {
    constexpr unsigned int kNowhere = std::numeric_limits<unsigned int>::max();
    const unsigned int offset = iItem <= kNowhere - m_itemSize ? iItem + m_itemSize : kNowhere;
    return m_file->ReadAt(offset, m_id) != IDX_False;
}
