// The R-tree: splits worked out by hand, its image in files, images that lie, and 2^32 bytes of nodes. What sequences
// of boxes give is for RTreeRandomTest.

#include "FailingStore.h"
#include "OpenRTree.h"
#include "TemporaryFolder.h"
#include "Transcript.h"

#include "IDX_WT_SplittedFile.h"

namespace {

using Values = std::vector<unsigned int>;

constexpr unsigned int kHeader = 12;
constexpr unsigned int kEntry = 28;
constexpr unsigned int kValue = 24;  ///< in an entry

template <class T>
T At(const Bytes& bytes, std::size_t offset) {
    T value;
    std::memcpy(&value, &bytes.at(offset), sizeof value);
    return value;
}

template <class T>
void Set(Bytes& bytes, std::size_t offset, T value) {
    std::memcpy(&bytes.at(offset), &value, sizeof value);
}

/// The values of the entries of a node.
Values ValuesOf(const Bytes& image, unsigned int node) {
    Values values(At<unsigned short>(image, kHeader + node + 6));
    for (std::size_t i = 0; i < values.size(); ++i) {
        values[i] = At<unsigned int>(image, kHeader + node + 12 + kEntry * i + kValue);
    }
    return values;
}

}  // namespace

TEST(RTree, EmptyTrees) {
    for (const unsigned short maxChildren : std::vector<unsigned short>{2, 36, 37, 65535}) {
        OpenRTree tree(2, maxChildren);
        const unsigned int size = 12 + kEntry * maxChildren;
        EXPECT_EQ(tree.GetSize(), size);
        Bytes expected(kHeader + size);
        Set(expected, 0, (maxChildren << 16u) + 2u);
        Set(expected, 8, size);
        EXPECT_EQ(ImageOf(tree), expected);
    }
    for (const unsigned int maxChildren : {0u, 1u}) {
        OpenRTree tooNarrow(0, maxChildren);
        EXPECT_EQ(tooNarrow.Insert(Bar(0, 1), 0), IDX_False);
    }
    IDX_WT_RTree none;
    EXPECT_EQ(none.GetSize(), 0u);
    EXPECT_EQ(none.Insert(Bar(0, 1), 0), IDX_False);
}

TEST(RTree, SplitOfALeaf) {
    const struct {
        const char* name;
        unsigned int minFill;
        std::vector<float> bars;  ///< where they begin; each is 1 long
        Values stayed, moved;
    } kCases[] = {
        {"all undecided to the first group",   2, {0, 10, 9},               {0, 2},       {1}         },
        {"nearer to the second group",         1, {0, 10, 9},               {0},          {1, 2}      },
        {"equal boxes go by counts",           2, {0, 0, 0, 0, 0},          {0, 2, 4},    {1, 3}      },
        {"the last one is forced",             2, {0, 100, 1, 2, 3},        {0, 2, 3},    {1, 4}      },
        {"a minimum of 1 forces nothing",      1, {0, 100, 1, 2, 3},        {0, 2, 3, 4}, {1}         },
        {"a minimum of all places",            4, {0, 100, 99, 98, 97},     {0, 2, 3, 4}, {1}         },
        {"one above them forces nothing",      5, {0, 100, 99, 98, 97},     {0},          {1, 2, 3, 4}},
        {"the new entry is a seed",            2, {0, 1, 2, 3, 100},        {0, 1, 2},    {3, 4}      },
        {"first of equal wastes",              1, {0, 8, 0, 8, 0},          {0, 2, 4},    {1, 3}      },
        {"same growth, smaller though fuller", 1, {0, 10, 10, 10, 1, 5.5f}, {0, 4},       {1, 2, 3, 5}},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        OpenRTree tree(c.minFill, static_cast<unsigned int>(c.bars.size()) - 1);
        unsigned int value = 0;
        for (const float from : c.bars) tree.Insert(Bar(from, from + 1), value++);
        const unsigned int size = tree.m_nodeSize;
        EXPECT_EQ(tree.GetSize(), 3 * size);
        EXPECT_EQ(tree.m_root, size);
        const Bytes image = ImageOf(tree);
        EXPECT_EQ(ValuesOf(image, size), (Values{0, 2 * size}));
        EXPECT_EQ(ValuesOf(image, 0), c.stayed);
        EXPECT_EQ(ValuesOf(image, 2 * size), c.moved);
    }
}

