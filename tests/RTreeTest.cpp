// The R-tree: hand-worked splits and choices, its invariants, its image in files, and images that lie.

#include "FileCase.h"
#include "OpenRTree.h"

#include "IDX_WT_SplittedFile.h"

#include <limits>
#include <random>
#include <set>

namespace {

using Box = IDX_Base_BoundingBox;
using Values = std::vector<unsigned int>;
using FanOuts = std::vector<unsigned short>;

constexpr unsigned int kHeader = 12;

/// A piece of the X axis with a square section of 1: its volume is its length.
Box Bar(float from, float to) {
    return Box({from, 0, 0}, {to, 1, 1});
}

template <class T>
T NumberAt(const Bytes& bytes, std::size_t offset) {
    T number = {};
    std::memcpy(
        &number, &bytes.at(offset + sizeof number - 1) - (sizeof number - 1), sizeof number);
    return number;
}

template <class T>
void SetNumber(Bytes& bytes, std::size_t offset, T number) {
    std::memcpy(
        &bytes.at(offset + sizeof number - 1) - (sizeof number - 1), &number, sizeof number);
}

/// A node of an image, by its offset among the nodes.
struct Node {
    Node(const Bytes& image, unsigned int offset)
        : at(offset),
          parent(NumberAt<unsigned int>(image, kHeader + offset)),
          level(NumberAt<unsigned short>(image, kHeader + offset + 4)),
          count(NumberAt<unsigned short>(image, kHeader + offset + 6)),
          slot(NumberAt<unsigned short>(image, kHeader + offset + 8)) {
        for (unsigned int i = 0; i < count; ++i) {
            entries.push_back(
                NumberAt<IDX_Base_RTree::ChildRec>(image, kHeader + offset + 12 + 28 * i));
        }
    }

    Values ValuesInOrder() const {
        Values values;
        for (const auto& entry : entries) values.push_back(entry.value);
        return values;
    }

