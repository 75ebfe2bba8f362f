#ifndef PartTree_h
#define PartTree_h

#include "IDX_WT_Tree234.h"

#include "formats/Damage.h"
#include "formats/PartIndexFiles.h"

#include <functional>
#include <string>
#include <vector>

/// The identifier tree of an index: it leads from a part's identifier to its record. Open it first.
class PartTree final : public IDX_WT_Tree234 {
public:
    /// @param iInMemory  true for the store that is held in memory and written at Close()
    explicit PartTree(bool iInMemory);
    PartTree(const PartTree&) = delete;
    PartTree& operator=(const PartTree&) = delete;
    ~PartTree() override = default;

    const char* GetIndexName() const override { return "Parts"; }

    /// Adds a part whose identifier isn't in the tree yet.
    /// @param oItem  offset of its record in the file
    bool Add(const std::string& iIdentifier, PartRecord iRecord, unsigned int& oItem);

    /// The record of an identifier; `oItem` is 0 when there is none.
    /// @return false when the file can't be read or is damaged
    bool Find(const std::string& iIdentifier, unsigned int& oItem) const;

    /// The record at an offset that the tree or an R-tree gave, and its identifier.
    /// @return false when the file can't be read or there is nothing
    bool Read(unsigned int iItem, PartRecord& oRecord, std::string& oIdentifier) const;

    /// Calls back for each part, in rising byte order of the identifiers.
    /// @param iTake  called with the offset of a record; false ends the walk
    /// @return false when it was ended, and when the file can't be read or is damaged
    bool ForEach(const std::function<bool(unsigned int iItem)>& iTake);

    /// The number of parts, as the manifest tells it. Write it once, after the last part.
    bool WriteCount(unsigned int iParts);

    /// @return false when the manifest can't be read, or isn't that of a part index: only one
    ///         without parts has no root
    bool ReadCount(unsigned int& oParts) const;

private:
    /// Ask this before a search: a manifest that can't be read looks like that of an empty tree to
    /// it.
    bool HasManifest() const;
};

/// Whether bytes are the file of such a tree.
/// @param oItems  offsets of the records, in rising order of their identifiers
Damage CheckPartsFile(
    const unsigned char* iBytes, std::size_t iSize, std::vector<unsigned int>& oItems);

#endif
