// Services that fail: no memory for an arena, and an overlap test that can't decide.

#include "AdjustableConstants.h"
#include "Images.h"
#include "LimitedMemory.h"
#include "TraceRecorder.h"

#include "IDX_Base_GeometryServices.h"
#include "IDX_WT_GeometryServices.h"
#include "PLMIdxWTOctreeServices.h"

#include <gtest/gtest.h>

namespace {

bool canDecide = true;

constexpr unsigned int kTooMuch = 0xFFFFFF00u;  ///< 4095 MiB

const char* const kNoArena = "PLMIdxWTWorkingOctree._Alloc.AllocationFailed ( 4095 MB )";

const Mesh kCube = BoxMesh({0, 0, 0}, {1, 1, 1});

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

TEST(FailingServices, AFailingSphereEndsTheWalkOfABox) {
    TraceRecorder trace;
    PLMIdxWTOptimOctree_0 octree;
    octree.ConstructFullOctree({0, 0, 0}, {4, 4, 4});
    IDX_Point low = {2, 2, 2};
    IDX_Point high = low;
    EXPECT_EQ(PLMIdxWTOctreeServices(octree).ExpandBox(low, high, PLMIdxMatrix()), IDX_E_FAIL);
    EXPECT_EQ(
        trace.Take(),
        (Lines{
            "PLMIdxWTOctreeServices._ExpandBoxSphere.IDX_WT_GeometryServices.IsBoxEnlarged",
            "PLMIdxWTOctreeServices.ExpandBox._ExpandBox"}));
}

TEST(FailingServices, AnUndecidedOverlapFailsTheTriangle) {
    TraceRecorder trace;
    PLMIdxOctreeBuilder builder;
    builder.SetParameters(3, 0, IDX_False);
    ASSERT_EQ(builder.Init({-1, -1, -1}, {1, 1, 1}), IDX_S_OK);
    canDecide = false;
    EXPECT_EQ(DrawTouching(builder), IDX_E_FAIL);
    canDecide = true;
    EXPECT_EQ(
        trace.Take(), Lines{"PLMIdxOctreeBuilder.DrawTriangle.PLMIdxWorkingOctree.DrawTriangle2"});
    EXPECT_EQ(DrawTouching(builder), IDX_S_OK);
    EXPECT_EQ(builder.End(), IDX_S_OK);
}

TEST(FailingServices, AMeshWithoutAnArena) {
    LimitMemory();
    TraceRecorder trace;
    PLMIdxOctreeBuilder builder;
    builder.SetParameters(3, 0, IDX_False);
    {
        const ArenaSize arena(kTooMuch);
        EXPECT_EQ(Draw(builder, kCube), IDX_E_FAIL);
        Lines expected(2, kNoArena);  // the depth, the box
        for (int depth = 3; depth >= 2; --depth) {
            expected.insert(expected.end(), 2, kNoArena);
            expected.emplace_back("PLMIdxOctreeBuilder.DrawTriangles.PLMIdxWTWorkingOctree.Reset");
        }
        EXPECT_EQ(trace.Take(), expected);
        EXPECT_EQ(builder.Init({0, 0, 0}, {1, 1, 1}), IDX_E_OUT_OF_MEMORY);
        EXPECT_EQ(builder.DrawTriangle({0, 0, 0}, {1, 1, 1}, {0, 1, 0}), IDX_E_FAIL);
        EXPECT_EQ(builder.DrawTriangle({0, 0, 0}, {0, 0, 0}, {0, 0, 0}), IDX_E_FAIL);
    }
    EXPECT_EQ(Draw(builder, kCube), IDX_S_OK) << "the next call tries again";
    EXPECT_EQ(RecordsOf(ImageOf(builder)).size(), 8u * (1 + 8));
}

TEST(FailingServices, AStreamThatLosesItsMemory) {
    LimitMemory();
    TraceRecorder trace;
    PLMIdxOctreeBuilder builder;
    builder.SetParameters(3, 0, IDX_False);
    ASSERT_EQ(builder.Init({-1, -1, -1}, {1, 1, 1}), IDX_S_OK);
    ASSERT_EQ(DrawTouching(builder), IDX_S_OK);
    const ArenaSize arena(kTooMuch);
    EXPECT_EQ(builder.End(), IDX_E_FAIL);
    EXPECT_EQ(trace.Take(), Lines{"PLMIdxWTOptimOctree_0._Alloc.AllocationFailed"});
    EXPECT_EQ(builder.ReduceDepth(), IDX_E_FAIL);
    EXPECT_EQ(trace.Take().front(), kNoArena);
    EXPECT_EQ(builder.ReduceDepth(), IDX_E_FAIL) << "there is no octree any more";
    EXPECT_EQ(DrawTouching(builder), IDX_E_FAIL);
    EXPECT_EQ(builder.End(), IDX_E_FAIL);
    arenaSize = 1u << 20;
    ASSERT_EQ(builder.Init({-1, -1, -1}, {1, 1, 1}), IDX_S_OK);
    EXPECT_EQ(DrawTouching(builder), IDX_S_OK);
    EXPECT_EQ(builder.End(), IDX_S_OK);
}
