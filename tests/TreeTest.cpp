// The identifier tree: bytes worked out by hand, files that can't be opened or lie, and each read, write and comparison
// that fails. What sequences of insertions give is for TreeRandomTest.

#include "FailingStore.h"
#include "OpenTree.h"
#include "TemporaryFolder.h"
#include "Transcript.h"
#include "TreeReference.h"

#include "IDX_Base_ByteArray.h"
#include "IDX_Base_Identifier.h"

#include <functional>
#include <gtest/gtest.h>

/// Lengths in damaged files ask for gigabytes; the address sanitizer would mark each of their bytes.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
    return "allocator_may_return_null=1:max_allocation_size_mb=256";
}

/// Counts the comparisons, too, and refuses them.
static FailingStore<IDX_WT_MemFile>* theFailingStore = nullptr;

/// In the place of the contracts' own, which never fails.
IDX_Bool IDX_Base_Identifier::SortCompare(const IDX_Base_Identifier& iOther, short& oOrder) const {
    if (theFailingStore != nullptr && theFailingStore->Refuses()) return IDX_False;
    IDX_Base_ByteArray own;
    IDX_Base_ByteArray other;
    own.SetData(GetData(), GetSize());
    other.SetData(iOther.GetData(), iOther.GetSize());
    return own.SortCompare(other, oOrder);
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

/// The keys 1 to `count`. Four make a root at 144 with the item at 72, and the leaves at 8 and 172.
std::string FileOfKeys(unsigned int count) {
    TreeReference reference(16, 8);
    for (unsigned int key = 1; key <= count; ++key) reference.Insert(Record(key), Key(key));
    return reference.File(true);
}

/// The same with other numbers from an offset on.
std::string Changed(std::string file, std::size_t offset, const Offsets& words) {
    return file.replace(offset, 4 * words.size(), Words(words));
}

class Tree : public testing::TestWithParam<const char*> {
protected:
    void OpenWrite() { ASSERT_EQ(_tree.OpenWrite(_path.c_str()), IDX_True); }

    void SetFile(const std::string& content) {
        _tree.Close();
        std::filesystem::remove(_path);  // a file cut to 0 would be written to the disk at once
        SetContent(_path, content);
    }
    void OpenWith(const std::string& content) {
        SetFile(content);
        OpenWrite();
    }
    std::string ContentAfterClose() {
        _tree.Close();
        return ContentOf(_path);
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
    EXPECT_EQ(ContentOf(_folder / "other"), FileOfKeys(1));
    OpenWith(Manifest(0) + "ab");
    EXPECT_EQ(_tree.Add(Record(1), Key(1), _item), IDX_True);
    EXPECT_EQ(_item, 40u) << "at a multiple of 4";
    EXPECT_EQ(ContentAfterClose().substr(8, 4), "ab\0\0"s);
}

TEST_P(Tree, OpeningsThatFail) {
    Transcript transcript;
    transcript.Title("no file, no folder");
    transcript.Note("OpenRead", _tree.OpenRead(_path.c_str()));
    transcript.Note("CheckVersion", _tree.CheckVersion(_path.c_str()));
    transcript.Note("OpenWrite", _tree.OpenWrite((_folder / "missing/tree").c_str()));
    const std::pair<const char*, std::string> kBadFiles[] = {
        {"version 46",           Manifest(0, 46)           },
        {"the other byte order", Manifest(0, 0x2d00,         0x100)},
        {"no byte order",                      Manifest(0,                  45, 0)},
        {"a manifest of 7 bytes",                    Manifest(0).substr(0,                              7)                     },
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
    transcript.Note("insertion of nothing", _tree.AddNothing(Key(1), _item = 1));
    EXPECT_EQ(_item, 0u);
    _tree.OpenRead(_path.c_str());
    transcript.Note("insertion while reading", _tree.Add(Record(1), Key(1), _item));
    EXPECT_EQ(ContentAfterClose(), Manifest(0));

    OpenWith(FileOfKeys(4));
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

/// One operation on a tree with some keys. It gives the offset of an item, 0 when it fails.
struct Scenario {
    const char* name;
    Offsets before;
    std::function<IDX_Bool(OpenTree&, unsigned int&)> run;
    bool isRootReplaced = false;  ///< a failure may then lose what was there
};

Scenario Insertion(const char* name, const Offsets& before, unsigned int key) {
    const auto insert = [key](OpenTree& tree, unsigned int& item) {
        return tree.Add(Record(key), Key(key), item);
    };
    return {name, before, insert};
}

Scenario Opening(const char* name, const std::string& path, const std::string& content) {
    const auto open = [path, content](OpenTree& tree, unsigned int& item) {
        tree.Close();
        SetContent(path, content);
        item = tree.OpenWrite(path.c_str());
        EXPECT_TRUE(item != 0 || ContentOf(path) == content);
        return item != 0 ? IDX_True : IDX_False;
    };
    return {name, {}, open};
}

/// The tree's own stores, whose bytes it looks at, and one that it has to ask for each.
enum Store { Disk, Memory, PutIn };

/// Runs an operation with one of its calls refused: a comparison or, in a store that was put in, a read or write.
/// @return whether it made so many calls
bool RunRefused(
    const Scenario& scenario, Store kind, const std::string& path, int call, Transcript& log) {
    FailingStore<IDX_WT_MemFile> store;
    OpenTree tree(16, 8, kind != Disk);
    if (kind == PutIn) tree.SetStore(store);
    unsigned int item = 1;
    std::filesystem::remove(path);
    EXPECT_EQ(tree.OpenWrite(path.c_str()), IDX_True);
    for (const unsigned int key : scenario.before) {
        EXPECT_EQ(tree.Add(Record(key), Key(key), item), IDX_True);
    }
    store.calls = 0;
    store.refused = call;
    theFailingStore = &store;
    const IDX_Bool result = scenario.run(tree, item);
    theFailingStore = nullptr;
    const bool isRefused = store.calls >= call;
    log.Note(isRefused ? "call " + std::to_string(call) : "all calls", result);
    EXPECT_EQ(item == 0, isRefused);
    store.refused = 0;
    if (isRefused && scenario.isRootReplaced) return true;
    for (const unsigned int key : scenario.before) {
        EXPECT_TRUE(tree.Find(Key(key), item) && item != 0) << "lost " << key;
    }
    return isRefused;
}

TEST(FailingTree, EachCallFailsOnceWithItsTags) {
    const auto find = [](OpenTree& tree, unsigned int& item) { return tree.Find(Key(3), item); };
    const auto walk = [](OpenTree& tree, unsigned int& item) {
        Offsets items;
        const IDX_Bool result = tree.Walk(items);
        item = items.size() == 4 ? 1 : 0;
        return result;
    };
    const TemporaryFolder folder;
    const std::string path = folder / "tree";
    Scenario fullRoot = Insertion("a full root", {1, 2, 3}, 4);
    fullRoot.isRootReplaced = true;
    const Scenario kScenarios[] = {
        Insertion("the first key", {                  },
         1),
        Insertion("a key of a leaf again", {              2                                },
         2),
        fullRoot,
        Insertion("a key of an inner node again", {            1,                                2, 3, 4},
         2),
        Insertion("a full leaf left of an item", {                               5,               6, 7, 8, 3, 4},
         2),
        {                             "look-up in a leaf",                                                             {1, 2, 3, 4}, find},
        {"walk",{1, 2, 3, 4}, walk},
        Opening("opening of an empty file", path, ""),
        Opening("opening of a file that ends within a word", path, Manifest(0) + "a"),
    };
    Transcript transcript;
    for (const Store store : {Disk, Memory, PutIn}) {
        for (const Scenario& scenario : kScenarios) {
            const char* const kStores[] = {"disk", "memory", "put in"};
            transcript.Title(scenario.name + std::string(", ") + kStores[store]);
            int call = 1;
            while (RunRefused(scenario, store, path, call, transcript) && call < 100) ++call;
        }
    }
}

TEST_P(Tree, NodesThatMissOrRepeatAChild) {
    const std::pair<const char*, std::string> kFiles[] = {
        {"a full node in a circle", Changed(FileOfKeys(3), 8,   {8, 8, 8, 8})},
        {"a node in a circle",      Changed(FileOfKeys(1), 8,   {8, 8})      },
        {"a missing child",         Changed(FileOfKeys(4), 148, {0})         },
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
    const std::string file = FileOfKeys(4);
    for (std::size_t end = file.size() - 1; end > 8; --end) {
        SCOPED_TRACE(end);
        SetFile(file.substr(0, end));
        ASSERT_EQ(_tree.OpenRead(_path.c_str()), IDX_True);
        EXPECT_EQ(_tree.Find(Key(4), _item), IDX_False);
        EXPECT_EQ(_item, 0u);
        const char* tag = end < 200 ? "ReadAt (2)" : "ReadAt (6)";
        EXPECT_EQ(trace.Take().back(), std::string("IDX_WT_Tree234._Query.IDX_WT_File.") + tag);
    }
}

/// Whatever a field says, each operation ends, and says something that a caller can rely on.
TEST_P(Tree, AnyFieldIsReadSafely) {
    const std::string file = FileOfKeys(4);
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
