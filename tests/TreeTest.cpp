// The identifier tree: bytes worked out by hand, tags, files that can't be opened or lie, a store that fails.

#include "FailingStore.h"
#include "FileCase.h"
#include "OpenTree.h"

#include "IDX_Base_ByteArray.h"
#include "IDX_Base_Identifier.h"
#include "IDX_Status.h"

#include <algorithm>
#include <map>
#include <memory>
#include <sstream>

/// Lengths in damaged files ask for gigabytes; the address sanitizer would mark each of their bytes.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
    return "allocator_may_return_null=1:max_allocation_size_mb=256";
}

static int comparisonsUntilFailure = -1;  ///< negative: none fails

/// In the place of the contracts' own, which never fails.
IDX_Bool IDX_Base_Identifier::SortCompare(const IDX_Base_Identifier& iOther, short& oOrder) const {
    if (comparisonsUntilFailure-- == 0) return IDX_False;
    IDX_Base_ByteArray own;
    IDX_Base_ByteArray other;
    own.SetData(GetData(), GetSize());
    other.SetData(iOther.GetData(), iOther.GetSize());
    return own.SortCompare(other, oOrder);
}

namespace {

using Offsets = std::vector<unsigned int>;

/// The bytes of numbers of 32 bits, of this machine.
std::string Words(const Offsets& words) {
    return {reinterpret_cast<const char*>(words.data()), words.size() * sizeof(unsigned int)};
}

std::string Manifest(unsigned int root, unsigned short version = 45, unsigned short endian = 1) {
    return Words({endian + (version * 0x10000u), root});
}

std::string Node(const Offsets& children, const Offsets& items) {
    Offsets fields(7, 0);
    std::copy(children.begin(), children.end(), fields.begin());
    std::copy(items.begin(), items.end(), fields.begin() + 4);
    return Words(fields);
}

/// A key of 16 bytes and its record of 16.
std::string Key(unsigned int number) {
    return std::string(12, 'k') + static_cast<char>(number >> 8) + static_cast<char>(number) + "..";
}
std::string Record(unsigned int number) {
    return std::string(16, static_cast<char>('A' + number));
}
std::string Item(unsigned int number) {
    return Record(number) + Words({16}) + Key(number);
}

/// Four rising keys, byte by byte.
const std::string kFourKeys = Manifest(144) + Node({}, {36}) + Item(1) + Item(2) + Item(3) +
                              Node({8, 172}, {72}) + Node({}, {108, 200}) + Item(4);

class Tree : public FileCase {
protected:
    Tree() : _path(_folder / "tree"), _tree(std::make_unique<OpenTree>(16, 8, false)) {}

    unsigned int Insert(unsigned int number) {
        unsigned int item = 1;
        Expect(_tree->Add(Record(number), Key(number), item));
        return item;
    }
    unsigned int Query(unsigned int number) {
        unsigned int item = 1;
        Expect(_tree->Find(Key(number), item));
        return item;
    }
    Offsets Items() {
        Offsets items;
        Expect(_tree->Walk(items));
        return items;
    }
    void OpenWrite() { Expect(_tree->OpenWrite(_path.c_str())); }
    void OpenRead() { Expect(_tree->OpenRead(_path.c_str())); }

    void OpenWith(const std::string& content) {
        _tree->Close();
        std::filesystem::remove(_path);  // a file cut to 0 would be written to the disk at once
        SetContent(_path, content);
        OpenWrite();
    }
    std::string ContentAfterClose() {
        _tree->Close();
        return ContentOf(_path);
    }

