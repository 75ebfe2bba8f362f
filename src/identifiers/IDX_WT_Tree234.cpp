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

// Opening, closing and the walk over all items. Tree234Search.h has the look-up and the insertion,
// Tree234Records.h the moves inside a node, formats/IdentifierTreeFile.h the layout of manifest,
// node and item.

namespace {

/// Whether the file has the byte order of this machine. Numbers of the other order would be wrong
/// offsets.
bool HasOurEndian(const IDX_234Struct_Manifest& iManifest) {
    return iManifest.endian == IDX_Base_Endian::one();
}

}  // namespace

/// Ends a walk through a damaged file whose nodes form a cycle.
struct IDX_WT_Tree234::Walk {
    unsigned int level = 0;
    unsigned long long nNodes = 0;
    unsigned long long end = 0;  ///< of the visited node with the highest offset

    /// Counts a node; false when the file is damaged. Nodes don't overlap, so all visited nodes
    /// together fit before `end`. When they don't fit, one of them was visited twice. A limit of
    /// levels alone isn't enough: in a cycle with two ways round, the number of visits doubles at
    /// each level.
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
    if (IsOpened() == IDX_True) Close();
    if (OpenStoreForReading(iPath) == IDX_False) {
        (void)m_file->Close();  // the failure is traced already
        return IDX_False;
    }
    m_openMode = ReadOnly;
    return IDX_True;
}

// The version is checked after the byte order: in a file of the other order it would be another
// number.

IDX_Bool IDX_WT_Tree234::OpenStoreForReading(const char* iPath) {
    if (m_file->OpenRead(iPath) == IDX_False) {
        return TraceNo("IDX_WT_Tree234.OpenRead.IDX_WT_File.OpenRead");
    }
    if (_GetManifest(m_manifest) == IDX_False) {
        return TraceNo("IDX_WT_Tree234.OpenRead._GetManifest");
    }
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
    if (IsOpened() == IDX_True) Close();
    if (OpenStoreForWriting(iPath) == IDX_False) {
        (void)m_file->Close();  // the failure is traced already
        return IDX_False;
    }
    m_openMode = ReadWrite;
    return IDX_True;
}

IDX_Bool IDX_WT_Tree234::OpenStoreForWriting(const char* iPath) {
    if (m_file->OpenWrite(iPath) == IDX_False) {
        return TraceNo("IDX_WT_Tree234.OpenWrite.IDX_WT_File.OpenWrite");
    }
    // An empty file becomes an empty tree; any other must be a tree of this version and byte order.
    if (m_file->GetSize() == 0) return AppendManifest();
    if (_GetManifest(m_manifest) == IDX_False) {
        return TraceNo("IDX_WT_Tree234.OpenWrite._GetManifest");
    }
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
    // The subclass's part of the manifest starts as zeros.
    const std::unique_ptr<void, Free> bytes(std::calloc(1, m_manifestSize));
    const IDX_234Struct_Manifest manifest = {IDX_Base_Endian::one(), kTree234Version, 0};
    if (bytes != nullptr) std::memcpy(bytes.get(), &manifest, sizeof manifest);
    if (bytes == nullptr || m_file->Write(bytes.get(), m_manifestSize) == IDX_False) {
        return TraceNo("IDX_WT_Tree234.OpenWrite.IDX_WT_File.Write");
    }
    m_file->Flush();
    return IDX_True;
}

/// Fills the store up to a multiple of kFileAlignment. Only the store in memory may need it:
/// GetSize() of the disk store is rounded up already.
IDX_Bool IDX_WT_Tree234::CompleteLastWord() {
    const unsigned char zeros[kFileAlignment] = {};
    const unsigned int past = m_file->GetSize() % kFileAlignment;
    if (past != 0 && m_file->Write(zeros, kFileAlignment - past) == IDX_False) {
        return TraceNo("IDX_WT_Tree234.OpenWrite.IDX_WT_File.Write");
    }
    return IDX_True;
}

