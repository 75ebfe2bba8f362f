#ifndef RTreeInnerNodes_h
#define RTreeInnerNodes_h

#include "FourBoxes.h"
#include "RTreeNodes.h"

#include <cstddef>
#include <cstdint>

/// A second copy of the inner nodes of an R-tree, laid out for a fast way down: the processor
/// compares a box with four entries at once. The nodes in the storage are the tree; the copy
/// repeats them. An R-tree without memory for the copy works without it and gives the same bytes.
///
/// The copies of the nodes have numbers, from 0. The object keeps the path of the last way down, by
/// level: level 1 is the level above the leaves. Only nodes on that path ever change, so the
/// operations that report a change name a node by its level alone.
///
/// For boxes that are six floats. It unites boxes itself, and tells when a union changes no bit.
class RTreeInnerNodes {
public:
    /// A step of the last way down: a node, by its offset in the storage, and the slot that was
    /// chosen in it.
    struct Step {
        unsigned int node;
        unsigned int slot;
    };

    /// For a tree of one leaf. Null when there is no memory, and for boxes that aren't six floats.
    static RTreeInnerNodes* Make(unsigned int iMaxChildren);

    /// For a tree that comes from an image. The nodes must be sound.
    /// @return null as for Make(), and when a box is larger than the entries below it require
    static RTreeInnerNodes* CopyOf(const RTreeNodes& iNodes);

    ~RTreeInnerNodes();
    RTreeInnerNodes(const RTreeInnerNodes&) = delete;
    RTreeInnerNodes& operator=(const RTreeInnerNodes&) = delete;

    /// Takes all memory that one insertion may need. Call it before each insertion.
    /// @return false without memory: nothing may be added then
    [[nodiscard]] bool Reserve();

    unsigned int RootLevel() const { return _rootLevel; }

    /// Goes down to the leaf that takes a box. The root isn't a leaf.
    /// @return the offset of the leaf
    unsigned int FindLeaf(const IDX_Base_BoundingBox& iBox);

    Step StepAt(unsigned int iLevel) const {
        return {_heads[_path[iLevel].copy].node, _path[iLevel].slot};
    }

    /// What happens to an entry's box when a box below it grows.
    enum Growth {
        Same,      ///< no bit of it changes
        Grown,     ///< it becomes the union of both
        Unsettled  ///< a zero meets a zero of the other sign: the child's entries decide the sign
    };

    /// Enlarges the box on the path to enclose `ioBox`, which becomes the result.
    Growth Enlarge(unsigned int iLevel, IDX_Base_BoundingBox& ioBox);

    void SetBox(unsigned int iLevel, unsigned int iSlot, const IDX_Base_BoundingBox& iBox);

    /// Puts a new root above the old one. The box of its one entry isn't set yet.
    void GrowRoot(unsigned int iNewRoot, unsigned int iOldRoot);

    /// Reports that a leaf on the path was split. The new leaf is the child of the next Append().
    void SplitLeaf(unsigned int iNewLeaf) { _newChild = iNewLeaf; }

    /// Reports that an inner node on the path was split, with the new child as its last entry. The
    /// new node is the child of the next Append().
    /// @param iGroups  for each entry 0 (it stayed) or 1 (it went to the new node)
    void SplitInner(
        unsigned int iLevel,
        const unsigned char* iGroups,
        unsigned int iNewNode,
        const RTreeNode& iOld,
        const RTreeNode& iNew);

    /// Reports that the new child got the next slot of a node on the path.
    void Append(unsigned int iLevel, const IDX_Base_BoundingBox& iBox);

private:
    explicit RTreeInnerNodes(unsigned int iMaxChildren);

    /// Entries 4k to 4k + 3 of a node. A place without an entry holds NaNs: no comparison chooses
    /// it.
    struct alignas(64) FourEntries {
        FourBoxes boxes;
        FourFloats volumes;
        unsigned int children[4];  ///< in a node of level 1 offsets of leaves, above it numbers
    };
    static_assert(sizeof(FourEntries) == 128, "two lines of the cache");

    /// What up to 64 entries of a node say to a box.
    struct Weighing {
        float least;         ///< the least enlargement
        float first;         ///< the enlargement of the first entry
        std::uint64_t ties;  ///< a bit for each entry that has the least enlargement
    };

    struct Head {
        unsigned int node;   ///< offset in the storage
        unsigned int count;  ///< entries
    };
    struct PathStep {
        unsigned int copy;   ///< number of the node's copy
        unsigned int slot;   ///< that was chosen in it
        unsigned int child;  ///< what the slot holds: a number, or the offset of a leaf
    };

    FourEntries* EntriesOf(unsigned int iCopy) const {
        return _entries + std::size_t{iCopy} * _fours;
    }
    unsigned int& Child(unsigned int iCopy, unsigned int iSlot) const {
        return EntriesOf(iCopy)[iSlot / 4].children[iSlot % 4];
    }
    float* Coordinates(unsigned int iCopy, unsigned int iSlot) const;
    void Clear(unsigned int iCopy);
    void SetBoxOf(unsigned int iCopy, unsigned int iSlot, const IDX_Base_BoundingBox& iBox);
    static Weighing Weigh(const FourEntries* iFours, unsigned int iCount, const FourBoxes& iBox);
    unsigned int Choose(unsigned int iCopy, const FourBoxes& iBox) const;
    [[nodiscard]] bool CopyNodes(const RTreeNodes& iNodes, unsigned int* oNumbers);
    unsigned int AddCopy(unsigned int iNode);
    void AddEntry(unsigned int iCopy, const IDX_Base_BoundingBox& iBox, unsigned int iChild);
    [[nodiscard]] bool ReserveCopies(std::size_t iMore);
    [[nodiscard]] bool ReservePath(std::size_t iLength);

    std::size_t _fours;     ///< groups of four entries in a copy
    FourEntries* _entries;  ///< of all copies
    Head* _heads;           ///< of all copies
    unsigned int* _moved;   ///< of a split: the children of the old node
    unsigned int _maxChildren;
    std::size_t _count;     ///< copies
    std::size_t _capacity;  ///< copies that there is memory for
    PathStep* _path;        ///< by level
    std::size_t _pathLength;
    unsigned int _root;  ///< number of its copy
    unsigned int _rootLevel;
    unsigned int _newChild;  ///< made by a split, no entry yet: the offset of a leaf or a number
};

#endif
