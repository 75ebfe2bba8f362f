// Split files by hand: values in their pieces, locks as others see them, and every failure.
// FileModelTest has random sequences with other files that share the pieces.

#include "ByteTexts.h"
#include "FileCase.h"

#include "IDX_WT_File.h"
#include "IDX_WT_SplittedFile.h"
#include "VEXFile.h"

#include <functional>
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

class SplitFiles : public FileFailures {
protected:
    ~SplitFiles() override { onDelete = nullptr; }

    template <class Value>
    static Value Read(IDX_WT_SplittedFile& file, unsigned int part, unsigned int offset) {
        Value value{};
        EXPECT_EQ(file.ReadAt(part, offset, value), IDX_True);
        return value;
    }

    /// The files in the folder, each after a blank.
    std::string Listing() {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(_folder / "")) {
            names.insert(entry.path().filename());
        }
        std::string list;
        for (const std::string& name : names) list += " " + name;
        return list;
    }
};

}  // namespace

TEST_F(SplitFiles, ValuesInTheirPieces) {
    IDX_WT_SplittedFile file(4, 1, false);
    file.OpenWrite(_path.c_str());
    unsigned int part = 9;
    unsigned int offset = 9;
    file.Write(0x64636261u);
    file.Write(0x68676665u, part, offset);
    EXPECT_EQ(part, 1u);
    EXPECT_EQ(offset, 0u);
    file.WriteAt(2, 0, 3u);
    file.WriteAt(2, 4, "abc", 3);
    file.WriteAt(2, 8, static_cast<unsigned short>(0x0605));
    file.WriteAt(2, 12, 1.0f);
    file.Flush();
    EXPECT_EQ(ContentOf(_path + "2"), std::string("\3\0\0\0abc\0\5\6\0\0\0\0\x80\x3f", 16));
    EXPECT_EQ(ContentOf(_path + "1"), "efgh");
    IDX_Base_ByteArray bytes;
    EXPECT_EQ(Read<unsigned short>(file, 2, 8), 0x0605);
    EXPECT_EQ(Read<unsigned int>(file, 0, 0), 0x64636261u);
    EXPECT_EQ(Read<float>(file, 2, 12), 1.0f);
    EXPECT_EQ(TextOf(Read<IDX_Base_ByteArray>(file, 2, 0)), "abc");
    EXPECT_EQ(TextOf(Read<IDX_Base_String>(file, 2, 0)), "abc");
    EXPECT_EQ(file.ReadAt(1, 1, 2, bytes), IDX_True);
    EXPECT_EQ(TextOf(bytes), "fg");
    file.OpenWrite((_path + "other").c_str());
    file.Write(1u, part, offset);
    EXPECT_EQ(part, 0u);
}

TEST_F(SplitFiles, OneToTenPiecesAreOpenEachWithALock) {
    for (const unsigned int slots : {0u, 11u}) {
        IDX_WT_SplittedFile file(0, slots, true);
        file.OpenWrite(_path.c_str());
        for (unsigned int part = 0; part < 12; ++part) EXPECT_EQ(file.GetSize(part), 0u);
        _transcript.Title(std::to_string(slots) + " slots:" + Listing());
    }
}

TEST_F(SplitFiles, LocksAreMarkers) {
    IDX_WT_SplittedFile writer(0, 1, true);
    writer.OpenWrite(_path.c_str());
    NOTE(_transcript, writer.Lock(0));
    NOTE(_transcript, writer.Lock(0));
    EXPECT_EQ(writer.GetSize(0), 0u) << "a lock that is there stops nobody";
    // At an eviction the piece is closed and then its lock goes; at the end the lock goes first.
    IDX_WT_File probe;
    probe.OpenWrite((_path + "0").c_str());
    onDelete = [&] {
        const bool isOpen = probe.IsOpened() == IDX_True;
        const std::size_t size = ContentOf(_path + "0").size();
        _transcript.Title((isOpen ? "open, " : "closed, ") + std::to_string(size) + " bytes");
        return true;
    };
    EXPECT_EQ(writer.GetSize(1), 0u);
    EXPECT_EQ(writer.GetSize(0), 0u);
    for (unsigned int i = 0; i < 1001; ++i) writer.Write(i);
    writer.Close();

    SetContent(_path + "0.lock", "");
    IDX_WT_SplittedFile other(0, 1, false);
    NOTE(_transcript, other.OpenRead(_path.c_str()));
    NOTE(_transcript, other.HasLock(0));
    NOTE(_transcript, other.Lock(0));
    NOTE(_transcript, other.Unlock(1));
    other.Close();
    writer.OpenWrite(_path.c_str());
    onDelete = [] { return false; };
    NOTE(_transcript, writer.Unlock(0));
    onDelete = nullptr;
    NOTE(_transcript, writer.Unlock(0));
    NOTE(_transcript, writer.Unlock(0));
    writer.OpenWrite((_folder / "none/file").c_str());
    NOTE(_transcript, writer.Lock(0));

    // A lock whose piece can't be opened stays, and so do others when the slot is used for reading
    // then.
    std::filesystem::create_directory(_path + "5");
    writer.OpenWrite(_path.c_str());
    NOTE(_transcript, writer.WriteAt(5, 0, 1u));
    NOTE(_transcript, writer.OpenRead(_path.c_str()));
    SetContent(_path + "0.lock", "");
    writer.Close();
    _transcript.Title("left:" + Listing());
}