/// A valid image of somebody else may have boxes that enclose more than they need to.
TEST(RTree, LoadedBoxesThatAreTooLarge) {
    OpenRTree tree(2, 4);
    InsertBars(tree, 0, 5);
    Bytes image = ImageOf(tree);
    Set(image, kHeader + tree.m_root + 12, Bar(-5, 60));
    OpenRTree loaded;
    ASSERT_EQ(LoadBytes(loaded, image), IDX_True);
    ASSERT_EQ(loaded.Insert(Bar(2, 3), 7), IDX_True) << "a loaded tree grows without Init";
    ASSERT_EQ(tree.Insert(Bar(2, 3), 7), IDX_True);
    EXPECT_EQ(ImageOf(loaded), ImageOf(tree)) << "worked out from the entries";
}

TEST(RTree, ImagesThatLie) {
    OpenRTree sound(2, 4);
    InsertBars(sound, 0, 40);
    const Bytes image = ImageOf(sound);
    const unsigned int level = At<unsigned short>(image, kHeader + sound.m_root + 4);
    ASSERT_GE(level, 2u);
    const unsigned int firstChild = ValuesOf(image, sound.m_root)[0];
    const unsigned int atRoot = kHeader + sound.m_root;
    const unsigned int atChild = kHeader + firstChild;
    const struct {
        const char* name;
        unsigned int at;
        std::size_t width;
        unsigned int value;
    } kCases[] = {
        {"root between nodes",               4,                    4, sound.m_root + 4   },
        {"root behind the nodes",            4,                    4, sound.GetSize()    },
        {"larger nodes than the size holds", 2,                    2, 5                  },
        {"no places",                        2,                    2, 0                  },
        {"one place",                        2,                    2, 1                  },
        {"a part of a node",                 8,                    4, sound.GetSize() - 4},
        {"count above the places",           kHeader + 6,          2, 5                  },
        {"empty inner node",                 atRoot + 6,           2, 0                  },
        {"level too high",                   atRoot + 4,           2, level + 1          },
        {"level that doesn't fall",          atChild + 4,          2, level              },
        {"inner node called a leaf",         atChild + 4,          2, 0                  },
        {"child is the node itself",         atRoot + 12 + kValue, 4, sound.m_root       },
        {"child behind the nodes",           atRoot + 12 + kValue, 4, 0xFFFFFFF0u        },
        {"child between nodes",              atRoot + 12 + kValue, 4, firstChild + 28    },
        {"other parent",                     atChild,              4, 0                  },
        {"other slot",                       atChild + 8,          2, 1                  },
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        Bytes changed = image;
        std::memcpy(&changed[c.at], &c.value, c.width);
        OpenRTree tree;
        ASSERT_EQ(LoadBytes(tree, changed), IDX_True);
        EXPECT_EQ(tree.Insert(Bar(0, 1), 1), IDX_False);
        const Bytes after = ImageOf(tree);
        EXPECT_TRUE(std::equal(after.begin(), after.end(), changed.begin()));
    }
    for (std::size_t bit = 0; bit < 8 * image.size(); ++bit) {
        Bytes flipped = image;
        flipped[bit / 8] = static_cast<unsigned char>(flipped[bit / 8] ^ 1u << bit % 8);
        OpenRTree tree;
        if (LoadBytes(tree, flipped) == IDX_True) (void)tree.Insert(Bar(50, 60), 1);
    }
}

