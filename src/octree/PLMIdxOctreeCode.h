#ifndef PLMIdxOctreeCode_h
#define PLMIdxOctreeCode_h

/// The integer position of a cell among the 2^level cells of its level along each axis, copied freely.
/// A default one is the root.
struct PLMIdxOctreeCode {
    unsigned int x = 0;      ///< column, 0 at the low side of the box
    unsigned int y = 0;      ///< row
    unsigned int z = 0;      ///< layer
    unsigned int level = 0;  ///< 0 for the root, 1 for its children, and so on

    /// Steps into a child.
    void AddChild(unsigned int iChild) {
        ++level;
        x = x << 1 | (iChild & 1u);
        y = y << 1 | (iChild >> 1 & 1u);
        z = z << 1 | (iChild >> 2 & 1u);
    }

    /// Steps to the next cell along X (axis 0), Y (1) or Z (2). Nothing checks the range: from a cell of
    /// the high side the value becomes 2^level.
    void Increment(unsigned int iAxis) { ++(iAxis == 0 ? x : iAxis == 1 ? y : z); }

    /// The child number that bit `iBit` spells: bit level - 1 is the step from the root, bit 0 the last.
    /// Of a value 2^level these bits are 0, so that it spells the low side: the box closes on itself.
    unsigned int GetChild(int iBit) const {
        return (x >> iBit & 1u) | (y >> iBit & 1u) << 1 | (z >> iBit & 1u) << 2;
    }

    /// True for a cell that touches the border of the box. For every level.
    bool IsOnBorder() const {
        const unsigned int last = level < 32 ? (1u << level) - 1 : ~0u;
        const auto touches = [last](unsigned int iValue) { return iValue == 0 || iValue == last; };
        return touches(x) || touches(y) || touches(z);
    }
};

#endif
