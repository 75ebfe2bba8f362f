// Split files: places and sizes by hand, slots seen through their lock files, every failure, and a flat
// model beside random sequences of several objects that share their pieces.

#include "FileCase.h"

#include "IDX_Base_ByteArray.h"
#include "IDX_Base_String.h"
#include "IDX_WT_File.h"
#include "IDX_WT_SplittedFile.h"
#include "VEXFile.h"

#include <algorithm>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <unistd.h>

namespace {

std::function<bool()> onDelete;  ///< whether a file may be deleted

}  // namespace

/// The program's own service, which the library calls in place of its own.
__attribute__((visibility("default"))) long int VEXDeleteFile(const char* iPath) {
    return (!onDelete || onDelete()) && unlink(iPath) == 0 ? IDX_S_OK : IDX_E_FAIL;
}

namespace {

using Names = std::set<std::string>;

Names NamesIn(const std::string& folder) {
    Names names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.insert(entry.path().filename());
    }
    return names;
}

class SplitFiles : public FileCase {
protected:
    ~SplitFiles() override { onDelete = nullptr; }

    Names Listing() { return NamesIn(_folder / ""); }

    std::string _base = _folder / "B";
};

}  // namespace

TEST_F(SplitFiles, AppendsGoToTheFirstPieceBelowTheLimit) {
    struct Append {
        unsigned int size, part, offset;
    };
    const struct {
        const char* name;
        unsigned int limit;
        std::vector<Append> appends;
    } rows[] = {
        {"no limit",                    0,   {{1000, 0, 0}, {1000, 0, 1000}, {1, 0, 2000}}     },
        {"an append is never divided",  100, {{1000, 0, 0}, {4, 1, 0}, {4, 1, 4}}              },
        {"what is there decides",       100, {{40, 0, 0}, {40, 0, 40}, {40, 0, 80}, {40, 1, 0}}},
        {"a limit that is met exactly", 100, {{100, 0, 0}, {1, 1, 0}}                          },
        {"multiples of 4",              16,  {{5, 0, 0}, {5, 0, 8}, {5, 1, 0}}                 },
    };
    for (const auto& row : rows) {
        for (const char* reopened : {"", "reopened"}) {  // appends pass the full pieces again
            SCOPED_TRACE(testing::Message() << row.name << " " << reopened);
            const std::string base = _folder / row.name + reopened;
            IDX_WT_SplittedFile file(row.limit, 2, false);
            Expect(file.OpenWrite(base.c_str()));
            for (const Append& append : row.appends) {
                if (*reopened != 0) Expect(file.OpenWrite(base.c_str()));
                unsigned int part = 77;
                unsigned int offset = 77;
                Expect(file.Write(std::string(append.size, 'a').data(), append.size, part, offset));
                EXPECT_EQ(part, append.part);
                EXPECT_EQ(offset, append.offset);
            }
        }
    }
}

TEST_F(SplitFiles, ValuesStandInTheirPieces) {
    IDX_WT_SplittedFile file(4, 1, false);
    Expect(file.OpenWrite(_base.c_str()));
    EXPECT_EQ(Listing(), Names{}) << "nothing before the first access";
    unsigned int part = 9;
    unsigned int offset = 9;
    Expect(file.Write(0x64636261u, part, offset));
    EXPECT_EQ(part + offset, 0u);
    Expect(file.Write(0x68676665u));
    Expect(file.WriteAt(2, 0, 3u));
    Expect(file.WriteAt(2, 4, "abc", 3));
    Expect(file.WriteAt(2, 8, static_cast<unsigned short>(0x0605)));
    Expect(file.WriteAt(2, 12, 1.0f));
    file.Flush();
    EXPECT_EQ(ContentOf(_base + "2"), std::string("\3\0\0\0abc\0\5\6\0\0\0\0\x80\x3f", 16));
    EXPECT_EQ(ContentOf(_base + "1"), "efgh") << "closed when piece 2 took the one slot";
    EXPECT_EQ(file.GetSize(2), 16u);
    unsigned short two = 0;
    unsigned int four = 0;
    float real = 0;
    Expect(file.ReadAt(2, 8, two));
    Expect(file.ReadAt(0, 0, four));
    Expect(file.ReadAt(2, 12, real));
    EXPECT_EQ(two, 0x0605);
    EXPECT_EQ(four, 0x64636261u);
    EXPECT_EQ(real, 1.0f);
    IDX_Base_ByteArray bytes;
    IDX_Base_String text;
    Expect(file.ReadAt(2, 0, bytes));
    Expect(file.ReadAt(2, 0, text));
    EXPECT_EQ(std::string(bytes.GetData(), bytes.GetData() + bytes.GetSize()), "abc");
    EXPECT_EQ(std::string(text.GetData(), text.GetLength()), "abc");
    Expect(file.ReadAt(1, 1, 2, bytes));
    EXPECT_EQ(std::string(bytes.GetData(), bytes.GetData() + bytes.GetSize()), "fg");
}

