// Files: values to the byte, tags of everything that can go wrong with a sound disk, limits. What sequences of
// operations give is the model's affair.

#include "ByteTexts.h"
#include "FileCase.h"
#include "Peer.h"

#include "IDX_WT_File.h"
#include "IDX_WT_Identifier.h"
#include "IDX_WT_MemFile.h"
#include "IdxFile.h"

#include <csignal>
#include <memory>

namespace {

using std::string_literals::operator""s;

class Files : public FileCase {
protected:
    void Open(IDX_WT_File& file, const std::string& path) { Expect(file.OpenWrite(path.c_str())); }

    /// Writes every second record of 16 bytes, and does what may be done to the file then.
    static bool DoStep(IDX_WT_File& file, const std::string& path, char step, char fill) {
        const std::string record(16, fill);
        switch (step) {
            case 'o':
                return file.OpenWrite(path.c_str()) == IDX_True;
            case 'f':
                return file.Flush(), true;
            case 'c':
                return file.Close() == IDX_True;
            case 'p':
                return IdxFile::SetPageMemory(0), true;
            default:
                break;
        }
        bool all = true;
        for (unsigned int at = fill % 2 == 0 ? 0 : 16; at < 8192; at += 32) {
            all = file.WriteAt(at, record.data(), 16) == IDX_True && all;
        }
        return all;
    }

    std::string _path = _folder / "file";
};

}  // namespace

TEST_F(Files, ValuesStandAsTold) {
    IDX_WT_File file;
    Open(file, _path);
    Expect(file.Write(0x01020304u));
    Expect(file.Write(ArrayOf("abc")));
    IDX_Base_String text;
    Expect(file.Write(StringOf("xyz")));
    IDX_WT_Identifier identifier;
    Expect(file.Write(identifier));
    Expect(file.WriteAt(file.GetSize(), static_cast<unsigned short>(0x0506)));
    Expect(file.WriteAt(file.GetSize(), 1.0f));
    Expect(file.Swap32At(0));
    Expect(file.Swap16At(24));
    Expect(file.SwapRealAt(28));
    file.Flush();
    EXPECT_EQ(
        ContentOf(_path),
        "\1\2\3\4"
        "\3\0\0\0abc\0"
        "\3\0\0\0xyz\0"
        "\0\0\0\0"
        "\5\6\0\0"
        "\x3f\x80\0\0"s);
    unsigned short two = 0;
    unsigned int four = 0;
    float real = 0;
    Expect(file.ReadAt(24, two));
    Expect(file.ReadAt(0, four));
    Expect(file.SwapRealAt(28));
    Expect(file.ReadAt(28, real));
    EXPECT_EQ(two, 0x0605);
    EXPECT_EQ(four, 0x04030201u);
    EXPECT_EQ(real, 1.0f);
    IDX_Base_ByteArray bytes = ArrayOf("before");
    Expect(file.ReadAt(20, bytes));
    EXPECT_EQ(bytes.GetSize(), 0u);
    Expect(file.ReadAt(8, 2, bytes));
    EXPECT_EQ(TextOf(bytes), "ab");
    Expect(file.ReadAt(8, 0, bytes));
    EXPECT_EQ(bytes.GetSize(), 0u);
    Expect(file.ReadAt(12, text));
    EXPECT_EQ(TextOf(text), "xyz");
    Expect(file.ReadAt(8, 2, text));
    EXPECT_EQ(TextOf(text), "ab");
    Expect(file.ReadAt(4, identifier));
    EXPECT_EQ(TextOf(identifier.GetByteArray()), "abc");
}

TEST_F(Files, LengthsAroundTheStackBuffer) {
    IDX_WT_File file;
    Open(file, _path);
    for (const unsigned int size : {1u, 1023u, 1024u, 1025u, 70000u}) {
        const std::string content(size, static_cast<char>(size));
        const unsigned int offset = file.GetSize();
        Expect(file.Write(ArrayOf(content)));
        IDX_Base_ByteArray bytes;
        Expect(file.ReadAt(offset, bytes));
        EXPECT_EQ(TextOf(bytes), content);
    }
}

