#ifndef CellStates_h
#define CellStates_h

#include "IDX_Base_Octree_TestResult.h"

// The eight children of a cell, and their states in one word.
//
// Bit 0 of a child's number is set in the high half along X, bit 1 along Y, bit 2 along Z. A set of
// children is a mask with bit k for child k. The eight states are a word of 16 bits, two bits each:
// the state of child k is in bits 2k and 2k+1.

constexpr unsigned int kChildren = 8;
constexpr unsigned int kAllChildren = 0xFF;

/// The children in the low and in the high half along X, Y and Z, as masks.
constexpr unsigned int kChildrenInHalf[3][2] = {
    {0x55, 0xAA},
    {0x33, 0xCC},
    {0x0F, 0xF0}
};

/// The low and the high bit of each of the eight states.
constexpr unsigned int kLowBits = 0x5555;
constexpr unsigned int kHighBits = 0xAAAA;

/// The number of the child that lies in the half of each axis that the lowest bit names: 0 low, 1
/// high.
constexpr unsigned int ChildNumber(unsigned int iX, unsigned int iY, unsigned int iZ) {
    return (iX & 1U) | (iY & 1U) << 1U | (iZ & 1U) << 2U;
}

/// 1 when a child lies in the high half along an axis (0 to 2), else 0.
constexpr unsigned int HalfOf(unsigned int iChild, unsigned int iAxis) {
    return iChild >> iAxis & 1U;
}

constexpr unsigned int StateOf(unsigned int iStates, unsigned int iChild) {
    return iStates >> (2 * iChild) & 3U;
}

/// The bits of a state at the place of a child, all others 0.
constexpr unsigned int StateAt(unsigned int iState, unsigned int iChild) {
    return iState << (2 * iChild);
}

/// Replaces the state of one child.
inline void SetState(unsigned short& ioStates, unsigned int iChild, unsigned int iState) {
    const unsigned int others = ioStates & ~StateAt(3U, iChild);
    ioStates = static_cast<unsigned short>(others | StateAt(iState, iChild));
}

/// The low bit of each child that is OCTREE_PARTIAL.
constexpr unsigned int PartialChildren(unsigned int iStates) {
    return iStates & ~(iStates >> 1) & kLowBits;
}

/// The low bit of each child that is OCTREE_FULL.
constexpr unsigned int FullChildren(unsigned int iStates) {
    return iStates >> 1 & ~iStates & kLowBits;
}

/// From the low bits of eight states to a mask of children: squeezes out the bits between them. The
/// letters are the bits, highest first.
constexpr unsigned int MaskOfChildren(unsigned int iLowBits) {
    unsigned int bits = iLowBits & kLowBits;  // .a.b.c.d.e.f.g.h
    bits = (bits | bits >> 1) & 0x3333U;      // ..ab..cd..ef..gh
    bits = (bits | bits >> 2) & 0x0F0FU;      // ....abcd....efgh
    return (bits | bits >> 4) & 0x00FFU;      // ........abcdefgh
}

/// How many bits are set.
inline unsigned int CountBits(unsigned long long iBits) {
    return static_cast<unsigned int>(__builtin_popcountll(iBits));
}

/// How many children before one are OCTREE_PARTIAL.
inline unsigned int CountPartialBefore(unsigned int iStates, unsigned int iChild) {
    const unsigned int before = StateAt(1U, iChild) - 1;
    return CountBits(PartialChildren(iStates) & before);
}

#endif