    unsigned int at, parent, level, count, slot;
    std::vector<IDX_Base_RTree::ChildRec> entries;
};

Node RootOf(const Bytes& image) {
    return {image, NumberAt<unsigned int>(image, 4)};
}

/// A tree of 1 to 1000 bars of equal shape along a line that jumps to and fro.
void InsertBars(IDX_WT_RTree& tree, unsigned int count, unsigned int first = 0) {
    for (unsigned int i = first; i < first + count; ++i) {
        const auto x = static_cast<float>(i * 37 % 101);
        ASSERT_EQ(tree.Insert(Bar(x, x + 2), i), IDX_True);
    }
}

bool Encloses(const Box& outer, const Box& inner) {
    Box both;
    Box::Union(outer, inner, both);
    return std::memcmp(&both, &outer, sizeof both) == 0;
}

/// What always holds, from one node down. Gives the number of nodes.
unsigned int CheckSubtree(const Bytes& image, const Node& node, unsigned int minFill) {
    unsigned int nodes = 1;
    const bool isRoot = node.at == NumberAt<unsigned int>(image, 4);
    EXPECT_GE(node.count, isRoot ? node.level != 0 ? 2u : 0u : std::max(1u, minFill));
    for (unsigned int s = 0; node.level != 0 && s < node.count; ++s) {
        const Node child(image, node.entries[s].value);
        EXPECT_EQ(child.parent, node.at);
        EXPECT_EQ(child.slot, s);
        EXPECT_EQ(child.level + 1, node.level);
        for (const auto& entry : child.entries) {
            EXPECT_TRUE(Encloses(node.entries[s].box, entry.box));
        }
        nodes += CheckSubtree(image, child, minFill);
    }
    return nodes;
}

bool Touch(const Box& a, const Box& b) {
    return a.GetLow().x <= b.GetHigh().x && b.GetLow().x <= a.GetHigh().x &&
           a.GetLow().y <= b.GetHigh().y && b.GetLow().y <= a.GetHigh().y &&
           a.GetLow().z <= b.GetHigh().z && b.GetLow().z <= a.GetHigh().z;
}

void Search(const Bytes& image, const Node& node, const Box& window, Values& found) {
    for (const auto& entry : node.entries) {
        if (!Touch(entry.box, window)) continue;
        if (node.level == 0) found.push_back(entry.value);
        if (node.level != 0) Search(image, Node(image, entry.value), window, found);
    }
}

/// A root of level 1 above leaves that hold one box each, with room for one more entry everywhere.
Bytes TreeOverLeaves(const std::vector<Box>& boxes) {
    const auto maxChildren = static_cast<unsigned short>(boxes.size() + 1);
    const unsigned int nodeSize = 12 + 28u * maxChildren;
    Bytes image(kHeader + nodeSize * (boxes.size() + 1));
    SetNumber<unsigned short>(image, 2, maxChildren);
    SetNumber<unsigned int>(image, 8, static_cast<unsigned int>(image.size()) - kHeader);
    SetNumber<unsigned short>(image, kHeader + 4, 1);
    SetNumber(image, kHeader + 6, static_cast<unsigned short>(boxes.size()));
    for (unsigned int i = 0; i < boxes.size(); ++i) {
        const unsigned int leaf = (i + 1) * nodeSize;
        SetNumber(image, kHeader + 12 + 28 * i, IDX_Base_RTree::ChildRec{boxes[i], leaf});
        SetNumber<unsigned short>(image, kHeader + leaf + 6, 1);
        SetNumber(image, kHeader + leaf + 8, static_cast<unsigned short>(i));
        SetNumber(image, kHeader + leaf + 12, IDX_Base_RTree::ChildRec{boxes[i], i});
    }
    return image;
}

/// The box of a binary STL file: 80 bytes and a number of facets, each 12 floats and 2 bytes.
Box BoxOfStl(const std::string& path) {
    const std::string content = ContentOf(path);
    const Bytes bytes(content.begin(), content.end());
    const auto vertex = [&](unsigned int facet, unsigned int i) {
        return NumberAt<IDX_Point>(bytes, 84 + 50 * std::size_t{facet} + 12 + 12 * std::size_t{i});
    };
    Box box(vertex(0, 0), vertex(0, 0));
    for (unsigned int facet = 0; facet < NumberAt<unsigned int>(bytes, 80); ++facet) {
        for (unsigned int i = 0; i < 3; ++i) box.Union(Box(vertex(facet, i), vertex(facet, i)));
    }
    return box;
}

/// The boxes of an assembly's parts, over and over on a grid of copies, `count` in all.
std::vector<Box> Replicated(const std::vector<Box>& parts, unsigned int count) {
    Box whole = parts.front();
    for (const Box& part : parts) whole.Union(part);
    const IDX_Point low = whole.GetLow();
    const IDX_Point high = whole.GetHigh();
    std::vector<Box> boxes;
    for (unsigned int copy = 0; boxes.size() < count; ++copy) {
        const float x = static_cast<float>(copy % 64) * (high.x - low.x);
        const float y = static_cast<float>(copy / 64 % 64) * (high.y - low.y);
        const float z = static_cast<float>(copy / 4096) * (high.z - low.z);
        const auto moved = [&](const IDX_Point& p) { return IDX_Point{p.x + x, p.y + y, p.z + z}; };
        for (const Box& part : parts) {
            if (boxes.size() < count) {
                boxes.emplace_back(moved(part.GetLow()), moved(part.GetHigh()));
            }
        }
    }
    return boxes;
}

class RTreeInFile : public FileCase {};

}  // namespace

TEST(RTree, EmptyTrees) {
    for (const unsigned short maxChildren : FanOuts{2, 4, 36, 37, 1000, 65535}) {
        OpenRTree tree(2, maxChildren);
        EXPECT_EQ(tree.GetSize(), 12u + 28u * maxChildren);
        Bytes expected(kHeader + tree.GetSize());
        SetNumber<unsigned short>(expected, 0, 2);
        SetNumber(expected, 2, maxChildren);
        SetNumber(expected, 8, tree.GetSize());
        EXPECT_EQ(ImageOf(tree), expected);
    }
}

