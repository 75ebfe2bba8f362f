#include "VEXRawCollint.h"

#include "RawStorage.h"

VEXRawCollint::VEXRawCollint(int iCapacity) : _count(0), _capacity(0), _entries(nullptr) {
    if (iCapacity > 0) _Grow(iCapacity);
}

VEXRawCollint::~VEXRawCollint() {
    std::free(_entries);
}

void VEXRawCollint::_Grow(int iCount) {
    GrowRawStorage(_entries, _capacity, iCount);
}
