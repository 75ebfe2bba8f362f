#ifndef WorkingOctreeRecords_h
#define WorkingOctreeRecords_h

#include "IDX_Base_Octree_TestResult.h"
#include "PLMIdxWTWorkingOctree.h"

#include "formats/CellStates.h"

#include <cstddef>
#include <type_traits>

/// The tag of what lies outside. A fill gives all others out anew, from 2.
constexpr unsigned short kOutside = 1;

/// Record of a cell that lies three or more levels above the bottom. 52 bytes.
struct Node {
    unsigned short states;     //  0   2  state of child i in bits 2i and 2i+1
    unsigned short reserved;   //  2   2  zero
    unsigned int children[8];  //  4  32  offset of child i's record when it is partial
    unsigned short tags[8];    // 36  16  tag of child i
};
static_assert(sizeof(Node) == 52 && offsetof(Node, children) == 4, "working octree: Node");
static_assert(offsetof(Node, tags) == 36, "working octree: Node");
static_assert(std::is_trivially_copyable<Node>::value, "working octree: Node is bytes");

/// Record of a cell two levels above the bottom: 8 leaf groups of 8 cells. 160 bytes.
struct NodeSet {
    unsigned short words[8];     //  0  16  leaf group i: cell j in bits 2j and 2j+1
    unsigned short tagIndex[8];  // 16  16  7 i + 8: leads from a word to its tags
    unsigned short tags[8][8];   // 32 128  tag of cell j of leaf group i
};
static_assert(
    sizeof(NodeSet) == 160 && offsetof(NodeSet, tagIndex) == 16, "working octree: NodeSet");
static_assert(offsetof(NodeSet, tags) == 32, "working octree: NodeSet");
static_assert(std::is_trivially_copyable<NodeSet>::value, "working octree: NodeSet is bytes");

/// Words of leaf groups that are one cell as a whole; any other is subdivided.
constexpr unsigned short kEmptyGroup = 0;
constexpr unsigned short kFullGroup = kHighBits;

inline bool IsSplitGroup(unsigned short iWord) {
    return iWord != kEmptyGroup && iWord != kFullGroup;
}

inline IDX_Base_Octree_TestResult StateOfGroup(unsigned short iWord) {
    if (iWord == kEmptyGroup) return OCTREE_EMPTY;
    return iWord == kFullGroup ? OCTREE_FULL : OCTREE_PARTIAL;
}

/// The tags of the leaf group whose word stands at `iWord`, in a node set. An iterator holds the place
/// of the word alone: with group i, tagIndex is 8 words on, and the tags begin at word
/// tagIndex + 8 = 7 i + 16 from here, which is word 8 i + 16 of the record.
inline unsigned short* TagsOfGroup(unsigned short* iWord) {
    return iWord + iWord[8] + 8;
}

/// The library's own way to the records of a working octree, without a call for each cell.
struct WorkingOctreeAccess {
    static unsigned char* Arena(const PLMIdxWorkingOctree& iOctree) { return iOctree._buffer; }

    /// False for an octree of depth 0 and for one whose root record couldn't be had.
    static bool HasRoot(const PLMIdxWorkingOctree& iOctree) { return iOctree._size != 0; }
    static bool HasArena(const PLMIdxWorkingOctree& iOctree) { return iOctree._buffer != nullptr; }

    /// Bytes of the arena that are left.
    static unsigned int Room(const PLMIdxWTWorkingOctree& iOctree) {
        return iOctree._capacity - iOctree._size;
    }

    static int* Counts(PLMIdxWTWorkingOctree& iOctree) { return iOctree._nCellsByDepth; }
    static unsigned int Changes(const PLMIdxWTWorkingOctree& iOctree) { return iOctree._changes; }

    /// Tells whether tags are there that a fill doesn't know, and that they are there from now on.
    static bool IsTagged(const PLMIdxWTWorkingOctree& iOctree) { return iOctree._tagged; }
    static void NoteFill(PLMIdxWTWorkingOctree& ioOctree) {
        ioOctree._tagged = true;
        ++ioOctree._changes;
    }
};

/// Records lie at multiples of 4 in an arena from malloc, so that they are used where they lie.
inline Node& NodeAt(unsigned char* iArena, unsigned int iOffset) {
    return *reinterpret_cast<Node*>(iArena + iOffset);
}

inline NodeSet& NodeSetAt(unsigned char* iArena, unsigned int iOffset) {
    return *reinterpret_cast<NodeSet*>(iArena + iOffset);
}

inline unsigned short& WordAt(unsigned char* iArena, unsigned int iOffset) {
    return *reinterpret_cast<unsigned short*>(iArena + iOffset);
}

#endif
