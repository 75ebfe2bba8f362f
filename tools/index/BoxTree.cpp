#include "BoxTree.h"

#include <array>
#include <bit>
#include <cstdint>
#include <vector>

namespace {

/// Levels of a tree whose inner nodes have two entries or more, and which fits into 2^32 bytes.
constexpr unsigned int kHighestLevel = 31;

std::string At(unsigned int iNode, const char* iText) {
    return "node " + std::to_string(iNode) + ": " + iText;
}

using Bits = std::array<std::uint32_t, 6>;

}  // namespace

bool HaveSameBits(const IDX_Base_BoundingBox& iFirst, const IDX_Base_BoundingBox& iSecond) {
    return std::bit_cast<Bits>(iFirst) == std::bit_cast<Bits>(iSecond);
}

std::string BoxTree::CheckHeader() const {
    if (_size < kHeaderSize) return "is shorter than its header";
    const auto size = Load<unsigned int>(kSizeField);
    if (Load<unsigned short>(kMaxChildrenField) < 2)
        return "the header allows no two entries in a node";
    if (size != _size - kHeaderSize) return "the header tells another length";
    if (size == 0 || size % NodeSize() != 0) return "the length isn't that of whole nodes";
    return {};
}

bool BoxTree::IsNode(unsigned int iOffset) const {
    return iOffset % NodeSize() == 0 && iOffset < _size - kHeaderSize;
}

std::string BoxTree::CheckRoot() const {
    const unsigned int root = Root();
    if (!IsNode(root)) return At(root, "the root is no node");
    if (Level(root) > kHighestLevel) return At(root, "higher than any tree of this length");
    if (!IsLeaf(root) && Count(root) < 2)
        return At(root, "an inner root of fewer than two entries");
    return {};
}

/// Whether an entry of an inner node and the child that it leads to know each other. So no node has two parents.
bool BoxTree::IsChild(unsigned int iNode, unsigned int iSlot) const {
    const unsigned int child = EntryOf(iNode, iSlot).value;
    return IsNode(child) && Load<unsigned int>(kHeaderSize + child) == iNode &&
           Load<unsigned short>(kHeaderSize + child + kSlotField) == iSlot &&
           Level(child) + 1 == Level(iNode) && Count(child) > 0;
}

bool BoxTree::EnclosesChild(unsigned int iNode, unsigned int iSlot) const {
    const Entry entry = EntryOf(iNode, iSlot);
    IDX_Base_BoundingBox box = EntryOf(entry.value, 0).box;
    for (unsigned int slot = 1; slot < Count(entry.value); ++slot) {
        box.Union(EntryOf(entry.value, slot).box);
    }
    return HaveSameBits(box, entry.box);
}

std::string BoxTree::Check() const {
    std::string failure = CheckHeader();
    if (failure.empty()) failure = CheckRoot();
    if (!failure.empty()) return failure;
    const std::size_t nNodes = (_size - kHeaderSize) / NodeSize();
    const unsigned int most = Load<unsigned short>(kMaxChildrenField);
    std::vector<unsigned int> waiting = {Root()};
    std::size_t nSeen = 0;
    for (; !waiting.empty(); ++nSeen) {
        const unsigned int node = waiting.back();
        waiting.pop_back();
        if (Count(node) > most) return At(node, "more entries than a node holds");
        for (unsigned int slot = 0; slot < Count(node) && !IsLeaf(node); ++slot) {
            if (!IsChild(node, slot)) return At(node, "an entry leads to no child of its own");
            const unsigned int child = EntryOf(node, slot).value;
            if (Count(child) > most) return At(child, "more entries than a node holds");
            if (!EnclosesChild(node, slot))
                return At(node, "a box doesn't enclose what is below it");
            waiting.push_back(child);
        }
    }
    return nSeen == nNodes ? "" : "holds nodes that can't be reached";
}
