// The R-tree: its image in files, images that lie, and 2^32 bytes of nodes. What sequences of boxes
// give is for RTreeRandomTest.

#include "FailingStore.h"
#include "OpenRTree.h"
#include "TemporaryFolder.h"
#include "Transcript.h"

#include "IDX_WT_SplittedFile.h"

namespace {

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

}  // namespace

TEST(RTree, EmptyTrees) {
    for (const unsigned int maxChildren : {0u, 1u, 2u, 36u, 37u, 65535u}) {
        OpenRTree tree(2, maxChildren);
        const unsigned int size = 12 + kEntry * maxChildren;
        Bytes expected(kHeader + size);
        Set(expected, 0, (maxChildren << 16u) + 2u);
        Set(expected, 8, size);
        EXPECT_EQ(ImageOf(tree), expected);
        EXPECT_EQ(tree.GetSize(), size);
        EXPECT_EQ(tree.Insert(Bar(0, 1), 0), maxChildren >= 2 ? IDX_True : IDX_False);
    }
    IDX_WT_RTree none;
    EXPECT_EQ(none.GetSize(), 0u);
    EXPECT_EQ(none.Insert(Bar(0, 1), 0), IDX_False);
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
    const unsigned int atRoot = kHeader + sound.m_root;
    const unsigned int level = At<unsigned short>(image, atRoot + 4);
    ASSERT_GE(level, 2u);
    const auto firstChild = At<unsigned int>(image, atRoot + 12 + kValue);
    const unsigned int atChild = kHeader + firstChild;
    const struct {
        const char* name;
        unsigned int at;
        std::size_t width;
        unsigned int value;
    } kCases[] = {
        {"root between nodes",               4,                    4, sound.m_root + 4   },
        {"root past the nodes",              4,                    4, sound.GetSize()    },
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
        {"child past the nodes",             atRoot + 12 + kValue, 4, 0xFFFFFFF0u        },
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
        EXPECT_TRUE(offset == 8 && file.bytes.size() == (refused == 1 ? 8 : 20));

        file.bytes.resize(8);
        file.bytes.insert(file.bytes.end(), image.begin(), image.end());
        file.calls = 0;
        OpenRTree loaded(1, 3);
        InsertBars(loaded, 0, 30);
        const unsigned int size = loaded.GetSize();
        transcript.Note("load", loaded.Load(file, 8));
        EXPECT_EQ(loaded.GetSize(), size);
        transcript.Note("insert", loaded.Insert(Bar(0, 1), 1));
        transcript.Note("load", loaded.Load(file, 8));
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
    IDX_WT_SplittedFile file(0, 2, false);
    transcript.Note("open", file.OpenWrite(path.c_str()));
    transcript.Note("save", tree.Save(file, 0, 0));
    transcript.Note("save", tree.Save(file, 1, 40));
    file.Close();
    EXPECT_EQ(ContentOf(path + "1").size(), 40u + 12 + tree.GetSize());
    transcript.Note("open", file.OpenRead(path.c_str()));
    OpenRTree loaded;
    transcript.Note("load", loaded.Load(file, 1, 40));
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
