#ifndef IDX_Base_ByteArray_h
#define IDX_Base_ByteArray_h

#include "GridloomContractsExport.h"
#include "IDX_Bool.h"

/// An array of bytes that owns a copy of its content. Up to 32 bytes are stored inside the object,
/// so that a short key needs no allocation. No operation fails: without memory the process ends.
class GRIDLOOM_CONTRACTS_API IDX_Base_ByteArray {
public:
    IDX_Base_ByteArray() : _data(_inside), _size(0), _capacity(sizeof(_inside)) {}
    IDX_Base_ByteArray(const IDX_Base_ByteArray& iOther);
    IDX_Base_ByteArray& operator=(const IDX_Base_ByteArray& iOther);
    virtual ~IDX_Base_ByteArray();

    /// Replaces the content by a copy of `iSize` bytes, which may be part of the present content.
    /// SetData(nullptr, 0) empties the array. Allocated memory is kept for later content.
    void SetData(const unsigned char* iData, unsigned int iSize);

    /// The content; never null. Valid until the array is changed or destroyed.
    const unsigned char* GetData() const { return _data; }

    /// The number of bytes.
    unsigned int GetSize() const { return _size; }

    /// Compares like memcmp over the shorter length. When these bytes are equal, the shorter array
    /// is first.
    /// @param oOrder  -1 when this one comes before `iOther`, 0 when they are equal, 1 when it
    ///                comes after
    /// @return IDX_True: any two arrays can be compared
    IDX_Bool SortCompare(const IDX_Base_ByteArray& iOther, short& oOrder) const;

    /// Prints the content to the standard output: two digits (0-9, a-f) for each byte, then a
    /// newline.
    void DumpAsHexa() const;

    /// Sets `oText` to the digits as a terminated text. The caller frees it with `delete[]`.
    void DumpAsHexa(char*& oText) const;

    /// Prints the content to the standard output, then a newline. A byte that isn't a printable
    /// ASCII character is printed as a dot.
    void DumpPrintable() const;

private:
    /// Replaces the content by one that needs a larger block.
    void _Grow(const unsigned char* iData, unsigned int iSize);

    unsigned char* _data;       ///< `_inside`, or a block
    unsigned int _size;         ///< bytes in use
    unsigned int _capacity;     ///< bytes at `_data`
    unsigned char _inside[32];  ///< large enough for a key of two ids
};

#endif
