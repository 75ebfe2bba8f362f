// Random sequences of insertions, look-ups and openings on both stores of the identifier tree, beside the flat
// reference (bytes) and std::map (answers). GRIDLOOM_RANDOM_TREE_FILES sets how many sequences.

#include "OpenTree.h"
#include "TemporaryFolder.h"
#include "TreeReference.h"

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <random>

namespace {

enum Keys { Short, Long, Rising, Falling, NumberOfKeys };

/// How often what follows `name` in the environment, or `otherwise`.
unsigned int FromEnvironment(const char* name, unsigned int otherwise) {
    const char* text = std::getenv(name);
    return text != nullptr ? static_cast<unsigned int>(std::atoi(text)) : otherwise;
}

/// Any number below 2^32 as 8 bytes in rising order.
std::string BigEndian(unsigned long long number) {
    std::string bytes;
    for (int shift = 56; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift);
    return bytes;
}

/// A tree on one of the stores, and what its answers must be.
class Side {
public:
    Side(const std::string& path, bool inMemory, unsigned int itemSize, unsigned int manifestSize)
        : _path(path), _inMemory(inMemory), _tree(itemSize, manifestSize, inMemory) {
        std::filesystem::remove(path);
        EXPECT_EQ(_tree.OpenWrite(_path.c_str()), IDX_True);
    }

    unsigned int Insert(const std::string& record, const std::string& id) {
        unsigned int item = 1;
        EXPECT_EQ(_tree.Add(record, id, item), IDX_True);
        return item;
    }
    unsigned int Query(const std::string& id) {
        unsigned int item = 1;
        EXPECT_EQ(_tree.Find(id, item), IDX_True);
        return item;
    }
    std::vector<unsigned int> Items() {
        std::vector<unsigned int> items;
        EXPECT_EQ(_tree.Walk(items), IDX_True);
        return items;
    }
    void Reopen() {
        _tree.Close();
        EXPECT_EQ(_tree.OpenWrite(_path.c_str()), IDX_True);
    }
    void ReopenForReading() {
        _tree.Close();
        EXPECT_EQ(_tree.OpenRead(_path.c_str()), IDX_True);
    }

    /// What the file holds, or would if it was closed now.
    std::string Bytes() {
        if (!_inMemory) {
            _tree.Store().Flush();
            return ContentOf(_path);
        }
        std::string bytes(_tree.Store().GetSize(), '\0');
        const auto size = static_cast<unsigned int>(bytes.size());
        EXPECT_EQ(_tree.Store().ReadAt(0, bytes.data(), size), IDX_True);
        return bytes;
    }

    void ExpectBytesOf(const TreeReference& reference) {
        // Not EXPECT_EQ: it would print both files.
        EXPECT_TRUE(Bytes() == reference.File(_inMemory)) << (_inMemory ? "memory" : "disk");
    }

private:
    std::string _path;
    bool _inMemory;
    OpenTree _tree;
};

class Sequence {
public:
    Sequence(const TemporaryFolder& folder, unsigned int seed)
        : _random(seed),
          _length(Below(8) == 0 ? Below(301) : Below(40)),
          _itemSize(16 + 4 * Below(13)),
          _manifestSize(8 + Below(33)),
          _keys(static_cast<Keys>(Below(NumberOfKeys))),
          _disk(folder / "disk", false, _itemSize, _manifestSize),
          _memory(folder / "memory", true, _itemSize, _manifestSize),
          _reference(_itemSize, _manifestSize) {}

    void Run() {
        _disk.ExpectBytesOf(_reference);
        for (unsigned int step = 0; step < _length && !testing::Test::HasFailure(); ++step) {
            Insert(NextId(step));
            Query(NextId(step));
            if (Below(16) == 0) ForBoth(&Side::Reopen);
            if (_length < 40 || step % 16 == 0 || step + 1 == _length) ExpectBytes();
        }
        ExpectAnswers();
    }

private:
    unsigned int Below(unsigned int end) { return static_cast<unsigned int>(_random()) % end; }

    /// Short ids repeat often, so that they are met in leaves, in inner nodes and on their way up.
    std::string NextId(unsigned int step) {
        switch (_keys) {
            case Rising:
                return BigEndian(step);
            case Falling:
                return BigEndian(1000 - step);
            case Short:
                return std::string(Below(3), static_cast<char>(200 + Below(12)));
            default:
                return BigEndian(Below(400)) + std::string(Below(40), 'x');
        }
    }

    void Insert(const std::string& id) {
        std::string record(_itemSize, '\0');
        for (char& byte : record) byte = static_cast<char>(Below(256));
        const unsigned int item = _reference.Insert(record, id);
        EXPECT_EQ(_disk.Insert(record, id), item);
        EXPECT_EQ(_memory.Insert(record, id), item);
        _answers[id] = item;
    }

    void Query(const std::string& id) {
        const auto answer = _answers.find(id);
        const unsigned int item = answer != _answers.end() ? answer->second : 0;
        EXPECT_EQ(_disk.Query(id), item);
        EXPECT_EQ(_memory.Query(id), item);
    }

    void ForBoth(void (Side::*work)()) {
        (_disk.*work)();
        (_memory.*work)();
    }

    void ExpectBytes() {
        _disk.ExpectBytesOf(_reference);
        _memory.ExpectBytesOf(_reference);
    }

    /// The reader's answers, all of them, and the order of std::map.
    void ExpectAnswers() {
        ForBoth(&Side::ReopenForReading);
        std::vector<unsigned int> items;
        for (const auto& [id, item] : _answers) {
            items.push_back(item);
            Query(id);
        }
        EXPECT_EQ(_disk.Items(), items);
        EXPECT_EQ(_memory.Items(), items);
        EXPECT_EQ(_reference.Items(), items);
    }

    std::mt19937 _random;
    unsigned int _length;
    unsigned int _itemSize;
    unsigned int _manifestSize;
    Keys _keys;
    Side _disk;
    Side _memory;
    TreeReference _reference;
    std::map<std::string, unsigned int> _answers;
};

TEST(TreeRandom, BytesAndAnswersAreThoseOfTheReference) {
    const TemporaryFolder folder;
    const unsigned int nSequences = FromEnvironment("GRIDLOOM_RANDOM_TREE_FILES", 1000);
    for (unsigned int seed = 0; seed < nSequences && !HasFailure(); ++seed) {
        SCOPED_TRACE("sequence " + std::to_string(seed));
        Sequence(folder, seed).Run();
    }
}

TEST(TreeRandom, LargeTreesAreTheSameOnBothStores) {
    const TemporaryFolder folder;
    const unsigned int nKeys = FromEnvironment("GRIDLOOM_TREE_KEYS", 20000);
    Side disk(folder / "disk", false, 32, 8);
    Side memory(folder / "memory", true, 32, 8);
    TreeReference reference(32, 8);
    std::mt19937_64 random(7);
    for (unsigned int i = 0; i < nKeys; ++i) {
        const std::string id = BigEndian(random()) + BigEndian(i);
        const std::string record(32, static_cast<char>(i));
        const unsigned int item = reference.Insert(record, id);
        ASSERT_EQ(disk.Insert(record, id), item);
        ASSERT_EQ(memory.Insert(record, id), item);
    }
    disk.ExpectBytesOf(reference);
    memory.ExpectBytesOf(reference);
    EXPECT_EQ(disk.Items(), reference.Items());
}

}  // namespace
