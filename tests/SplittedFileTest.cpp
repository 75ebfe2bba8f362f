// Split files: a flat model beside random sequences of several objects that share their pieces; by hand the
// values, the locks as others see them, and every failure.

#include "ByteTexts.h"
#include "FileCase.h"

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
long int VEXDeleteFile(const char* iPath) {
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

const std::string kTag = "IDX_WT_SplittedFile.";

class SplitFiles : public FileCase {
protected:
    ~SplitFiles() override { onDelete = nullptr; }

    Names Listing() { return NamesIn(_folder / ""); }

    std::string _base = _folder / "B";
};

}  // namespace

TEST_F(SplitFiles, ValuesStandInTheirPieces) {
    IDX_WT_SplittedFile file(4, 1, false);
    Expect(file.OpenWrite(_base.c_str()));
    unsigned int part = 9;
    unsigned int offset = 9;
    Expect(file.Write(0x64636261u));
    Expect(file.Write(0x68676665u, part, offset));
    EXPECT_EQ(part, 1u);
    Expect(file.WriteAt(2, 0, 3u));
    Expect(file.WriteAt(2, 4, "abc", 3));
    Expect(file.WriteAt(2, 8, static_cast<unsigned short>(0x0605)));
    Expect(file.WriteAt(2, 12, 1.0f));
    file.Flush();
    EXPECT_EQ(ContentOf(_base + "2"), std::string("\3\0\0\0abc\0\5\6\0\0\0\0\x80\x3f", 16));
    EXPECT_EQ(ContentOf(_base + "1"), "efgh");
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
    EXPECT_EQ(TextOf(bytes) + TextOf(text), "abcabc");
    Expect(file.ReadAt(1, 1, 2, bytes));
    EXPECT_EQ(TextOf(bytes), "fg");
}

