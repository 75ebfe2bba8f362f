#include "RTreeNodes.h"

namespace {

/// By how much the volume of a box grows when it is made to enclose another one. A small growth of
/// a large box may be lost in the rounding of the two volumes; readers' trees depend on that.
float Enlargement(
    const IDX_Base_BoundingBox& iCover, float iVolume, const IDX_Base_BoundingBox& iBox) {
    IDX_Base_BoundingBox both;
    IDX_Base_BoundingBox::Union(iCover, iBox, both);
    return both.Volume() - iVolume;
}

}  // namespace

IDX_Base_BoundingBox RTreeNodes::BoxOf(unsigned int iNode) const {
    const RTreeNode node = At(iNode);
    IDX_Base_BoundingBox box = node.Box(0);
    for (unsigned int slot = 1; slot < node.Count(); ++slot) box.Union(node.Box(slot));
    return box;
}

unsigned int RTreeNodes::Choose(const IDX_Base_BoundingBox& iBox, unsigned int iLevel) const {
    unsigned int node = root;
    while (At(node).Level() != iLevel) node = ChooseChild(node, iBox);
    return node;
}

/// One step of ChooseLeaf.
unsigned int RTreeNodes::ChooseChild(unsigned int iNode, const IDX_Base_BoundingBox& iBox) const {
    const RTreeNode node = At(iNode);
    // Entry 0 is the start value, not infinity: when its enlargement is a NaN, nothing is less, and
    // entry 0 stays the choice.
    unsigned int best = 0;
    float bestVolume = node.Box(0).Volume();
    float bestEnlargement = Enlargement(node.Box(0), bestVolume, iBox);
    for (unsigned int slot = 1; slot < node.Count(); ++slot) {
        const float volume = node.Box(slot).Volume();
        const float enlargement = Enlargement(node.Box(slot), volume, iBox);
        if (enlargement < bestEnlargement ||
            (enlargement == bestEnlargement && volume < bestVolume)) {
            best = slot;
            bestVolume = volume;
            bestEnlargement = enlargement;
        }
    }
    return node.Value(best);
}

bool RTreeNodes::AreSound() const {
    if (size == 0 || size % nodeSize != 0 || !IsNode(root)) return false;
    // One node after the other, and not from the root down: a damaged tree may hold a circle. In 64
    // bits, since the step after the last node may pass 2^32.
    for (unsigned long long node = 0; node < size; node += nodeSize) {
        if (!IsNodeSound(static_cast<unsigned int>(node))) return false;
    }
    return true;
}

/// Looks at one node and the headers of its children. Each child is exactly one level lower, so a
/// way down ends; each child names its parent, so a way up ends, too.
bool RTreeNodes::IsNodeSound(unsigned int iOffset) const {
    const RTreeNode node = At(iOffset);
    if (node.Count() > maxChildren) return false;
    const bool isLoneLeaf = iOffset == root && node.Level() == 0;
    if (node.Count() == 0 && !isLoneLeaf) return false;
    if (node.Level() == 0) return true;
    for (unsigned int slot = 0; slot < node.Count(); ++slot) {
        if (!IsNode(node.Value(slot))) return false;
        const RTreeNode child = At(node.Value(slot));
        const bool isBelow = child.Level() + 1u == node.Level();
        if (!isBelow || child.Parent() != iOffset || child.Slot() != slot) return false;
    }
    return true;
}
