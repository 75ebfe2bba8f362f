#ifndef IDX_Base_String_h
#define IDX_Base_String_h

#include "GridloomContractsExport.h"
#include "IDX_Base_ByteArray.h"

/// An array of characters with a length and without a terminator. It owns a copy of its content. Up
/// to 32 characters need no allocation. No operation fails.
class GRIDLOOM_CONTRACTS_API IDX_Base_String {
public:
    IDX_Base_String() = default;
    IDX_Base_String(const IDX_Base_String&) = default;
    IDX_Base_String& operator=(const IDX_Base_String&) = default;
    virtual ~IDX_Base_String();

    /// Replaces the content by a copy of `iLength` characters, which may be part of the present
    /// content. SetData(nullptr, 0) empties the string.
    void SetData(const char* iData, unsigned int iLength);

    /// The characters, not terminated; never null. Valid until the string is changed or destroyed.
    const char* GetData() const { return reinterpret_cast<const char*>(_bytes.GetData()); }

    /// The number of characters.
    unsigned int GetLength() const { return _bytes.GetSize(); }

private:
    IDX_Base_ByteArray _bytes;
};

#endif
