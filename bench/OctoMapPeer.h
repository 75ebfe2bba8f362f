#ifndef OctoMapPeer_h
#define OctoMapPeer_h

#include "Cells.h"

#include "formats/OctreeImage.h"

#include <memory>
#include <vector>

/// The occupied cells of an octree as an OctoMap tree of nodes, for point look-ups.
class OctoMapTree {
public:
    explicit OctoMapTree(const OctreeImage& iImage);
    ~OctoMapTree();

    /// Number of occupied cells among the given ones.
    size_t CountOccupied(const std::vector<Cell>& iCells) const;

private:
    struct Tree;
    std::unique_ptr<Tree> _tree;
};

#endif
