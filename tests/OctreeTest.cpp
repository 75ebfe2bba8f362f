// The working octree, the compact octree and its writer, each on its own.

#include "AdjustableConstants.h"
#include "Images.h"
#include "Transcript.h"

#include <gtest/gtest.h>
#include <sstream>
#include <string>

namespace {

/// Child numbers on the way from the root, a digit each.
using Path = std::string;
using Iterator = IDX_Base_Octree_Iterator;

unsigned int NumberOf(char digit) {
    return static_cast<unsigned int>(digit - '0');
}

struct OpenWorking : PLMIdxWTWorkingOctree {
    using PLMIdxWTWorkingOctree::_buffer;
    using PLMIdxWTWorkingOctree::_nCellsByDepth;
    using PLMIdxWTWorkingOctree::_size;
    using PLMIdxWTWorkingOctree::ConstructFrom;

    explicit OpenWorking(int depth) { SetDepth(depth); }

    void Make(const Path& path) {
        Iterator iterator;
        for (const char digit : path) ASSERT_EQ(MoveCreate(iterator, NumberOf(digit)), IDX_S_OK);
    }
};

struct OpenWriter : PLMIdxWTOptimOctree_0 {
    using PLMIdxWTOptimOctree_0::_FillCell;
    using PLMIdxWTOptimOctree_0::_SubConstructFrom;

    Bytes Records() const { return Bytes(_buffer, _buffer + _size); }
};

Iterator At(const PLMIdxIBaseOctree& octree, const Path& path) {
    Iterator iterator;
    for (const char digit : path) EXPECT_EQ(octree.Move(iterator, NumberOf(digit)), IDX_S_OK);
    return iterator;
}

/// States of the cells at the ends of some paths, a letter each: empty, partial, full, surface.
std::string StatesOf(const PLMIdxIBaseOctree& octree, const std::string& paths) {
    std::istringstream words(paths);
    std::string states;
    for (Path path; words >> path;) {
        const unsigned int child = NumberOf(path.back());
        path.pop_back();
        states += "epfs"[octree.Test(At(octree, path), child)];
    }
    return states;
}

/// A root with the partial children 1 and 6, of which the first has two node sets and the other one.
struct TwoBranches : OpenWorking {
    TwoBranches() : OpenWorking(4) {
        Make("10");
        Make("13");
        Fill({}, 2, OCTREE_SURFACE);
        Make("65");
        Fill(At(*this, "6"), 7, OCTREE_FULL);
    }
};

/// Child 7 of the root is full; in child 0, group 3 holds its cells 0 and 7.
struct Example : OpenWorking {
    Example() : OpenWorking(3) {
        SetBBWithoutReset({1, 2, 3}, {4, 5, 6});
        Make("030");
        Make("037");
        Fill({}, 7, OCTREE_FULL);
    }
};
const Bytes kExample = {1, 0x80, 0, 0, 8, 0, 0, 0, 0, 0, 0, 0x81, 0, 0, 0, 0};

}  // namespace

TEST(Octrees, NewOnesAreEmptyAndWorkingOnesAreNotStored) {
    PLMIdxWorkingOctree working;
    PLMIdxWTWorkingOctree writable;
    PLMIdxOptimOctree_0 compact;
    PLMIdxWTOptimOctree_0 writer;
    PLMIdxIBaseOctree* const octrees[] = {&working, &writable, &compact, &writer};
    for (const PLMIdxIBaseOctree* octree : octrees) {
        EXPECT_EQ(StatesOf(*octree, "5"), "e");
        Iterator iterator;
        EXPECT_EQ(octree->Move(iterator, 3), IDX_E_FAIL);
        EXPECT_EQ(iterator.depth, 1u);
        EXPECT_EQ(iterator.offset, 0u);
        EXPECT_EQ(octree->GetSizeInFiles(), 132);
    }
    Transcript transcript;
    char nothing[64];
    auto& noFile = reinterpret_cast<IDX_WT_SplittedFile&>(nothing);
    unsigned int part = 0;
    unsigned int offset = 0;
    NOTE(transcript, working.Save(noFile, part, offset));
    NOTE(transcript, working.Load(nullptr));
    NOTE(transcript, writable.Load(noFile, 0, 0));
    NOTE(transcript, octrees[1]->Load(nullptr));
}