TEST_F(Files, RefusesWhatMakesNoSense) {
    char byte = 0;
    IDX_WT_File file;
    EXPECT_EQ(file.GetSize(), 0u);
    Expect(file.Close());
    file.Flush();
    Expect(file.ReadAt(0, &byte, 1), {"IDX_WT_File.ReadAt.InvalidFile"});
    Expect(file.Write(&byte, 1), {"IDX_WT_File.Write.InvalidFile"});
    Expect(file.WriteAt(0, &byte, 1), {"IDX_WT_File.Write.InvalidFile"});
    Expect(file.OpenRead(_path.c_str()), {"IDX_WT_File.OpenRead.fopen"});
    const std::string nowhere = _folder / "no/file";
    Expect(file.OpenWrite(nowhere.c_str()), {"IDX_WT_File.OpenWrite.fopen"});

    Open(file, _path);
    Expect(file.Write(nullptr, 1), {"IDX_WT_File.Write.InvalidData"});
    Expect(file.Write(&byte, 0), {"IDX_WT_File.Write.InvalidData"});
    Expect(file.WriteAt(0, nullptr, 0), {"IDX_WT_File.Write.InvalidData"});
    Expect(file.WriteAt(0, nullptr, 4), {"IDX_WT_File.Write.InvalidData"});
    Expect(file.WriteAt(6, &byte, 0));
    EXPECT_EQ(file.GetSize(), 8u);
    Expect(file.ReadAt(0, nullptr, 1), {"IDX_WT_File.ReadAt.InvalidInputData"});
    Expect(file.ReadAt(0, &byte, 0), {"IDX_WT_File.ReadAt.InvalidInputData"});
    file.Close();
    EXPECT_EQ(ContentOf(_path), "");
}

TEST_F(Files, ReadsThatComeUpShortNameEachStep) {
    IDX_WT_File file;
    Open(file, _path);
    Expect(file.Write(100u));
    Expect(file.Write(2000u));
    Expect(file.Write(0xFFFFFFFFu));
    IDX_Base_ByteArray bytes = ArrayOf("before");
    IDX_Base_String text;
    IDX_WT_Identifier identifier;
    const auto past = [](unsigned int offset, unsigned int size) {
        return "IDX_WT_File.ReadAt.InvalidOffset[fOffset=" + std::to_string(offset) +
               ",fSize=12,dSize=" + std::to_string(static_cast<int>(size)) + "]";
    };
    const std::string array = "IDX_WT_File.ReadAt(ByteArray).ReadAt";
    const std::string string = "IDX_WT_File.ReadAt(String).ReadAt";
    Expect(file.ReadAt(12, bytes), {past(12, 4), array + "(size)"});
    EXPECT_EQ(bytes.GetSize(), 0u);
    Expect(file.ReadAt(0, bytes), {past(4, 100), array + "(data) (2)", array + "(data)"});
    Expect(file.ReadAt(4, bytes), {past(8, 2000), array + "(data) (1)", array + "(data)"});
    Expect(file.ReadAt(12, text), {past(12, 4), string + "(length)"});
    Expect(file.ReadAt(0, text), {past(4, 100), string + "(data) (2)", string + "(data)"});
    Expect(file.ReadAt(4, text), {past(8, 2000), string + "(data) (1)", string + "(data)"});
    Expect(
        file.ReadAt(0, identifier), {past(4, 100), array + "(data) (2)", array + "(data)",
                                     "IDX_WT_File.ReadAt(ID).ReadAt(ByteArray)"});
    Expect(file.Swap16At(12), {past(12, 2), "IDX_WT_File.Swap16At.ReadAt"});
    Expect(file.Swap32At(12), {past(12, 4), "IDX_WT_File.Swap32At.ReadAt"});
    Expect(file.SwapRealAt(12), {past(12, 4), "IDX_WT_File.SwapRealAt.ReadAt"});
    // Four gigabytes promised: whether the memory for them can be had or not, the last tags are these.
    EXPECT_EQ(file.ReadAt(8, bytes), IDX_False);
    const Lines tags = _trace.Take();
    ASSERT_GE(tags.size(), 2u);
    EXPECT_EQ(Lines(tags.end() - 2, tags.end()), (Lines{array + "(data) (1)", array + "(data)"}));
}

