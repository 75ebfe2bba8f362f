// The identifier tree: files that can't be opened or lie, and each read, write and comparison
// that fails. What sequences of insertions give is for TreeRandomTest.

#include "FailingStore.h"
#include "OpenTree.h"
#include "TemporaryFolder.h"
#include "Transcript.h"
#include "TreeReference.h"

#include "IDX_Base_Identifier.h"

#include <gtest/gtest.h>

/// Lengths in damaged files ask for gigabytes; the address sanitizer would mark each of their
/// bytes.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
    return "allocator_may_return_null=1:max_allocation_size_mb=256";
}

/// Counts the comparisons, too, and refuses them.
static FailingStore<IDX_WT_MemFile>* theFailingStore = nullptr;

/// In the place of the contracts' own, which never fails.
IDX_Bool IDX_Base_Identifier::SortCompare(const IDX_Base_Identifier& iOther, short& oOrder) const {
    if (theFailingStore != nullptr && theFailingStore->Refuses()) return IDX_False;
    const auto textOf = [](const IDX_Base_Identifier& id) {
        return std::string(reinterpret_cast<const char*>(id.GetData()), id.GetSize());
    };
    oOrder = static_cast<short>(textOf(*this).compare(textOf(iOther)));
    return IDX_True;
}

namespace {

using std::string_literals::operator""s;
using Offsets = std::vector<unsigned int>;

/// The bytes of numbers of 32 bits, of this machine.
std::string Words(const Offsets& words) {
    return {reinterpret_cast<const char*>(words.data()), words.size() * sizeof(unsigned int)};
}

std::string Manifest(unsigned int root, unsigned short version = 45, unsigned short endian = 1) {
    return Words({endian + (version * 0x10000u), root});
}

/// A key of 16 bytes and its record of 16.
std::string Key(unsigned int number) {
    return std::string(15, 'k') + static_cast<char>(number);
}
std::string Record(unsigned int number) {
    return std::string(16, static_cast<char>('A' + number));
}

/// The file of some keys. Four rising ones make a root at 144 with the item at 72, and the leaves
/// at 8 and 172.
std::string FileOf(const Offsets& keys) {
    TreeReference reference(16, 8);
    for (const unsigned int key : keys) reference.Insert(Record(key), Key(key));
    return reference.File(true);
}

/// The same with other numbers from an offset on.
std::string Changed(std::string file, std::size_t offset, const Offsets& words) {
    return file.replace(offset, 4 * words.size(), Words(words));
}

class Tree : public testing::TestWithParam<const char*> {
protected:
    void OpenWrite() { ASSERT_EQ(_tree.OpenWrite(_path.c_str()), IDX_True); }

    void OpenWith(const std::string& content) {
        _tree.Close();
        std::filesystem::remove(_path);  // a file cut to 0 would be written to the disk at once
        SetContent(_path, content);
        OpenWrite();
    }

