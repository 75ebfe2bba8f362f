// Random sequences of insertions, look-ups and openings on the stores of the identifier tree, beside the flat reference
// (bytes) and std::map (answers). GRIDLOOM_RANDOM_TREE_FILES sets how many sequences, GRIDLOOM_TREE_KEYS how many
// keys the large trees have.

#include "FailingStore.h"
#include "FromEnvironment.h"
#include "OpenTree.h"
#include "TemporaryFolder.h"
#include "TreeReference.h"

#include <gtest/gtest.h>
#include <map>
#include <random>

namespace {

/// A number as 8 bytes in rising order.
std::string BigEndian(unsigned long long number) {
    std::string bytes;
    for (int shift = 56; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift);
    return bytes;
}

/// The tree's own stores, whose bytes it looks at, and one that it has to ask for each.
enum Store { Disk, Memory, PutIn };

class Side {
public:
    Side(const std::string& path, Store store, unsigned int itemSize, unsigned int manifestSize)
        : _path(path + std::to_string(store)),
          _store(store),
          _tree(itemSize, manifestSize, store != Disk) {
        if (store == PutIn) _tree.SetStore(_putIn);
        std::filesystem::remove(_path);
        Open(true);
    }
    ~Side() { _tree.Close(); }

    void Open(bool forWriting) {
        const char* path = _path.c_str();
        EXPECT_EQ(forWriting ? _tree.OpenWrite(path) : _tree.OpenRead(path), IDX_True);
    }
    void ExpectInserted(const std::string& record, const std::string& id, unsigned int expected) {
        unsigned int item = 1;
        EXPECT_EQ(_tree.Add(record, id, item), IDX_True);
        EXPECT_EQ(item, expected);
    }
    void ExpectFound(const std::string& id, unsigned int expected) {
        unsigned int item = 1;
        EXPECT_EQ(_tree.Find(id, item), IDX_True);
        EXPECT_EQ(item, expected);
    }
    void ExpectItems(const std::vector<unsigned int>& expected) {
        std::vector<unsigned int> items;
        EXPECT_EQ(_tree.Walk(items), IDX_True);
        EXPECT_EQ(items, expected);
    }

    /// Not by EXPECT_EQ, which would print both files.
    void ExpectBytesOf(const TreeReference& reference) {
        EXPECT_TRUE(Bytes() == reference.File(_store != Disk)) << _store;
    }

private:
    /// What the file holds, or would if it was closed now.
    std::string Bytes() {
        _tree.Store().Flush();
        if (_store == Disk) return ContentOf(_path);
        std::string bytes(_tree.Store().GetSize(), '\0');
        const auto size = static_cast<unsigned int>(bytes.size());
        EXPECT_EQ(_tree.Store().ReadAt(0, bytes.data(), size), IDX_True);
        return bytes;
    }

    std::string _path;
    Store _store;
    FailingStore<IDX_WT_MemFile> _putIn;
    OpenTree _tree;
};

class Sequence {
public:
    Sequence(const std::string& path, unsigned int seed)
        : _random(seed),
          _length(Below(8) == 0 ? Below(301) : Below(40)),
          _itemSize(16 + 4 * Below(13)),
          _manifestSize(8 + Below(33)),
          _kind(Below(4)),
          _sides{
              {path, Disk,   _itemSize, _manifestSize},
              {path, Memory, _itemSize, _manifestSize},
              {path, PutIn,  _itemSize, _manifestSize}
    },
          _reference(_itemSize, _manifestSize) {}

    void Run() {
        for (unsigned int step = 0; step < _length && !testing::Test::HasFailure(); ++step) {
            Insert(NextId(step));
            ExpectFound(NextId(step));
            const bool isOpenedAnew = Below(16) == 0;
            for (Side& side : _sides) {
                if (isOpenedAnew) side.Open(true);
                if (_length < 40 || step % 16 == 0) side.ExpectBytesOf(_reference);
            }
        }
        ExpectAnswers();
    }

private:
    unsigned int Below(unsigned int end) { return static_cast<unsigned int>(_random()) % end; }

    /// Rising, falling, or any. Short ids repeat often: they are met in leaves, in inner nodes and on their way up.
    std::string NextId(unsigned int step) {
        if (_kind == 0) return BigEndian(step);
        if (_kind == 1) return BigEndian(1000 - step);
        if (_kind == 2) return std::string(Below(3), static_cast<char>(200 + Below(12)));
        return BigEndian(Below(400)) + std::string(Below(40), 'x');
    }

    void Insert(const std::string& id) {
        std::string record(_itemSize, '\0');
        for (char& byte : record) byte = static_cast<char>(Below(256));
        const unsigned int item = _reference.Insert(record, id);
        for (Side& side : _sides) side.ExpectInserted(record, id, item);
        _answers[id] = item;
    }

    void ExpectFound(const std::string& id) {
        const auto answer = _answers.find(id);
        const unsigned int item = answer != _answers.end() ? answer->second : 0;
        for (Side& side : _sides) side.ExpectFound(id, item);
    }

    /// All answers of a reader, and the order of std::map.
    void ExpectAnswers() {
        std::vector<unsigned int> items;
        for (const auto& [id, item] : _answers) items.push_back(item);
        for (Side& side : _sides) {
            side.ExpectBytesOf(_reference);
            side.Open(false);
            side.ExpectItems(items);
        }
        for (const auto& [id, item] : _answers) ExpectFound(id);
    }

    std::mt19937 _random;
    unsigned int _length;
    unsigned int _itemSize;
    unsigned int _manifestSize;
    unsigned int _kind;
    Side _sides[3];
    TreeReference _reference;
    std::map<std::string, unsigned int> _answers;
};

TEST(TreeRandom, BytesAndAnswersAreThoseOfTheReference) {
    const TemporaryFolder folder;
    const unsigned long nSequences = FromEnvironment("GRIDLOOM_RANDOM_TREE_FILES", 1000);
    for (unsigned int seed = 0; seed < nSequences && !HasFailure(); ++seed) {
        SCOPED_TRACE("sequence " + std::to_string(seed));
        Sequence(folder / "tree", seed).Run();
    }
}

TEST(TreeRandom, LargeTreesAreTheSameOnBothStores) {
    const TemporaryFolder folder;
    const unsigned long nKeys = FromEnvironment("GRIDLOOM_TREE_KEYS", 20000);
    Side disk(folder / "tree", Disk, 32, 8);
    Side memory(folder / "tree", Memory, 32, 8);
    TreeReference reference(32, 8);
    std::mt19937_64 random(7);
    for (unsigned int i = 0; i < nKeys && !HasFailure(); ++i) {
        const std::string id = BigEndian(random()) + BigEndian(i);
        const std::string record(32, static_cast<char>(i));
        const unsigned int item = reference.Insert(record, id);
        disk.ExpectInserted(record, id, item);
        memory.ExpectInserted(record, id, item);
    }
    disk.ExpectBytesOf(reference);
    memory.ExpectBytesOf(reference);
}

}  // namespace