TEST_F(Files, WritesOfValuesNameEachStep) {
    SetContent(_path, std::string(8, 'x'));
    IDX_WT_File file;
    Expect(file.OpenRead(_path.c_str()));
    IDX_Base_String text;
    const IDX_WT_Identifier identifier;
    const std::string core = "IDX_WT_File.Write.InvalidFile";
    const std::string array = "IDX_WT_File.WriteAt(ByteArray).WriteAt(size)";
    const std::string string = "IDX_WT_File.WriteAt(String).WriteAt(length)";
    const std::string id = "IDX_WT_File.WriteAt(IDX_Base_Identifier).WriteAt(size)";
    Expect(
        file.Write(ArrayOf("a")), {core, array, "IDX_WT_File.Write(ByteArray).WriteAt(ByteArray)"});
    Expect(
        file.Write(text),
        {core, string, "IDX_WT_File.Write(IDX_Base_String).WriteAt(IDX_Base_String)"});
    Expect(
        file.Write(identifier),
        {core, id, "IDX_WT_File.Write(IDX_Base_Identifier).WriteAt(IDX_Base_Identifier)"});
    Expect(file.Swap16At(0), {core, "IDX_WT_File.Swap16At.WriteAt"});
    Expect(file.Swap32At(0), {core, "IDX_WT_File.Swap32At.WriteAt"});
    Expect(file.SwapRealAt(0), {core, "IDX_WT_File.SwapRealAt.WriteAt"});
}

TEST_F(Files, BreachesOfContractEndTheProcess) {
    SetContent(_path, "");
    IDX_WT_File one;
    IDX_WT_File two;
    Open(one, _path);
    EXPECT_DEATH(
        two.OpenRead(_path.c_str()),
        "AssertionFailed:NotOpened == idxFile->m_mode \\|\\| ReadOnly == idxFile->m_mode");
    one.Close();
    Expect(one.OpenRead(_path.c_str()));
    EXPECT_DEATH(
        two.OpenWrite(_path.c_str()),
        "AssertionFailed:NotOpened == idxFile->m_mode \\|\\| ReadWrite == idxFile->m_mode");

    struct NoData : IDX_Base_Identifier {
        const unsigned char* GetData() const override { return nullptr; }
        unsigned int GetSize() const override { return 1; }
    };
    one.Close();
    Open(one, _path);
    EXPECT_DEATH(one.Write(NoData()), "AssertionFailed:NULL != pData");
    Open(*std::make_unique<IDX_WT_File>(), _path);
    EXPECT_EQ(one.IsOpened(), IDX_False) << "the first that goes closes for all";
}

TEST_F(Files, OffsetsAreSigned32BitNumbers) {
    constexpr unsigned int kLimit = 0x80000000u;
    SetContent(_path, "");
    std::filesystem::resize_file(_path, kLimit);
    IDX_WT_File file;
    Expect(file.OpenRead(_path.c_str()), {"IDX_WT_File.OpenRead.fseek"});
    Expect(file.OpenRead(_path.c_str()));
    char bytes[8] = {};
    Expect(file.ReadAt(kLimit - 9, bytes, 8));
    Expect(
        file.ReadAt(kLimit - 8, bytes, 8),
        {"IDX_WT_File.ReadAt.InvalidOffset[fOffset=2147483640,fSize=0,dSize=8]"});
    Expect(file.ReadAt(kLimit, bytes, 1), {"IDX_WT_File.ReadAt.fseek[-2147483648]"});
    file.Close();
    Expect(file.OpenWrite(_path.c_str()), {"IDX_WT_File.OpenRead.fseek"});
    EXPECT_EQ(file.IsOpened(), IDX_False);

    std::filesystem::resize_file(_path, kLimit - 9);
    Open(file, _path);
    EXPECT_EQ(file.GetSize(), kLimit - 8);
    IDX_WT_Identifier identifier;
    identifier.GetByteArray() = ArrayOf("12345");
    const std::string core = "IDX_WT_File.WriteAt.fseek";
    Expect(file.Write(bytes, 8), {"IDX_WT_File.Write.fseek"});
    EXPECT_EQ(file.GetSize(), kLimit - 8);
    for (unsigned int inHand = 0; inHand < 2; ++inHand) {
        Expect(file.WriteAt(kLimit - 8, bytes, 8), {core});
        EXPECT_EQ(file.GetSize(), kLimit + 4u * inHand) << "grows before the write";
        Expect(file.Write(bytes, 1), {"IDX_WT_File.Write.fseek"});
        Expect(
            file.WriteAt(kLimit - 8, ArrayOf("12345")),
            {core, "IDX_WT_File.WriteAt(ByteArray).WriteAt(data)"});
        Expect(
            file.WriteAt(kLimit - 8, StringOf("12345")),
            {core, "IDX_WT_File.WriteAt(String).WriteAt(data)"});
        Expect(
            file.WriteAt(kLimit - 8, identifier),
            {core, "IDX_WT_File.WriteAt(IDX_Base_Identifier).WriteAt(data)"});
        Expect(file.WriteAt(kLimit - 20, bytes, 8));  // and now its page may be in hand
        Expect(file.WriteAt(kLimit - 12, bytes, 8));
    }
    Expect(file.WriteAt(kLimit - 5, bytes, 4));
    Expect(file.ReadAt(kLimit - 5, bytes, 4));
    Expect(file.WriteAt(kLimit + 4, bytes, 0), {"IDX_WT_File.WriteAt.fseek"});
    EXPECT_EQ(file.GetSize(), kLimit + 4);
    Expect(file.WriteAt(0xFFFFFFFCu, bytes, 8), {"IDX_WT_File.WriteAt.fseek"});
    EXPECT_EQ(file.GetSize(), kLimit + 4) << "an end without a 32-bit value doesn't count";
    file.Close();
    EXPECT_EQ(std::filesystem::file_size(_path), kLimit - 1);
}