    std::string _path;
    std::unique_ptr<OpenTree> _tree;
};

/// What holds on either store.
class TreeOnStore : public Tree, public testing::WithParamInterface<bool> {
protected:
    TreeOnStore() { _tree = std::make_unique<OpenTree>(16, 8, GetParam()); }
};

INSTANTIATE_TEST_SUITE_P(InMemory, TreeOnStore, testing::Bool(), testing::PrintToStringParamName());

TEST_P(TreeOnStore, ANewFileIsTheManifest) {
    OpenWrite();
    EXPECT_EQ(ContentOf(_path), GetParam() ? "" : Manifest(0)) << "the disk store is flushed";
    EXPECT_EQ(ContentAfterClose(), std::string("\x01\x00\x2d\x00\x00\x00\x00\x00", 8));
    OpenWith("");
    EXPECT_EQ(ContentAfterClose(), Manifest(0));
}

TEST_P(TreeOnStore, FourRisingKeys) {
    OpenWrite();
    for (const unsigned int key : {1u, 2u, 3u, 4u}) Insert(key);
    EXPECT_EQ(Items(), (Offsets{36, 72, 108, 200}));
    EXPECT_EQ(ContentAfterClose(), kFourKeys);
}

TEST_P(TreeOnStore, AFileOfAnyLengthGoesOnAtAMultipleOfFour) {
    OpenWith(Manifest(0) + "ab");
    EXPECT_EQ(Insert(1), 40u);
    EXPECT_EQ(
        ContentAfterClose(), Manifest(12) + std::string("ab\0\0", 4) + Node({}, {40}) + Item(1));
}

TEST_P(TreeOnStore, ModesFollowTheOpeningAndTheDestructorCloses) {
    const auto modes = [this] {
        return 100 * _tree->IsOpened() + 10 * _tree->IsRead() + _tree->IsReadWrite();
    };
    OpenWrite();
    Insert(1);
    EXPECT_EQ(modes(), 111);
    OpenRead();
    EXPECT_EQ(modes(), 110);
    EXPECT_EQ(_tree->CheckVersion(_path.c_str()), IDX_S_OK);
    EXPECT_EQ(modes(), 0);
    OpenWrite();
    Insert(2);
    _tree = std::make_unique<OpenTree>(16, 8, !GetParam());
    OpenRead();
    EXPECT_EQ(Items(), (Offsets{36, 72}));
}

/// A file, how the last tag of OpenRead and OpenWrite ends, and what CheckVersion gives and traces.
struct BadFile {
    std::string content;
    const char* tag;
    long int status;
    const char* versionTag;
};

// clang-format off
const BadFile kBadFiles[] = {
    {Manifest(0, 46), "InvalidVersion(current=45, previous=46)", IDX_E_FAIL,
     " incompatible version(current=45, previous=46)"},
    {Manifest(0, 0x2d00, 0x100), "InvalidEndian", IDX_E_FAIL,
     " incompatible version(current=45, previous=11520)"},
    {Manifest(0, 45, 0), "InvalidEndian", IDX_S_OK, nullptr},
    {Manifest(0).substr(0, 7), "_GetManifest", IDX_E_INVALID_ARGUMENT, "._GetManifest failed"},
};
// clang-format on

TEST_P(TreeOnStore, ABadFileIsRefusedAndTheStoreClosed) {
    for (const BadFile& bad : kBadFiles) {
        SCOPED_TRACE(bad.tag);
        SetContent(_path, bad.content);
        const std::string write = std::string("IDX_WT_Tree234.OpenWrite.") + bad.tag;
        const std::string read = std::string("IDX_WT_Tree234.OpenRead.") + bad.tag;
        EXPECT_EQ(_tree->OpenWrite(_path.c_str()), IDX_False);
        EXPECT_EQ(_trace.Take().back(), write);
        EXPECT_EQ(_tree->OpenRead(_path.c_str()), IDX_False);
        EXPECT_EQ(_trace.Take().back(), read);
        EXPECT_EQ(_tree->IsOpened() || _tree->Store().IsOpened(), false);
        EXPECT_EQ(_tree->CheckVersion(_path.c_str()), bad.status);
        const Lines told = _trace.Take();
        ASSERT_EQ(told.empty(), bad.versionTag == nullptr);
        if (!told.empty()) {
            EXPECT_EQ(told.back(), std::string("IDX_WT_Tree234.CheckVersion") + bad.versionTag);
        }
        EXPECT_EQ(_tree->OpenWrite(_path.c_str()), IDX_False);
        EXPECT_EQ(_trace.Take().back(), write);
        EXPECT_EQ(ContentOf(_path), bad.content);
    }
}

TEST_F(Tree, WithoutAFileOrAFolder) {
    const std::string noFile = "IDX_WT_File.OpenRead.fopen";
    Expect(
        _tree->OpenRead(_path.c_str()), {noFile, "IDX_WT_Tree234.OpenRead.IDX_WT_File.OpenRead"});
    EXPECT_EQ(_tree->CheckVersion(_path.c_str()), IDX_E_INVALID_ARGUMENT);
    EXPECT_EQ(
        _trace.Take(), (Lines{noFile, "IDX_WT_Tree234.CheckVersion.IDX_WT_File.OpenRead failed"}));
    Expect(
        _tree->OpenWrite((_folder / "missing/tree").c_str()),
        {"IDX_WT_File.OpenWrite.fopen", "IDX_WT_Tree234.OpenWrite.IDX_WT_File.OpenWrite"});
}

TEST_F(Tree, NothingIsInsertedUnopenedWithoutARecordOrForReading) {
    const std::string read = "IDX_WT_File.ReadAt.InvalidFile";
    const std::string manifest = "IDX_WT_Tree234._GetManifest.IDX_WT_File.ReadAt";
    unsigned int item = 1;
    EXPECT_EQ(_tree->Find(Key(1), item), IDX_True);
    EXPECT_EQ(_trace.Take(), (Lines{read, manifest}));
    Expect(
        _tree->Add(Record(1), Key(1), item),
        {read, manifest, "IDX_WT_Tree234._GetRoot._GetManifest", "IDX_WT_Tree234._Query._GetRoot"});
    OpenWrite();
    Expect(_tree->AddNothing(Key(1), item), {"IDX_WT_Tree234._Query.InvalidItem"});
    EXPECT_EQ(item, 0u);
    OpenRead();
    Expect(
        _tree->Add(Record(1), Key(1), item),
        {"IDX_WT_File.Write.InvalidFile", "IDX_WT_Tree234._Query.IDX_WT_File.Write (1)"});
    EXPECT_EQ(ContentAfterClose(), Manifest(0));
}

TEST_F(Tree, AWalkEndsWhereItIsTold) {
    OpenWrite();
    for (const unsigned int key : {1u, 2u, 3u, 4u}) Insert(key);
    Expect(_tree->EnumItems(nullptr, nullptr), {"IDX_WT_Tree234.EnumItems.UndefinedCallback"});
    int calls = 0;
    const auto stopAtThird = [](IDX_WT_Tree234* tree, unsigned int, void* data) {
        EXPECT_STREQ(tree->GetIndexName(), "OpenTree");
        return ++*static_cast<int*>(data) < 3 ? IDX_True : IDX_False;
    };
    EXPECT_EQ(_tree->EnumItems(stopAtThird, &calls), IDX_False);
    EXPECT_EQ(calls, 3);
    const Lines tags = {
        "IDX_WT_Tree234._EnumItems.Callback", "IDX_WT_Tree234._EnumItems._EnumItems",
        "IDX_WT_Tree234.EnumItems._EnumItems"};
    EXPECT_EQ(_trace.Take(), tags);
}

using TreeDeathTest = Tree;

TEST_F(TreeDeathTest, SizesBelowTheirStructuresEndTheProcess) {
    EXPECT_DEATH(OpenTree(15, 8, false), "m_itemSize >= sizeof\\(IDX_234Struct_ItemSlot\\)");
    EXPECT_DEATH(OpenTree(16, 7, false), "m_manifestSize >= sizeof\\(IDX_234Struct_Manifest\\)");
}

// A store that fails. Each scenario lists the reads and writes of one operation, in their order, by short names.

/// The trace of a failed read or write, of which the store itself says nothing.
Lines Chain(const std::string& call) {
    const std::string manifest = "IDX_WT_Tree234._GetManifest.IDX_WT_File.ReadAt";
    const std::string root = "IDX_WT_Tree234._GetRoot._GetManifest";
    if (call == "manifest") return {manifest};
    if (call == "root") return {manifest, root, "IDX_WT_Tree234._Query._GetRoot"};
    if (call == "walk") return {manifest, root, "IDX_WT_Tree234.EnumItems._GetRoot"};
    const std::string number = call.substr(call.find('('));
    const std::string query = "IDX_WT_Tree234._Query.IDX_WT_File.";
    const std::string readArray = "IDX_WT_File.ReadAt(ByteArray).ReadAt";
    const std::string readId = "IDX_WT_File.ReadAt(ID).ReadAt(ByteArray)";
    const std::string setId = "IDX_WT_File.WriteAt(IDX_Base_Identifier).WriteAt";
    const std::string addId = "IDX_WT_File.Write(IDX_Base_Identifier).WriteAt(IDX_Base_Identifier)";
    std::map<std::string, Lines> chains = {
        {"SetRoot",
         {"IDX_WT_Tree234._SetRoot.IDX_WT_File.WriteAt", "IDX_WT_Tree234._Query._SetRoot "}      },
        {"IdSize",    {readArray + "(size)", readId, query + "ReadAt "}                          },
        {"Id",        {readArray + "(data) (2)", readArray + "(data)", readId, query + "ReadAt "}},
        {"NewIdSize", {setId + "(size)", addId, query + "Write(ItemId) "}                        },
        {"NewId",     {setId + "(data)", addId, query + "Write(ItemId) "}                        },
        {"Read",      {query + "ReadAt "}                                                        },
        {"Append",    {query + "Write "}                                                         },
        {"Write",     {query + "WriteAt "}                                                       },
        {"Item",      {query + "Write(Item) "}                                                   },
        {"Update",    {query + "WriteAt(UpdateNode) "}                                           },
    };
    Lines& chain = chains.at(call.substr(0, call.find('(')));
    chain.back() += number;
    return chain;
}

struct Scenario {
    const char* name;
    Offsets before;  ///< keys inserted before
    bool insert;
    unsigned int key;
    bool isRootReplaced;  ///< a failure may then lose what was there
    const char* calls;
};

// clang-format off
const Scenario kScenarios[] = {
    {"the first key", {}, true, 1, false,
     "root Append(1) SetRoot(1) Read(2) Write(7) Item(2) NewIdSize(2) NewId(2) Update(2)"},
    {"a key of a leaf again", {2}, true, 2, false,
     "root Read(2) IdSize(6) Id(6) Item(1) NewIdSize(1) NewId(1) Update(1)"},
    {"a full root", {1, 2, 3}, true, 4, true,
     "root Read(2) Append(2) SetRoot(2) Read(3) Write(1) Read(4) Append(3) Write(3) "
     "Write(4) IdSize(5) Id(5) IdSize(6) Id(6) Write(7) Item(2) NewIdSize(2) NewId(2) "
     "Update(2)"},
    {"a key of an inner node again", {1, 2, 3, 4}, true, 2, false,
     "root Read(2) IdSize(7) Id(7) Item(3) NewIdSize(3) NewId(3) Update(3)"},
    {"a full leaf left of an item", {5, 6, 7, 8, 3, 4}, true, 2, false,
     "root Read(2) IdSize(7) Id(7) Read(1) Read(2) Read(3) Write(1) Read(4) Append(3) "
     "Write(3) Write(4) IdSize(5) Id(5) IdSize(6) Id(6) Write(7) Item(2) NewIdSize(2) "
     "NewId(2) Update(2)"},
    {"look-up in a leaf", {1, 2, 3, 4}, false, 3, false,
     "manifest root Read(2) IdSize(7) Id(7) manifest Read(1) Read(2) IdSize(6) Id(6)"},
};
// clang-format on

class FailingTree : public Tree {
protected:
    ~FailingTree() override { _tree.reset(); }

