#include "PartTree.h"

#include "IDX_WT_File.h"
#include "IDX_WT_Identifier.h"

#include "formats/IdentifierTreeFile.h"

namespace {

constexpr unsigned int kManifestSize = sizeof(IDX_234Struct_Manifest) + sizeof(PartsManifest);
constexpr unsigned int kOwnManifest = sizeof(IDX_234Struct_Manifest);  // offset

IDX_WT_Identifier IdentifierOf(const std::string& iText) {
    IDX_WT_Identifier identifier;
    identifier.SetData(
        reinterpret_cast<const unsigned char*>(iText.data()),
        static_cast<unsigned int>(iText.size()));
    return identifier;
}

}  // namespace

PartTree::PartTree(bool iInMemory) : IDX_WT_Tree234(sizeof(PartRecord), kManifestSize, iInMemory) {}

bool PartTree::Add(const std::string& iIdentifier, PartRecord iRecord, unsigned int& oItem) {
    auto* item = reinterpret_cast<IDX_234Struct_ItemSlot*>(&iRecord);
    return Insert(item, IdentifierOf(iIdentifier), oItem) == IDX_True;
}

bool PartTree::HasManifest() const {
    unsigned int nParts = 0;
    return ReadCount(nParts);
}

bool PartTree::Find(const std::string& iIdentifier, unsigned int& oItem) const {
    return HasManifest() && Query(IdentifierOf(iIdentifier), oItem) == IDX_True;
}

bool PartTree::Read(unsigned int iItem, PartRecord& oRecord, std::string& oIdentifier) const {
    IDX_Base_ByteArray bytes;
    if (m_file->ReadAt(iItem, &oRecord, sizeof oRecord) != IDX_True ||
        m_file->ReadAt(iItem + sizeof oRecord, bytes) != IDX_True) {
        return false;
    }
    oIdentifier.assign(reinterpret_cast<const char*>(bytes.GetData()), bytes.GetSize());
    return true;
}

bool PartTree::ForEach(const std::function<bool(unsigned int iItem)>& iTake) {
    const auto forward = [](IDX_WT_Tree234*, unsigned int item, void* take) {
        const auto& function = *static_cast<const std::function<bool(unsigned int)>*>(take);
        return function(item) ? IDX_True : IDX_False;
    };
    auto take = iTake;
    return HasManifest() && EnumItems(forward, &take) == IDX_True;
}

bool PartTree::WriteCount(unsigned int iParts) {
    const PartsManifest manifest = {kPartsFormat, iParts};
    return m_file->WriteAt(kOwnManifest, &manifest, sizeof manifest) == IDX_True;
}

bool PartTree::ReadCount(unsigned int& oParts) const {
    IDX_234Struct_Manifest tree;
    PartsManifest own;
    if (m_file->ReadAt(0, &tree, sizeof tree) != IDX_True ||
        m_file->ReadAt(kOwnManifest, &own, sizeof own) != IDX_True) {
        return false;
    }
    oParts = own.nParts;
    return own.format == kPartsFormat && (tree.root == 0) == (own.nParts == 0);
}

Damage CheckPartsFile(
    const unsigned char* iBytes, std::size_t iSize, std::vector<unsigned int>& oItems) {
    const IdentifierTreeFile file(iBytes, iSize, kManifestSize, sizeof(PartRecord));
    Damage damage = file.Check(oItems);
    if (damage) return damage;
    const auto manifest = LoadAt<PartsManifest>(iBytes, kOwnManifest);
    if (manifest.format != kPartsFormat) return Damage("isn't the tree of a part index");
    if (manifest.nParts != oItems.size())
        return Damage("its manifest tells another number of parts");
    return {};
}
