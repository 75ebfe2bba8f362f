#include "IDX_Base_Endian.h"

#include <algorithm>
#include <cstring>

namespace {

const unsigned short kOne = 1;

/// Works on bytes only. The swapped bytes of a float may be a signalling NaN, whose bits can change
/// when it is copied as a float.
template <class T>
void ReverseBytes(T& ioValue) {
    unsigned char bytes[sizeof(T)];
    std::memcpy(bytes, &ioValue, sizeof(T));
    std::reverse(bytes, bytes + sizeof(T));
    std::memcpy(&ioValue, bytes, sizeof(T));
}

}  // namespace

const unsigned short& IDX_Base_Endian::one() {
    return kOne;
}

void IDX_Base_Endian::swap(unsigned short& ioValue) {
    ReverseBytes(ioValue);
}

void IDX_Base_Endian::swap(unsigned int& ioValue) {
    ReverseBytes(ioValue);
}

void IDX_Base_Endian::swap(float& ioValue) {
    ReverseBytes(ioValue);
}
