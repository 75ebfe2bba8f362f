#include "OctoMapPeer.h"

#include <octomap/octomap.h>

namespace {

/// The grid takes the octant of positive coordinates of OctoMap's 16 levels.
octomap::OcTreeKey KeyOf(const Cell& iCell) {
    constexpr uint32_t kZero = 0x8000;
    return {
        static_cast<octomap::key_type>(kZero + iCell.x),
        static_cast<octomap::key_type>(kZero + iCell.y),
        static_cast<octomap::key_type>(kZero + iCell.z)};
}

/// Makes a cell of 2^iLevel cells a side occupied, with one node.
void Insert(octomap::OcTree& ioTree, const Cell& iCorner, unsigned int iLevel) {
    const octomap::OcTreeKey key = KeyOf(iCorner);
    octomap::OcTreeNode* node = ioTree.getRoot();
    for (unsigned int level = ioTree.getTreeDepth(); level-- > iLevel;) {
        const unsigned int child = octomap::computeChildIdx(key, static_cast<int>(level));
        node = ioTree.nodeChildExists(node, child) ? ioTree.getNodeChild(node, child)
                                                   : ioTree.createNodeChild(node, child);
    }
    node->setLogOdds(1.0f);
}

}  // namespace

struct OctoMapTree::Tree {
    octomap::OcTree nodes{1.0};
};

OctoMapTree::OctoMapTree(const OctreeImage& iImage) : _tree(std::make_unique<Tree>()) {
    // The first update makes the root; it goes to a corner that no look-up reaches.
    _tree->nodes.updateNode(octomap::OcTreeKey(0, 0, 0), true);
    iImage.ForEachOccupied([&](const OctreeCell& iCell) {
        const unsigned int level = iImage.Depth() - iCell.level;
        Insert(_tree->nodes, {iCell.x << level, iCell.y << level, iCell.z << level}, level);
    });
}

OctoMapTree::~OctoMapTree() = default;

size_t OctoMapTree::CountOccupied(const std::vector<Cell>& iCells) const {
    size_t count = 0;
    for (const Cell& cell : iCells) {
        count += _tree->nodes.search(KeyOf(cell)) != nullptr ? 1 : 0;
    }
    return count;
}