TEST(Octrees, TheArenaHoldsWholeRecords) {
    EXPECT_EQ(*&PLMIdxWTWorkingOctree::MAXDEPTH, 20) << "has an address";
    Transcript transcript;
    const auto reset = [](int depth, unsigned int bytes) {
        const ArenaSize arena(bytes);
        return OpenWorking(depth).Reset();
    };
    for (const int depth : {0, 19}) EXPECT_EQ(reset(depth, 52), IDX_S_OK);
    for (const int depth : {1, 20}) EXPECT_EQ(reset(depth, 160), IDX_E_FAIL);
    NOTE(transcript, reset(2, 160));
    NOTE(transcript, reset(2, 159));
    NOTE(transcript, reset(3, 52));
    NOTE(transcript, reset(3, 51));
    const ArenaSize arena(212);
    OpenWorking octree(3);
    octree.Make("635");
    octree.Make("635");
    EXPECT_EQ(octree._size, 212u);
    EXPECT_EQ(StatesOf(octree, "6 63 635 634"), "ppse");
    EXPECT_EQ(At(octree, "63").offset, 58u);
    EXPECT_EQ(At(octree, "635").offset, 0u);
    EXPECT_EQ(At(octree, "2").offset, 0u) << "a child that isn't there keeps the parent's";
    Iterator iterator;
    NOTE(transcript, octree.MoveCreate(iterator, 0));
    EXPECT_EQ(iterator.depth, 0u);
    EXPECT_EQ(StatesOf(octree, "0"), "e");
    EXPECT_EQ(octree._nCellsByDepth[1], 1);
}

TEST(Octrees, AGroupOfEightCellsIsOneWord) {
    OpenWorking octree(2);
    for (unsigned int cell = 0; cell < 8; ++cell) {
        octree.Make(std::to_string(60 + cell));
        octree.Fill(At(octree, "1"), cell, OCTREE_FULL);
        octree.Fill(At(octree, "2"), cell, cell < 4 ? OCTREE_FULL : OCTREE_SURFACE);
    }
    octree.Make("37");
    octree.Fill({}, 3, OCTREE_SURFACE);
    // Eight surface cells, eight full ones, both kinds, and a group filled with another state than full.
    EXPECT_EQ(StatesOf(octree, "6 1 2 3"), "pfpe");
    EXPECT_EQ(octree._nCellsByDepth[1], 2) << "groups 6 and 3";
    octree.Make("5");
    octree.Make("5");
    EXPECT_EQ(octree._nCellsByDepth[1], 4) << "a group without cells counts each time";
}

TEST(Octrees, EveryCellHasItsTag) {
    OpenWorking octree(3);
    octree.Make("200");
    const auto placeOf = [&octree](const Iterator& parent, unsigned int child) {
        unsigned short* tag = nullptr;
        octree.GetTagPtr(parent, child, tag);
        EXPECT_EQ(std::exchange(*tag, 7), 0);
        return reinterpret_cast<unsigned char*>(tag) - octree._buffer;
    };
    for (unsigned int i = 0; i < 8; ++i) {
        EXPECT_EQ(placeOf({}, i), 36 + 2 * i);
        const Iterator group = At(octree, std::to_string(20 + i));
        for (unsigned int j = 0; j < 8; ++j) EXPECT_EQ(placeOf(group, j), 52 + 32 + 16 * i + 2 * j);
        octree.SetTag(group, 0, static_cast<unsigned short>(60000 + i));
        unsigned short tag = 0;
        octree.GetTag(At(octree, "2"), i, tag);
        EXPECT_EQ(tag, 60000 + i) << "of a group: that of its cell 0";
    }
}