TEST(RTree, WithoutATree) {
    IDX_WT_RTree tree;
    EXPECT_EQ(tree.GetSize(), 0u);
    EXPECT_EQ(tree.Insert(Bar(0, 1), 0), IDX_False);
    for (const unsigned short maxChildren : FanOuts{0, 1}) {
        EXPECT_EQ(tree.Init(0, maxChildren), IDX_True);
        EXPECT_EQ(tree.Insert(Bar(0, 1), 0), IDX_False);
    }
}

TEST(RTree, FirstSplit) {
    OpenRTree tree(2, 4);
    const unsigned int size = tree.GetSize();
    InsertBars(tree, 4);
    EXPECT_EQ(tree.GetSize(), size);
    InsertBars(tree, 1, 4);
    EXPECT_EQ(tree.GetSize(), 3 * size);
    const Bytes image = ImageOf(tree);
    const Node root = RootOf(image);
    EXPECT_EQ(root.at, size);
    EXPECT_EQ(root.level, 1u);
    EXPECT_EQ(root.ValuesInOrder(), (Values{0, 2 * size}));
    EXPECT_EQ(CheckSubtree(image, root, 2), 3u);
}

TEST(RTree, SplitOfALeaf) {
    const struct {
        const char* name;
        unsigned int minFill;
        std::vector<Box> boxes;
        Values stayed;
        Values moved;
    } kCases[] = {
        {"two places, all undecided to group 0",
         2,                                         {Bar(0, 1), Bar(10, 11), Bar(9, 10)},
         {0, 2},
         {1}                                                                                                      },
        {"two places, nearer to the second",     1, {Bar(0, 1), Bar(10, 11), Bar(9, 10)}, {0},   {1, 2}           },
        {"equal boxes go by counts",             2, std::vector<Box>(5,                   Bar(0, 1)),               {0, 2, 4}, {1, 3}},
        {"the last one is forced",
         2,                                 {Bar(0, 1), Bar(100, 101), Bar(1, 2), Bar(2, 3), Bar(3, 4)},
         {0, 2, 3},
         {1, 4}           },
        {"a minimum of 1 forces nothing",
         1,                                  {Bar(0, 1), Bar(100, 101), Bar(1, 2), Bar(2, 3), Bar(3, 4)},
         {0, 2, 3, 4},
         {1}          },
        {"a minimum of all places",
         4,                                     {Bar(0, 1), Bar(100, 101), Bar(99, 100), Bar(98, 99), Bar(97, 98)},
         {0, 2, 3, 4},
         {1}},
        {"a minimum above the places forces nothing",
         5,                                     {Bar(0, 1), Bar(100, 101), Bar(99, 100), Bar(98, 99), Bar(97, 98)},
         {0},
         {1, 2, 3, 4}},
        {"the new entry is a seed",
         2,                            {Bar(0, 1), Bar(1, 2), Bar(2, 3), Bar(3, 4), Bar(100, 101)},
         {0, 1, 2},
         {3, 4}                },
        {"first of equal wastes",
         1,                                  {Bar(0, 1), Bar(8, 9), Bar(0, 1), Bar(8, 9), Bar(0, 1)},
         {0, 2, 4},
         {1, 3}              },
        {"the smaller group box on equal growth",
         1,                                  {Bar(0, 4), Bar(10, 12), Bar(6, 8)},
         {0},
         {1, 2}                                  },
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        OpenRTree tree(c.minFill, static_cast<unsigned int>(c.boxes.size()) - 1);
        for (unsigned int i = 0; i < c.boxes.size(); ++i) tree.Insert(c.boxes[i], i);
        const Bytes image = ImageOf(tree);
        EXPECT_EQ(Node(image, 0).ValuesInOrder(), c.stayed);
        EXPECT_EQ(Node(image, 2 * tree.m_nodeSize).ValuesInOrder(), c.moved);
    }
}

