#include "IDX_WT_Tree234.h"

#include "Tree234Records.h"
#include "Tree234Search.h"
#include "common/Require.h"
#include "common/TraceFailure.h"

#include "IDX_Base_Endian.h"
#include "IDX_Base_Identifier.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

bool HasOurEndian(const IDX_234Struct_Manifest& iManifest) {
    return iManifest.endian == IDX_Base_Endian::one();
}

}  // namespace

/// Keeps a walk through a damaged file from going on for ever.
struct IDX_WT_Tree234::Walk {
    unsigned int level = 0;
    unsigned long long nNodes = 0;
    unsigned long long end = 0;  ///< of the node that lies furthest back in the file

    /// Nodes that don't overlap need their bytes: as long as the nodes before fit before the furthest one's
    /// end, none has to have been visited twice. Two walks down a cycle double with each level.
    bool Enter(unsigned int iNode) {
        end = std::max(end, 0ULL + iNode + kTree234NodeSize);
        return ++level <= kMaxTree234Levels && ++nNodes * kTree234NodeSize <= end;
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
    if (m_manifest.version != kTree234Version) {
        IDX_Base_Trace::Debug(
            "IDX_WT_Tree234.OpenRead.InvalidVersion(current=%ld, previous=%ld)",
            long{kTree234Version}, long{m_manifest.version});
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
    if (m_manifest.version != kTree234Version) {
        IDX_Base_Trace::Debug(
            "IDX_WT_Tree234.OpenWrite.InvalidVersion(current=%ld, previous=%ld)",
            long{kTree234Version}, long{m_manifest.version});
        return IDX_False;
    }
    return CompleteLastWord();
}

IDX_Bool IDX_WT_Tree234::AppendManifest() {
    struct Free {
        void operator()(void* iBytes) const { std::free(iBytes); }
    };
    const std::unique_ptr<void, Free> bytes(std::calloc(1, m_manifestSize));
    const IDX_234Struct_Manifest manifest = {IDX_Base_Endian::one(), kTree234Version, 0};
    if (bytes != nullptr) std::memcpy(bytes.get(), &manifest, sizeof manifest);
    if (bytes == nullptr || !m_file->Write(bytes.get(), m_manifestSize)) {
        return TraceNo("IDX_WT_Tree234.OpenWrite.IDX_WT_File.Write");
    }
    m_file->Flush();
    return IDX_True;
}

/// Has the store end at a multiple of 4. The disk store's end always is at one.
IDX_Bool IDX_WT_Tree234::CompleteLastWord() {
    const unsigned char zeros[kFileAlignment] = {};
    const unsigned int past = m_file->GetSize() % kFileAlignment;
    if (past != 0 && !m_file->Write(zeros, kFileAlignment - past)) {
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
    if (m_manifest.version == kTree234Version) return IDX_S_OK;
    IDX_Base_Trace::Debug(
        "IDX_WT_Tree234.CheckVersion incompatible version(current=%ld, previous=%ld)",
        long{kTree234Version}, long{m_manifest.version});
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
    if (m_file->WriteAt(kTree234RootOffset, &iRoot, sizeof iRoot)) return IDX_True;
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
    if (!m_file->ReadAt(iNode, &node, kTree234NodeSize)) {
        return TraceNo("IDX_WT_Tree234._EnumItems.IDX_WT_File.ReadAt");
    }
    for (unsigned int i = 0; i <= Tree234Node::kMaxItems; ++i) {
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
    const auto searchWith = [&](const auto& cache) {
        Tree234Search search(*this, cache, iItem, iId, iInsert != IDX_False, oItemOffset);
        return search.Run(iParentOffset, iChildIndex) ? IDX_True : IDX_False;
    };
    if (m_file == &m_memFile) return searchWith(CachedBlock(m_memFile));
    if (m_file == &m_diskFile) return searchWith(CachedPages(m_diskFile));
    return searchWith(NothingCached());
}
