#ifndef IDX_WT_ListOfIDX_UInt32_h
#define IDX_WT_ListOfIDX_UInt32_h

#include "GridloomExport.h"
#include "IDX_Bool.h"

/// A growing list of unsigned numbers, in one block that it owns. Positions count from 0. One
/// thread at a time.
class GRIDLOOM_API IDX_WT_ListOfIDX_UInt32 {
public:
    /// An empty list with memory for `iSize` + 1 numbers, at most 2^32 - 1. Fatal stop without
    /// memory.
    explicit IDX_WT_ListOfIDX_UInt32(unsigned int iSize = 10);
    ~IDX_WT_ListOfIDX_UInt32();
    IDX_WT_ListOfIDX_UInt32(const IDX_WT_ListOfIDX_UInt32&) = delete;
    IDX_WT_ListOfIDX_UInt32& operator=(const IDX_WT_ListOfIDX_UInt32&) = delete;

    /// Adds a number at the end. Amortised constant time.
    /// @return IDX_False when there is no memory; then the list has lost all its numbers. A later
    ///         Append() works again, with a new block
    IDX_Bool Append(unsigned int iValue);

    /// The number at a position; IDX_False when there is none.
    IDX_Bool Get(unsigned int iPosition, unsigned int& oValue) const;

    /// Whether a number is in the list. Linear time.
    IDX_Bool Locate(unsigned int iValue) const;

    /// Empties the list and keeps its block.
    void RemoveAll();

    /// Removes all numbers that are equal to an earlier one. The order of the others stays. Takes n
    /// * m steps for n numbers of which m stay.
    /// @return IDX_False without a block, which is the state after a failed Append()
    IDX_Bool RemoveDuplicates();

    /// Removes the last number; IDX_False when there is none.
    IDX_Bool RemoveLast();

    /// Removes the number at a position and moves the numbers after it down by one. IDX_False when
    /// there is none.
    IDX_Bool RemovePosition(unsigned int iPosition);

    /// How many numbers are in the list.
    unsigned int Size() const { return m_count; }

    /// Sorts the numbers in rising order. Always IDX_True.
    IDX_Bool Sort();

private:
    static int _Compare(void const* iOne, void const* iOther);
    bool _Grow();
    void _Release();

    unsigned int* m_array;    ///< the block; null after a growth that failed
    unsigned int m_capacity;  ///< numbers that the block can hold
    unsigned int m_count;     ///< numbers in the list
};

#endif