TEST(RTree, ChoiceOfSubtree) {
    constexpr float kHuge = 3e38f;
    const Box huge({-kHuge, -kHuge, -kHuge}, {kHuge, kHuge, kHuge});
    const Box flat({0, 0, 0}, {9, 9, 0});
    const struct {
        const char* name;
        std::vector<Box> boxes;
        Box added;
        unsigned int leaf;
    } kCases[] = {
        {"least growth",                       {Bar(0, 1), Bar(10, 14)},                                 Bar(8,  9),         1},
        {"same growth, smaller box",           {Bar(0, 4), Bar(9, 11)},                                  Bar(6,  7),         1},
        {"same growth and volume, lower slot", {Bar(8, 9), Bar(0, 1), Bar(8, 9)},                        Bar(4,  5),         0},
        {"inside several: the smallest",
         {Bar(0, 9), Bar(1, 5), Bar(0, 8), Bar(2, 6)},
         Bar(3,                                                                                                  4),
         1                                                                                                                    },
        {"the fifth",                          {Bar(9, 10), Bar(8, 9), Bar(7, 8), Bar(6, 7), Bar(0, 1)}, Bar(0,  1),         4},
        {"flat boxes tie at 0",
         {flat, Box({3, 3, 0}, {4, 4, 0}), flat},
         Box({3, 3, 0},                                                                                          {3, 3, 0}),
         0                                                                                                                    },
        {"no number first, and it stays",      {huge, Bar(0, 1)},                                        Bar(0,  1),         0},
        {"no number later never wins",         {Bar(0, 1), huge},                                        Bar(50, 90),        0},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        OpenRTree tree;
        ASSERT_EQ(LoadBytes(tree, TreeOverLeaves(c.boxes)), IDX_True);
        ASSERT_EQ(tree.Insert(c.added, 100), IDX_True) << "a loaded tree grows without Init";
        EXPECT_EQ(Node(ImageOf(tree), (c.leaf + 1) * tree.m_nodeSize).ValuesInOrder().back(), 100u);
    }
}

TEST(RTree, WhatAlwaysHoldsAndASearch) {
    for (const unsigned int maxChildren : {2u, 3u, 4u, 9u, 16u}) {
        SCOPED_TRACE(maxChildren);
        const unsigned int minFill = (maxChildren + 1) / 2;
        std::mt19937 random(maxChildren);
        const auto step = [&] { return static_cast<float>(random() % 40); };
        OpenRTree tree(minFill, maxChildren);
        std::vector<Box> boxes;
        Bytes image;
        for (unsigned int i = 0; i < 150; ++i) {
            const IDX_Point low = {step(), step(), step()};
            boxes.emplace_back(
                low, IDX_Point{low.x + step() / 8, low.y + step() / 8, low.z + step() / 8});
            ASSERT_EQ(tree.Insert(boxes.back(), i), IDX_True);
            image = ImageOf(tree);
            EXPECT_EQ(
                CheckSubtree(image, RootOf(image), minFill) * tree.m_nodeSize, tree.GetSize());
        }
        for (unsigned int query = 0; query < 50; ++query) {
            const IDX_Point low = {step(), step(), step()};
            const Box window(low, {low.x + step() / 4, low.y + step() / 4, low.z + step() / 4});
            Values found;
            Search(image, RootOf(image), window, found);
            std::multiset<unsigned int> expected;
            for (unsigned int i = 0; i < boxes.size(); ++i) {
                if (Touch(boxes[i], window)) expected.insert(i);
            }
            EXPECT_EQ(std::multiset<unsigned int>(found.begin(), found.end()), expected);
        }
    }
}

