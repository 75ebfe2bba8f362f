// Split files: values, slots, locks as others see them, and every failure. Random sequences on pieces that others
// have open, too, are part of FileModelTest.

#include "ByteTexts.h"
#include "FileCase.h"
#include "Transcript.h"

#include "IDX_WT_File.h"
#include "IDX_WT_SplittedFile.h"
#include "VEXFile.h"

#include <functional>
#include <map>
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

TEST_F(SplitFiles, SlotsGiveWayInTurn) {
    IDX_WT_SplittedFile file(0, 2, true);
    Expect(file.OpenWrite(_base.c_str()));
    for (const unsigned int part : {0u, 1u, 0u, 2u}) EXPECT_EQ(file.GetSize(part), 0u);
    EXPECT_EQ(Listing(), (Names{"B0", "B0.lock", "B1", "B2", "B2.lock"})) << "0 was used last";
    file.Close();

    IDX_WT_SplittedFile other(0, 2, true);
    Expect(other.OpenWrite(_base.c_str()));
    for (const unsigned int part : {0u, 1u, 2u}) EXPECT_EQ(other.GetSize(part), 0u);
    Expect(file.OpenWrite(_base.c_str()));
    for (const unsigned int part : {3u, 4u}) EXPECT_EQ(file.GetSize(part), 0u);
    for (const unsigned int part : {1u, 2u}) Expect(other.WriteAt(part, 0, 7u));  // open as before
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
    EXPECT_EQ(sizeAtDeletion, 4004u) << "without a lock the piece is whole";
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

TEST_F(SplitFiles, FailuresNameEachStep) {
    Transcript all;
    IDX_WT_SplittedFile file(8, 3, false);
    unsigned int part = 9;
    unsigned int offset = 9;
    unsigned int number = 0;
    IDX_Base_ByteArray bytes;
    IDX_Base_String text;
    all.Title("not open");
    NOTE(all, file.Write("x", 1, part, offset));
    EXPECT_EQ(part + offset, 0u);
    NOTE(all, file.ReadAt(0, 0, number));
    NOTE(all, file.ReadAt(0, 0, bytes));
    NOTE(all, file.ReadAt(0, 0, text));
    NOTE(all, file.ReadAt(0, 0, 1, bytes));
    NOTE(all, file.WriteAt(0, 0, 1u));
    NOTE(all, file.HasLock(0));

    all.Title("what makes no sense");
    file.OpenWrite(_base.c_str());
    NOTE(all, file.Write(nullptr, 1));
    NOTE(all, file.Write("x", 0));
    NOTE(all, file.WriteAt(0, 0, "x", 0));
    NOTE(all, file.WriteAt(0, 0, nullptr, 1));
    NOTE(all, file.ReadAt(0, 0, &number, 0));
    NOTE(all, file.ReadAt(0, 0, nullptr, 4));
    NOTE(all, file.ReadAt(0, 0, 0, bytes));
    NOTE(all, file.WriteAt(0xFFFFFFFF, 0, 1u));
    EXPECT_EQ(Listing(), Names{});

    all.Title("pieces without a byte, and one that can't be made");
    NOTE(all, file.ReadAt(0, 0, number));
    NOTE(all, file.ReadAt(0, 0, 4, bytes));
    NOTE(all, file.ReadAt(1, 0, bytes));
    NOTE(all, file.ReadAt(1, 0, text));
    NOTE(all, file.Write("12345678", 8));
    NOTE(all, file.WriteAt(1, 0, "12345678", 8));
    std::filesystem::create_directory(_base + "2");
    NOTE(all, file.Write("x", 1));

    all.Title(
        "for reading: no piece 0, then no piece 7, then a piece 0 that can't be opened or sought");
    NOTE(all, file.OpenRead((_base + "none").c_str()));
    EXPECT_EQ(file.IsOpened(), IDX_True);
    SetContent(_base + "r0", "12345");
    NOTE(all, file.OpenRead((_base + "r").c_str()));
    EXPECT_EQ(file.GetSize(7), 0u);
    NOTE(all, file.Write("x", 1));
    NOTE(all, file.WriteAt(0, 0, 7u));
    file.Close();
    std::filesystem::create_directory(_base + "d0");
    NOTE(all, file.OpenRead((_base + "d").c_str()));
}

TEST_F(SplitFiles, NamesBelow2048Characters) {
    std::string folder = _folder / "";
    while (folder.size() < 1900) folder += std::string(99, 'd') + '/';
    std::filesystem::create_directories(folder);
    const auto base = [&](std::size_t size) {
        return folder + std::string(size - folder.size(), 'b');
    };
    Transcript all;
    IDX_WT_SplittedFile file(0, 1, true);
    all.Title("2047 characters with the name of a lock");
    NOTE(all, file.OpenWrite(base(2041).c_str()));
    NOTE(all, file.Write("x", 1));
    NOTE(all, file.HasLock(0));
    all.Title("2047 characters with that of a piece: no lock");
    NOTE(all, file.OpenWrite(base(2046).c_str()));
    NOTE(all, file.Write("x", 1));
    NOTE(all, file.Unlock(0));
    file.Close();
    EXPECT_EQ(NamesIn(folder).size(), 2u);
    all.Title("one too long");
    NOTE(all, file.OpenWrite(base(2047).c_str()));
    NOTE(all, file.Write("x", 1));
    NOTE(all, file.OpenRead(base(2047).c_str()));
}
