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

void InsertRow(IDX_WT_RTree& tree, unsigned int count, unsigned int first = 0) {
    for (unsigned int i = first; i < count; ++i) {
        const auto x = static_cast<float>(i * 37 % 101);
        ASSERT_EQ(tree.Insert(Box({x, 0, 0}, {x + 1, 1, 1}), i), IDX_True);
    }
}

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

#ifndef GRIDLOOM_SANITIZED
std::set<std::size_t> refusedSizes;
int callsUntilRefusal = -1;  ///< calls that still succeed; below 0 for all
bool isOnce = false;         ///< one call is refused, and not all from then on

bool IsRefused() {
    if (callsUntilRefusal != 0) {
        callsUntilRefusal -= callsUntilRefusal > 0;
        return false;
    }
    if (isOnce) callsUntilRefusal = -1;
    return true;
}
#endif

}  // namespace

TEST(RTreeMemory, TwoToTheThirtyTwoBytesOfNodes) {
    TraceRecorder trace;
    OpenRTree tree;
    HugeImage image;
    if (tree.Load(image, 0) == IDX_False) GTEST_SKIP() << "no 4 GiB of addresses";
    EXPECT_EQ(tree.GetSize(), HugeImage::kSize);
    EXPECT_EQ(tree.Insert(Box(), 0), IDX_False);
    EXPECT_EQ(trace.Take(), (Lines{kAlloc, kRoot}));
    EXPECT_EQ(tree.m_storage, nullptr);
    EXPECT_EQ(tree.Insert(Box(), 0), IDX_False);
    EXPECT_EQ(tree.Init(2, 4), IDX_True);
    InsertRow(tree, 50);
}

#ifndef GRIDLOOM_SANITIZED

extern "C" {
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);

/// The program's own, which the library calls.
__attribute__((visibility("default"))) void* aligned_alloc(
    std::size_t alignment, std::size_t size) {
    return IsRefused() ? nullptr : __libc_memalign(alignment, size);
}
__attribute__((visibility("default"))) void* realloc(void* block, std::size_t size) {
    if (refusedSizes.count(size) != 0) return nullptr;
    if (IsRefused()) return nullptr;
    return __libc_realloc(block, size);
}
}

TEST(RTreeMemory, InitWithoutABlock) {
    TraceRecorder trace;
    OpenRTree expected(1, 20);
    InsertRow(expected, 100);
    int blocks = 0;
    for (IDX_Bool result = IDX_False; result == IDX_False; ++blocks) {
        for (const bool isUsed : {false, true}) {
            OpenRTree tree;
            if (isUsed) {
                tree.Init(2, 4);
                InsertRow(tree, 20);
            }
            callsUntilRefusal = blocks;
            result = tree.Init(1, 20);
            callsUntilRefusal = -1;
            if (result == IDX_False) {
                EXPECT_EQ(tree.Insert(Box(), 0), IDX_False);
            }
            EXPECT_EQ(tree.Init(1, 20), IDX_True);
            InsertRow(tree, 100);
            EXPECT_EQ(ImageOf(tree), ImageOf(expected));
        }
    }
    EXPECT_GE(blocks, 5);
    EXPECT_EQ(trace.Take(), Lines{});
}

/// The storage grows by a smaller step then, and a tree without the copy of its inner nodes is the same.
TEST(RTreeMemory, AnyOneBlockRefused) {
    OpenRTree expected(2, 4);
    InsertRow(expected, 3000);
    for (const bool isLoaded : {false, true}) {
        for (int call = 0; call < 60; ++call) {
            SCOPED_TRACE(call);
            OpenRTree tree(2, 4);
            OpenRTree half(2, 4);
            if (isLoaded) InsertRow(half, 1500);
            const Bytes image = ImageOf(half);
            callsUntilRefusal = call;
            isOnce = true;
            if (isLoaded && LoadBytes(tree, image) == IDX_False) {
                ASSERT_EQ(LoadBytes(tree, image), IDX_True);
            }
            InsertRow(tree, 3000, isLoaded ? 1500 : 0);
            const bool isOver = callsUntilRefusal >= 0;
            callsUntilRefusal = -1;
            isOnce = false;
            ASSERT_EQ(ImageOf(tree), ImageOf(expected));
            if (isOver) break;
        }
    }
}

TEST(RTreeMemory, StorageThatCannotGrow) {
    TraceRecorder trace;
    OpenRTree expected(2, 4);
    InsertRow(expected, 200);
    // Eight nodes of 124 bytes fit into the first block.
    for (const std::set<std::size_t>& refused : {
             std::set<std::size_t>{2048   },
             std::set<std::size_t>{ 2048, 124992}
    }) {
        OpenRTree tree(2, 4);
        refusedSizes = refused;
        InsertRow(tree, 200);
        refusedSizes.clear();
        EXPECT_EQ(ImageOf(tree), ImageOf(expected));
    }
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
            InsertRow(tree, c.succeeding);
            EXPECT_EQ(tree.Insert(Box(), 0), IDX_False);
        }
        EXPECT_EQ(trace.Take(), c.tags);
        EXPECT_EQ(tree.m_storage, nullptr);
        EXPECT_EQ(tree.Insert(Box(), 0), IDX_False);
        refusedSizes.clear();
        EXPECT_EQ(tree.Init(2, 4), IDX_True);
        InsertRow(tree, 200);
        EXPECT_EQ(ImageOf(tree), ImageOf(expected));
    }
    EXPECT_EQ(trace.Take(), Lines{});
}

TEST(RTreeMemory, LoadWithoutABlock) {
    TraceRecorder trace;
    OpenRTree source(2, 4);
    InsertRow(source, 100);
    for (const bool isUsed : {false, true}) {
        OpenRTree tree;
        if (isUsed) tree.Init(2, 4);
        refusedSizes = {source.GetSize()};
        EXPECT_EQ(LoadBytes(tree, ImageOf(source)), IDX_False);
        refusedSizes.clear();
        EXPECT_EQ(tree.m_storage, nullptr);
        EXPECT_EQ(tree.Insert(Box(), 0), IDX_False);
        EXPECT_EQ(LoadBytes(tree, ImageOf(source)), IDX_True);
        EXPECT_EQ(ImageOf(tree), ImageOf(source));
    }
    EXPECT_EQ(trace.Take(), Lines{});
}

TEST(RTreeMemory, LoadedTreeWithoutWorkingArrays) {
    OpenRTree source(2, 4);
    InsertRow(source, 100);
    OpenRTree tree;
    ASSERT_EQ(LoadBytes(tree, ImageOf(source)), IDX_True);
    callsUntilRefusal = 0;
    EXPECT_EQ(tree.Insert(Box(), 0), IDX_False);
    callsUntilRefusal = -1;
    EXPECT_EQ(ImageOf(tree), ImageOf(source));
    EXPECT_EQ(tree.Insert(Box(), 0), IDX_True);
}

#endif
