#ifndef PLMIdxOctreeCode_h
#define PLMIdxOctreeCode_h

#include "formats/CellStates.h"

/// The integer position of a cell among the 2^level cells of its level along each axis: the code of
/// a linear octree (I. Gargantini, "Linear octtrees for fast processing of three-dimensional
/// objects", CGIP 20, 1982), with the three coordinates apart. The bits of the coordinates are the
/// way down from the root: each level adds one bit to each. Copied freely. A default one is the
/// root.
struct PLMIdxOctreeCode {
    unsigned int x = 0;      ///< column, 0 at the low side of the box
    unsigned int y = 0;      ///< row
    unsigned int z = 0;      ///< layer
    unsigned int level = 0;  ///< 0 for the root, 1 for its children, and so on

    /// Steps into a child.
    void AddChild(unsigned int iChild) {
        ++level;
        x = x << 1 | HalfOf(iChild, 0);
        y = y << 1 | HalfOf(iChild, 1);
        z = z << 1 | HalfOf(iChild, 2);
    }

    /// Steps to the next cell along X (axis 0), Y (1) or Z (2). From a cell of the high side the
    /// value becomes 2^level: nothing checks the range.
    void Increment(unsigned int iAxis) { ++(iAxis == 0 ? x : iAxis == 1 ? y : z); }

    /// The child that a step of the way down enters. Bit level - 1 is the step from the root, bit 0
    /// the last step. In a value of 2^level these bits are 0, as on the low side: the box closes on
    /// itself.
    unsigned int GetChild(int iBit) const { return ChildNumber(x >> iBit, y >> iBit, z >> iBit); }

    /// True for a cell that touches the border of the box. Works for every level.
    bool IsOnBorder() const {
        const unsigned int last = level < 32 ? (1u << level) - 1 : ~0u;
        const auto touches = [last](unsigned int iValue) { return iValue == 0 || iValue == last; };
        return touches(x) || touches(y) || touches(z);
    }
};

#endif
