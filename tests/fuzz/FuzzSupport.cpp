#include "FuzzSupport.h"

#include "AdjustableConstants.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// A small arena: it fills up soon, and a run stays short.
[[maybe_unused]] const unsigned int kArena = arenaSize = 1u << 14;

void Expect(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "doesn't hold: %s\n", what);
    std::abort();
}

void Walk(const PLMIdxIBaseOctree& octree, IDX_Base_Octree_Iterator iterator, std::size_t records) {
    const unsigned int r = octree._depth - iterator.depth;
    Expect(iterator.offset + (r == 1 ? 1 : 8) <= records, "a record lies within the image");
    for (unsigned int child = 0; child < 8; ++child) {
        const IDX_Base_Octree_TestResult state = octree.Test(iterator, child);
        Expect(state <= OCTREE_FULL, "a stored state");
        if (state != OCTREE_PARTIAL) continue;
        IDX_Base_Octree_Iterator below = iterator;
        Expect(r > 1 && octree.Move(below, child) == IDX_S_OK, "a partial cell can be entered");
        Walk(octree, below, records);
    }
}

}  // namespace

float FuzzInput::Float() {
    std::uint8_t bytes[4];
    for (std::uint8_t& byte : bytes) byte = Byte();
    float number;
    std::memcpy(&number, bytes, 4);
    return number;
}

IDX_Point FuzzInput::Point() {
    float numbers[3];
    for (float& number : numbers)
        number = anyFloats ? Float() : static_cast<float>(static_cast<std::int8_t>(Byte()));
    return {numbers[0], numbers[1], numbers[2]};
}

void SetParameters(PLMIdxOctreeBuilder& builder, FuzzInput& input) {
    const std::uint8_t flags = input.Byte();
    input.anyFloats = flags & 2;
    const int maxDepth = input.Byte() % 24 - 1;
    builder.SetParameters(maxDepth, input.Float(), flags & 4 ? IDX_True : IDX_False);
}

void ExpectSoundImage(PLMIdxOctreeBuilder& builder) {
    Bytes image = ImageOf(builder);
    PLMIdxOptimOctree_0 octree;
    Expect(octree.Load(image.data()) == IDX_S_OK, "the image loads");
    Expect(octree.GetSizeInFiles() == static_cast<int>(image.size()), "the image knows its size");
    if (octree._depth > 0) Walk(octree, {}, image.size() - 132);
}
