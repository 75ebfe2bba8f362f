// Lists and R-trees whose memory runs out: blocks that are refused.

#include "OpenRTree.h"
#include "Transcript.h"

#include "IDX_WT_ListOfIDX_UInt32.h"
#include "VEXListValIDXWorkingID.h"

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <gtest/gtest.h>
#include <set>
#include <utility>

namespace {

/// What becomes of the blocks that this program asks for.
struct {
    std::vector<std::size_t> asked;  ///< their sizes, as many as there is room for
    bool areAllRefused = false;
    std::set<std::size_t> refusedSizes;  ///< not of malloc, like the next
    int untilRefusal = -1;               ///< blocks until one is refused; below 0 for none
} blocks;

bool IsRefused(std::size_t size, bool isOfMalloc) {
    if (blocks.asked.size() < blocks.asked.capacity()) blocks.asked.push_back(size);
    if (blocks.areAllRefused || isOfMalloc) return blocks.areAllRefused;
    const bool isNext = blocks.untilRefusal >= 0 && blocks.untilRefusal-- == 0;
    return isNext || blocks.refusedSizes.count(size) != 0;
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);

// The program's own, which the library calls. Nothing here touches more than the first MiB of a
// block of malloc.
void* malloc(std::size_t size) {
    return IsRefused(size, true) ? nullptr : __libc_malloc(std::min<std::size_t>(size, 1u << 20));
}
void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return IsRefused(size, false) ? nullptr : __libc_memalign(alignment, size);
}
void* realloc(void* block, std::size_t size) {
    return IsRefused(size, false) ? nullptr : __libc_realloc(block, size);
}
}
#pragma GCC visibility pop

namespace {

using Numbers = std::vector<unsigned int>;

/// Does something, with its blocks refused or not, and gives how many numbers each of these would
/// hold.
Numbers BlocksOf(bool areRefused, const std::function<void()>& action) {
    blocks.asked.reserve(4);
    blocks.areAllRefused = areRefused;
    action();
    blocks.areAllRefused = false;
    Numbers sizes;
    for (const std::size_t size : std::exchange(blocks.asked, {})) {
        sizes.push_back(static_cast<unsigned int>(size / sizeof(unsigned int)));
    }
    return sizes;
}

TEST(ListMemory, BlocksOfNumbersDoubleUpToTheLimit) {
    const auto fill = [] {
        IDX_WT_ListOfIDX_UInt32 list(0);
        for (unsigned int i = 0; i < 4; ++i) list.Append(i);
        IDX_WT_ListOfIDX_UInt32(0xFFFFFFFFu);
    };
    EXPECT_EQ(BlocksOf(false, fill), (Numbers{1, 2, 4, 0xFFFFFFFFu}));
}

TEST(ListMemory, AFailedGrowthLosesTheNumbers) {
    IDX_WT_ListOfIDX_UInt32 list(0);
    list.Append(7);
    unsigned int number = 0;
    for (const unsigned int refused : {2u, 11u}) {  // with a block, and without one
        IDX_Bool result = IDX_True;
        EXPECT_EQ(BlocksOf(true, [&] { result = list.Append(8); }), Numbers{refused});
        EXPECT_FALSE(result || list.Get(0, number) || list.Locate(7) || list.RemoveDuplicates());
        EXPECT_FALSE(list.RemoveLast() || list.RemovePosition(0));
        EXPECT_TRUE(list.Sort() && list.Size() == 0);
        list.RemoveAll();
    }
    EXPECT_EQ(BlocksOf(false, [&] { list.Append(9); }), Numbers{11});
    EXPECT_TRUE(list.Get(0, number) && number == 9 && list.Size() == 1);
}

TEST(ListMemoryDeathTest, WithoutAnElementOrTheFirstBlock) {
    const testing::KilledBySignal aborted(SIGABRT);
    const auto append = [] { VEXListValIDXWorkingID().Append(IDXWorkingID()); };
    EXPECT_EXIT(BlocksOf(true, append), aborted, "AssertionFailed: memory for an element");
    const auto make = [] { IDX_WT_ListOfIDX_UInt32(); };
    EXPECT_EXIT(BlocksOf(true, make), aborted, "AssertionFailed:0 != m_array");
}

enum Start { New, Used, Loaded };

/// Without a block Init, Load and the first Insert after it fail, and work when there is memory
/// again. Later the storage grows by a smaller step, and a tree without the copy of its inner nodes
/// is the same.
TEST(RTreeMemory, AnyOneBlockRefused) {
    TraceRecorder trace;
    for (const Start start : {New, Used, Loaded}) {
        OpenRTree expected(2, 20);
        if (start == Loaded) InsertBars(expected, 0, 1500);
        const Bytes image = ImageOf(expected);
        InsertBars(expected, 1500, 3000);
        const auto makeReady = [&](OpenRTree& tree) {
            return start == Loaded ? LoadBytes(tree, image) : tree.Init(2, 20);
        };
        int call = 0;
        for (bool isOver = false; !isOver; ++call) {
            SCOPED_TRACE(testing::Message() << "start " << start << ", call " << call);
            OpenRTree tree;
            if (start != New) tree.Init(2, 4);
            if (start != New) InsertBars(tree, 0, 20);
            blocks.untilRefusal = call;
            if (makeReady(tree) == IDX_False) {
                EXPECT_EQ(tree.m_storage, nullptr);
                EXPECT_EQ(tree.Insert(Bar(0, 1), 0), IDX_False);
                ASSERT_EQ(makeReady(tree), IDX_True);
            }
            // A loaded tree takes its working arrays now.
            if (tree.Insert(Bar(51, 53), 1500) == IDX_False) {
                EXPECT_EQ(start, Loaded);
                EXPECT_EQ(ImageOf(tree), image);
                ASSERT_EQ(tree.Insert(Bar(51, 53), 1500), IDX_True);
            }
            InsertBars(tree, 1501, 3000);
            isOver = std::exchange(blocks.untilRefusal, -1) >= 0;
            ASSERT_EQ(ImageOf(tree), ImageOf(expected));
        }
        EXPECT_GE(call, 8);
    }
    EXPECT_EQ(trace.Take(), Lines{});
}

/// A tree that lost its storage takes nothing, and is usable again after Init.
TEST(RTreeMemory, StorageThatCannotGrow) {
    const struct {
        unsigned short maxChildren;
        unsigned int succeeding;  ///< insertions
        std::set<std::size_t> refused;
    } kCases[] = {
        {35, 35, {2048, 992 + 992000, 2 * 992}},
        {17, 17, {2048, 976 + 488000, 3 * 488}},
        {40, 0,  {2048, 1132000, 1132}        },
    };
    OpenRTree expected(2, 4);
    InsertBars(expected, 0, 200);
    Transcript transcript;
    for (const auto& c : kCases) {
        OpenRTree tree(2, 4);
        blocks.refusedSizes = c.refused;
        const IDX_Bool isReady = transcript.Note("Init", tree.Init(2, c.maxChildren));
        if (isReady) InsertBars(tree, 0, c.succeeding);
        transcript.Note("Insert", tree.Insert(Bar(0, 1), 0));
        EXPECT_EQ(tree.m_storage, nullptr);
        EXPECT_EQ(tree.Insert(Bar(0, 1), 0), IDX_False);
        blocks.refusedSizes = {2048, 124992};  // eight nodes of 124 bytes fit into the first block
        transcript.Note("Init", tree.Init(2, 4));
        InsertBars(tree, 0, 200);
        EXPECT_EQ(ImageOf(tree), ImageOf(expected));
        blocks.refusedSizes.clear();
    }
}

}  // namespace
