#ifndef IDX_WT_Tree234_h
#define IDX_WT_Tree234_h

#include "GridloomExport.h"
#include "IDX_Bool.h"
#include "IDX_WT_File.h"
#include "IDX_WT_Identifier.h"
#include "IDX_WT_MemFile.h"

#include "formats/IdentifierTreeFile.h"

class IDX_Base_Identifier;

template <class Cache>
class Tree234Search;

/// A dictionary on disk: it maps identifiers to records of a fixed size, in one file with a 2-3-4
/// tree. docs/file-formats.md, "Identifier tree file". A sequence of calls determines each byte of
/// the file. Only the store in memory writes up to 3 zero bytes more at its end.
///
/// An insertion goes from the root to a leaf once. It splits each full node on its way down, so it
/// never has to go back up: L. J. Guibas, R. Sedgewick, "A dichromatic framework for balanced
/// trees", FOCS 1978. No node stays in memory: each step reads its node from the store and writes
/// it back. Records are never removed.
///
/// A subclass sets the sizes and the content of its record and its manifest. It appends records by
/// Insert(). It reads and changes them in `m_file`, at the offsets that Insert() and Query()
/// return. Call an Open operation first, then any others, then Close().
///
/// Owns two stores and uses one of them: a file of the disk, shared by all objects with the same
/// path, or a file in memory, which is written at Close(). One thread at a time for one tree, even
/// for Query().
class GRIDLOOM_API IDX_WT_Tree234 {
public:
    /// Called by EnumItems() for each item. IDX_False ends the walk.
    /// @param iItemOffset  offset of the record in the store
    /// @param ioData       the argument of EnumItems()
    typedef IDX_Bool (*ItemCallback)(
        IDX_WT_Tree234* ioTree, unsigned int iItemOffset, void* ioData);

    IDX_WT_Tree234(const IDX_WT_Tree234&) = delete;
    IDX_WT_Tree234& operator=(const IDX_WT_Tree234&) = delete;

    // The order of the virtual operations is part of the interface.

    /// Opens an existing tree for reading. An open tree is closed first. After a failure the store
    /// is closed.
    /// Tags: the store's, then "IDX_WT_Tree234.OpenRead.IDX_WT_File.OpenRead";
    /// "IDX_WT_Tree234.OpenRead._GetManifest" (fewer than 8 bytes), ".InvalidEndian",
    /// ".InvalidVersion(current=%ld, previous=%ld)".
    virtual IDX_Bool OpenRead(const char* iPath);

    /// Opens a tree for reading and writing. A missing or empty file becomes an empty tree. An open
    /// tree is closed first. After a failure the store is closed. A file whose size isn't a
    /// multiple of 4 is filled up with zero bytes.
    /// Tags: the store's, then "IDX_WT_Tree234.OpenWrite.IDX_WT_File.OpenWrite"; those of
    /// OpenRead() with OpenWrite in their place; "IDX_WT_Tree234.OpenWrite.IDX_WT_File.Write" (no
    /// memory for the manifest, too).
    virtual IDX_Bool OpenWrite(const char* iPath);

    /// Closes the store, if open. The result of the store is ignored.
    virtual void Close();

    /// The name of the index, for messages. The subclass owns the text.
    virtual const char* GetIndexName() const = 0;

protected:
    /// Closes the store if open. A store that a subclass has put into `m_file` must still exist.
    virtual ~IDX_WT_Tree234();

    /// A tree that isn't open. Fatal stop for sizes below those of the two structures above.
    /// @param iItemSize       bytes of a record, a multiple of 4
    /// @param iManifestSize   bytes of the manifest
    /// @param iUseMemoryFile  true for the store in memory, false for the disk
    IDX_WT_Tree234(unsigned int iItemSize, unsigned int iManifestSize, bool iUseMemoryFile);

public:
    IDX_Bool IsOpened() const;
    IDX_Bool IsRead() const;       ///< open, in either mode
    IDX_Bool IsReadWrite() const;  ///< open by OpenWrite()

