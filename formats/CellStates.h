#ifndef CellStates_h
#define CellStates_h

#include "IDX_Base_Octree_TestResult.h"

// The states of eight cells in one word, two bits each: cell k in bits 2k and 2k+1. The eight are the
// children of a cell; bit 0 of a child's number is the high half along X, bit 1 along Y, bit 2 along Z.

constexpr unsigned int kChildren = 8;

/// The low and the high bit of each of the eight states.
constexpr unsigned int kLowBits = 0x5555;
constexpr unsigned int kHighBits = 0xAAAA;

inline unsigned int StateOf(unsigned int iStates, unsigned int iChild) {
    return iStates >> (2 * iChild) & 3U;
}

/// Replaces the state of one child.
inline void SetState(unsigned short& ioStates, unsigned int iChild, unsigned int iState) {
    const unsigned int shift = 2 * iChild;
    ioStates = static_cast<unsigned short>((ioStates & ~(3U << shift)) | iState << shift);
}

/// The low bit of each child that is OCTREE_PARTIAL.
inline unsigned int PartialChildren(unsigned int iStates) {
    return iStates & ~(iStates >> 1) & kLowBits;
}

/// The low bit of each child that is OCTREE_FULL.
inline unsigned int FullChildren(unsigned int iStates) {
    return iStates >> 1 & ~iStates & kLowBits;
}

/// How many bits are set.
inline unsigned int CountBits(unsigned long long iBits) {
    return static_cast<unsigned int>(__builtin_popcountll(iBits));
}

/// How many children before one are OCTREE_PARTIAL.
inline unsigned int CountPartialBefore(unsigned int iStates, unsigned int iChild) {
    return CountBits(PartialChildren(iStates) & ((1U << (2 * iChild)) - 1));
}

#endif