TEST_F(SplitFiles, OneToTenPiecesAreOpen) {
    for (const auto& [slots, nOpen] : std::map<unsigned int, std::size_t>{
             {0,  1 },
             {11, 10}
    }) {
        IDX_WT_SplittedFile file(0, slots, true);
        Expect(file.OpenWrite(_base.c_str()));
        for (unsigned int part = 0; part < 11; ++part) EXPECT_EQ(file.GetSize(part), 0u);
        EXPECT_EQ(Listing().size(), 11 + nOpen) << "an open piece has a lock beside it";
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
    std::size_t sizeAtDeletion = 0;
    onDelete = [&] {
        openAtDeletion.push_back(probe.IsOpened());
        sizeAtDeletion = ContentOf(_base + "0").size();
        return true;
    };
    EXPECT_EQ(writer.GetSize(1), 0u);
    EXPECT_EQ(writer.GetSize(0), 0u);
    for (unsigned int i = 0; i < 1001; ++i) Expect(writer.Write(i));
    writer.Close();
    EXPECT_EQ(sizeAtDeletion, 4004u) << "whoever sees no lock sees the whole piece";
    EXPECT_EQ(openAtDeletion, (std::vector<IDX_Bool>{IDX_False, IDX_False, IDX_True}));

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

    // A lock whose piece can't be opened stays, and so do others when the slot is used for reading then.
    std::filesystem::create_directory(_base + "5");
    Expect(writer.OpenWrite(_base.c_str()));
    EXPECT_EQ(writer.GetSize(5), 0u);
    EXPECT_EQ(_trace.Take().size(), 2u);
    Expect(writer.OpenRead(_base.c_str()));
    SetContent(_base + "0.lock", "");
    writer.Close();
    EXPECT_EQ(Listing(), (Names{"B0", "B0.lock", "B1", "B5", "B5.lock"}));
}

TEST_F(SplitFiles, RefusedOperations) {
    IDX_WT_SplittedFile file(8, 3, false);
    unsigned int part = 9;
    unsigned int offset = 9;
    unsigned int number = 0;
    IDX_Base_ByteArray bytes;
    IDX_Base_String text;
    const std::string closed = kTag + "_TestAndOpen.NotOpened";
    Expect(file.Write("x", 1, part, offset), {closed, kTag + "Write._TestAndOpen (1)"});
    EXPECT_EQ(part + offset, 0u);
    Expect(file.ReadAt(0, 0, number), {closed, kTag + "ReadAt._TestAndOpen"});
    Expect(file.ReadAt(0, 0, bytes), {closed, kTag + "ReadAt(ByteArray)._TestAndOpen"});
    Expect(file.ReadAt(0, 0, text), {closed, kTag + "ReadAt(String)._TestAndOpen"});
    Expect(file.ReadAt(0, 0, 1, bytes), {closed, kTag + "ReadAt._TestAndOpen"});
    Expect(file.WriteAt(0, 0, 1u), {closed, kTag + "WriteAt._TestAndOpen"});
    Expect(file.HasLock(0), {kTag + "HasLock.snprintf"});

    Expect(file.OpenWrite(_base.c_str()));
    Expect(file.Write(nullptr, 1), {kTag + "Write.InvalidData"});
    Expect(file.Write("x", 0), {kTag + "Write.InvalidData"});
    Expect(file.WriteAt(0, 0, "x", 0), {kTag + "WriteAt.InvalidData"});
    Expect(file.WriteAt(0, 0, nullptr, 1), {kTag + "WriteAt.InvalidData"});
    Expect(file.ReadAt(0, 0, &number, 0), {kTag + "ReadAt.InvalidData"});
    Expect(file.ReadAt(0, 0, nullptr, 4), {kTag + "ReadAt.InvalidData"});
    Expect(file.ReadAt(0, 0, 0, bytes), {kTag + "ReadAt.InvalidData"});
    const std::string write = kTag + "WriteAt._TestAndOpen";
    Expect(file.WriteAt(0xFFFFFFFF, 0, 1u), {kTag + "_TestAndOpen.InvalidPart", write});
    EXPECT_EQ(Listing(), Names{});
    const std::string end = "IDX_WT_File.ReadAt.InvalidOffset[fOffset=0,fSize=0,dSize=4]";
    const std::string array = "IDX_WT_File.ReadAt(ByteArray).ReadAt";
    const std::string string = "IDX_WT_File.ReadAt(String).ReadAt(length)";
    const std::string inner = "IDX_WT_File.ReadAt";
    Expect(file.ReadAt(0, 0, number), {end, kTag + "ReadAt." + inner});
    Expect(file.ReadAt(0, 0, 4, bytes), {end, array + "(data) (2)", kTag + "ReadAt." + inner});
    Expect(file.ReadAt(1, 0, bytes), {end, array + "(size)", kTag + "ReadAt(ByteArray)." + inner});
    Expect(file.ReadAt(1, 0, text), {end, string, kTag + "ReadAt(String)." + inner});
    Expect(file.Write("12345678", 8));
    Expect(file.WriteAt(1, 0, "12345678", 8));
    std::filesystem::create_directory(_base + "2");
    Expect(
        file.Write("x", 1), {"IDX_WT_File.OpenWrite.fopen", kTag + "_TestAndOpen.OpenWrite",
                             kTag + "Write._TestAndOpen (2)"});
}

TEST_F(SplitFiles, ReadersAndMissingPieces) {
    const char* open = "IDX_WT_SplittedFile._TestAndOpen.OpenRead";
    IDX_WT_SplittedFile file(0, 2, true);
    Refused(file.OpenRead(_base.c_str()));
    EXPECT_EQ(file.IsOpened(), IDX_True);
    SetContent(_base + "0", "12345");
    Expect(file.OpenRead(_base.c_str()));
    EXPECT_EQ(file.GetSize(7), 0u);
    EXPECT_EQ(_trace.Take(), (Lines{"IDX_WT_File.OpenRead.fopen", open}));
    const char* write = "IDX_WT_File.Write.InvalidFile";
    Expect(file.Write("x", 1), {write, "IDX_WT_SplittedFile.Write.IDX_WT_File.Write"});
    Expect(file.WriteAt(0, 0, 7u), {write, "IDX_WT_SplittedFile.WriteAt.IDX_WT_File.WriteAt"});
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

TEST_F(SplitFiles, NamesBelow2048Characters) {
    std::string folder = _folder / "";
    while (folder.size() < 1900) folder += std::string(99, 'd') + '/';
    std::filesystem::create_directories(folder);
    const auto base = [&](std::size_t size) {
        return folder + std::string(size - folder.size(), 'b');
    };
    const std::string hasLock = kTag + "HasLock.snprintf";
    const std::string lock = kTag + "Lock.snprintf";
    const std::string name = kTag + "_TestAndOpen.snprintf";
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
    Expect(file.OpenWrite(base(2047).c_str()));
    Expect(file.Write("x", 1), {hasLock, lock, name, kTag + "Write._TestAndOpen (1)"});
    Expect(file.OpenRead(base(2047).c_str()), {kTag + "OpenRead.snprintf"});
}

namespace {

/// What is expected of a piece, whoever holds it.
struct PlainPiece {
    bool isThere = false;
    bool isLocked = false;
    bool isBlocked = false;  ///< a link into nowhere is in its place
    std::string content = "";
    int mode = 0;  ///< 0 closed, 1 for reading, 2 for writing
    std::size_t size = 0;
};

using PlainDisk = std::map<std::string, PlainPiece>;

/// A piece that isn't there can't be opened from now on, or again.
void ToggleBlock(const std::string& path, PlainDisk& disk) {
    PlainPiece& piece = disk[path];
    if (piece.isThere) return;
    piece.isBlocked = !piece.isBlocked;
    if (!std::filesystem::remove(path)) std::filesystem::create_symlink("none/piece", path);
}

std::size_t Aligned(std::size_t size) {
    return (size + 3) / 4 * 4;
}

/// A split file and a plain one: each operation is done on both, and must give the same.
class Both {
public:
    Both(PlainDisk& disk, unsigned int limit, unsigned int slots, bool useLocks)
        : _disk(disk),
          _limit(limit),
          _useLocks(useLocks),
          _parts(slots, -1),
          _file(limit, slots, useLocks) {}

    /// Whether opening would meet its pieces open the other way, which is a fatal stop.
    bool Hinders(const std::string& base, int mode) const { return base == _base && mode != _mode; }

    void Open(const std::string& base, int mode) {
        Close();
        _base = base;
        _mode = mode;
        const bool opens = mode == 2 || (Piece(0).isThere && Touch(0));
        const char* path = base.c_str();
        EXPECT_EQ(mode == 1 ? _file.OpenRead(path) : _file.OpenWrite(path), opens);
    }

    void Close() {
        for (int& part : _parts) Release(part);
        _mode = 0;
        _current = 0;
        _file.Close();
    }

    void Overwrite(unsigned int part, unsigned int offset, const std::string& data) {
        const bool puts = Touch(part) && Put(Piece(part), offset, data);
        const auto size = static_cast<unsigned int>(data.size());
        EXPECT_EQ(_file.WriteAt(part, offset, data.data(), size), puts);
    }

    void Append(const std::string& data) {
        bool puts = Touch(_current);
        while (puts && _limit != 0 && Piece(_current).size >= _limit) puts = Touch(++_current);
        const std::size_t end = puts ? Piece(_current).size : 0;
        puts = puts && Put(Piece(_current), end, data);
        unsigned int part = 9;
        unsigned int offset = 9;
        const auto size = static_cast<unsigned int>(data.size());
        EXPECT_EQ(_file.Write(data.data(), size, part, offset), puts);
        EXPECT_EQ(part, puts ? _current : 0);
        EXPECT_EQ(offset, puts ? end : 0);
    }

    void Read(unsigned int part, unsigned int offset, unsigned int size) {
        const bool isOpen = Touch(part) && Piece(part).mode != 0;
        const bool reads = isOpen && offset + size <= Piece(part).content.size();
        std::string data(size, ' ');
        EXPECT_EQ(_file.ReadAt(part, offset, data.data(), size), reads);
        if (reads) {
            EXPECT_EQ(data, Piece(part).content.substr(offset, size));
        }
    }

    void MeasureAndFlush(unsigned int part) {
        EXPECT_EQ(_file.GetSize(part), Touch(part) ? Piece(part).size : 0);
        _file.Flush();
    }

private:
    PlainPiece& Piece(unsigned int part) const { return _disk[_base + std::to_string(part)]; }

    void Release(int& part) {
        if (part < 0) return;
        PlainPiece& piece = Piece(static_cast<unsigned int>(std::exchange(part, -1)));
        piece.mode = 0;
        if (_mode == 2 && _useLocks) piece.isLocked = false;
    }

    bool Touch(unsigned int part) {
        if (_mode == 0) return false;
        const auto hit = std::find(_parts.begin(), _parts.end(), static_cast<int>(part));
        if (hit != _parts.end()) {
            _last = static_cast<std::size_t>(hit - _parts.begin());
            return true;
        }
        PlainPiece& piece = Piece(part);
        if (_mode == 2 && _useLocks) piece.isLocked = true;
        _last = (_last + 1) % _parts.size();
        Release(_parts[_last]);
        if (piece.isBlocked || (_mode == 1 && !piece.isThere)) return false;
        piece.isThere = true;
        const std::size_t size = piece.content.size();
        if (piece.mode == 0) piece.size = _mode == 1 ? size : Aligned(size);
        if (piece.mode == 0) piece.mode = _mode;
        _parts[_last] = static_cast<int>(part);
        return true;
    }

    static bool Put(PlainPiece& piece, std::size_t offset, const std::string& data) {
        if (piece.mode != 2) return false;
        piece.content.resize(std::max(piece.content.size(), offset + data.size()));
        piece.content.replace(offset, data.size(), data);
        piece.size = std::max(piece.size, Aligned(offset + data.size()));
        return true;
    }

    PlainDisk& _disk;
    const unsigned int _limit;
    const bool _useLocks;
    std::vector<int> _parts;  ///< of the slots; -1 for none
    IDX_WT_SplittedFile _file;
    std::string _base;
    int _mode = 0;
    unsigned int _current = 0;
    std::size_t _last = 0;
};

}  // namespace

TEST_F(SplitFiles, AgreeWithAFlatModel) {
    for (unsigned int seed = 1; seed <= 200; ++seed) {
        std::mt19937 random(seed);
        const auto below = [&](std::size_t n) { return static_cast<unsigned int>(random() % n); };
        const TemporaryFolder folder;
        const std::string bases[] = {folder / "A", folder / "B"};
        PlainDisk disk;
        std::vector<std::unique_ptr<Both>> files;
        for (unsigned int i = 0; i < 3; ++i) {
            files.push_back(
                std::make_unique<Both>(disk, 12 * below(3), 1 + below(3), below(2) != 0));
        }
        for (int step = 0; step < 60 && !HasFailure(); ++step) {
            SCOPED_TRACE(testing::Message() << "seed " << seed << " step " << step);
            Both& file = *files[below(3)];
            const unsigned int part = below(5);
            const unsigned int choice = below(21);
            const std::string data(1 + below(20), static_cast<char>('a' + below(26)));
            if (choice < 2) {
                const std::string& base = bases[below(2)];
                const int mode = below(3) == 0 ? 1 : 2;
                for (const auto& other : files) {
                    if (other->Hinders(base, mode)) other->Close();
                }
                file.Open(base, mode);
            } else if (choice == 2) {
                file.Close();
            } else if (choice == 3) {
                ToggleBlock(bases[below(2)] + std::to_string(part), disk);
            } else if (choice < 8) {
                file.Overwrite(part, below(30), data);
            } else if (choice < 14) {
                file.Append(data);
            } else if (choice < 18) {
                file.Read(part, below(30), 1 + below(12));
            } else {
                file.MeasureAndFlush(part);
            }
            Names names;
            for (const auto& [path, piece] : disk) {
                const std::string name = std::filesystem::path(path).filename();
                if (piece.isThere || piece.isBlocked) names.insert(name);
                if (piece.isLocked) names.insert(name + ".lock");
                EXPECT_TRUE(piece.mode != 0 || ContentOf(path) == piece.content) << name;
            }
            ASSERT_EQ(NamesIn(folder / ""), names);
        }
    }
}