TEST(RTree, LaterInits) {
    for (const unsigned short maxChildren : FanOuts{2, 4, 8, 50}) {
        OpenRTree fresh(1, maxChildren);
        OpenRTree used(2, 6);
        InsertBars(used, 80);
        ASSERT_EQ(used.Init(1, maxChildren), IDX_True);
        InsertBars(fresh, 200);
        InsertBars(used, 200);
        EXPECT_EQ(ImageOf(used), ImageOf(fresh));
        OpenRTree loaded;
        ASSERT_EQ(LoadBytes(loaded, TreeOverLeaves({Bar(0, 1)})), IDX_True);
        ASSERT_EQ(loaded.Init(1, maxChildren), IDX_True) << "behind a small image";
        InsertBars(loaded, 200);
        EXPECT_EQ(ImageOf(loaded), ImageOf(fresh));
    }
}

TEST(RTree, InsertAfterLoad) {
    OpenRTree straight(2, 5);
    InsertBars(straight, 300);
    OpenRTree first(2, 5);
    InsertBars(first, 120);
    OpenRTree larger(1, 9);
    InsertBars(larger, 900);  // its block is kept, and bytes of its nodes must not come back
    OpenRTree fresh;
    for (OpenRTree* tree : {&larger, &fresh}) {
        ASSERT_EQ(LoadBytes(*tree, ImageOf(first)), IDX_True);
        EXPECT_EQ(ImageOf(*tree), ImageOf(first));
        InsertBars(*tree, 180, 120);
        EXPECT_EQ(ImageOf(*tree), ImageOf(straight));
    }
}

TEST(RTree, LoadedBoxesThatAreTooLarge) {
    // A valid image of somebody else: the boxes of the nodes enclose more than they need to.
    Bytes image = TreeOverLeaves({Bar(0, 1), Bar(10, 11)});
    SetNumber(image, kHeader + 12, Bar(-5, 6));
    OpenRTree tree;
    ASSERT_EQ(LoadBytes(tree, image), IDX_True);
    ASSERT_EQ(tree.Insert(Bar(2, 3), 7), IDX_True);
    const Box box = RootOf(ImageOf(tree)).entries[0].box;
    EXPECT_EQ(box.GetLow().x, 0) << "worked out from the entries";
    EXPECT_EQ(box.GetHigh().x, 3);
}

TEST(RTree, ImagesThatLie) {
    OpenRTree sound(2, 4);
    InsertBars(sound, 40);
    const Bytes image = ImageOf(sound);
    const Node root = RootOf(image);
    ASSERT_GE(root.level, 2u);
    const std::size_t atRoot = kHeader + root.at;
    const std::size_t atChild = kHeader + root.entries[0].value;
    const auto u16 = [&](std::size_t at, unsigned int value) {
        Bytes changed = image;
        SetNumber(changed, at, static_cast<unsigned short>(value));
        return changed;
    };
    const auto u32 = [&](std::size_t at, unsigned int value) {
        Bytes changed = image;
        SetNumber(changed, at, value);
        return changed;
    };
    const struct {
        const char* name;
        Bytes bytes;
    } kCases[] = {
        {"root between nodes",               u32(4,                root.at + 4)               },
        {"root behind the nodes",            u32(4,                sound.GetSize())           },
        {"larger nodes than the size holds", u16(2,                5)                         },
        {"no places",                        u16(2,                0)                         },
        {"one place",                        u16(2,                1)                         },
        {"a part of a node",                 u32(8,                sound.GetSize() - 4)       },
        {"count above the places",           u16(atRoot + 6,       5)                         },
        {"empty inner node",                 u16(atRoot + 6,       0)                         },
        {"level too high",                   u16(atRoot + 4,       root.level + 1)            },
        {"level that doesn't fall",          u16(atChild + 4,      root.level)                },
        {"inner node called a leaf",         u16(atChild + 4,      0)                         },
        {"child is the node itself",         u32(atRoot + 12 + 24, root.at)                   },
        {"child behind the nodes",           u32(atRoot + 12 + 24, 0xFFFFFFF0u)               },
        {"child between nodes",              u32(atRoot + 12 + 24, root.entries[0].value + 28)},
        {"other parent",                     u32(atChild,          0)                         },
        {"other slot",                       u16(atChild + 8,      1)                         },
    };
    TraceRecorder trace;
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.name);
        OpenRTree tree(2, 8);
        ASSERT_EQ(LoadBytes(tree, c.bytes), IDX_True);
        EXPECT_EQ(tree.Insert(Bar(0, 1), 1), IDX_False);
        const Bytes after = ImageOf(tree);
        EXPECT_TRUE(std::equal(after.begin(), after.end(), c.bytes.begin()));
    }
    EXPECT_EQ(trace.Take(), Lines{});
    for (std::size_t bit = 0; bit < 8 * image.size(); ++bit) {
        Bytes flipped = image;
        flipped[bit / 8] = static_cast<unsigned char>(flipped[bit / 8] ^ 1u << bit % 8);
        OpenRTree tree;
        if (LoadBytes(tree, flipped) == IDX_True) (void)tree.Insert(Bar(50, 60), 1);
    }
}

