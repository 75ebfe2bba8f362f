#ifndef IDX_Base_ByteArray_h
#define IDX_Base_ByteArray_h

#include "GridloomContractsExport.h"
#include "IDX_Bool.h"

/// An array of bytes with a copy of its own of what it is given. Up to 32 bytes are held inside the
/// object, so that a short key costs no allocation. An array that can't grow for want of memory
/// ends the process: none of its operations fails.
class GRIDLOOM_CONTRACTS_API IDX_Base_ByteArray {
public:
    IDX_Base_ByteArray() : _data(_inside), _size(0), _capacity(sizeof(_inside)) {}
    IDX_Base_ByteArray(const IDX_Base_ByteArray& iOther);
    IDX_Base_ByteArray& operator=(const IDX_Base_ByteArray& iOther);
    virtual ~IDX_Base_ByteArray();

    /// Replaces the content by a copy of `iSize` bytes, which may be part of the present content.
    /// SetData(nullptr, 0) empties the array. Memory that was taken is used again.
    void SetData(const unsigned char* iData, unsigned int iSize);

    /// The content; never null. Valid until the array is changed or destroyed.
    const unsigned char* GetData() const { return _data; }

    /// The number of bytes.
    unsigned int GetSize() const { return _size; }

    /// Compares as memcmp over the shorter length; of two that agree so far the shorter is first.
    /// @param oOrder  -1 when this one comes before `iOther`, 0 when they are equal, 1 behind it
    /// @return IDX_True: any two arrays can be compared
    IDX_Bool SortCompare(const IDX_Base_ByteArray& iOther, short& oOrder) const;

    /// Prints the content on the standard output, two digits (0-9, a-f) for each byte, and a newline.
    void DumpAsHexa() const;

    /// Gives the digits as a terminated text, which the caller frees with `delete[]`.
    void DumpAsHexa(char*& oText) const;

    /// Prints the content on the standard output, and a newline. What isn't a printable character of
    /// ASCII shows as a dot.
    void DumpPrintable() const;

private:
    void _Grow(const unsigned char* iData, unsigned int iSize);

    unsigned char* _data;       ///< `_inside`, or a block
    unsigned int _size;         ///< bytes in use
    unsigned int _capacity;     ///< bytes at `_data`
    unsigned char _inside[32];  ///< a key of two ids fits
};

#endif
