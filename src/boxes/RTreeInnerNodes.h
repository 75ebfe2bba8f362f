#ifndef RTreeInnerNodes_h
#define RTreeInnerNodes_h

#include "FourBoxes.h"
#include "RTreeNode.h"

#include <cstddef>
#include <cstdint>

/// The inner nodes of an R-tree a second time, laid out for the way down: four entries at once are weighed
/// against a box. Holds what the nodes hold, and no more; the nodes are what counts. So an R-tree that
/// can't have the memory does without.
///
/// Keeps the path of the last way down, by level. Everything that changes a node on that path is told
/// here, too, by the level of the node: 1 above the leaves, and so on up to the root.
///
/// Only for boxes that are six floats: it knows how they are united, and where a union stays as it was.
class RTreeInnerNodes {
public:
    /// A node on the path, by its offset in the storage, and the slot that was taken in it.
    struct Step {
        unsigned int node;
        unsigned int slot;
    };

    /// Null when there is no memory, and when nothing is known of how boxes lie.
    static RTreeInnerNodes* Make(unsigned int iMaxChildren);
    ~RTreeInnerNodes();
    RTreeInnerNodes(const RTreeInnerNodes&) = delete;
    RTreeInnerNodes& operator=(const RTreeInnerNodes&) = delete;

    /// Makes room for all that one insertion may add; without, nothing may be added. False when there is no
    /// memory.
    [[nodiscard]] bool Reserve();

    unsigned int RootLevel() const { return _rootLevel; }

    /// Goes down to the leaf that is to take a box, and gives its offset. The root isn't a leaf.
    unsigned int FindLeaf(const IDX_Base_BoundingBox& iBox);

    Step StepAt(unsigned int iLevel) const {
        return {_heads[_path[iLevel].record].node, _path[iLevel].slot};
    }

    /// What an entry's box becomes when something below grows.
    enum Growth {
        Same,      ///< bit for bit as before
        Grown,     ///< to the union of both
        Unsettled  ///< the sign of a zero depends on the entries of the child
    };

    /// Grows the box on the path to enclose `ioBox`, and gives the box that results.
    Growth Enlarge(unsigned int iLevel, IDX_Base_BoundingBox& ioBox);

    void SetBox(unsigned int iLevel, unsigned int iSlot, const IDX_Base_BoundingBox& iBox);

    /// A new root of one entry, whose box is still to be set, above the old one.
    void GrowRoot(unsigned int iNewRoot, unsigned int iOldRoot);

    /// A leaf on the path was cut: the new one waits for its entry.
    void SplitLeaf(unsigned int iNewLeaf) { _sibling = iNewLeaf; }

    /// An inner node on the path was cut, and what waited was the last of its entries.
    /// @param iGroups  0 or 1 for each entry: where it went
    void SplitInner(
        unsigned int iLevel,
        const unsigned char* iGroups,
        unsigned int iNewNode,
        const RTreeNode& iOld,
        const RTreeNode& iNew);

    /// What waits gets its entry, in the next slot of a node on the path.
    void Append(unsigned int iLevel, const IDX_Base_BoundingBox& iBox);

    /// For a tree that comes from an image: one node after the other, in any order.
    /// @return its number, by which a node above refers to it; what waits is the child of the next entry
    unsigned int AddNode(unsigned int iNode);
    void AddEntry(unsigned int iRecord, const IDX_Base_BoundingBox& iBox, unsigned int iChild);
    void SetRoot(unsigned int iRecord, unsigned int iLevel);
    [[nodiscard]] bool ReserveRecords(std::size_t iMore);

private:
    explicit RTreeInnerNodes(unsigned int iMaxChildren);

    /// Entries 4k to 4k + 3 of a node. A place without an entry holds NaN: it is never chosen.
    struct alignas(64) FourEntries {
        FourBoxes boxes;
        FourFloats volumes;
        unsigned int
            children[4];  ///< in a node of level 1 offsets of leaves, above numbers of records
    };
    static_assert(sizeof(FourEntries) == 128, "two lines of the cache");

    /// A number of entries against a box.
    struct Weighing {
        float least;         ///< enlargement
        float first;         ///< enlargement of the first entry
        std::uint64_t ties;  ///< a bit for each entry of the least enlargement
    };

    struct Head {
        unsigned int node;   ///< offset in the storage
        unsigned int count;  ///< entries
    };
    struct PathStep {
        unsigned int record;
        unsigned int slot;
        unsigned int child;  ///< in that slot, as in the record
    };

    FourEntries* EntriesOf(unsigned int iRecord) const {
        return _entries + std::size_t{iRecord} * _fours;
    }
    unsigned int& Child(unsigned int iRecord, unsigned int iSlot) const {
        return EntriesOf(iRecord)[iSlot / 4].children[iSlot % 4];
    }
    float* Coordinates(unsigned int iRecord, unsigned int iSlot) const;
    void Clear(unsigned int iRecord);
    void SetBoxOf(unsigned int iRecord, unsigned int iSlot, const IDX_Base_BoundingBox& iBox);
    static Weighing Weigh(const FourEntries* iFours, unsigned int iCount, const FourBoxes& iBox);
    unsigned int Choose(unsigned int iRecord, const FourBoxes& iBox) const;
    [[nodiscard]] bool ReservePath(std::size_t iLength);

    std::size_t _fours;     ///< groups of four in a record
    FourEntries* _entries;  ///< of all records
    Head* _heads;           ///< of all records
    unsigned int* _moved;   ///< of a split: the children of the old node
    unsigned int _maxChildren;
    std::size_t _count;     ///< records
    std::size_t _capacity;  ///< records that there is room for
    PathStep* _path;        ///< by level
    std::size_t _pathLength;
    unsigned int _root;  ///< record
    unsigned int _rootLevel;
    unsigned int _sibling;  ///< what waits: a leaf's offset or a record
};

#endif
