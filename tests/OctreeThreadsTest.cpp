// Several threads walk one loaded octree, each with its own iterator. Its worth is under the thread
// sanitizer: a walk that writes anything but its iterator is a race there.

#include "Images.h"

#include "PLMIdxOptimOctree_0.h"

#include <gtest/gtest.h>
#include <thread>

TEST(OctreeThreads, WalkOneLoadedOctreeTogether) {
    PLMIdxOctreeBuilder builder;
    builder.SetParameters(6, 0, IDX_False);
    ASSERT_EQ(Draw(builder, BoxMesh({1, 2, 3}, {4, 6, 8}, kLowX)), IDX_S_OK);
    Bytes image = ImageOf(builder);
    PLMIdxOptimOctree_0 octree;
    ASSERT_EQ(octree.Load(image.data()), IDX_S_OK);

    std::vector<bool> seen[4];
    std::vector<std::thread> threads;
    for (std::vector<bool>& solid : seen) {
        threads.emplace_back([&octree, &solid] { solid = SolidCells(octree); });
    }
    for (std::thread& thread : threads) thread.join();
    for (const std::vector<bool>& solid : seen) EXPECT_EQ(solid, SolidCells(builder.GetOctree()));
}
