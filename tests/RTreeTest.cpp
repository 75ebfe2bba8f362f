// The R-tree: hand-worked splits and choices, its invariants, its image in files, and images that lie.

#include "FileCase.h"
#include "OpenRTree.h"

#include "IDX_WT_SplittedFile.h"

#include <random>

namespace {

using Box = IDX_Base_BoundingBox;
using ChildRec = IDX_Base_RTree::ChildRec;
using Values = std::vector<unsigned int>;

constexpr unsigned int kHeader = 12;

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

struct NodeHeader {
    unsigned int parent;
    unsigned short level, count, slot, unused;
};

/// A node of an image, by its offset among the nodes.
struct Node : NodeHeader {
    Node(const Bytes& image, unsigned int offset)
        : NodeHeader(At<NodeHeader>(image, kHeader + offset)), at(offset), entries(count) {
        for (unsigned int i = 0; i < count; ++i) {
            entries[i] = At<ChildRec>(image, kHeader + offset + 12 + 28 * i);
        }
    }

    Values ValuesInOrder() const {
        Values values;
        for (const ChildRec& entry : entries) values.push_back(entry.value);
        return values;
    }

    unsigned int at;
    std::vector<ChildRec> entries;
};

Node RootOf(const Bytes& image) {
    return {image, At<unsigned int>(image, 4)};
}

bool Encloses(const Box& outer, const Box& inner) {
    Box both;
    Box::Union(outer, inner, both);
    return std::memcmp(&both, &outer, sizeof both) == 0;
}

/// What always holds, from one node down. Gives the number of nodes.
unsigned int CheckSubtree(const Bytes& image, const Node& node, unsigned int minFill) {
    unsigned int nodes = 1;
    const bool isRoot = node.at == RootOf(image).at;
    EXPECT_GE(node.count, isRoot ? node.level != 0 ? 2u : 0u : minFill);
    for (unsigned int s = 0; node.level != 0 && s < node.count; ++s) {
        const Node child(image, node.entries[s].value);
        EXPECT_EQ(child.parent, node.at);
        EXPECT_EQ(child.slot, s);
        EXPECT_EQ(child.level + 1, node.level);
        for (const ChildRec& entry : child.entries) {
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
    for (const ChildRec& entry : node.entries) {
        if (!Touch(entry.box, window)) continue;
        if (node.level == 0) found.push_back(entry.value);
        if (node.level != 0) Search(image, Node(image, entry.value), window, found);
    }
}

/// A search finds what a look at each of the boxes finds.
void ExpectFound(const Bytes& image, const std::vector<Box>& boxes, const Box& window) {
    Values found;
    Values expected;
    Search(image, RootOf(image), window, found);
    std::sort(found.begin(), found.end());
    for (unsigned int i = 0; i < boxes.size(); ++i) {
        if (Touch(boxes[i], window)) expected.push_back(i);
    }
    EXPECT_EQ(found, expected);
}

/// A root of level 1 above leaves that hold one box each, with room for one more entry everywhere.
Bytes TreeOverLeaves(const std::vector<Box>& boxes) {
    const auto count = static_cast<unsigned short>(boxes.size());
    const unsigned int nodeSize = 12 + 28 * (count + 1u);
    Bytes image(kHeader + nodeSize * (count + 1));
    Set(image, 2, static_cast<unsigned short>(count + 1));
    Set(image, 8, nodeSize * (count + 1));
    Set(image, kHeader, NodeHeader{0, 1, count, 0, 0});
    for (unsigned short i = 0; i < count; ++i) {
        const unsigned int leaf = (i + 1u) * nodeSize;
        Set(image, kHeader + 12 + 28u * i, ChildRec{boxes[i], leaf});
        Set(image, kHeader + leaf, NodeHeader{0, 0, 1, i, 0});
        Set(image, kHeader + leaf + 12, ChildRec{boxes[i], i});
    }
    return image;
}

/// The box of a binary STL file: 80 bytes and a number of facets, each 12 floats and 2 bytes.
Box BoxOfStl(const std::string& path) {
    const std::string content = ContentOf(path);
    const Bytes bytes(content.begin(), content.end());
    Box box(At<IDX_Point>(bytes, 96), At<IDX_Point>(bytes, 96));
    for (std::size_t facet = 84; facet < bytes.size(); facet += 50) {
        for (const std::size_t vertex : {12u, 24u, 36u}) {
            const auto point = At<IDX_Point>(bytes, facet + vertex);
            box.Union(Box(point, point));
        }
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
    for (unsigned int i = 0; i < count; ++i) {
        const std::size_t copy = i / parts.size();
        const Box& part = parts[i % parts.size()];
        const float x = static_cast<float>(copy % 64) * (high.x - low.x);
        const float y = static_cast<float>(copy / 64) * (high.y - low.y);
        const auto moved = [=](const IDX_Point& p) { return IDX_Point{p.x + x, p.y + y, p.z}; };
        boxes.emplace_back(moved(part.GetLow()), moved(part.GetHigh()));
    }
    return boxes;
}

class RTreeInFile : public FileCase {};

}  // namespace

TEST(RTree, EmptyTrees) {
    for (const unsigned short maxChildren : std::vector<unsigned short>{2, 36, 37, 65535}) {
        OpenRTree tree(2, maxChildren);
        EXPECT_EQ(tree.GetSize(), 12u + 28u * maxChildren);
        Bytes expected(kHeader + tree.GetSize());
        Set<unsigned short>(expected, 0, 2);
        Set(expected, 2, maxChildren);
        Set(expected, 8, tree.GetSize());
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
        EXPECT_EQ(RootOf(image).ValuesInOrder(), (Values{0, 2 * size}));
        EXPECT_EQ(Node(image, 0).ValuesInOrder(), c.stayed);
        EXPECT_EQ(Node(image, 2 * size).ValuesInOrder(), c.moved);
    }
}

TEST(RTree, ChoiceOfSubtree) {
    const Box huge = Bar(-3e38f, 3e38f);
    const struct {
        const char* name;
        std::vector<Box> boxes;
        Box added;
        unsigned int leaf;
    } kCases[] = {
        {"least growth",                {Bar(0, 1), Bar(10, 14)},                     Bar(8,  9),  1},
        {"same growth, smaller box",    {Bar(0, 4), Bar(9, 11)},                      Bar(6,  7),  1},
        {"same volume too, lower slot", {Bar(8, 9), Bar(0, 1), Bar(8, 9)},            Bar(4,  5),  0},
        {"inside several",              {Bar(0, 9), Bar(1, 5), Bar(0, 8), Bar(2, 6)}, Bar(3,  4),  1},
        {"no number first, it stays",   {huge, Bar(0, 1)},                            Bar(0,  1),  0},
        {"no number later never wins",  {Bar(0, 1), huge},                            Bar(50, 90), 0},
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
        const auto next = [&] {
            const IDX_Point low = {step(), step(), step()};
            return Box(low, {low.x + step() / 6, low.y + step() / 6, low.z + step() / 6});
        };
        OpenRTree tree(minFill, maxChildren);
        std::vector<Box> boxes;
        for (unsigned int i = 0; i < 150; ++i) {
            boxes.push_back(next());
            ASSERT_EQ(tree.Insert(boxes.back(), i), IDX_True);
            const Bytes image = ImageOf(tree);
            const unsigned int nodes = CheckSubtree(image, RootOf(image), minFill);
            EXPECT_EQ(nodes * tree.m_nodeSize, tree.GetSize());
        }
        for (int query = 0; query < 50; ++query) ExpectFound(ImageOf(tree), boxes, next());
    }
}

TEST(RTree, LoadedBoxesThatAreTooLarge) {
    // A valid image of somebody else: the boxes of the nodes enclose more than they need to.
    Bytes image = TreeOverLeaves({Bar(0, 1), Bar(10, 11)});
    Set(image, kHeader + 12, Bar(-5, 6));
    OpenRTree tree;
    ASSERT_EQ(LoadBytes(tree, image), IDX_True);
    ASSERT_EQ(tree.Insert(Bar(2, 3), 7), IDX_True);
    const Box box = RootOf(ImageOf(tree)).entries[0].box;
    EXPECT_EQ(box.GetLow().x, 0) << "worked out from the entries";
    EXPECT_EQ(box.GetHigh().x, 3);
}

TEST(RTree, ImagesThatLie) {
    OpenRTree sound(2, 4);
    InsertBars(sound, 0, 40);
    const Bytes image = ImageOf(sound);
    const Node root = RootOf(image);
    ASSERT_GE(root.level, 2u);
    const unsigned int atRoot = kHeader + root.at;
    const unsigned int firstChild = root.entries[0].value;
    const unsigned int atChild = kHeader + firstChild;
    const struct {
        const char* name;
        unsigned int at;
        std::size_t width;
        unsigned int value;
    } kCases[] = {
        {"root between nodes",               4,                4, root.at + 4        },
        {"root behind the nodes",            4,                4, sound.GetSize()    },
        {"larger nodes than the size holds", 2,                2, 5                  },
        {"no places",                        2,                2, 0                  },
        {"one place",                        2,                2, 1                  },
        {"a part of a node",                 8,                4, sound.GetSize() - 4},
        {"count above the places",           kHeader + 6,      2, 5                  },
        {"empty inner node",                 atRoot + 6,       2, 0                  },
        {"level too high",                   atRoot + 4,       2, root.level + 1u    },
        {"level that doesn't fall",          atChild + 4,      2, root.level         },
        {"inner node called a leaf",         atChild + 4,      2, 0                  },
        {"child is the node itself",         atRoot + 12 + 24, 4, root.at            },
        {"child behind the nodes",           atRoot + 12 + 24, 4, 0xFFFFFFF0u        },
        {"child between nodes",              atRoot + 12 + 24, 4, firstChild + 28    },
        {"other parent",                     atChild,          4, 0                  },
        {"other slot",                       atChild + 8,      2, 1                  },
    };
    TraceRecorder trace;
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
    InsertBars(tree, 0, 20);
    const Bytes image = ImageOf(tree);
    const struct {
        unsigned int succeeding;
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
        file.untilFailure = static_cast<int>(c.succeeding);
        unsigned int offset = 0;
        EXPECT_EQ(tree.Save(file, offset), IDX_False);
        EXPECT_EQ(trace.Take(), Lines{c.save});
        EXPECT_EQ(offset, 8u);
        EXPECT_EQ(file.bytes.size(), 8 + 12 * c.succeeding);
        EXPECT_EQ(ImageOf(tree), image);

        file.bytes.resize(8);
        file.bytes.insert(file.bytes.end(), image.begin(), image.end());
        file.untilFailure = static_cast<int>(c.succeeding);
        OpenRTree loaded(1, 3);
        InsertBars(loaded, 0, 30);
        const unsigned int size = loaded.GetSize();
        EXPECT_EQ(loaded.Load(file, 8), IDX_False);
        EXPECT_EQ(trace.Take(), Lines{c.load});
        EXPECT_EQ(loaded.GetSize(), size);
        EXPECT_EQ(loaded.Insert(Bar(0, 1), 1), c.succeeding == 0 ? IDX_True : IDX_False);
        file.untilFailure = -1;
        EXPECT_EQ(loaded.Load(file, 8), IDX_True) << "usable again";
        EXPECT_EQ(ImageOf(loaded), image);
    }
    IDX_WT_RTree none;
    EXPECT_EQ(ImageOf(none), Bytes(12)) << "a header, and no nodes";
    EXPECT_EQ(trace.Take(), Lines{"IDX_WT_RTree.Save.IDX_WT_SplittedFile.WriteAt"});
}

TEST_F(RTreeInFile, InAPieceOfASplitFile) {
    OpenRTree tree(2, 4);
    InsertBars(tree, 0, 20);
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
    unsigned int offset = 1;
    ASSERT_EQ(file.OpenWrite((_folder / "boxes").c_str()), IDX_True);
    Expect(tree.Save(file, offset));
    file.Close();
    ASSERT_EQ(file.OpenRead((_folder / "boxes").c_str()), IDX_True);
    OpenRTree loaded;
    Expect(loaded.Load(file, offset));
    const Bytes image = ImageOf(loaded);
    EXPECT_TRUE(image == ImageOf(tree));
    for (std::size_t query = 0; query < boxes.size(); query += 50021) {
        ExpectFound(image, boxes, boxes[query]);
    }
}