void IDX_WT_Tree234::Close() {
    if (IsOpened() == IDX_False) return;
    (void)m_file->Close();  // the operation has no result; the store has traced a failure
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
    // The store stays open, in every case: that is part of the interface.
    if (IsOpened() == IDX_True) Close();
    if (m_file->OpenRead(iPath) == IDX_False) {
        return TraceStatus(
            "IDX_WT_Tree234.CheckVersion.IDX_WT_File.OpenRead failed", IDX_E_INVALID_ARGUMENT);
    }
    if (_GetManifest(m_manifest) == IDX_False) {
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
    if (m_file->ReadAt(0, &oManifest, sizeof oManifest) == IDX_False) {
        return TraceNo("IDX_WT_Tree234._GetManifest.IDX_WT_File.ReadAt");
    }
    return IDX_True;
}

/// Reads the manifest again: another object may have written a new root.
IDX_Bool IDX_WT_Tree234::_GetRoot(unsigned int* oRoot) {
    if (oRoot == nullptr) return TraceNo("IDX_WT_Tree234._GetRoot.InvalidOutput");
    *oRoot = 0;
    if (_GetManifest(m_manifest) == IDX_False) {
        return TraceNo("IDX_WT_Tree234._GetRoot._GetManifest");
    }
    *oRoot = m_manifest.root;
    return IDX_True;
}

IDX_Bool IDX_WT_Tree234::_SetRoot(unsigned int iRoot) {
    if (m_file->WriteAt(kTree234RootOffset, &iRoot, sizeof iRoot) == IDX_False) {
        return TraceNo("IDX_WT_Tree234._SetRoot.IDX_WT_File.WriteAt");
    }
    return IDX_True;
}

IDX_Bool IDX_WT_Tree234::_HasRoot() {
    if (_GetManifest(m_manifest) == IDX_False) return IDX_False;
    return m_manifest.root != 0 ? IDX_True : IDX_False;
}

IDX_Bool IDX_WT_Tree234::EnumItems(ItemCallback iCallback, void* ioData) {
    // A manifest that can't be read counts as that of an empty tree; the store has traced why.
    if (iCallback == nullptr) return TraceNo("IDX_WT_Tree234.EnumItems.UndefinedCallback");
    if (_HasRoot() == IDX_False) return IDX_True;
    unsigned int root = 0;
    if (_GetRoot(&root) == IDX_False) return TraceNo("IDX_WT_Tree234.EnumItems._GetRoot");
    Walk walk;
    if (_EnumItems(root, iCallback, ioData, walk) == IDX_False) {
        return TraceNo("IDX_WT_Tree234.EnumItems._EnumItems");
    }
    return IDX_True;
}

IDX_Bool IDX_WT_Tree234::_EnumItems(
    unsigned int iNode, ItemCallback iCallback, void* ioData, Walk& ioWalk) {
    if (iCallback == nullptr) return TraceNo("IDX_WT_Tree234._EnumItems.InvalidCallback");
    if (!ioWalk.Enter(iNode)) return TraceNo("IDX_WT_Tree234._EnumItems.InvalidNode");
    Tree234Node node;
    if (m_file->ReadAt(iNode, &node, kTree234NodeSize) == IDX_False) {
        return TraceNo("IDX_WT_Tree234._EnumItems.IDX_WT_File.ReadAt");
    }
    // Child 0, item 0, child 1, item 1, and so on: the order of the identifiers. The node is a
    // copy, so that the callback may change the file.
    for (unsigned int i = 0; i <= Tree234Node::kMaxItems; ++i) {
        const unsigned int child = node.children[i];
        if (child != 0 && _EnumItems(child, iCallback, ioData, ioWalk) == IDX_False) {
            return TraceNo("IDX_WT_Tree234._EnumItems._EnumItems");
        }
        const bool hasItem = i < Tree234Node::kMaxItems && node.items[i] != 0;
        if (hasItem && iCallback(this, node.items[i], ioData) == IDX_False) {
            return TraceNo("IDX_WT_Tree234._EnumItems.Callback");
        }
    }
    ioWalk.Leave();
    return IDX_True;
}

/// A search changes only the scratch fields. The cast is safe: every open tree was created as a
/// variable that isn't const, since Open isn't const.
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
    // The two stores of our own are searched through the bytes that they have in memory. A subclass
    // may have put another store into m_file: all of its bytes are read by its virtual operations.
    oItemOffset = 0;
    const auto searchWith = [&](const auto& cache) {
        Tree234Search search(*this, cache, iItem, iId, iInsert != IDX_False, oItemOffset);
        return search.Run(iParentOffset, iChildIndex) ? IDX_True : IDX_False;
    };
    if (m_file == &m_memFile) return searchWith(CachedBlock(m_memFile));
    if (m_file == &m_diskFile) return searchWith(CachedPages(m_diskFile));
    return searchWith(NothingCached());
}