TEST(RTree, FilesThatFail) {
    OpenRTree tree(2, 4);
    InsertBars(tree, 20);
    const Bytes before = ImageOf(tree);
    const struct {
        int succeeding;
        const char* save;
        const char* load;
    } kCases[] = {
        {0, "IDX_WT_RTree.Save.IDX_WT_SplittedFile.Write(Header)",
         "IDX_WT_RTree.Load.IDX_WT_File.ReadAt(Header)"},
        {1, "IDX_WT_RTree.Save.IDX_WT_SplittedFile.WriteAt",
         "IDX_WT_RTree.Load.IDX_WT_File.ReadAt(Tree)"  },
    };
    TraceRecorder trace;
    for (const auto& c : kCases) {
        BytesFile file;
        file.bytes.resize(8);
        file.untilFailure = c.succeeding;
        unsigned int offset = 0;
        EXPECT_EQ(tree.Save(file, offset), IDX_False);
        EXPECT_EQ(trace.Take(), Lines{c.save});
        EXPECT_EQ(offset, 8u);
        EXPECT_EQ(file.bytes.size(), 8u + 12u * static_cast<unsigned int>(c.succeeding));
        EXPECT_EQ(ImageOf(tree), before);

        file.bytes = before;
        file.untilFailure = c.succeeding;
        OpenRTree loaded(1, 3);
        InsertBars(loaded, 30);
        const unsigned int size = loaded.GetSize();
        EXPECT_EQ(loaded.Load(file, 0), IDX_False);
        EXPECT_EQ(trace.Take(), Lines{c.load});
        EXPECT_EQ(loaded.GetSize(), size);
        EXPECT_EQ(loaded.Insert(Bar(0, 1), 1), c.succeeding == 0 ? IDX_True : IDX_False);
        file.untilFailure = -1;
        EXPECT_EQ(loaded.Load(file, 0), IDX_True) << "usable again";
        EXPECT_EQ(ImageOf(loaded), before);
    }
    IDX_WT_RTree none;
    BytesFile file;
    unsigned int offset = 1;
    EXPECT_EQ(none.Save(file, offset), IDX_False);
    EXPECT_EQ(trace.Take(), Lines{"IDX_WT_RTree.Save.IDX_WT_SplittedFile.WriteAt"});
    EXPECT_EQ(file.bytes, Bytes(12));
    file.bytes = before;
    EXPECT_EQ(none.Load(file, static_cast<unsigned int>(before.size())), IDX_False);
    EXPECT_EQ(trace.Take(), Lines{"IDX_WT_RTree.Load.IDX_WT_File.ReadAt(Header)"});
}

TEST_F(RTreeInFile, BehindOtherBytes) {
    OpenRTree tree(2, 4);
    InsertBars(tree, 20);
    IDX_WT_File file;
    ASSERT_EQ(file.OpenWrite((_folder / "Boxes").c_str()), IDX_True);
    ASSERT_EQ(file.Write(Bytes(100, 7).data(), 100), IDX_True);
    unsigned int offset = 0;
    Expect(tree.Save(file, offset));
    EXPECT_EQ(offset, 100u);
    EXPECT_EQ(file.GetSize(), 112 + tree.GetSize());
    OpenRTree loaded;
    Expect(loaded.Load(file, 100));
    EXPECT_EQ(ImageOf(loaded), ImageOf(tree));
    Expect(
        loaded.Load(file, 100 + 12 + tree.GetSize()),
        {"IDX_WT_File.ReadAt.InvalidOffset[fOffset=" + std::to_string(112 + tree.GetSize()) +
             ",fSize=" + std::to_string(112 + tree.GetSize()) + ",dSize=12]",
         "IDX_WT_RTree.Load.IDX_WT_File.ReadAt(Header)"});
    EXPECT_EQ(ImageOf(loaded), ImageOf(tree));
}

