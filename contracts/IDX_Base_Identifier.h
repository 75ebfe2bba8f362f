#ifndef IDX_Base_Identifier_h
#define IDX_Base_Identifier_h

#include "GridloomContractsExport.h"
#include "IDX_Bool.h"

/// The interface of all identifiers: a sequence of bytes.
class GRIDLOOM_CONTRACTS_API IDX_Base_Identifier {
public:
    IDX_Base_Identifier() = default;

    // The order of the virtual operations is part of the interface.

    virtual ~IDX_Base_Identifier();

    /// The bytes. Valid until the identifier is changed or destroyed.
    virtual const unsigned char* GetData() const = 0;

    /// The number of bytes.
    virtual unsigned int GetSize() const = 0;

    /// Compares like IDX_Base_ByteArray::SortCompare(), by the two operations above. Identifiers
    /// are stored in this order, and readers rely on it.
    IDX_Bool SortCompare(const IDX_Base_Identifier& iOther, short& oOrder) const;

protected:
    IDX_Base_Identifier(const IDX_Base_Identifier&) = default;
    IDX_Base_Identifier& operator=(const IDX_Base_Identifier&) = default;
};

#endif
