#ifndef IDX_WT_Identifier_h
#define IDX_WT_Identifier_h

#include "GridloomExport.h"
#include "IDX_Base_ByteArray.h"
#include "IDX_Base_Identifier.h"

/// An identifier of any length. Owns its bytes. Up to 32 bytes need no allocation.
class GRIDLOOM_API IDX_WT_Identifier : public IDX_Base_Identifier {
public:
    IDX_WT_Identifier();
    IDX_WT_Identifier(const IDX_WT_Identifier& iOther);
    IDX_WT_Identifier& operator=(const IDX_WT_Identifier& iOther);

    // The order of the virtual operations is part of the interface.

    ~IDX_WT_Identifier() override;

    /// The bytes. Valid until the identifier is changed or destroyed.
    const unsigned char* GetData() const override { return m_byteArray.GetData(); }

    /// The number of bytes.
    unsigned int GetSize() const override { return m_byteArray.GetSize(); }

    /// Replaces the bytes by a copy of the given ones, which may be none. Sets the additional value
    /// to 0.
    void SetData(const unsigned char* iData, unsigned int iSize);

    /// The array of bytes itself. A change of it keeps the additional value.
    IDX_Base_ByteArray& GetByteArray() { return m_byteArray; }
    const IDX_Base_ByteArray& GetByteArray() const { return m_byteArray; }

    /// Like the operations of IDX_Base_ByteArray. The caller frees `oText` with `delete[]`.
    void DumpAsHexa(char*& oText) const;
    void DumpAsHexa() const;
    void DumpPrintable() const;

protected:
    unsigned int m_auxValue;         ///< an additional value for subclasses, copied with the bytes
    IDX_Base_ByteArray m_byteArray;  ///< the identifier
};

#endif