    TemporaryFolder _folder;
    std::string _path = _folder / "tree";
    bool _isInMemory = std::string(GetParam()) == "Memory";
    OpenTree _tree{16, 8, _isInMemory};
    unsigned int _item = 1;  ///< what the last operation gave
};

INSTANTIATE_TEST_SUITE_P(On, Tree, testing::Values("Disk", "Memory"), [](const auto& test) {
    return std::string(test.param);
});

TEST_P(Tree, ModesFollowTheOpeningAndTheDestructorCloses) {
    const auto modes = [this] {
        return 100 * _tree.IsOpened() + 10 * _tree.IsRead() + _tree.IsReadWrite();
    };
    OpenWrite();
    EXPECT_EQ(modes(), 111);
    EXPECT_EQ(ContentOf(_path), _isInMemory ? "" : Manifest(0)) << "the disk store is flushed";
    EXPECT_EQ(_tree.OpenRead(_path.c_str()), IDX_True);
    EXPECT_EQ(modes(), 110);
    EXPECT_EQ(_tree.CheckVersion(_path.c_str()), 0);
    EXPECT_EQ(modes(), 0);
    {
        OpenTree other(16, 8, !_isInMemory);
        EXPECT_EQ(other.OpenWrite((_folder / "other").c_str()), IDX_True);
        EXPECT_EQ(other.Add(Record(1), Key(1), _item), IDX_True);
    }
    EXPECT_EQ(ContentOf(_folder / "other"), FileOf({1}));
    OpenWith(Manifest(0) + "ab");
    EXPECT_EQ(_tree.Add(Record(1), Key(1), _item), IDX_True);
    _tree.Close();
    EXPECT_EQ(ContentOf(_path).substr(0, 12), Manifest(12) + "ab\0\0"s) << "at a multiple of 4";
}

TEST_P(Tree, OpeningsThatFail) {
    Transcript transcript;
    transcript.Title("no file, no folder");
    transcript.Note("OpenRead", _tree.OpenRead(_path.c_str()));
    transcript.Note("CheckVersion", _tree.CheckVersion(_path.c_str()));
    transcript.Note("OpenWrite", _tree.OpenWrite((_folder / "missing/tree").c_str()));
    const std::string newer = Manifest(0, 46);
    const std::string swapped = Manifest(0, 0x2d00, 0x100);
    const std::string unmarked = Manifest(0, 45, 0);
    const std::string cut = swapped.substr(0, 7);
    const std::pair<const char*, std::string> kBadFiles[] = {
        {"version 46",            newer   },
        {"the other byte order",  swapped },
        {"no byte order",         unmarked},
        {"a manifest of 7 bytes", cut     },
    };
    for (const auto& [name, content] : kBadFiles) {
        transcript.Title(name);
        SetContent(_path, content);
        transcript.Note("OpenWrite", _tree.OpenWrite(_path.c_str()));
        transcript.Note("OpenRead", _tree.OpenRead(_path.c_str()));
        EXPECT_FALSE(_tree.IsOpened() || _tree.Store().IsOpened());
        transcript.Note("CheckVersion", _tree.CheckVersion(_path.c_str()));
        transcript.Note("OpenWrite", _tree.OpenWrite(_path.c_str()));
        EXPECT_EQ(ContentOf(_path), content);
    }
}

TEST_P(Tree, Refusals) {
    Transcript transcript;
    transcript.Note("look-up in a closed tree", _tree.Find(Key(1), _item));
    transcript.Note("insertion into a closed tree", _tree.Add(Record(1), Key(1), _item));
    OpenWrite();
    transcript.Note("insertion of nothing", _tree.Add("", Key(1), _item = 1));
    EXPECT_EQ(_item, 0u);
    _tree.OpenRead(_path.c_str());
    transcript.Note("insertion while reading", _tree.Add(Record(1), Key(1), _item));
    EXPECT_EQ(ContentOf(_path), Manifest(0));
    OpenWith(FileOf({1, 2, 3, 4}));
    transcript.Note("walk without a callback", _tree.EnumItems(nullptr, nullptr));
    int calls = 0;
    const auto stopAtThird = [](IDX_WT_Tree234* tree, unsigned int, void* data) {
        EXPECT_STREQ(tree->GetIndexName(), "OpenTree");
        return ++*static_cast<int*>(data) < 3 ? IDX_True : IDX_False;
    };
    transcript.Note("walk stopped at the third item", _tree.EnumItems(stopAtThird, &calls));
    EXPECT_EQ(calls, 3);
}

TEST(TreeDeathTest, SizesBelowTheirStructuresEndTheProcess) {
    EXPECT_DEATH(OpenTree(15, 8, false), "m_itemSize >= sizeof\\(IDX_234Struct_ItemSlot\\)");
    EXPECT_DEATH(OpenTree(16, 7, false), "m_manifestSize >= sizeof\\(IDX_234Struct_Manifest\\)");
}

/// The tree's own stores, whose bytes it looks at, and one that it has to ask for each.
enum Store { Disk, Memory, PutIn };

enum Operation { Insertion, LookUp, Walk, Opening };

struct Scenario {
    const char* name;
    Offsets keys;  ///< inserted before
    Operation operation;
    unsigned int key;             ///< that is inserted or looked up
    bool isRootReplaced = false;  ///< a failure may then lose what was there

    std::string File() const {
        return operation != Opening ? FileOf(keys) : key == 0 ? "" : Manifest(0) + "a";
    }

