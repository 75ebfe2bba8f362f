#include "VEXRawCollPV.h"

#include "RawStorage.h"

#include <algorithm>

VEXRawCollPV::VEXRawCollPV(int iCapacity) : _count(0), _capacity(0), _entries(nullptr) {
    if (iCapacity > 0) _Grow(iCapacity);
}

VEXRawCollPV::VEXRawCollPV(const VEXRawCollPV& iOther)
    : _count(0), _capacity(0), _entries(nullptr) {
    *this = iOther;
}

VEXRawCollPV& VEXRawCollPV::operator=(const VEXRawCollPV& iOther) {
    if (this != &iOther) {
        Size(iOther._count);
        std::copy_n(iOther._entries, iOther._count, _entries);
    }
    return *this;
}

VEXRawCollPV::~VEXRawCollPV() {
    std::free(_entries);
}

void VEXRawCollPV::RemoveAll(VEXCollec::MemoryHandling iHandling) {
    _count = 0;
    if (iHandling == VEXCollec::ReleaseMemory) {
        std::free(_entries);
        _entries = nullptr;
        _capacity = 0;
    }
}

void VEXRawCollPV::RemovePosition(int iPosition) {
    // Positions count from 1, so _entries + iPosition is the entry after the removed one.
    std::copy(_entries + iPosition, _entries + _count, _entries + iPosition - 1);
    --_count;
}

int VEXRawCollPV::Size(int iCount) {
    if (iCount > _capacity) _Grow(iCount);
    if (iCount > _count) std::fill(_entries + _count, _entries + iCount, nullptr);
    _count = iCount;
    return _count;
}

void VEXRawCollPV::_Grow(int iCount) {
    GrowRawStorage(_entries, _capacity, iCount);
}