TEST(Octrees, AreCutToLessDepth) {
    OpenWorking octree(4);
    octree.SetBB({1, 2, 3}, {4, 5, 6});
    octree.SetCuboid({}, {1, 1, 1}, {2, 2, 2});
    octree.Make("32");  // a node set without cells
    octree.SetTag({}, 1, 9);
    for (const int depth : {4, -1}) EXPECT_EQ(octree.ReduceDepth(depth), IDX_E_INVALID_ARGUMENT);
    ASSERT_EQ(octree.ReduceDepth(2), IDX_S_OK);
    EXPECT_EQ(StatesOf(octree, "32 33"), "se");
    unsigned short tag = 1;
    octree.GetTag({}, 1, tag);
    EXPECT_EQ(tag, 0);
    ASSERT_EQ(octree.ReduceDepth(0), IDX_S_OK);
    EXPECT_EQ(octree._depth, 0u);
    EXPECT_EQ(octree._bbSize.z, 6);
    EXPECT_EQ(octree._hasCuboid, 1);
}

TEST(Octrees, AnImageIsReadWhereItLies) {
    OpenWriter writer;
    ASSERT_EQ(writer.ConstructFrom(Example()), IDX_S_OK);
    EXPECT_EQ(writer.Records(), kExample);
    Bytes image = ImageOf(writer);
    image.insert(image.begin(), 1, 0);  // an odd address
    PLMIdxOptimOctree_0 octree;
    ASSERT_EQ(octree.Load(&image[1]), IDX_S_OK);
    EXPECT_EQ(octree.GetSizeInFiles(), 148);
    EXPECT_EQ(octree._bbSize.y, 5);
    EXPECT_EQ(StatesOf(octree, "1 7 03 037 036"), "efpfe");
    EXPECT_EQ(At(octree, "03").offset, 11u);
    EXPECT_EQ(At(octree, "037").offset, 0u);
    Iterator iterator;
    EXPECT_EQ(octree.Move(iterator, 7), IDX_E_FAIL) << "a full cell";

    for (const std::size_t changed : {1U, 5U}) {  // kind, version
        Bytes other = image;
        ++other[changed];
        other[9] = 2;
        EXPECT_EQ(octree.Load(&other[1]), IDX_E_FAIL);
    }
    EXPECT_EQ(octree.Load(nullptr), IDX_E_FAIL);
    EXPECT_EQ(octree._depth, 3u) << "a failed load changes nothing";
    EXPECT_EQ(writer.Load(&image[1]), IDX_E_FAIL) << "a writer is never a view";

    OpenWorking working(0);
    ASSERT_EQ(working.ConstructFrom(octree), IDX_S_OK) << "the way back";
    EXPECT_EQ(working._size, 212u);
    EXPECT_EQ(SolidCells(working), SolidCells(octree));
    ASSERT_EQ(working.ConstructFrom(octree, 2), IDX_S_OK);
    EXPECT_EQ(StatesOf(working, "03"), "s");
    const ArenaSize arena(211);
    EXPECT_EQ(OpenWorking(0).ConstructFrom(octree), IDX_E_FAIL);
}