    IDX_Bool Run(OpenTree& tree, const std::string& path, unsigned int& item) const {
        Offsets items;
        switch (operation) {
            case Insertion:
                return tree.Add(Record(key), Key(key), item);
            case LookUp:
                return tree.Find(Key(key), item);
            case Walk:
                return tree.Walk(items);
            default:
                return tree.OpenWrite(path.c_str());
        }
    }
};

// clang-format off
const Scenario kScenarios[] = {
    {"the first key",                             {},                 Insertion, 1},
    {"a key of a leaf again",                     {2},                Insertion, 2},
    {"a full root",                               {1, 2, 3},          Insertion, 4, true},
    {"a key of an inner node again",              {1, 2, 3, 4},       Insertion, 2},
    {"a full leaf left of an item",               {5, 6, 7, 8, 3, 4}, Insertion, 2},
    {"look-up in a leaf",                         {1, 2, 3, 4},       LookUp,    3},
    {"walk",                                      {1, 2, 3, 4},       Walk,      0},
    {"opening of an empty file",                  {},                 Opening,   0},
    {"opening of a file that ends within a word", {},                 Opening,   1},
};
// clang-format on

/// Runs an operation with one of its calls refused: a comparison or, in a store that was put in, a
/// read or write.
/// @return whether it made so many calls
bool RunRefused(const Scenario& scenario, Store kind, int call, Transcript& transcript) {
    const TemporaryFolder folder;
    const std::string path = folder / "tree";
    SetContent(path, scenario.File());
    FailingStore<IDX_WT_MemFile> store;
    OpenTree tree(16, 8, kind != Disk);
    if (kind == PutIn) tree.SetStore(store);
    EXPECT_TRUE(scenario.operation == Opening || tree.OpenWrite(path.c_str()));
    store.calls = 0;
    store.refused = call;
    theFailingStore = &store;
    unsigned int item = 1;
    const IDX_Bool result = scenario.Run(tree, path, item);
    theFailingStore = nullptr;
    store.refused = 0;
    const bool isRefused = store.calls >= call;
    transcript.Note(isRefused ? "call " + std::to_string(call) : "all calls", result);
    EXPECT_EQ(item == 0, isRefused && scenario.operation <= LookUp);
    EXPECT_TRUE(result || scenario.operation != Opening || ContentOf(path) == scenario.File());
    for (const unsigned int key : scenario.keys) {
        if (isRefused && scenario.isRootReplaced) break;
        EXPECT_TRUE(tree.Find(Key(key), item) && item != 0) << "lost " << key;
    }
    return isRefused;
}

TEST(FailingTree, EachCallFailsOnceWithItsTags) {
    Transcript transcript;
    for (const Store store : {Disk, Memory, PutIn}) {
        for (const Scenario& scenario : kScenarios) {
            const char* const kStores[] = {"disk", "memory", "put in"};
            transcript.Title(scenario.name + std::string(", ") + kStores[store]);
            int call = 1;
            while (RunRefused(scenario, store, call, transcript) && call < 100) ++call;
        }
    }
}

TEST_P(Tree, NodesThatMissOrRepeatAChild) {
    const std::pair<const char*, std::string> kFiles[] = {
        {"a full node in a circle", Changed(FileOf({1, 2, 3}),    8,   {8, 8, 8, 8})},
        {"a node in a circle",      Changed(FileOf({1}),          8,   {8, 8})      },
        {"a missing child",         Changed(FileOf({1, 2, 3, 4}), 148, {0})         },
    };
    Transcript transcript;
    for (const auto& [name, file] : kFiles) {
        transcript.Title(name);
        OpenWith(file);
        transcript.Note("look-up", _tree.Find(Key(6), _item));
        EXPECT_EQ(_item, 0u);
        Offsets items;
        const IDX_Bool isWalked = transcript.Note("walk", _tree.Walk(items));
        EXPECT_EQ(items, isWalked ? (Offsets{36, 72}) : Offsets());
        transcript.Note("insertion", _tree.Add(Record(1), Key(6), _item));
    }
}

TEST_P(Tree, ThirtyTwoLevelsAreWalkedAndNotOneMore) {
    for (const unsigned int nLevels : {32u, 33u}) {
        std::string nodes;
        const unsigned int item = 8 + 28 * nLevels;
        for (unsigned int i = 1; i <= nLevels; ++i) {
            nodes += Words({i < nLevels ? 8 + 28 * i : 0, 0, 0, 0, item, 0, 0});
        }
        OpenWith(Manifest(8) + nodes + Record(5) + Words({16}) + Key(5));
        const IDX_Bool expected = nLevels == 32 ? IDX_True : IDX_False;
        Offsets items;
        EXPECT_EQ(_tree.Find(Key(1), _item), expected);
        EXPECT_EQ(_item, 0u);
        EXPECT_EQ(_tree.Walk(items), expected);
    }
}

/// What a cut file has lost isn't taken from what a page or block held before.
TEST_P(Tree, ACutFileFailsWhereItEnds) {
    TraceRecorder trace;
    const std::string file = FileOf({1, 2, 3, 4});
    for (std::size_t end = file.size() - 1; end > 8; --end) {
        SCOPED_TRACE(end);
        SetContent(_path, file.substr(0, end));
        ASSERT_EQ(_tree.OpenRead(_path.c_str()), IDX_True);
        EXPECT_EQ(_tree.Find(Key(4), _item), IDX_False);
        EXPECT_EQ(_item, 0u);
        const char* tag = end < 200 ? "ReadAt (2)" : "ReadAt (6)";
        EXPECT_EQ(trace.Take().back(), std::string("IDX_WT_Tree234._Query.IDX_WT_File.") + tag);
        _tree.Close();
    }
}

/// Whatever a field says, each operation ends, and says something that a caller can rely on.
TEST_P(Tree, AnyFieldIsReadSafely) {
    const std::string file = FileOf({1, 2, 3, 4});
    for (std::size_t field = 4; field < file.size(); field += 4) {
        for (const unsigned int odd : {0u, 1u, 8u, 35u, 36u, ~0u / 2, ~0u / 2 + 1, ~0u - 3, ~0u}) {
            OpenWith(Changed(file, field, {odd}));
            Offsets items;
            (void)_tree.Walk(items);
            EXPECT_LE(items.size(), file.size());
            for (const unsigned int key : {0u, 2u, 9u}) {
                EXPECT_TRUE(_tree.Find(Key(key), _item) || _item == 0);
                EXPECT_TRUE(_tree.Add(Record(key), Key(key), _item) || _item == 0);
            }
        }
    }
}

}  // namespace
