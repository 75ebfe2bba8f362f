#include "IDX_Base_ByteArray.h"

#include "RawStorage.h"
#include "SortedBytes.h"

#include <cstdio>
#include <cstring>

namespace {

/// The digit of the low 4 bits.
char HexDigit(unsigned int iValue) {
    return "0123456789abcdef"[iValue & 15];
}

}  // namespace

IDX_Base_ByteArray::IDX_Base_ByteArray(const IDX_Base_ByteArray& iOther) : IDX_Base_ByteArray() {
    SetData(iOther._data, iOther._size);
}

IDX_Base_ByteArray& IDX_Base_ByteArray::operator=(const IDX_Base_ByteArray& iOther) {
    if (this != &iOther) SetData(iOther._data, iOther._size);
    return *this;
}

IDX_Base_ByteArray::~IDX_Base_ByteArray() {
    if (_data != _inside) std::free(_data);
}

void IDX_Base_ByteArray::SetData(const unsigned char* iData, unsigned int iSize) {
    // The new bytes may be part of the present ones, which memmove allows.
    if (iSize > _capacity) {
        _Grow(iData, iSize);
    } else if (iSize > 0) {
        std::memmove(_data, iData, iSize);
    }
    _size = iSize;
}

/// The old block is freed last, since `iData` may point into it.
void IDX_Base_ByteArray::_Grow(const unsigned char* iData, unsigned int iSize) {
    auto* block = static_cast<unsigned char*>(AllocateOrStop(iSize));
    std::memcpy(block, iData, iSize);
    if (_data != _inside) std::free(_data);
    _data = block;
    _capacity = iSize;
}

IDX_Bool IDX_Base_ByteArray::SortCompare(const IDX_Base_ByteArray& iOther, short& oOrder) const {
    oOrder = CompareBytes(_data, _size, iOther._data, iOther._size);
    return IDX_True;
}

void IDX_Base_ByteArray::DumpAsHexa() const {
    for (unsigned int i = 0; i < _size; ++i) std::printf("%02x", _data[i]);
    std::printf("\n");
}

void IDX_Base_ByteArray::DumpAsHexa(char*& oText) const {
    // Two digits for each byte, and the terminator. The size may exceed 32 bits.
    char* text = new (std::nothrow) char[2 * std::size_t{_size} + 1];
    if (text == nullptr) StopForMemory();
    oText = text;
    for (unsigned int i = 0; i < _size; ++i) {
        *text++ = HexDigit(_data[i] >> 4u);
        *text++ = HexDigit(_data[i]);
    }
    *text = '\0';
}

void IDX_Base_ByteArray::DumpPrintable() const {
    for (unsigned int i = 0; i < _size; ++i) {
        const bool printable = _data[i] >= 0x20 && _data[i] < 0x7f;
        std::printf("%c", printable ? _data[i] : '.');
    }
    std::printf("\n");
}