    /// Whether a file has this version of the format. Ignores its byte order. An open tree is
    /// closed first. After the call the store is open for reading, until OpenWrite() or the
    /// destructor, but IsOpened() gives IDX_False.
    /// Tags: the store's, then "IDX_WT_Tree234.CheckVersion.IDX_WT_File.OpenRead failed",
    /// "IDX_WT_Tree234.CheckVersion._GetManifest failed",
    /// "IDX_WT_Tree234.CheckVersion incompatible version(current=%ld, previous=%ld)".
    /// @return IDX_S_OK; IDX_E_INVALID_ARGUMENT when it can't be read; IDX_E_FAIL for another
    /// version
    long int CheckVersion(const char* iPath);

    /// Calls `iCallback` for all items of the tree, in rising order of their identifiers. IDX_True
    /// for an empty tree and for a manifest that can't be read. In a damaged file a missing child
    /// is skipped.
    /// Tags: "IDX_WT_Tree234.EnumItems.UndefinedCallback"; "IDX_WT_Tree234._EnumItems.Callback" (it
    /// gave IDX_False), ".IDX_WT_File.ReadAt", ".InvalidNode" (a damaged file: deeper than 32
    /// levels, or more nodes than fit into it); then "IDX_WT_Tree234._EnumItems._EnumItems" for
    /// each level above, and "IDX_WT_Tree234.EnumItems._EnumItems".
    IDX_Bool EnumItems(ItemCallback iCallback, void* ioData);

    /// Looks up an identifier. Takes time proportional to the height of the tree.
    /// @param oItemOffset  offset of its record; 0 when there is none, and after a failure
    /// @return IDX_True, also when the identifier isn't in the tree or the manifest can't be read;
    ///         IDX_False, with tags that start with "IDX_WT_Tree234._Query", when the store fails
    ///         or the file is damaged (".InvalidNode")
    IDX_Bool Query(const IDX_Base_Identifier& iId, unsigned int& oItemOffset) const;

protected:
    /// Appends a record and makes it the record of its identifier. An older record of the
    /// identifier stays in the file, but nothing refers to it any more.
    ///
    /// There is one exception: when the way down splits a full node and the identifier is that of
    /// the node's middle item, the new record isn't written and the old one stays valid. The result
    /// doesn't say which of the three cases it was.
    ///
    /// After a failure the file keeps the writes that were made before it. They can't be undone.
    /// @param iItem        the record, of the size that the subclass has set
    /// @param oItemOffset  offset of the record that `iId` has now; 0 after a failure
    /// @return IDX_False with tags that start with "IDX_WT_Tree234._Query"
    IDX_Bool Insert(
        IDX_234Struct_ItemSlot* iItem, const IDX_Base_Identifier& iId, unsigned int& oItemOffset);

private:
    enum OpenMode : unsigned int { NotOpened = 0, ReadOnly = 1, ReadWrite = 2 };

    struct Walk;

    template <class Cache>
    friend class Tree234Search;

    IDX_WT_File m_diskFile;
    IDX_WT_MemFile m_memFile;

protected:
    IDX_WT_File* m_file;  ///< the store: one of the two above, unless a subclass sets another one

private:
    unsigned int m_itemSize;      ///< bytes of a record
    unsigned int m_manifestSize;  ///< bytes of the manifest
    OpenMode m_openMode;
    IDX_WT_Identifier m_id;             ///< scratch: the identifier that is compared
    IDX_234Struct_Manifest m_manifest;  ///< scratch: read from the store before every use

    IDX_Bool OpenStoreForReading(const char* iPath);
    IDX_Bool OpenStoreForWriting(const char* iPath);
    IDX_Bool AppendManifest();
    IDX_Bool CompleteLastWord();

    IDX_Bool _GetManifest(IDX_234Struct_Manifest& oManifest);
    IDX_Bool _GetRoot(unsigned int* oRoot);
    IDX_Bool _SetRoot(unsigned int iRoot);
    IDX_Bool _HasRoot();

    /// Visits a node and all nodes below it.
    IDX_Bool _EnumItems(unsigned int iNode, ItemCallback iCallback, void* ioData, Walk& ioWalk);

    /// Looks up or inserts, from a child of a node on, or from the root when `iParentOffset` is 0.
    IDX_Bool _Query(
        IDX_234Struct_ItemSlot* iItem,
        const IDX_Base_Identifier& iId,
        unsigned int iParentOffset,
        unsigned int iChildIndex,
        IDX_Bool iInsert,
        unsigned int& oItemOffset);
};

#endif