TEST_F(RTreeInFile, InAPieceOfASplitFile) {
    OpenRTree tree(2, 4);
    InsertBars(tree, 20);
    const std::string path = _folder / "Split";
    {
        IDX_WT_SplittedFile file(0, 2, false);
        ASSERT_EQ(file.OpenWrite(path.c_str()), IDX_True);
        Expect(tree.Save(file, 0, 0));
        Expect(tree.Save(file, 1, 40));
    }
    const std::string piece = ContentOf(path + "1");
    EXPECT_EQ(Bytes(piece.begin() + 40, piece.end()), ImageOf(tree));
    IDX_WT_SplittedFile file(0, 2, false);
    ASSERT_EQ(file.OpenRead(path.c_str()), IDX_True);
    OpenRTree loaded;
    Expect(loaded.Load(file, 1, 40));
    EXPECT_EQ(ImageOf(loaded), ImageOf(tree));
    (void)_trace.Take();
    EXPECT_EQ(loaded.Save(file, 1, 40), IDX_False) << "open for reading";
    EXPECT_EQ(_trace.Take().back(), "IDX_WT_RTree.Save.IDX_WT_SplittedFile.Write(Header)");
    EXPECT_EQ(loaded.Load(file, 2, 0), IDX_False) << "no such piece";
    EXPECT_EQ(_trace.Take().back(), "IDX_WT_RTree.Load.IDX_WT_File.ReadAt(Header)");
    EXPECT_EQ(ImageOf(loaded), ImageOf(tree));
}

// GRIDLOOM_MESHES: the folder of mesh files that holds an assembly of placed parts.
TEST_F(RTreeInFile, AMillionBoxesOfAnAssembly) {
    const char* folder = std::getenv("GRIDLOOM_MESHES");
    const std::string placed =
        std::string(folder != nullptr ? folder : "") + "/assembly/saw/placed";
    if (!std::filesystem::is_directory(placed)) GTEST_SKIP() << "there is no " << placed;
    std::vector<Box> parts;
    for (const auto& entry : std::filesystem::directory_iterator(placed)) {
        if (entry.path().extension() == ".stl") parts.push_back(BoxOfStl(entry.path().string()));
    }
    const std::vector<Box> boxes = Replicated(parts, 1000000);
    OpenRTree tree(5, 16);
    for (unsigned int i = 0; i < boxes.size(); ++i) ASSERT_EQ(tree.Insert(boxes[i], i), IDX_True);

    IDX_WT_File file;
    ASSERT_EQ(file.OpenWrite((_folder / "boxes").c_str()), IDX_True);
    unsigned int offset = 1;
    ASSERT_EQ(tree.Save(file, offset), IDX_True);
    file.Close();
    ASSERT_EQ(file.OpenRead((_folder / "boxes").c_str()), IDX_True);
    OpenRTree loaded;
    ASSERT_EQ(loaded.Load(file, offset), IDX_True);
    const Bytes image = ImageOf(loaded);
    EXPECT_TRUE(image == ImageOf(tree));
    for (std::size_t query = 0; query < boxes.size(); query += 50021) {
        Values found;
        Search(image, RootOf(image), boxes[query], found);
        std::sort(found.begin(), found.end());
        Values expected;
        for (unsigned int i = 0; i < boxes.size(); ++i) {
            if (Touch(boxes[i], boxes[query])) expected.push_back(i);
        }
        EXPECT_EQ(found, expected);
    }
}