TEST(RTree, FilesThatFail) {
    Transcript transcript;
    OpenRTree tree(2, 4);
    InsertBars(tree, 0, 20);
    const Bytes image = ImageOf(tree);
    for (const int refused : {1, 2}) {
        FailingStore<BytesFile> file;
        file.bytes.resize(8);
        file.refused = refused;
        unsigned int offset = 0;
        transcript.Note("save", tree.Save(file, offset));
        EXPECT_EQ(offset, 8u);
        EXPECT_EQ(file.bytes.size(), refused == 1 ? 8u : 20u);
        EXPECT_EQ(ImageOf(tree), image);

        file.bytes.resize(8);
        file.bytes.insert(file.bytes.end(), image.begin(), image.end());
        file.calls = 0;
        OpenRTree loaded(1, 3);
        InsertBars(loaded, 0, 30);
        const unsigned int size = loaded.GetSize();
        transcript.Note("load", loaded.Load(file, 8));
        EXPECT_EQ(loaded.GetSize(), size);
        EXPECT_EQ(loaded.Insert(Bar(0, 1), 1), refused == 1 ? IDX_True : IDX_False);
        EXPECT_EQ(loaded.Load(file, 8), IDX_True) << "usable again";
        EXPECT_EQ(ImageOf(loaded), image);
    }
    IDX_WT_RTree none;
    BytesFile file;
    unsigned int offset = 1;
    transcript.Note("save without nodes", none.Save(file, offset));
    EXPECT_EQ(file.bytes, Bytes(12)) << "a header, and no nodes";
}

TEST(RTree, InAPieceOfASplitFile) {
    const TemporaryFolder folder;
    const std::string path = folder / "Split";
    OpenRTree tree(2, 4);
    InsertBars(tree, 0, 20);
    Transcript transcript;
    {
        IDX_WT_SplittedFile file(0, 2, false);
        ASSERT_EQ(file.OpenWrite(path.c_str()), IDX_True);
        transcript.Note("save", tree.Save(file, 0, 0));
        transcript.Note("save", tree.Save(file, 1, 40));
    }
    const std::string piece = ContentOf(path + "1");
    EXPECT_EQ(Bytes(piece.begin() + 40, piece.end()), ImageOf(tree));
    IDX_WT_SplittedFile file(0, 2, false);
    ASSERT_EQ(file.OpenRead(path.c_str()), IDX_True);
    OpenRTree loaded;
    transcript.Note("load", loaded.Load(file, 1, 40));
    EXPECT_EQ(ImageOf(loaded), ImageOf(tree));
    transcript.Note("save while reading", loaded.Save(file, 1, 40));
    transcript.Note("load from no piece", loaded.Load(file, 2, 0));
    EXPECT_EQ(ImageOf(loaded), ImageOf(tree));
}

/// Holds an image of almost 2^32 bytes: a full leaf as the root, and leaves of one entry each.
struct HugeImage : IDX_WT_File {
    static constexpr unsigned int kNodeSize = 12 + kEntry * 65535;
    static constexpr unsigned int kSize = 0xFFFFFFFFu / kNodeSize * kNodeSize;

    IDX_Bool ReadAt(unsigned int offset, void* data, unsigned int) override {
        auto* bytes = static_cast<unsigned char*>(data);
        const unsigned int header[] = {0xFFFFu << 16, 0, kSize};
        if (offset == 0) std::memcpy(bytes, header, sizeof header);
        for (std::size_t node = 0; offset != 0 && node < kSize; node += kNodeSize) {
            const unsigned int counts[] = {0, (node == 0 ? 65535u : 1u) << 16, 0};
            std::memcpy(bytes + node, counts, sizeof counts);
        }
        return IDX_True;
    }
};

TEST(RTree, TwoToTheThirtyTwoBytesOfNodes) {
    OpenRTree tree;
    HugeImage image;
    if (tree.Load(image, 0) == IDX_False) GTEST_SKIP() << "no 4 GiB of addresses";
    EXPECT_EQ(tree.GetSize(), HugeImage::kSize);
    Transcript transcript;
    transcript.Note("insertion", tree.Insert(IDX_Base_BoundingBox(), 0));
    EXPECT_EQ(tree.m_storage, nullptr);
    EXPECT_EQ(tree.Insert(IDX_Base_BoundingBox(), 0), IDX_False);
}
