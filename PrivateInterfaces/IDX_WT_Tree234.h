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

/// A dictionary on disk: it maps identifiers to records of a fixed size, in one file that holds a 2-3-4
/// tree. docs/file-formats.md, "Identifier tree file". The file after any sequence of calls is settled to
/// the byte, but for up to 3 zero bytes behind its last one, which the memory store alone writes.
///
/// Insertion goes from the root to a leaf once and splits each full node that it meets, so that nothing
/// travels back up: L. J. Guibas, R. Sedgewick, "A dichromatic framework for balanced trees", FOCS 1978. Nothing
/// of the tree is kept in memory: each step reads its node from the store, and writes it back. Records are
/// never removed.
///
/// A subclass says how large its record and its manifest are and what they hold. It appends records by
/// Insert(), and reads and changes them in `m_file` at the offsets that it is given. Open first; then any number
/// of calls; Close() at the end.
///
/// Owns its two stores, of which it uses one: a file of the disk, which is shared by all who have the path open,
/// or a file held in memory, which is written at Close(). One thread at a time for one tree, even for Query().
class GRIDLOOM_API IDX_WT_Tree234 {
public:
    /// Told one item of EnumItems(). IDX_False ends the walk.
    /// @param iItemOffset  offset of the record in the store
    /// @param ioData       as given to EnumItems()
    typedef IDX_Bool (*ItemCallback)(
        IDX_WT_Tree234* ioTree, unsigned int iItemOffset, void* ioData);

    IDX_WT_Tree234(const IDX_WT_Tree234&) = delete;
    IDX_WT_Tree234& operator=(const IDX_WT_Tree234&) = delete;

    // The order of the virtual operations is part of the interface.

    /// Opens an existing tree for reading. What is open is closed first. A tree that can't be opened leaves the
    /// store closed.
    /// Tags: the store's, then "IDX_WT_Tree234.OpenRead.IDX_WT_File.OpenRead";
    /// "IDX_WT_Tree234.OpenRead._GetManifest" (fewer than 8 bytes), ".InvalidEndian",
    /// ".InvalidVersion(current=%ld, previous=%ld)".
    virtual IDX_Bool OpenRead(const char* iPath);

    /// Opens a tree for reading and writing. A file that isn't there or is empty becomes an empty tree. What is
    /// open is closed first. A tree that can't be opened leaves the store closed. A file whose end isn't at a
    /// multiple of 4 is filled up to it with zero bytes.
    /// Tags: the store's, then "IDX_WT_Tree234.OpenWrite.IDX_WT_File.OpenWrite"; those of OpenRead() with
    /// OpenWrite in their place; "IDX_WT_Tree234.OpenWrite.IDX_WT_File.Write" (no memory for the manifest, too).
    virtual IDX_Bool OpenWrite(const char* iPath);

    /// Closes the store, if open; what the store says of it is dropped.
    virtual void Close();

    /// The name of the index, for messages. The text is the subclass's.
    virtual const char* GetIndexName() const = 0;

protected:
    /// Closes the store if open. In a subclass that has put a store of its own into `m_file`, that store must
    /// still be there.
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

    /// Whether a file is of this format's version. Doesn't look at its byte order. What is open is closed first,
    /// and the store stays open for reading behind it, until OpenWrite() or the destructor; the tree counts as closed.
    /// Tags: the store's, then "IDX_WT_Tree234.CheckVersion.IDX_WT_File.OpenRead failed",
    /// "IDX_WT_Tree234.CheckVersion._GetManifest failed",
    /// "IDX_WT_Tree234.CheckVersion incompatible version(current=%ld, previous=%ld)".
    /// @return IDX_S_OK; IDX_E_INVALID_ARGUMENT when it can't be read; IDX_E_FAIL for another version
    long int CheckVersion(const char* iPath);

    /// Calls back for all items that can be reached, in rising order of their identifiers. IDX_True for an empty
    /// tree, for a manifest that can't be read, and where a damaged file lacks a child: the walk goes on behind it.
    /// Tags: "IDX_WT_Tree234.EnumItems.UndefinedCallback"; "IDX_WT_Tree234._EnumItems.Callback" (it gave
    /// IDX_False), ".IDX_WT_File.ReadAt", ".InvalidNode" (a damaged file: deeper than 32 levels, or more nodes
    /// than fit into it); then "IDX_WT_Tree234._EnumItems._EnumItems" for each level above,
    /// and "IDX_WT_Tree234.EnumItems._EnumItems".
    IDX_Bool EnumItems(ItemCallback iCallback, void* ioData);

    /// Looks an identifier up, in time that grows with the height of the tree.
    /// @param oItemOffset  offset of its record; 0 when there is none, and after a failure
    /// @return IDX_True also when it isn't there, or the manifest can't be read; IDX_False with tags that start with
    ///         "IDX_WT_Tree234._Query" when the store fails or the file is damaged (".InvalidNode")
    IDX_Bool Query(const IDX_Base_Identifier& iId, unsigned int& oItemOffset) const;

protected:
    /// Appends a record and makes it that of its identifier. One that stood for it before stays in the file and
    /// can't be reached any more.
    ///
    /// In one case the record isn't written, and the old one stays in force: when its identifier is that of the
    /// middle item of a full node on the way down. Nothing tells which of these three has happened.
    ///
    /// A failure leaves the file as the writes so far have made it. There is no way back.
    /// @param iItem        itemSize bytes
    /// @param oItemOffset  offset of the record that now stands for `iId`; 0 after a failure
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
    IDX_WT_File* m_file;  ///< the store: one of the two above

private:
    unsigned int m_itemSize;      ///< bytes of a record
    unsigned int m_manifestSize;  ///< bytes of the manifest
    OpenMode m_openMode;
    IDX_WT_Identifier m_id;             ///< scratch: the identifier under comparison
    IDX_234Struct_Manifest m_manifest;  ///< scratch: as read last; read anew before every use

    IDX_Bool OpenStoreForReading(const char* iPath);
    IDX_Bool OpenStoreForWriting(const char* iPath);
    IDX_Bool AppendManifest();
    IDX_Bool CompleteLastWord();

    IDX_Bool _GetManifest(IDX_234Struct_Manifest& oManifest);
    IDX_Bool _GetRoot(unsigned int* oRoot);
    IDX_Bool _SetRoot(unsigned int iRoot);
    IDX_Bool _HasRoot();

    /// Visits a node and all below it.
    IDX_Bool _EnumItems(unsigned int iNode, ItemCallback iCallback, void* ioData, Walk& ioWalk);

    /// Looks up or inserts, from a child of a node on or, if `iParentOffset` is 0, from the root.
    IDX_Bool _Query(
        IDX_234Struct_ItemSlot* iItem,
        const IDX_Base_Identifier& iId,
        unsigned int iParentOffset,
        unsigned int iChildIndex,
        IDX_Bool iInsert,
        unsigned int& oItemOffset);
};

#endif
