#ifndef OpenTree_h
#define OpenTree_h

#include "ByteTexts.h"

#include "IDX_WT_Tree234.h"

#include <vector>

/// A tree whose records are the caller's bytes, with all that subclasses may use open to tests.
class OpenTree : public IDX_WT_Tree234 {
public:
    OpenTree(unsigned int itemSize, unsigned int manifestSize, bool inMemory)
        : IDX_WT_Tree234(itemSize, manifestSize, inMemory) {}
    ~OpenTree() override = default;

    const char* GetIndexName() const override { return "OpenTree"; }

    IDX_Bool Add(std::string record, const std::string& id, unsigned int& itemOffset) {
        auto* item = reinterpret_cast<IDX_234Struct_ItemSlot*>(record.data());
        return Insert(record.empty() ? nullptr : item, IdOf(id), itemOffset);
    }
    IDX_Bool Find(const std::string& id, unsigned int& itemOffset) const {
        return Query(IdOf(id), itemOffset);
    }

    /// The offsets that a walk gives, and the result of the walk.
    IDX_Bool Walk(std::vector<unsigned int>& items) {
        const ItemCallback collect = [](IDX_WT_Tree234*, unsigned int item, void* data) {
            static_cast<std::vector<unsigned int>*>(data)->push_back(item);
            return IDX_True;
        };
        return EnumItems(collect, &items);
    }

    IDX_WT_File& Store() { return *m_file; }
    void SetStore(IDX_WT_File& store) { m_file = &store; }

private:
    static IDX_WT_Identifier IdOf(const std::string& id) {
        IDX_WT_Identifier identifier;
        identifier.GetByteArray() = ArrayOf(id);
        return identifier;
    }
};

#endif
