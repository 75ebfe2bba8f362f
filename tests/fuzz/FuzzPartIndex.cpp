// Any bytes as a file of a part index. What the checking walks let pass is walked as a reader walks it: every walk ends
// within the bytes, and finds what was counted. The first byte says which file it is.

#include "BoxTree.h"
#include "OctreeImageCheck.h"
#include "PartTreeCheck.h"

#include "PLMIdxOctreeLoader.h"

#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;  // a block of its own, whose end the sanitizer watches

void Expect(bool holds) {
    if (!holds) std::abort();
}

std::uint64_t CountOccupied(
    const PLMIdxIBaseOctree& octree, const IDX_Base_Octree_Iterator& position) {
    std::uint64_t count = 0;
    for (unsigned int child = 0; child < 8 && octree._depth > 0; ++child) {
        const IDX_Base_Octree_TestResult state = octree.Test(position, child);
        if (state == OCTREE_FULL)
            count += std::uint64_t{1} << 3 * (octree._depth - position.depth - 1);
        if (state != OCTREE_PARTIAL) continue;
        IDX_Base_Octree_Iterator below = position;
        Expect(octree.Move(below, child) == IDX_S_OK);
        count += CountOccupied(octree, below);
    }
    return count;
}

void WalkOctree(Bytes& bytes) {
    std::uint64_t nOccupied = 0;
    if (!CheckOctreeImage(bytes.data(), bytes.size(), nOccupied).empty()) return;
    const PLMIdxOctreeLoader loader(bytes.data());
    Expect(loader.GetOctree() != nullptr);
    Expect(CountOccupied(*loader.GetOctree(), {}) == nOccupied);
}

void SearchBoxes(const Bytes& bytes) {
    const BoxTree boxes(bytes.data(), bytes.size());
    if (!boxes.Check().empty()) return;
    std::size_t count = 0;
    const auto all = [](const IDX_Base_BoundingBox&) { return true; };
    boxes.Search(all, [&](const BoxTree::Entry&) { ++count; });
    Expect(count <= bytes.size() / sizeof(BoxTree::Entry));
}

void CheckParts(const Bytes& bytes) {
    std::vector<unsigned int> items;
    if (!CheckPartTree(bytes.data(), bytes.size(), items).empty()) return;
    for (const unsigned int item : items) Expect(item < bytes.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    Bytes bytes(data + 1, data + size);
    bytes.shrink_to_fit();
    switch (data[0] % 3) {
        case 0:
            WalkOctree(bytes);
            break;
        case 1:
            SearchBoxes(bytes);
            break;
        default:
            CheckParts(bytes);
    }
    return 0;
}
