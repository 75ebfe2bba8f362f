#include "IDX_WT_ListOfIDX_UInt32.h"

#include "common/Require.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace {

constexpr unsigned int kMaxCapacity = std::numeric_limits<unsigned int>::max();
constexpr unsigned int kDefaultCapacity = 11;  ///< as of a list constructed without a size

/// Bytes of a block for that many numbers.
std::size_t BytesFor(unsigned int iCapacity) {
    return iCapacity * sizeof(unsigned int);
}

/// The next capacity: twice the present one, at most kMaxCapacity. So appends take amortised
/// constant time.
unsigned int NextCapacity(unsigned int iCapacity) {
    if (iCapacity == 0) return kDefaultCapacity;
    return iCapacity <= kMaxCapacity / 2 ? 2 * iCapacity : kMaxCapacity;
}

IDX_Bool BoolOf(bool iValue) {
    return iValue ? IDX_True : IDX_False;
}

}  // namespace

IDX_WT_ListOfIDX_UInt32::IDX_WT_ListOfIDX_UInt32(unsigned int iSize)
    : m_capacity(iSize < kMaxCapacity ? iSize + 1 : kMaxCapacity), m_count(0) {
    // One number more than asked for, so that a block never has 0 bytes.
    m_array = static_cast<unsigned int*>(std::malloc(BytesFor(m_capacity)));
    Require(m_array != nullptr, "AssertionFailed:0 != m_array");
}

IDX_WT_ListOfIDX_UInt32::~IDX_WT_ListOfIDX_UInt32() {
    _Release();
}

IDX_Bool IDX_WT_ListOfIDX_UInt32::Append(unsigned int iValue) {
    if (m_count == m_capacity && !_Grow()) return IDX_False;
    m_array[m_count] = iValue;
    ++m_count;
    return IDX_True;
}

IDX_Bool IDX_WT_ListOfIDX_UInt32::Get(unsigned int iPosition, unsigned int& oValue) const {
    if (iPosition >= m_count) return IDX_False;
    oValue = m_array[iPosition];
    return IDX_True;
}

IDX_Bool IDX_WT_ListOfIDX_UInt32::Locate(unsigned int iValue) const {
    const unsigned int* end = m_array + m_count;
    return BoolOf(std::find<const unsigned int*>(m_array, end, iValue) != end);
}

void IDX_WT_ListOfIDX_UInt32::RemoveAll() {
    m_count = 0;
}

IDX_Bool IDX_WT_ListOfIDX_UInt32::RemoveDuplicates() {
    if (m_array == nullptr) return IDX_False;
    // Each number removes its equals after it. The order of the others stays, which a sort would
    // change.
    unsigned int* end = m_array + m_count;
    for (unsigned int* first = m_array; first != end; ++first) {
        end = std::remove(first + 1, end, *first);
    }
    m_count = static_cast<unsigned int>(end - m_array);
    return IDX_True;
}

IDX_Bool IDX_WT_ListOfIDX_UInt32::RemoveLast() {
    if (m_count == 0) return IDX_False;
    --m_count;
    return IDX_True;
}

IDX_Bool IDX_WT_ListOfIDX_UInt32::RemovePosition(unsigned int iPosition) {
    if (iPosition >= m_count) return IDX_False;
    std::copy(m_array + iPosition + 1, m_array + m_count, m_array + iPosition);
    --m_count;
    return IDX_True;
}

IDX_Bool IDX_WT_ListOfIDX_UInt32::Sort() {
    if (m_count >= 2) std::qsort(m_array, m_count, sizeof(*m_array), _Compare);
    return IDX_True;
}

int IDX_WT_ListOfIDX_UInt32::_Compare(void const* iOne, void const* iOther) {
    const unsigned int one = *static_cast<const unsigned int*>(iOne);
    const unsigned int other = *static_cast<const unsigned int*>(iOther);
    // A difference could overflow an int, so the order is formed from two comparisons.
    return (one > other ? 1 : 0) - (one < other ? 1 : 0);
}

/// Enlarges the block. Without memory the old block is freed and all numbers are lost: that is part
/// of the interface.
bool IDX_WT_ListOfIDX_UInt32::_Grow() {
    const unsigned int capacity = NextCapacity(m_capacity);
    void* block = capacity > m_capacity ? std::realloc(m_array, BytesFor(capacity)) : nullptr;
    if (block == nullptr) {
        _Release();
        return false;
    }
    m_array = static_cast<unsigned int*>(block);
    m_capacity = capacity;
    return true;
}

void IDX_WT_ListOfIDX_UInt32::_Release() {
    std::free(m_array);
    m_array = nullptr;
    m_capacity = 0;
    m_count = 0;
}