TEST_F(Files, AppendedBytesReachTheFileAPageAtATime) {
    IDX_WT_File file;
    Open(file, _path);
    std::size_t end = 0;
    const std::string record(5000, 'r');
    for (const unsigned int size : {1u, 28u, 1000u, 4096u, 5000u, 27u}) {
        for (int i = 0; i < 300; ++i) {
            end = file.GetSize() + size;
            Expect(file.Write(record.data(), size));
            const std::size_t onDisk = std::filesystem::file_size(_path);
            ASSERT_TRUE(onDisk <= end && onDisk + 4096 > end) << onDisk << " of " << end;
        }
    }
    // Whoever opens it, under whatever name, finds all of it.
    IDX_WT_File other;
    Open(other, _folder / "./file");
    EXPECT_EQ(std::filesystem::file_size(_path), end);
    EXPECT_EQ(other.GetSize(), file.GetSize());
    Expect(other.Write("tail", 3));
    std::filesystem::create_hard_link(_path, _folder / "link");
    IDX_WT_File reader;
    Expect(reader.OpenRead((_folder / "link").c_str()));
    EXPECT_EQ(reader.GetSize(), other.GetSize() - 1);
    Expect(other.Write("tail", 3));
    IDX_WT_MemFile inMemory;
    Expect(inMemory.OpenWrite((_folder / "link").c_str()));
    EXPECT_EQ(inMemory.GetSize(), other.GetSize() - 1);

    // What a memory file writes back is there for all, and is the last word.
    char bytes[3];
    Expect(file.WriteAt(50, "old", 3));
    Expect(file.ReadAt(4096, bytes, 3));
    Expect(inMemory.WriteAt(4096, "new", 3));
    Expect(inMemory.Close());
    Expect(file.ReadAt(4096, bytes, 3));
    EXPECT_EQ(std::string(bytes, 3), "new");
    Expect(file.ReadAt(50, bytes, 3));
    EXPECT_EQ(std::string(bytes, 3), ContentOf(_path).substr(50, 3));
    file.Close();
    EXPECT_EQ(std::string(bytes, 3), ContentOf(_path).substr(50, 3));
}

TEST_F(Files, PaddingIsWhatTheFileHasThere) {
    IDX_WT_File file;
    Open(file, _path);
    IDX_WT_MemFile inMemory;
    Expect(inMemory.OpenWrite(_path.c_str()));
    Expect(inMemory.Write("xxxxxxxx", 8));
    Expect(inMemory.Close());
    Expect(file.Write("ab", 2));  // at the end that this entry knows
    Expect(file.Write("cd", 2));
    char bytes[8];
    Expect(file.ReadAt(0, bytes, 8));
    EXPECT_EQ(std::string(bytes, 8), "abxxcdxx");
}

TEST_F(Files, ProcessesKeepTheirBytesApart) {
    // Small letters are steps of this process, capitals those of the other one.
    for (const std::string steps :
         {"oOwWfFcC", "oOWwFfcC", "oOwWFfCc", "oOwWcC", "oOwWCc", "owOWCc", "oOwfWFcC", "oOwWpC"}) {
        SCOPED_TRACE(steps);
        SetContent(_path, std::string(8192, '.'));
        IDX_WT_File file;
        Peer peer([&](char step) { return DoStep(file, _path, step, 'b'); });
        for (const char step : steps) {
            const bool isOwn = std::islower(step) != 0;
            EXPECT_TRUE(
                isOwn ? DoStep(file, _path, step, 'a') : peer.Do(static_cast<char>(step + 32)));
        }
        IdxFile::SetPageMemory(std::size_t{256} << 20U);
        file.Close();
        EXPECT_EQ(peer.End(), 0);
        std::string expected;
        for (int i = 0; i < 256; ++i) expected += std::string(16, 'b') + std::string(16, 'a');
        EXPECT_TRUE(ContentOf(_path) == expected);
    }
}

