#ifndef WorkingOctreeRecords_h
#define WorkingOctreeRecords_h

#include "IDX_Base_Octree_TestResult.h"
#include "PLMIdxWTWorkingOctree.h"

#include "formats/CellStates.h"
#include "formats/UnalignedMemory.h"

#include <cstddef>
#include <type_traits>

// The records of a working octree, in its arena. A cell that is three or more levels above the
// bottom has a Node, a cell two levels above the bottom a NodeSet. A leaf group, one level above
// the bottom, is a part of a NodeSet; cells of the last level are bits in it. Records name each
// other by byte offset, and the root is at offset 0.
//
// The arena comes from malloc and records lie at multiples of 4 in it, so they are used in place.

/// The tag of the outside. A fill hands out all other tags anew, from 2.
constexpr unsigned short kOutside = 1;

/// Record of a cell that is three or more levels above the bottom. 52 bytes.
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
    unsigned short words[8];  //  0  16  leaf group i: cell j in bits 2j and 2j+1
    unsigned short
        tagIndex[8];            // 16  16  7 i + 8: leads from a word to its tags, see TagsOfGroup()
    unsigned short tags[8][8];  // 32 128  tag of cell j of leaf group i
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

/// What to add to the offset of a node set for the offset of the word of one of its leaf groups.
inline unsigned int OffsetOfGroup(unsigned int iGroup) {
    return static_cast<unsigned int>(offsetof(NodeSet, words) + iGroup * sizeof(unsigned short));
}

/// The eight tags of a leaf group, by the address of its word in the arena. An iterator on a leaf
/// group holds no more than that, and the number i of the group can't be seen from it. So the
/// record has tagIndex: it is always 8 words after the group's word. The word is word i of the
/// record, and the tags begin at word 16 + 8 i of it, which is 16 + 7 i = tagIndex + 8 words
/// further on.
inline unsigned short* TagsOfGroup(unsigned char* iWord) {
    constexpr std::size_t kToTagIndex = offsetof(NodeSet, tagIndex) - offsetof(NodeSet, words);
    const std::size_t toTags = LoadAt<unsigned short>(iWord, kToTagIndex) + 8u;
    return reinterpret_cast<unsigned short*>(iWord + toTags * sizeof(unsigned short));
}

/// The fields of a working octree that the library's own walks use, without a call for each cell.
struct WorkingOctreeAccess {
    static unsigned char* Arena(const PLMIdxWorkingOctree& iOctree) { return iOctree._buffer; }

    /// False for an octree of depth 0, and for one whose root got no memory.
    static bool HasRoot(const PLMIdxWorkingOctree& iOctree) { return iOctree._size != 0; }
    static bool HasArena(const PLMIdxWorkingOctree& iOctree) { return iOctree._buffer != nullptr; }

    /// Bytes of the arena that are left.
    static unsigned int Room(const PLMIdxWTWorkingOctree& iOctree) {
        return iOctree._capacity - iOctree._size;
    }

    /// The number of cells that aren't empty, by level.
    static int* Counts(PLMIdxWTWorkingOctree& iOctree) { return iOctree._nCellsByDepth; }

    /// Number of changes that may have removed a cell or made one full.
    static unsigned int Changes(const PLMIdxWTWorkingOctree& iOctree) { return iOctree._changes; }

    /// Whether some cell may have a tag that a new fill doesn't know, such as one of an earlier
    /// fill.
    static bool IsTagged(const PLMIdxWTWorkingOctree& iOctree) { return iOctree._tagged; }

    /// Records that a fill begins: it tags cells and makes some of them full.
    static void MarkFilled(PLMIdxWTWorkingOctree& ioOctree) {
        ioOctree._tagged = true;
        ++ioOctree._changes;
    }
};

inline Node& NodeAt(unsigned char* iArena, unsigned int iOffset) {
    return *reinterpret_cast<Node*>(iArena + iOffset);
}

inline NodeSet& NodeSetAt(unsigned char* iArena, unsigned int iOffset) {
    return *reinterpret_cast<NodeSet*>(iArena + iOffset);
}

/// The word at an offset: the states of a node's children, or those of a leaf group's cells.
inline unsigned short& WordAt(unsigned char* iArena, unsigned int iOffset) {
    return *reinterpret_cast<unsigned short*>(iArena + iOffset);
}

#endif