TEST_F(SplitFiles, RefusedOperations) {
    IDX_WT_SplittedFile file(8, 3, false);
    unsigned int part = 9;
    unsigned int offset = 9;
    unsigned int number = 0;
    IDX_Base_ByteArray bytes;
    IDX_Base_String text;
    NOTE(_transcript, file.Write("x", 1, part, offset));
    EXPECT_EQ(part + offset, 0u);
    NOTE(_transcript, file.ReadAt(0, 0, number));
    NOTE(_transcript, file.ReadAt(0, 0, bytes));
    NOTE(_transcript, file.ReadAt(0, 0, text));
    NOTE(_transcript, file.ReadAt(0, 0, 1, bytes));
    NOTE(_transcript, file.WriteAt(0, 0, 1u));
    NOTE(_transcript, file.HasLock(0));
    NOTE(_transcript, file.OpenWrite(_path.c_str()));
    NOTE(_transcript, file.Write(nullptr, 1));
    NOTE(_transcript, file.Write("x", 0));
    NOTE(_transcript, file.WriteAt(0, 0, "x", 0));
    NOTE(_transcript, file.WriteAt(0, 0, nullptr, 1));
    NOTE(_transcript, file.ReadAt(0, 0, &number, 0));
    NOTE(_transcript, file.ReadAt(0, 0, nullptr, 4));
    NOTE(_transcript, file.ReadAt(0, 0, 0, bytes));
    NOTE(_transcript, file.WriteAt(0xFFFFFFFF, 0, 1u));
    EXPECT_EQ(Listing(), "");
    NOTE(_transcript, file.ReadAt(0, 0, number));
    NOTE(_transcript, file.ReadAt(0, 0, 4, bytes));
    NOTE(_transcript, file.ReadAt(1, 0, bytes));
    NOTE(_transcript, file.ReadAt(1, 0, text));
    NOTE(_transcript, file.Write("12345678", 8));
    NOTE(_transcript, file.WriteAt(1, 0, "12345678", 8));
    std::filesystem::create_directory(_path + "2");
    NOTE(_transcript, file.Write("x", 1));
    NOTE(_transcript, file.Write("x", 1));
    std::filesystem::remove(_path + "2");
    NOTE(_transcript, file.Write("x", 1, part, offset));
    EXPECT_EQ(part, 2u);
}

TEST_F(SplitFiles, ReadersAndMissingPieces) {
    IDX_WT_SplittedFile file(0, 2, true);
    unsigned int number = 0;
    NOTE(_transcript, file.OpenRead(_path.c_str()));
    EXPECT_EQ(file.IsOpened(), IDX_True);
    SetContent(_path + "0", "12345");
    NOTE(_transcript, file.OpenRead(_path.c_str()));
    NOTE(_transcript, file.ReadAt(7, 0, number));
    NOTE(_transcript, file.Write("x", 1));
    NOTE(_transcript, file.WriteAt(0, 0, 7u));
    file.Close();
    std::filesystem::resize_file(_path + "0", 0x80000000);  // too large to be opened
    NOTE(_transcript, file.OpenRead(_path.c_str()));
}

TEST_F(SplitFiles, NamesBelow2048Characters) {
    std::string folder = _folder / "";
    while (folder.size() < 1900) folder += std::string(99, 'd') + '/';
    std::filesystem::create_directories(folder);
    const auto base = [&](std::size_t size) {
        return folder + std::string(size - folder.size(), 'b');
    };
    IDX_WT_SplittedFile file(0, 1, true);
    NOTE(_transcript, file.OpenWrite(base(2041).c_str()));
    NOTE(_transcript, file.Write("x", 1));
    NOTE(_transcript, file.HasLock(0));  // 2047 characters
    NOTE(_transcript, file.OpenWrite(base(2046).c_str()));
    NOTE(_transcript, file.Write("x", 1));
    NOTE(_transcript, file.Unlock(0));
    NOTE(_transcript, file.OpenWrite(base(2047).c_str()));
    NOTE(_transcript, file.Write("x", 1));
    NOTE(_transcript, file.OpenRead(base(2047).c_str()));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 2);
}