TEST_F(Files, AForkNeverWritesWhatItInherited) {
    for (const std::string steps : {"", "r", "f", "c", "p", "w", "wr", "wf", "wc", "wp"}) {
        SCOPED_TRACE(steps);
        SetContent(_path, std::string(8192, '.'));
        IDX_WT_File file;
        Open(file, _path);
        ASSERT_TRUE(DoStep(file, _path, 'w', 'a'));
        Expect(file.Write("tail", 4));
        Peer peer([&](char step) {
            char byte = 0;
            if (step != 'r') return DoStep(file, _path, step, 'b');
            return file.ReadAt(16, &byte, 1) == IDX_True && byte == ContentOf(_path)[16];
        });
        ASSERT_TRUE(DoStep(file, _path, 'w', 'c'));
        Expect(file.WriteAt(8192, "newer", 5));
        file.Flush();
        for (const char step : steps) EXPECT_TRUE(peer.Do(step));
        EXPECT_EQ(peer.End(), 0);
        file.Close();
        std::string expected;
        const char own = steps.find('w') == std::string::npos ? '.' : 'b';
        for (int i = 0; i < 256; ++i) expected += std::string(16, own) + std::string(16, 'c');
        EXPECT_TRUE(ContentOf(_path) == expected + "newer");
    }
}

TEST_F(Files, WhatADeathLosesOfAppends) {
    void (*const ends[])() = {
        [] { std::exit(0); }, [] { std::raise(SIGKILL); }, [] { std::abort(); },
        [] { (void)IDX_WT_File().OpenRead("open"); }};
    std::string expected;
    for (unsigned int i = 0; i < 7000; ++i) expected += std::to_string(100000 + i) + "\n\0"s;
    std::filesystem::current_path(_folder / "");
    for (const auto end : ends) {
        std::filesystem::remove("open");
        const auto child = [&] {
            static auto* const file = new IDX_WT_File;  // left open
            file->OpenWrite("open");
            for (int i = 0; i < 7000; ++i) file->Write(expected.data() + 8 * i, 7);
            end();
        };
        EXPECT_EXIT(
            child(), [](int) { return true; }, "");
        const std::string content = ContentOf("open");
        EXPECT_TRUE(expected.starts_with(content));
        EXPECT_GT(content.size() + (end == ends[0] ? 2 : 4096), expected.size());
    }
}

TEST_F(Files, TheMemoryForPagesMayChangeAtAnyMoment) {
    IDX_WT_File files[3];
    std::string paths[3];
    for (int i = 0; i < 3; ++i)
        SetContent(paths[i] = _path + std::to_string(i), std::string(3u << 20U, '.'));
    unsigned int value = 0;
    for (const std::size_t nPages : {600u, 65536u, 0u, 5000u, 17u, 16u, 1u, 513u, 65536u}) {
        for (int i = 0; i < 3; ++i) Open(files[i], paths[i]);
        for (unsigned int page = 0; page < 768; ++page) {
            Expect(files[page < 16 ? 0 : page % 3].WriteAt(page * 4096, page));
            Expect(files[page < 16 ? 0 : (page + 1) % 3].ReadAt(page * 4096, value));
        }
        files[nPages % 2].Close();  // and with it the pages that were taken first
        IdxFile::SetPageMemory(nPages * 4096);
        Expect(files[2].ReadAt(17 * 4096, value));
        EXPECT_EQ(value, 17u);
    }
    IdxFile::SetPageMemory(std::size_t{256} << 20U);
}

TEST_F(Files, FullDevicesAreNoticedAtTheSameWriteAsByAStream) {
    IDX_WT_File file;
    Open(file, "/dev/full");
    const std::string much(100000, 'x');
    Expect(file.Write(much.data(), 100000), {"IDX_WT_File.Write.fwrite"});
    EXPECT_EQ(file.GetSize(), 0u);
}

TEST_F(Files, ASizeLimitRefusesTheWriteThatMeetsIt) {
    const FileSizeLimit limit(10000);
    IDX_WT_File file;
    Open(file, _path);
    for (int i = 0; i < 357; ++i) Expect(file.Write("0123456789abcdefghijklmnop", 26));
    Expect(file.Write("0123456789abcdefghijklmnop", 26), {"IDX_WT_File.Write.fwrite"});
    EXPECT_EQ(file.GetSize(), 357u * 28);
    EXPECT_EQ(std::filesystem::file_size(_path), 10000u);
}
