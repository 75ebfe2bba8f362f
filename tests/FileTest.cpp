// Files: values to the byte, tags of everything that can go wrong with a sound disk, limits. What sequences of
// operations give is the model's affair.

#include "ByteTexts.h"
#include "FileCase.h"
#include "Transcript.h"

#include "IDX_WT_File.h"
#include "IDX_WT_Identifier.h"
#include "IdxFile.h"

#include <csignal>
#include <memory>

namespace {

using std::string_literals::operator""s;

class Files : public FileCase {
protected:
    void Open(IDX_WT_File& file, const std::string& path) { Expect(file.OpenWrite(path.c_str())); }

    std::string _path = _folder / "file";
};

}  // namespace

TEST_F(Files, ValuesToTheByte) {
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

TEST_F(Files, FailuresNameEachStep) {
    Transcript all;
    char byte = 0;
    IDX_Base_ByteArray bytes = ArrayOf("before");
    IDX_Base_String text;
    IDX_WT_Identifier id;
    const std::string nowhere = _folder / "no/file";
    IDX_WT_File file;
    all.Title("not open");
    NOTE(all, file.Close());
    NOTE(all, file.ReadAt(0, &byte, 1));
    NOTE(all, file.Write(&byte, 1));
    NOTE(all, file.WriteAt(0, &byte, 1));
    NOTE(all, file.OpenRead(_path.c_str()));
    NOTE(all, file.OpenWrite(nowhere.c_str()));
    EXPECT_EQ(file.GetSize(), 0u);

    all.Title("what makes no sense");
    file.OpenWrite(_path.c_str());
    NOTE(all, file.Write(nullptr, 1));
    NOTE(all, file.Write(&byte, 0));
    NOTE(all, file.WriteAt(0, nullptr, 0));
    NOTE(all, file.WriteAt(0, nullptr, 4));
    NOTE(all, file.WriteAt(6, &byte, 0));
    EXPECT_EQ(file.GetSize(), 8u);
    NOTE(all, file.ReadAt(0, nullptr, 1));
    NOTE(all, file.ReadAt(0, &byte, 0));
    file.Close();
    EXPECT_EQ(ContentOf(_path), "");

    all.Title("three numbers, read as lengths");
    file.OpenWrite(_path.c_str());
    for (const unsigned int length : {100u, 2000u, 0u}) file.Write(length);
    NOTE(all, file.ReadAt(12, bytes));
    EXPECT_EQ(bytes.GetSize(), 0u);
    NOTE(all, file.ReadAt(0, bytes));
    NOTE(all, file.ReadAt(4, bytes));
    NOTE(all, file.ReadAt(12, text));
    NOTE(all, file.ReadAt(0, text));
    NOTE(all, file.ReadAt(4, text));
    NOTE(all, file.ReadAt(0, id));
    NOTE(all, file.Swap16At(12));
    NOTE(all, file.Swap32At(12));
    NOTE(all, file.SwapRealAt(12));

    all.Title("open for reading");
    file.Close();
    file.OpenRead(_path.c_str());
    NOTE(all, file.Write(ArrayOf("a")));
    NOTE(all, file.Write(text));
    NOTE(all, file.Write(id));
    NOTE(all, file.Swap16At(0));
    NOTE(all, file.Swap32At(0));
    NOTE(all, file.SwapRealAt(0));
}

TEST_F(Files, ALengthOfFourGigabytes) {
    IDX_WT_File file;
    Open(file, _path);
    Expect(file.Write(0xFFFFFFFFu));
    IDX_Base_ByteArray bytes;
    EXPECT_EQ(file.ReadAt(0, bytes), IDX_False);  // with or without memory for them
    EXPECT_EQ(_trace.Take().back(), "IDX_WT_File.ReadAt(ByteArray).ReadAt(data)");
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
    Transcript all;
    char bytes[8] = {};
    IDX_WT_Identifier id;
    id.GetByteArray() = ArrayOf("12345");
    IDX_WT_File file;
    all.Title("a file of 2^31 bytes");
    SetContent(_path, "");
    std::filesystem::resize_file(_path, kLimit);
    NOTE(all, file.OpenRead(_path.c_str()));
    NOTE(all, file.OpenRead(_path.c_str()));
    NOTE(all, file.ReadAt(kLimit - 9, bytes, 8));
    NOTE(all, file.ReadAt(kLimit - 8, bytes, 8));
    NOTE(all, file.ReadAt(kLimit, bytes, 1));
    file.Close();
    NOTE(all, file.OpenWrite(_path.c_str()));
    EXPECT_EQ(file.IsOpened(), IDX_False);

    all.Title("9 bytes less");
    std::filesystem::resize_file(_path, kLimit - 9);
    NOTE(all, file.OpenWrite(_path.c_str()));
    EXPECT_EQ(file.GetSize(), kLimit - 8);
    NOTE(all, file.Write(bytes, 8));
    EXPECT_EQ(file.GetSize(), kLimit - 8);
    for (const char* where : {"from the file", "from a page that may be held"}) {
        all.Title(where);
        NOTE(all, file.WriteAt(kLimit - 8, bytes, 8));
        NOTE(all, file.Write(bytes, 1));
        NOTE(all, file.WriteAt(kLimit - 8, ArrayOf("12345")));
        NOTE(all, file.WriteAt(kLimit - 8, StringOf("12345")));
        NOTE(all, file.WriteAt(kLimit - 8, id));
        NOTE(all, file.WriteAt(kLimit - 20, bytes, 8));
        NOTE(all, file.WriteAt(kLimit - 12, bytes, 8));
    }
    EXPECT_EQ(file.GetSize(), kLimit + 4) << "grows before the write";
    NOTE(all, file.WriteAt(kLimit - 5, bytes, 4));
    NOTE(all, file.ReadAt(kLimit - 5, bytes, 4));
    NOTE(all, file.WriteAt(kLimit + 4, bytes, 0));
    NOTE(all, file.WriteAt(0xFFFFFFFCu, bytes, 8));
    EXPECT_EQ(file.GetSize(), kLimit + 4) << "an end without a 32-bit value doesn't count";
    file.Close();
    EXPECT_EQ(std::filesystem::file_size(_path), kLimit - 1);
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