    /// A new tree with some keys, over a store whose call `refused` fails from now on.
    void Start(const Offsets& keys, int refused) {
        _tree.reset();
        _store = std::make_unique<FailingStore<IDX_WT_MemFile>>();
        _tree = std::make_unique<OpenTree>(16, 8, true);
        _tree->SetStore(*_store);
        std::filesystem::remove(_path);
        OpenWrite();
        for (const unsigned int key : keys) Insert(key);
        _store->calls = 0;
        _store->refused = refused;
    }

    IDX_Bool Run(const Scenario& scenario, unsigned int& item) {
        if (!scenario.insert) return _tree->Find(Key(scenario.key), item);
        return _tree->Add(Record(scenario.key), Key(scenario.key), item);
    }

    /// Nothing that was there before is lost.
    void ExpectKeys(const Offsets& keys) {
        _store->refused = 0;
        for (const unsigned int key : keys) EXPECT_NE(Query(key), 0u) << key;
        EXPECT_GE(Items().size(), keys.size());
    }

    std::unique_ptr<FailingStore<IDX_WT_MemFile>> _store;
};

TEST_F(FailingTree, EachCallFailsOnceWithItsTags) {
    for (const Scenario& scenario : kScenarios) {
        std::istringstream text(scenario.calls);
        const Lines calls{std::istream_iterator<std::string>(text), {}};
        for (std::size_t n = 0; n < calls.size(); ++n) {
            SCOPED_TRACE(scenario.name + std::string(", ") + calls[n]);
            Start(scenario.before, static_cast<int>(n) + 1);
            unsigned int item = 1;
            const IDX_Bool result = Run(scenario, item);
            EXPECT_EQ(result, calls[n] == "manifest" ? IDX_True : IDX_False);
            EXPECT_EQ(item, 0u);
            EXPECT_EQ(_trace.Take(), Chain(calls[n]));
            if (!scenario.isRootReplaced) ExpectKeys(scenario.before);
        }
        SCOPED_TRACE(scenario.name);
        Start(scenario.before, 0);
        unsigned int item = 0;
        Expect(Run(scenario, item));
        EXPECT_NE(item, 0u);
        EXPECT_EQ(_store->calls, static_cast<int>(calls.size()));
        ExpectKeys(scenario.before);
    }
}

TEST_F(FailingTree, AWalkAndAnOpening) {
    const std::string walk = "IDX_WT_Tree234._EnumItems.";
    const std::string end = "IDX_WT_Tree234.EnumItems._EnumItems";
    const Lines expected[] = {
        Chain("manifest"),
        Chain("walk"),
        {walk + "IDX_WT_File.ReadAt", end},
        { walk + "IDX_WT_File.ReadAt",        walk + "_EnumItems", end}
    };
    for (int n = 0; n < 4; ++n) {
        Start({1, 2, 3, 4}, n + 1);
        Offsets items;
        EXPECT_EQ(_tree->Walk(items), n == 0 ? IDX_True : IDX_False);
        EXPECT_EQ(_trace.Take(), expected[n]);
        EXPECT_EQ(items, Offsets{});
    }
    Start({}, 0);
    for (const char* content : {"", "\x01\x00"}) {
        const std::string file = *content == 0 ? "" : Manifest(0) + "a";
        _tree->Close();
        SetContent(_path, file);
        _store->calls = 0;
        _store->refused = *content == 0 ? 1 : 2;
        Expect(_tree->OpenWrite(_path.c_str()), {"IDX_WT_Tree234.OpenWrite.IDX_WT_File.Write"});
        EXPECT_EQ(ContentOf(_path), file);
    }
}

TEST_P(TreeOnStore, AComparisonThatFailsHasItsTag) {
    const Offsets kKeys[] = {
        {1, 2, 3},
        {  1},
        { 1, 2,  3,  4}
    };
    for (int i = 0; i < 3; ++i) {
        OpenWith("");
        for (const unsigned int key : kKeys[i]) Insert(key);
        comparisonsUntilFailure = 0;
        unsigned int item = 1;
        const std::string tag = "IDX_WT_Tree234._Query.IDX_Base_Identifier.SortCompare ";
        Expect(_tree->Add(Record(1), Key(4), item), {tag + "(" + std::to_string(i + 1) + ")"});
        EXPECT_EQ(item, 0u);
    }
}

// Damaged files.

TEST_P(TreeOnStore, NoCycleRunsForEver) {
    const std::string kContents[] = {
        Manifest(8) + Node({8, 8, 8, 8}, {36, 36, 36}) + Item(5),
        Manifest(8) + Node({8, 8}, {36}) + Item(5),
    };
    for (const std::string& content : kContents) {
        OpenWith(content);
        unsigned int item = 1;
        Expect(_tree->Find(Key(9), item), {"IDX_WT_Tree234._Query.InvalidNode"});
        EXPECT_EQ(item, 0u);
        Offsets items;
        EXPECT_EQ(_tree->Walk(items), IDX_False);
        EXPECT_EQ(_trace.Take().front(), "IDX_WT_Tree234._EnumItems.InvalidNode");
        EXPECT_LT(items.size(), 10u);
        Expect(_tree->Add(Record(1), Key(9), item), {"IDX_WT_Tree234._Query.InvalidNode"});
    }
}

TEST_P(TreeOnStore, AMissingChildEndsASearchAndIsSkippedByAWalk) {
    OpenWith(
        Manifest(8) + Node({36, 0, 64}, {92, 128}) + Node({}, {92}) + Node({}, {128}) + Item(5) +
        Item(7));
    unsigned int item = 1;
    Expect(_tree->Find(Key(6), item), {"IDX_WT_Tree234._Query.InvalidNode"});
    Offsets items;
    EXPECT_EQ(_tree->Walk(items), IDX_True);
    EXPECT_EQ(_trace.Take(), Lines{});
    EXPECT_EQ(items, (Offsets{92, 92, 128, 128}));
}

TEST_P(TreeOnStore, ThirtyTwoLevelsAreWalkedAndNotOneMore) {
    for (const unsigned int nLevels : {32u, 33u}) {
        std::string nodes;
        const unsigned int item = 8 + 28 * nLevels;
        for (unsigned int i = 1; i < nLevels; ++i) nodes += Node({8 + 28 * i, item - 28}, {item});
        OpenWith(Manifest(8) + nodes + Node({}, {item}) + Item(5));
        unsigned int found = 1;
        const IDX_Bool expected = nLevels == 32 ? IDX_True : IDX_False;
        EXPECT_EQ(_tree->Find(Key(1), found), expected);
        EXPECT_EQ(found, 0u);
        (void)_trace.Take();
    }
}

/// What a cut file has lost isn't taken from what a page or block held before.
TEST_P(TreeOnStore, ACutFileFailsWhereItEnds) {
    for (std::size_t end = kFourKeys.size() - 1; end > 8; --end) {
        SCOPED_TRACE(end);
        _tree->Close();
        std::filesystem::remove(_path);
        SetContent(_path, kFourKeys.substr(0, end));
        OpenRead();
        unsigned int item = 1;
        EXPECT_EQ(_tree->Find(Key(4), item), IDX_False);
        EXPECT_EQ(item, 0u);
        const char* tag = end < 200 ? "ReadAt (2)" : "ReadAt (6)";
        EXPECT_EQ(_trace.Take().back(), std::string("IDX_WT_Tree234._Query.IDX_WT_File.") + tag);
    }
}

/// Whatever a field says, each operation ends, and says something that a caller can rely on.
TEST_P(TreeOnStore, AnyFieldIsReadSafely) {
    const unsigned int kOdd[] = {0, 1, 8, 35, 36, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFC, 0xFFFFFFFF};
    for (std::size_t field = 4; field < kFourKeys.size(); field += 4) {
        for (const unsigned int odd : kOdd) {
            std::string content = kFourKeys;
            OpenWith(content.replace(field, 4, Words({odd})));
            Offsets items;
            (void)_tree->Walk(items);
            EXPECT_LE(items.size(), content.size());
            for (const unsigned int key : {0u, 2u, 9u}) {
                unsigned int item = 1;
                EXPECT_TRUE(_tree->Find(Key(key), item) || item == 0);
                EXPECT_TRUE(_tree->Add(Record(key), Key(key), item) || item == 0);
            }
            (void)_trace.Take();
        }
    }
}

}  // namespace
