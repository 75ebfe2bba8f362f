#ifndef IDX_Base_Buffer_h
#define IDX_Base_Buffer_h

#include "VEXAllocator.h"

#include <vector>

/// A resizable block of bytes. A copy has its own content. No operation fails.
class IDX_Base_Buffer {
public:
    /// Sets the size in bytes. Bytes below the new size keep their value; added ones are zero.
    /// Pointers to the content become invalid.
    void Resize(unsigned int iSize) { _bytes.resize(iSize); }

    /// The content. Valid until the next Resize().
    unsigned char* GetDataForWriting() { return _bytes.data(); }
    const unsigned char* GetData() const { return _bytes.data(); }

    unsigned int GetSize() const { return static_cast<unsigned int>(_bytes.size()); }

private:
    std::vector<unsigned char, VEXAllocator<unsigned char>> _bytes;
};

#endif
