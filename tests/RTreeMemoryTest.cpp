// The R-tree where memory runs out: blocks that can't be had, and 2^32 bytes of nodes.

#include "OpenRTree.h"
#include "TraceRecorder.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <set>

namespace {

using Box = IDX_Base_BoundingBox;

const char* const kAlloc = "IDX_WT_RTreeStorageHandler.Alloc(realloc)";
const char* const kInit = "IDX_WT_RTree.Init.IDX_WT_RTreeStorageHandler.Alloc";
const char* const kRoot = "IDX_WT_RTree.AdjustTree.IDX_WT_RTreeStorageHandler.Alloc";
const char* const kSplitAlloc = "IDX_WT_RTree.Split.IDX_WT_RTreeStorageHandler.Alloc";
const char* const kSplit = "IDX_WT_RTree.AdjustTree.Split";

/// Holds an image of almost 2^32 bytes: a full leaf as the root, and leaves of one entry each.
struct HugeImage : IDX_WT_File {
    static constexpr unsigned int kNodeSize = 12 + 28 * 65535;
    static constexpr unsigned int kSize = 0xFFFFFFFFu / kNodeSize * kNodeSize;

    IDX_Bool ReadAt(unsigned int offset, void* data, unsigned int) override {
        auto* bytes = static_cast<unsigned char*>(data);
        if (offset == 0) {
            const unsigned int header[] = {0xFFFFu << 16, 0, kSize};
            std::memcpy(bytes, header, sizeof header);
            return IDX_True;
        }
        for (unsigned int node = 0; node < kSize; node += kNodeSize) {
            const unsigned int counts[] = {0, (node == 0 ? 65535u : 1u) << 16, 0};
            std::memcpy(bytes + node, counts, sizeof counts);
            if (kSize - node == kNodeSize) break;
        }
        return IDX_True;
    }
};

/// A tree that lost its storage takes nothing, and is usable again after Init.
void ExpectLost(OpenRTree& tree) {
    EXPECT_EQ(tree.m_storage, nullptr);
    EXPECT_EQ(tree.Insert(Box(), 0), IDX_False);
    EXPECT_EQ(tree.Init(2, 4), IDX_True);
    InsertBars(tree, 0, 200);
    OpenRTree expected(2, 4);
    InsertBars(expected, 0, 200);
    EXPECT_EQ(ImageOf(tree), ImageOf(expected));
}

}  // namespace

TEST(RTreeMemory, TwoToTheThirtyTwoBytesOfNodes) {
    TraceRecorder trace;
    OpenRTree tree;
    HugeImage image;
    if (tree.Load(image, 0) == IDX_False) GTEST_SKIP() << "no 4 GiB of addresses";
    EXPECT_EQ(tree.GetSize(), HugeImage::kSize);
    EXPECT_EQ(tree.Insert(Box(), 0), IDX_False);
    EXPECT_EQ(trace.Take(), (Lines{kAlloc, kRoot}));
    ExpectLost(tree);
}

#ifndef GRIDLOOM_SANITIZED

namespace {

std::set<std::size_t> refusedSizes;
int callsUntilRefusal = -1;  ///< calls that succeed before one is refused; below 0 for all

bool IsRefused() {
    return callsUntilRefusal >= 0 && callsUntilRefusal-- == 0;
}

enum Start { New, Used, Loaded };

/// Makes a tree ready for the bars from number 1500 on.
IDX_Bool Ready(OpenRTree& tree, Start start, const Bytes& image) {
    return start == Loaded ? LoadBytes(tree, image) : tree.Init(2, 20);
}

}  // namespace

extern "C" {
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);

/// The program's own, which the library calls.
__attribute__((visibility("default"))) void* aligned_alloc(
    std::size_t alignment, std::size_t size) {
    return IsRefused() ? nullptr : __libc_memalign(alignment, size);
}
__attribute__((visibility("default"))) void* realloc(void* block, std::size_t size) {
    const bool isRefused = refusedSizes.count(size) != 0 || IsRefused();
    return isRefused ? nullptr : __libc_realloc(block, size);
}
}

/// Without a block Init, Load and the first Insert after it fail, and work when there is memory again. Later
/// the storage grows by a smaller step, and a tree without the copy of its inner nodes is the same.
TEST(RTreeMemory, AnyOneBlockRefused) {
    TraceRecorder trace;
    for (const Start start : {New, Used, Loaded}) {
        OpenRTree expected(2, 20);
        if (start == Loaded) InsertBars(expected, 0, 1500);
        const Bytes image = ImageOf(expected);
        InsertBars(expected, 1500, 3000);
        int call = 0;
        for (bool isOver = false; !isOver; ++call) {
            SCOPED_TRACE(testing::Message() << "start " << start << ", call " << call);
            OpenRTree tree;
            if (start != New) tree.Init(2, 4);
            if (start != New) InsertBars(tree, 0, 20);
            callsUntilRefusal = call;
            if (Ready(tree, start, image) == IDX_False) {
                EXPECT_EQ(tree.m_storage, nullptr);
                EXPECT_EQ(tree.Insert(Box(), 0), IDX_False);
                ASSERT_EQ(Ready(tree, start, image), IDX_True);
            }
            // A loaded tree takes its working arrays now.
            if (tree.Insert(Bar(51, 53), 1500) == IDX_False) {
                EXPECT_EQ(start, Loaded);
                EXPECT_EQ(ImageOf(tree), image);
                ASSERT_EQ(tree.Insert(Bar(51, 53), 1500), IDX_True);
            }
            InsertBars(tree, 1501, 3000);
            isOver = std::exchange(callsUntilRefusal, -1) >= 0;
            ASSERT_EQ(ImageOf(tree), ImageOf(expected));
        }
        EXPECT_GE(call, 8);
    }
    EXPECT_EQ(trace.Take(), Lines{});
}

TEST(RTreeMemory, StorageThatCannotGrow) {
    TraceRecorder trace;
    const struct {
        unsigned short maxChildren;
        unsigned int succeeding;  ///< insertions
        std::set<std::size_t> refused;
        Lines tags;
    } kCases[] = {
        {35, 35, {2048, 992 + 992000, 2 * 992}, {kAlloc, kRoot}              },
        {17, 17, {2048, 976 + 488000, 3 * 488}, {kAlloc, kSplitAlloc, kSplit}},
        {40, 0,  {2048, 1132000, 1132},         {kAlloc, kInit}              },
    };
    for (const auto& c : kCases) {
        OpenRTree tree(2, 4);
        refusedSizes = c.refused;
        if (tree.Init(2, c.maxChildren) == IDX_True) {
            InsertBars(tree, 0, c.succeeding);
            EXPECT_EQ(tree.Insert(Box(), 0), IDX_False);
        }
        EXPECT_EQ(trace.Take(), c.tags);
        refusedSizes = {2048, 124992};  // eight nodes of 124 bytes fit into the first block
        ExpectLost(tree);
        refusedSizes.clear();
    }
    EXPECT_EQ(trace.Take(), Lines{});
}

#endif
