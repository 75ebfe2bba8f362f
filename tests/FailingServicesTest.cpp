// Services that fail: no memory for an arena, and an overlap test that can't decide.

#include "AdjustableConstants.h"
#include "Images.h"
#include "LimitedMemory.h"
#include "Transcript.h"

#include "IDX_Base_GeometryServices.h"
#include "IDX_WT_GeometryServices.h"
#include "PLMIdxWTOctreeServices.h"

#include <gtest/gtest.h>

namespace {

bool canDecide = true;

constexpr unsigned int kTooMuch = 0xFFFFFF00u;  ///< 4095 MiB

const IDX_Point kLow = {-1, -1, -1};
const IDX_Point kHigh = {1, 1, 1};

/// A triangle on the mid-planes of the box of a stream: its cells only just touch it.
long int DrawTouching(PLMIdxOctreeBuilder& builder) {
    return builder.DrawTriangle({0, -1, -1}, {0, 1, -1}, {0, 0, 1});
}

}  // namespace

/// The program's own overlap test, which the library calls in place of its own: everything overlaps.
__attribute__((visibility("default"))) IDX_Bool IDX_Base_GeometryServices::TriangleToBox(
    const float* const, const float* const, const float (*const)[3], IDX_Bool& oOverlap) {
    oOverlap = IDX_True;
    return canDecide ? IDX_True : IDX_False;
}

/// The program's own test of a sphere, which fails.
__attribute__((visibility("default"))) IDX_Bool IDX_WT_GeometryServices::IsBoxEnlargedSphere(
    const IDX_Point&, const IDX_Point&, const IDX_Point&, float, const PLMIdxMatrix&, IDX_Bool&) {
    return IDX_False;
}

TEST(FailingServices, WithoutAnAnswer) {
    Transcript transcript;
    PLMIdxWTOptimOctree_0 octree;
    octree.ConstructFullOctree(kLow, kHigh);
    IDX_Point low = {2, 2, 2};
    IDX_Point high = low;
    PLMIdxWTOctreeServices services(octree);
    NOTE(transcript, services.ExpandBox(low, high, PLMIdxMatrix()));

    PLMIdxOctreeBuilder builder;
    builder.SetParameters(3, 0, IDX_False);
    NOTE(transcript, builder.Init(kLow, kHigh));
    canDecide = false;
    NOTE(transcript, DrawTouching(builder));
    canDecide = true;
    NOTE(transcript, DrawTouching(builder));
    NOTE(transcript, builder.End());
}

TEST(FailingServices, WithoutMemory) {
    LimitMemory();
    Transcript transcript;
    const Mesh cube = BoxMesh(kLow, kHigh);
    PLMIdxOctreeBuilder builder;
    builder.SetParameters(3, 0, IDX_False);
    {
        const ArenaSize arena(kTooMuch);
        NOTE(transcript, builder.Init(kLow, kHigh));
        NOTE(transcript, Draw(builder, cube));
        NOTE(transcript, builder.Init(kLow, kHigh));
        NOTE(transcript, DrawTouching(builder));
    }
    NOTE(transcript, Draw(builder, cube));  // tries again
    EXPECT_EQ(ImageOf(builder).size(), 132u + 8 * (1 + 8));

    PLMIdxOctreeBuilder stream;
    stream.SetParameters(3, 0, IDX_False);
    transcript.Title("a stream that loses its memory");
    NOTE(transcript, stream.Init(kLow, kHigh));
    NOTE(transcript, DrawTouching(stream));
    const ArenaSize arena(kTooMuch);
    NOTE(transcript, stream.End());
    NOTE(transcript, stream.ReduceDepth());
    NOTE(transcript, stream.ReduceDepth());  // there is no octree any more
    NOTE(transcript, DrawTouching(stream));
    NOTE(transcript, stream.End());
    arenaSize = 1u << 20;
    NOTE(transcript, stream.Init(kLow, kHigh));
    NOTE(transcript, DrawTouching(stream));
    NOTE(transcript, stream.End());
}
