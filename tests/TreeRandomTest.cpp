// Random sequences of insertions, look-ups and openings on the stores of the identifier tree,
// beside the flat reference (bytes) and std::map (answers). GRIDLOOM_RANDOM_TREE_FILES sets how
// many sequences, GRIDLOOM_TREE_KEYS how many keys the long one has.

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
enum StoreKind { Disk, Memory, PutIn };

/// A tree on one of the stores.
struct Side : OpenTree {
    Side(
        const std::string& folder,
        StoreKind iKind,
        unsigned int itemSize,
        unsigned int manifestSize)
        : OpenTree(itemSize, manifestSize, iKind != Disk),
          kind(iKind),
          path(folder + std::to_string(iKind)) {
        if (kind == PutIn) SetStore(putIn);
        std::filesystem::remove(path);
        EXPECT_EQ(OpenWrite(path.c_str()), IDX_True);
    }
    ~Side() override { Close(); }

    /// What the file holds, or would if it was closed now.
    std::string Bytes() {
        Store().Flush();
        if (kind == Disk) return ContentOf(path);
        std::string bytes(Store().GetSize(), '\0');
        const auto size = static_cast<unsigned int>(bytes.size());
        EXPECT_EQ(Store().ReadAt(0, bytes.data(), size), IDX_True);
        return bytes;
    }

    const StoreKind kind;
    const std::string path;
    IDX_WT_MemFile putIn;
};

class Sequence {
public:
    Sequence(const std::string& path, unsigned int seed)
        : _random(seed),
          _itemSize(16 + 4 * Below(13)),
          _manifestSize(8 + Below(33)),
          _kind(seed % 4),
          _sides{
              {path, Disk,   _itemSize, _manifestSize},
              {path, Memory, _itemSize, _manifestSize},
              {path, PutIn,  _itemSize, _manifestSize}
    },
          _reference(_itemSize, _manifestSize) {}

    void Run(unsigned int length) {
        for (unsigned int step = 0; step < length && !testing::Test::HasFailure(); ++step) {
            Insert(NextId(step));
            ExpectFound(NextId(step));
            const bool isOpenedAnew = Below(16 + length / 100) == 0;
            for (Side& side : _sides) {
                EXPECT_TRUE(!isOpenedAnew || side.OpenWrite(side.path.c_str()));
                if (step % (length / 40 + 1) == 0) ExpectBytes(side);
            }
        }
        ExpectAnswers();
    }

    /// Short sequences, and some longer ones.
    unsigned int RandomLength() { return Below(8) == 0 ? Below(301) : Below(40); }

private:
    unsigned int Below(unsigned int end) { return static_cast<unsigned int>(_random()) % end; }

    /// Rising, falling, or any. Short ids repeat often: they are met in leaves, in inner nodes and
    /// on their way up.
    std::string NextId(unsigned int step) {
        if (_kind == 0) return BigEndian(step);
        if (_kind == 1) return BigEndian(1000000 - step);
        if (_kind == 2) return std::string(Below(3), static_cast<char>(200 + Below(12)));
        return BigEndian(Below(400)) + std::string(Below(40), 'x');
    }

    void Insert(const std::string& id) {
        std::string record(_itemSize, '\0');
        for (char& byte : record) byte = static_cast<char>(Below(256));
        const unsigned int expected = _reference.Insert(record, id);
        _answers[id] = expected;
        for (Side& side : _sides) {
            unsigned int item = 1;
            EXPECT_EQ(side.Add(record, id, item), IDX_True);
            EXPECT_EQ(item, expected);
        }
    }

    /// Not by EXPECT_EQ, which would print both files.
    void ExpectBytes(Side& side) {
        EXPECT_TRUE(side.Bytes() == _reference.File(side.kind != Disk)) << side.kind;
    }

    void ExpectFound(const std::string& id) {
        const auto answer = _answers.find(id);
        for (Side& side : _sides) {
            unsigned int item = 1;
            EXPECT_EQ(side.Find(id, item), IDX_True);
            EXPECT_EQ(item, answer != _answers.end() ? answer->second : 0);
        }
    }

    /// All answers of a reader, and the order of std::map.
    void ExpectAnswers() {
        std::vector<unsigned int> expected;
        for (const auto& [id, item] : _answers) expected.push_back(item);
        for (Side& side : _sides) {
            ExpectBytes(side);
            EXPECT_TRUE(side.OpenRead(side.path.c_str()));
            std::vector<unsigned int> items;
            EXPECT_EQ(side.Walk(items), IDX_True);
            EXPECT_EQ(items, expected);
        }
        for (const auto& [id, item] : _answers) ExpectFound(id);
    }

    std::mt19937 _random;
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
        Sequence sequence(folder / "tree", seed);
        sequence.Run(sequence.RandomLength());
    }
}

TEST(TreeRandom, ALongSequence) {
    const TemporaryFolder folder;
    const unsigned long nKeys = FromEnvironment("GRIDLOOM_TREE_KEYS", 20000);
    Sequence(folder / "tree", 3).Run(static_cast<unsigned int>(nKeys));
}

}  // namespace
