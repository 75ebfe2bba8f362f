// Several threads walk one loaded octree, each with its own iterator. Its worth is under the thread
// sanitizer: a walk that writes anything but its iterator is a race there.

#include "Meshes.h"

#include "PLMIdxOctreeBuilder.h"

#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

namespace {

/// The states of all cells below a position, in the order of a full walk.
void AppendStates(
    const PLMIdxIBaseOctree& iOctree,
    IDX_Base_Octree_Iterator iParent,
    std::vector<unsigned char>& ioStates) {
    for (unsigned int child = 0; child < 8; ++child) {
        const IDX_Base_Octree_TestResult state = iOctree.Test(iParent, child);
        ioStates.push_back(static_cast<unsigned char>(state));
        if (state != OCTREE_PARTIAL) continue;
        IDX_Base_Octree_Iterator position = iParent;
        ASSERT_EQ(iOctree.Move(position, child), IDX_S_OK);
        AppendStates(iOctree, position, ioStates);
    }
}

std::vector<unsigned char> States(const PLMIdxIBaseOctree& iOctree) {
    std::vector<unsigned char> states;
    AppendStates(iOctree, IDX_Base_Octree_Iterator(), states);
    return states;
}

TEST(OctreeThreads, WalkOneLoadedOctreeTogether) {
    const Mesh mesh = SphereMesh({1, 2, 3}, 5, 20);
    PLMIdxOctreeBuilder builder;
    builder.SetParameters(6, 0, IDX_False);
    ASSERT_EQ(
        builder.DrawGeometry(
            mesh.points.data(), static_cast<unsigned int>(mesh.points.size()),
            mesh.triangles.data(), static_cast<unsigned int>(mesh.triangles.size())),
        IDX_S_OK);
    unsigned int size = 0;
    const std::unique_ptr<unsigned char[]> image(builder.GetOctree().GetOctreeBuffer(size));
    PLMIdxOptimOctree_0 octree;
    ASSERT_EQ(octree.Load(image.get()), IDX_S_OK);

    const std::vector<unsigned char> expected = States(octree);
    ASSERT_GT(expected.size(), 1000u);
    std::vector<unsigned char> seen[4];
    std::vector<std::thread> threads;
    for (std::vector<unsigned char>& states : seen) {
        threads.emplace_back([&octree, &states] { states = States(octree); });
    }
    for (std::thread& thread : threads) thread.join();
    for (const std::vector<unsigned char>& states : seen) EXPECT_EQ(states, expected);
}

}  // namespace