TEST(Octrees, RecordsAreInTheOrderOfTheWalk) {
    OpenWriter writer;
    ASSERT_EQ(writer.ConstructFrom(TwoBranches()), IDX_S_OK);
    Bytes expected = {0x34, 0x10, 0, 0, 8,    0,    0, 0, 0x41, 0, 0, 0,
                      24,   0,    0, 0, 0x00, 0x84, 0, 0, 40,   0, 0, 0};
    expected.resize(48);  // three node sets without a cell
    EXPECT_EQ(writer.Records(), expected);
    EXPECT_EQ(At(writer, "65").offset, 40u);

    OpenWorking twoFull(3);
    twoFull.Fill({}, 0, OCTREE_FULL);
    twoFull.Fill({}, 5, OCTREE_FULL);
    ASSERT_EQ(writer.ConstructFrom(twoFull), IDX_S_OK);
    EXPECT_EQ(writer.Records(), (Bytes{0x02, 0x08, 0, 0, 0, 0, 0, 0}));
    ASSERT_EQ(writer.ConstructFrom(OpenWorking(2)), IDX_S_OK);
    EXPECT_EQ(writer._FillCell({}, 1), 1);
    EXPECT_EQ(writer._FillCell(At(writer, "2"), 6), 1);
    EXPECT_EQ(writer._FillCell(At(writer, "26"), 0), IDX_E_FAIL);
    EXPECT_EQ(writer.Records(), (Bytes{0, 255, 64, 0, 0, 0, 0, 0}));
}

TEST(Octrees, AWalkAddsToTheRecordsOfAnyTwoPlaces) {
    OpenWorking target(4);
    target.Make("2");
    target.Fill(At(target, "2"), 5, OCTREE_FULL);
    OpenWriter writer;
    ASSERT_EQ(writer.ConstructFrom(target), IDX_S_OK);
    Iterator from;
    Iterator to = At(writer, "2");
    ASSERT_EQ(writer._SubConstructFrom(Example(), from, to), IDX_S_OK);  // the same levels below
    EXPECT_EQ(StatesOf(writer, "25 27 2037"), "fff") << "the first was there";
    ASSERT_EQ(writer.ConstructFrom(OpenWorking(2)), IDX_S_OK);
    to = from = {};
    ASSERT_EQ(writer._SubConstructFrom(Example(), from, to), IDX_S_OK);  // and one level less
    EXPECT_EQ(writer.Records(), (Bytes{0, 0, 0, 0, 0, 0, 0, 255}));
}

TEST(Octrees, AFullBlockAndTheFullOctree) {
    const TwoBranches source;
    Transcript transcript;
    for (const unsigned int block : {48U, 47U, 23U}) {
        const ArenaSize arena(block);
        OpenWriter writer;
        NOTE(transcript, writer.ConstructFrom(source));
    }
    OpenWriter writer;
    writer._hasCuboid = 1;
    ASSERT_EQ(writer.ConstructFullOctree({1, 2, 3}, {4, 5, 6}), IDX_S_OK);
    EXPECT_EQ(writer.Records(), Bytes(8, 255));
    EXPECT_EQ(writer._depth, 2u);
    EXPECT_EQ(writer._bbOrigin.z, 3);
    EXPECT_EQ(writer._hasCuboid, 0);
    NOTE(transcript, writer.ConstructFrom(source));
    ASSERT_EQ(writer.ConstructFrom(OpenWorking(2)), IDX_S_OK) << "has 8 bytes alone from now on";
    EXPECT_EQ(writer.ConstructFrom(OpenWorking(1)), IDX_E_FAIL);
}

TEST(Octrees, EqualityLooksAtTheCellsAlone) {
    OpenWriter a;
    OpenWriter b;
    EXPECT_TRUE(a == b);
    TwoBranches source;
    ASSERT_EQ(a.ConstructFrom(source), IDX_S_OK);
    source._bbSize = {9, 9, 9};
    source._hasCuboid = 1;
    ASSERT_EQ(b.ConstructFrom(source), IDX_S_OK);
    EXPECT_TRUE(a == b);
    source.Fill(At(source, "65"), 7, OCTREE_FULL);
    ASSERT_EQ(b.ConstructFrom(source), IDX_S_OK);
    EXPECT_FALSE(a == b);
    ASSERT_EQ(a.ConstructFrom(OpenWorking(2)), IDX_S_OK);
    ASSERT_EQ(b.ConstructFrom(OpenWorking(3)), IDX_S_OK);
    EXPECT_FALSE(a == b) << "empty both, but of other depths";
}