TEST_F(SplitFiles, ACursorChoosesTheSlot) {
    const struct {
        const char* name;
        unsigned int slots;
        std::vector<unsigned int> touched;
        std::vector<unsigned int> open;
    } rows[] = {
        {"a hit pulls the cursor", 3,  {0, 1, 2, 1, 3},                    {0, 1, 3}                      },
        {"else the oldest goes",   3,  {0, 1, 2, 3},                       {1, 2, 3}                      },
        {"none is one",            0,  {0, 1},                             {1}                            },
        {"the other one of two",   2,  {0, 1, 0, 2},                       {0, 2}                         },
        {"eleven are ten",         11, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        IDX_WT_SplittedFile file(0, row.slots, true);
        Expect(file.OpenWrite(_base.c_str()));
        for (const unsigned int part : row.touched) EXPECT_EQ(file.GetSize(part), 0u);
        std::vector<unsigned int> locked;
        for (unsigned int part = 0; part < 11; ++part) {
            if (file.HasLock(part)) locked.push_back(part);
        }
        EXPECT_EQ(locked, row.open);
        file.Close();
        for (const std::string& name : Listing()) EXPECT_FALSE(name.ends_with(".lock")) << name;
    }
}

TEST_F(SplitFiles, LocksAreMarkers) {
    IDX_WT_SplittedFile writer(0, 1, true);
    Expect(writer.OpenWrite(_base.c_str()));
    Expect(writer.Lock(0));
    Refused(writer.Lock(0));
    EXPECT_EQ(writer.GetSize(0), 0u) << "a lock that is there stops nobody";
    // At an eviction the piece is closed and then its lock goes; at the end the lock goes first.
    IDX_WT_File probe;
    Expect(probe.OpenWrite((_base + "0").c_str()));
    std::vector<IDX_Bool> openAtDeletion;
    onDelete = [&] {
        openAtDeletion.push_back(probe.IsOpened());
        return true;
    };
    EXPECT_EQ(writer.GetSize(1), 0u);
    EXPECT_EQ(writer.GetSize(0), 0u);
    writer.Close();
    EXPECT_EQ(openAtDeletion, (std::vector<IDX_Bool>{IDX_False, IDX_False, IDX_True}));
    EXPECT_EQ(Listing(), (Names{"B0", "B1"}));

    SetContent(_base + "0.lock", "");
    IDX_WT_SplittedFile other(0, 1, false);
    Expect(other.OpenRead(_base.c_str()));
    Expect(other.HasLock(0));
    Expect(other.Lock(0));
    Expect(other.Unlock(1));
    other.Close();
    Expect(writer.OpenWrite(_base.c_str()));
    onDelete = [] { return false; };
    Refused(writer.Unlock(0));
    onDelete = nullptr;
    Expect(writer.Unlock(0));
    Refused(writer.Unlock(0));
    Expect(writer.OpenWrite((_folder / "none/B").c_str()));
    Refused(writer.Lock(0));
}

TEST_F(SplitFiles, ReadersAndMissingPieces) {
    IDX_WT_SplittedFile file(0, 2, true);
    Refused(file.OpenRead(_base.c_str()));
    EXPECT_EQ(file.IsOpened(), IDX_True);
    SetContent(_base + "0", "12345");
    SetContent(_base + "1", "abcd");
    Expect(file.OpenRead(_base.c_str()));
    EXPECT_EQ(file.GetSize(0), 5u);
    const char* fopen = "IDX_WT_File.OpenRead.fopen";
    const char* open = "IDX_WT_SplittedFile._TestAndOpen.OpenRead";
    EXPECT_EQ(file.GetSize(7), 0u);
    EXPECT_EQ(_trace.Take(), (Lines{fopen, open}));
    unsigned int number = 0;
    Expect(file.ReadAt(7, 0, number), {fopen, open, "IDX_WT_SplittedFile.ReadAt._TestAndOpen"});
    const char* write = "IDX_WT_File.Write.InvalidFile";
    Expect(file.Write("x", 1), {write, "IDX_WT_SplittedFile.Write.IDX_WT_File.Write"});
    Expect(file.WriteAt(1, 0, 7u), {write, "IDX_WT_SplittedFile.WriteAt.IDX_WT_File.WriteAt"});
    EXPECT_EQ(Listing(), (Names{"B0", "B1"})) << "a reader makes no lock";
    file.Close();
    std::filesystem::remove(_base + "0");
    std::filesystem::create_symlink("/dev/tty", _base + "0");
    const IDX_Bool opened = file.OpenRead(_base.c_str());  // there, and can't be opened or sought
    EXPECT_EQ(opened, IDX_False);
    const Lines tags = _trace.Take();
    ASSERT_EQ(tags.size(), 3u);
    EXPECT_EQ(tags[1], open);
    EXPECT_EQ(tags[2], "IDX_WT_SplittedFile.OpenRead._TestAndOpen");
}

TEST_F(SplitFiles, ASlotUsedAgainTouchesNoOtherPiece) {
    const Lines cantOpen = {
        "IDX_WT_File.OpenWrite.fopen", "IDX_WT_SplittedFile._TestAndOpen.OpenWrite",
        "IDX_WT_SplittedFile.WriteAt._TestAndOpen"};
    std::filesystem::create_directory(_base + "5");
    IDX_WT_SplittedFile file(0, 2, true);
    Expect(file.OpenWrite(_base.c_str()));
    Expect(file.WriteAt(5, 0, 1u), cantOpen);  // slot 1 stays free
    std::filesystem::remove(_base + "5");
    Expect(file.WriteAt(5, 0, 1u));  // slot 0
    Expect(file.WriteAt(6, 0, 1u));  // slot 1 again
    Expect(file.WriteAt(5, 4, 2u));  // still open
    file.Close();
    EXPECT_EQ(Listing(), (Names{"B5", "B6"}));

    // A lock whose piece can't be opened stays, also when the slot is used for reading then.
    std::filesystem::create_directory(_base + "0");
    Expect(file.OpenWrite(_base.c_str()));
    Expect(file.WriteAt(0, 0, 1u), cantOpen);
    std::filesystem::remove(_base + "0");
    SetContent(_base + "0", "");
    Expect(file.OpenRead(_base.c_str()));
    EXPECT_EQ(file.GetSize(5), 8u);
    SetContent(_base + "5.lock", "");
    file.Close();
    EXPECT_EQ(Listing(), (Names{"B0", "B0.lock", "B5", "B5.lock", "B6"}));
}

TEST_F(SplitFiles, RefusedOperations) {
    const std::string tag = "IDX_WT_SplittedFile.";
    IDX_WT_SplittedFile file(8, 3, false);
    unsigned int part = 9;
    unsigned int offset = 9;
    unsigned int number = 0;
    IDX_Base_ByteArray bytes;
    IDX_Base_String text;
    const std::string closed = tag + "_TestAndOpen.NotOpened";
    Expect(file.Write("x", 1, part, offset), {closed, tag + "Write._TestAndOpen (1)"});
    EXPECT_EQ(part + offset, 0u);
    Expect(file.ReadAt(0, 0, number), {closed, tag + "ReadAt._TestAndOpen"});
    Expect(file.ReadAt(0, 0, bytes), {closed, tag + "ReadAt(ByteArray)._TestAndOpen"});
    Expect(file.ReadAt(0, 0, text), {closed, tag + "ReadAt(String)._TestAndOpen"});
    Expect(file.ReadAt(0, 0, 1, bytes), {closed, tag + "ReadAt._TestAndOpen"});
    Expect(file.WriteAt(0, 0, 1u), {closed, tag + "WriteAt._TestAndOpen"});
    Expect(file.HasLock(0), {tag + "HasLock.snprintf"});

    Expect(file.OpenWrite(_base.c_str()));
    Expect(file.Write(nullptr, 1), {tag + "Write.InvalidData"});
    Expect(file.Write("x", 0), {tag + "Write.InvalidData"});
    Expect(file.WriteAt(0, 0, "x", 0), {tag + "WriteAt.InvalidData"});
    Expect(file.WriteAt(0, 0, nullptr, 1), {tag + "WriteAt.InvalidData"});
    Expect(file.ReadAt(0, 0, &number, 0), {tag + "ReadAt.InvalidData"});
    Expect(file.ReadAt(0, 0, nullptr, 4), {tag + "ReadAt.InvalidData"});
    Expect(file.ReadAt(0, 0, 0, bytes), {tag + "ReadAt.InvalidData"});
    Expect(
        file.WriteAt(0xFFFFFFFF, 0, 1u),
        {tag + "_TestAndOpen.InvalidPart", tag + "WriteAt._TestAndOpen"});
    EXPECT_EQ(Listing(), Names{});
    const std::string end = "IDX_WT_File.ReadAt.InvalidOffset[fOffset=0,fSize=0,dSize=4]";
    const std::string inner = "IDX_WT_File.ReadAt";
    Expect(file.ReadAt(0, 0, number), {end, tag + "ReadAt." + inner});
    Expect(
        file.ReadAt(0, 0, 4, bytes),
        {end, inner + "(ByteArray).ReadAt(data) (2)", tag + "ReadAt." + inner});
    Expect(
        file.ReadAt(1, 0, bytes),
        {end, inner + "(ByteArray).ReadAt(size)", tag + "ReadAt(ByteArray)." + inner});
    Expect(
        file.ReadAt(1, 0, text),
        {end, inner + "(String).ReadAt(length)", tag + "ReadAt(String)." + inner});
    EXPECT_EQ(Listing(), (Names{"B0", "B1"})) << "made by the asking";
    Expect(file.Write("12345678", 8));
    Expect(file.WriteAt(1, 0, "12345678", 8));
    std::filesystem::create_directory(_base + "2");
    Expect(
        file.Write("x", 1), {"IDX_WT_File.OpenWrite.fopen", tag + "_TestAndOpen.OpenWrite",
                             tag + "Write._TestAndOpen (2)"});
    std::filesystem::remove(_base + "2");
    Expect(file.Write("x", 1, part, offset));
    EXPECT_EQ(part, 2u);
}

TEST_F(SplitFiles, NamesBelow2048Characters) {
    std::string folder = _folder / "";
    while (folder.size() < 1900) folder += std::string(99, 'd') + '/';
    std::filesystem::create_directories(folder);
    const auto base = [&](std::size_t size) {
        return folder + std::string(size - folder.size(), 'b');
    };
    const std::string tag = "IDX_WT_SplittedFile.";
    const std::string hasLock = tag + "HasLock.snprintf";
    const std::string lock = tag + "Lock.snprintf";
    IDX_WT_SplittedFile file(0, 1, true);
    Expect(file.OpenWrite(base(2041).c_str()));
    Expect(file.Write("x", 1));
    Expect(file.HasLock(0));  // 2047 characters
    Expect(file.OpenWrite(base(2046).c_str()));
    EXPECT_EQ(file.Write("x", 1), IDX_True) << "without a lock";
    EXPECT_EQ(_trace.Take(), (Lines{hasLock, lock}));
    Expect(file.Unlock(0), {hasLock});
    file.Close();
    EXPECT_EQ(_trace.Take(), Lines{hasLock});
    EXPECT_EQ(NamesIn(folder).size(), 2u);
    Expect(file.OpenRead(base(2046).c_str()));
    Expect(file.OpenWrite(base(2047).c_str()));
    Expect(
        file.Write("x", 1),
        {hasLock, lock, tag + "_TestAndOpen.snprintf", tag + "Write._TestAndOpen (1)"});
    Expect(file.OpenRead(base(2047).c_str()), {tag + "OpenRead.snprintf"});
}

namespace {

/// The disk and the open pieces of the process, as the random sequences expect them.
struct PlainWorld {
    struct Entry {
        int mode = 0;  ///< 0 closed, 1 for reading, 2 for writing
        std::size_t size = 0;
    };
    std::map<std::string, std::string> content;
    std::map<std::string, Entry> entries;
    Names locks;
};

std::size_t Aligned(std::size_t size) {
    return (size + 3) / 4 * 4;
}

/// What they expect of one split file.
struct PlainSplitFile {
    PlainWorld& world;
    const unsigned int limit;
    const bool useLocks;
    std::vector<int> pieces;  ///< of the slots; -1 for none
    std::string base = "";
    int mode = 0;
    unsigned int current = 0;
    std::size_t last = 0;

    std::string Name(unsigned int part) const { return base + std::to_string(part); }
    PlainWorld::Entry& Entry(unsigned int part) const { return world.entries[Name(part)]; }

    void Release(int& piece) {
        if (piece < 0) return;
        const auto part = static_cast<unsigned int>(std::exchange(piece, -1));
        Entry(part).mode = 0;
        if (mode == 2 && useLocks) world.locks.erase(Name(part) + ".lock");
    }

    bool Open(const std::string& path, int how) {
        Close();
        base = path;
        mode = how;
        return how == 2 || (world.content.count(Name(0)) != 0 && Touch(0));
    }

    void Close() {
        for (int& piece : pieces) Release(piece);
        mode = 0;
        current = 0;
    }

    bool Touch(unsigned int part) {
        if (mode == 0) return false;
        const auto hit = std::find(pieces.begin(), pieces.end(), static_cast<int>(part));
        if (hit != pieces.end()) {
            last = static_cast<std::size_t>(hit - pieces.begin());
            return true;
        }
        if (mode == 2 && useLocks) world.locks.insert(Name(part) + ".lock");
        last = (last + 1) % pieces.size();
        Release(pieces[last]);
        if (mode == 1 && world.content.count(Name(part)) == 0) return false;
        const std::size_t size = world.content[Name(part)].size();
        if (Entry(part).mode == 0) Entry(part) = {mode, mode == 1 ? size : Aligned(size)};
        pieces[last] = static_cast<int>(part);
        return true;
    }

    bool Put(unsigned int part, std::size_t offset, const std::string& data) {
        if (Entry(part).mode != 2) return false;
        std::string& content = world.content[Name(part)];
        content.resize(std::max(content.size(), offset + data.size()));
        content.replace(offset, data.size(), data);
        Entry(part).size = std::max(Entry(part).size, Aligned(offset + data.size()));
        return true;
    }

    bool Write(const std::string& data, unsigned int& part, unsigned int& offset) {
        part = offset = 0;
        if (!Touch(current)) return false;
        while (limit != 0 && Entry(current).size >= limit) {
            if (!Touch(++current)) return false;
        }
        const std::size_t end = Entry(current).size;
        if (!Put(current, end, data)) return false;
        part = current;
        offset = static_cast<unsigned int>(end);
        return true;
    }

    bool Read(unsigned int part, std::size_t offset, std::size_t size, std::string& data) {
        if (!Touch(part) || Entry(part).mode == 0) return false;
        const std::string& content = world.content[Name(part)];
        if (offset + size > content.size()) return false;
        data = content.substr(offset, size);
        return true;
    }
};

}  // namespace

TEST_F(SplitFiles, AgreeWithAFlatModel) {
    for (unsigned int seed = 1; seed <= 200; ++seed) {
        std::mt19937 random(seed);
        const auto below = [&](std::size_t n) { return static_cast<unsigned int>(random() % n); };
        const TemporaryFolder folder;
        const std::string bases[] = {folder / "A", folder / "B"};
        PlainWorld world;
        std::vector<std::unique_ptr<IDX_WT_SplittedFile>> files;
        std::vector<PlainSplitFile> models;
        for (int i = 0; i < 3; ++i) {
            const unsigned int limit = 12 * below(3);
            const unsigned int slots = 1 + below(3);
            const bool locks = below(2) != 0;
            files.push_back(std::make_unique<IDX_WT_SplittedFile>(limit, slots, locks));
            models.push_back({world, limit, locks, std::vector<int>(slots, -1)});
        }
        for (int step = 0; step < 60; ++step) {
            SCOPED_TRACE(testing::Message() << "seed " << seed << " step " << step);
            const unsigned int i = below(3);
            IDX_WT_SplittedFile& file = *files[i];
            PlainSplitFile& model = models[i];
            const unsigned int part = below(5);
            const unsigned int offset = below(30);
            std::string data(1 + below(12), static_cast<char>('a' + below(26)));
            const auto size = static_cast<unsigned int>(data.size());
            bool expected = true;
            IDX_Bool result = IDX_True;
            const unsigned int choice = below(24);
            if (choice < 2) {
                const std::string& base = bases[below(2)];
                const int mode = below(3) == 0 ? 1 : 2;
                // Nobody may hold a piece open the other way: that is a fatal stop.
                for (unsigned int j = 0; j < 3; ++j) {
                    if (models[j].base != base || models[j].mode == mode) continue;
                    files[j]->Close();
                    models[j].Close();
                }
                expected = model.Open(base, mode);
                result = mode == 1 ? file.OpenRead(base.c_str()) : file.OpenWrite(base.c_str());
            } else if (choice == 2) {
                model.Close();
                file.Close();
            } else if (choice < 5) {
                expected = model.mode != 0 && world.locks.count(model.Name(part) + ".lock") != 0;
                result = file.HasLock(part);
            } else if (choice < 9) {
                expected = model.Touch(part) && model.Put(part, offset, data);
                result = file.WriteAt(part, offset, data.data(), size);
            } else if (choice < 15) {
                unsigned int places[4];
                expected = model.Write(data, places[0], places[1]);
                result = file.Write(data.data(), size, places[2], places[3]);
                EXPECT_EQ(places[0], places[2]);
                EXPECT_EQ(places[1], places[3]);
            } else if (choice < 20) {
                std::string wanted;
                expected = model.Read(part, offset, size, wanted);
                result = file.ReadAt(part, offset, data.data(), size);
                if (expected) {
                    EXPECT_EQ(data, wanted);
                }
            } else {
                EXPECT_EQ(model.Touch(part) ? model.Entry(part).size : 0, file.GetSize(part));
                file.Flush();
            }
            ASSERT_EQ(result, expected ? IDX_True : IDX_False);
            Names names = world.locks;
            for (const auto& [name, content] : world.content) names.insert(name);
            Names found;
            for (const std::string& name : NamesIn(folder / "")) found.insert(folder / name);
            ASSERT_EQ(found, names);
        }
        files.clear();
        for (const auto& [name, content] : world.content) EXPECT_EQ(ContentOf(name), content);
    }
}
