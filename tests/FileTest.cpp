// Files: values to the byte, and all that can go wrong with a sound disk. What sequences of
// operations give is compared with plain bytes in FileModelTest.

#include "ByteTexts.h"
#include "FileCase.h"

#include "IDX_WT_File.h"
#include "IDX_WT_Identifier.h"
#include "IDX_WT_MemFile.h"
#include "IdxFile.h"

#include <sys/wait.h>
#include <unistd.h>

namespace {

using std::string_literals::operator""s;

class Files : public FileFailures {
protected:
    template <class Value>
    Value Read(unsigned int offset) {
        Value value{};
        EXPECT_EQ(_file.ReadAt(offset, value), IDX_True);
        return value;
    }

    IDX_WT_File _file;
};

}  // namespace

TEST_F(Files, ValuesToTheByte) {
    _file.OpenWrite(_path.c_str());
    _file.Write(0x01020304u);
    _file.Write(ArrayOf("abc"));
    _file.Write(StringOf("xyz"));
    _file.Write(IDX_WT_Identifier());
    _file.WriteAt(_file.GetSize(), static_cast<unsigned short>(0x0506));
    _file.WriteAt(_file.GetSize(), 1.0f);
    _file.Swap32At(0);
    _file.Swap16At(24);
    _file.SwapRealAt(28);
    _file.Flush();
    EXPECT_EQ(
        ContentOf(_path),
        "\1\2\3\4"
        "\3\0\0\0abc\0"
        "\3\0\0\0xyz\0"
        "\0\0\0\0"
        "\5\6\0\0"
        "\x3f\x80\0\0"s);
    _file.SwapRealAt(28);
    EXPECT_EQ(Read<unsigned short>(24), 0x0605);
    EXPECT_EQ(Read<unsigned int>(0), 0x04030201u);
    EXPECT_EQ(Read<float>(28), 1.0f);
    EXPECT_EQ(TextOf(Read<IDX_Base_String>(12)), "xyz");
    EXPECT_EQ(TextOf(Read<IDX_WT_Identifier>(4).GetByteArray()), "abc");
    IDX_Base_ByteArray bytes;
    IDX_Base_String text;
    NOTE(_transcript, _file.ReadAt(8, 2, bytes));
    NOTE(_transcript, _file.ReadAt(8, 2, text));
    EXPECT_EQ(TextOf(bytes) + TextOf(text), "abab");
    NOTE(_transcript, _file.ReadAt(20, bytes));
    NOTE(_transcript, _file.ReadAt(8, 0, text));
    EXPECT_EQ(TextOf(bytes) + TextOf(text), "");
    for (const unsigned int size : {1u, 1023u, 1024u, 1025u, 70000u}) {  // around that of a buffer
        const std::string content(size, static_cast<char>(size));
        const unsigned int offset = _file.GetSize();
        _file.Write(ArrayOf(content));
        EXPECT_EQ(TextOf(Read<IDX_Base_ByteArray>(offset)), content);
    }
}

TEST_F(Files, RefusedOperations) {
    char byte = 0;
    NOTE(_transcript, _file.Close());
    _file.Flush();
    NOTE(_transcript, _file.ReadAt(0, &byte, 1));
    NOTE(_transcript, _file.Write(&byte, 1));
    NOTE(_transcript, _file.WriteAt(0, &byte, 1));
    NOTE(_transcript, _file.OpenRead(_path.c_str()));
    NOTE(_transcript, _file.OpenWrite((_path + "/file").c_str()));
    NOTE(_transcript, _file.OpenWrite("/dev/full"));
    NOTE(_transcript, _file.Write(std::string(100000, 'x').data(), 100000));
    EXPECT_EQ(_file.GetSize(), 0u);
    NOTE(_transcript, _file.OpenWrite(_path.c_str()));
    NOTE(_transcript, _file.Write(nullptr, 1));
    NOTE(_transcript, _file.Write(&byte, 0));
    NOTE(_transcript, _file.WriteAt(0, nullptr, 0));
    NOTE(_transcript, _file.WriteAt(0, nullptr, 4));
    NOTE(_transcript, _file.WriteAt(6, &byte, 0));
    EXPECT_EQ(_file.GetSize(), 8u);
    NOTE(_transcript, _file.ReadAt(0, nullptr, 1));
    NOTE(_transcript, _file.ReadAt(0, &byte, 0));
    _file.Close();
    EXPECT_EQ(ContentOf(_path), "");
}

TEST_F(Files, ValuesThatTheFileDoesNotHold) {
    _file.OpenWrite(_path.c_str());
    for (const unsigned int size : {100u, 2000u, 0xFFFFFFFFu}) _file.Write(size);
    IDX_Base_ByteArray bytes = ArrayOf("before");
    IDX_Base_String text;
    IDX_WT_Identifier identifier;
    NOTE(_transcript, _file.ReadAt(12, bytes));
    EXPECT_EQ(bytes.GetSize(), 0u);
    NOTE(_transcript, _file.ReadAt(0, bytes));
    NOTE(_transcript, _file.ReadAt(4, bytes));
    NOTE(_transcript, _file.ReadAt(12, text));
    NOTE(_transcript, _file.ReadAt(0, text));
    NOTE(_transcript, _file.ReadAt(4, text));
    NOTE(_transcript, _file.ReadAt(0, identifier));
    NOTE(_transcript, _file.Swap16At(12));
    NOTE(_transcript, _file.Swap32At(12));
    NOTE(_transcript, _file.SwapRealAt(12));
    // Four gigabytes are promised. What is traced depends on the memory that there is.
    EXPECT_EQ(_file.ReadAt(8, bytes), IDX_False);
}

TEST_F(Files, ValuesIntoAFileForReading) {
    SetContent(_path, std::string(8, 'x'));
    _file.OpenRead(_path.c_str());
    NOTE(_transcript, _file.Write(ArrayOf("a")));
    NOTE(_transcript, _file.Write(IDX_Base_String()));
    NOTE(_transcript, _file.Write(IDX_WT_Identifier()));
    NOTE(_transcript, _file.Swap16At(0));
    NOTE(_transcript, _file.Swap32At(0));
    NOTE(_transcript, _file.SwapRealAt(0));
}

TEST_F(Files, BreachesOfContractEndTheProcess) {
    SetContent(_path, "");
    IDX_WT_File other;
    _file.OpenWrite(_path.c_str());
    EXPECT_DEATH(
        other.OpenRead(_path.c_str()),
        "AssertionFailed:NotOpened == idxFile->m_mode \\|\\| ReadOnly == idxFile->m_mode");
    struct NoData : IDX_Base_Identifier {
        const unsigned char* GetData() const override { return nullptr; }
        unsigned int GetSize() const override { return 1; }
    };
    EXPECT_DEATH(_file.Write(NoData()), "AssertionFailed:NULL != pData");
    _file.Close();
    _file.OpenRead(_path.c_str());
    EXPECT_DEATH(
        other.OpenWrite(_path.c_str()),
        "AssertionFailed:NotOpened == idxFile->m_mode \\|\\| ReadWrite == idxFile->m_mode");
}

TEST_F(Files, OffsetsAreSigned32BitNumbers) {
    constexpr unsigned int kLimit = 0x80000000u;
    SetContent(_path, "");
    std::filesystem::resize_file(_path, kLimit);
    char bytes[8] = {};
    NOTE(_transcript, _file.OpenRead(_path.c_str()));
    NOTE(_transcript, _file.OpenRead(_path.c_str()));
    NOTE(_transcript, _file.ReadAt(kLimit - 9, bytes, 8));
    NOTE(_transcript, _file.ReadAt(kLimit - 8, bytes, 8));
    NOTE(_transcript, _file.ReadAt(kLimit, bytes, 1));
    _file.Close();
    NOTE(_transcript, _file.OpenWrite(_path.c_str()));
    EXPECT_EQ(_file.IsOpened(), IDX_False);

    std::filesystem::resize_file(_path, kLimit - 9);
    _file.OpenWrite(_path.c_str());
    IDX_WT_Identifier identifier;
    identifier.GetByteArray() = ArrayOf("12345");
    NOTE(_transcript, _file.Write(bytes, 8));
    EXPECT_EQ(_file.GetSize(), kLimit - 8);
    for (const char* page : {"on the disk", "in memory"}) {
        _transcript.Title(std::string("the last page is ") + page);
        NOTE(_transcript, _file.WriteAt(kLimit - 8, bytes, 8));
        NOTE(_transcript, _file.Write(bytes, 1));
        NOTE(_transcript, _file.WriteAt(kLimit - 8, ArrayOf("12345")));
        NOTE(_transcript, _file.WriteAt(kLimit - 8, StringOf("12345")));
        NOTE(_transcript, _file.WriteAt(kLimit - 8, identifier));
        EXPECT_EQ(_file.GetSize(), kLimit + 4) << "grows before the write";
        NOTE(_transcript, _file.WriteAt(kLimit - 20, bytes, 8));
        NOTE(_transcript, _file.WriteAt(kLimit - 12, bytes, 8));
    }
    NOTE(_transcript, _file.WriteAt(kLimit - 5, bytes, 4));
    NOTE(_transcript, _file.ReadAt(kLimit - 5, bytes, 4));
    NOTE(_transcript, _file.WriteAt(kLimit + 4, bytes, 0));
    NOTE(_transcript, _file.WriteAt(0xFFFFFFFCu, bytes, 8));
    EXPECT_EQ(_file.GetSize(), kLimit + 4) << "an end without a 32-bit value doesn't count";
    _file.Close();
    EXPECT_EQ(std::filesystem::file_size(_path), kLimit - 1);
}

TEST_F(Files, ASizeLimitRefusesTheWriteThatMeetsIt) {
    const FileSizeLimit limit(10000);
    const std::string record = "0123456789abcdefghijklmnop";
    _file.OpenWrite(_path.c_str());
    for (int i = 0; i < 357; ++i) EXPECT_EQ(_file.Write(record.data(), 26), IDX_True);
    NOTE(_transcript, _file.Write(record.data(), 26));
    EXPECT_EQ(_file.GetSize(), 357u * 28);
    EXPECT_EQ(std::filesystem::file_size(_path), 10000u);
}

TEST_F(Files, ReadsWhatAMemoryFileHasWrittenBack) {
    SetContent(_path, std::string(8192, '.'));
    _file.OpenWrite(_path.c_str());
    EXPECT_EQ(Read<unsigned int>(4096), 0x2E2E2E2Eu);
    IDX_WT_MemFile memory;
    NOTE(_transcript, memory.OpenWrite(_path.c_str()));
    NOTE(_transcript, memory.WriteAt(4096, 7u));
    NOTE(_transcript, memory.Close());
    EXPECT_EQ(Read<unsigned int>(4096), 7u);
}

/// A child of fork goes on with what it has inherited after its parent has written newer bytes.
TEST_F(Files, AForkNeverWritesWhatItInherited) {
    for (const char step : {'n', 'r', 'f', 'c', 'w', 'p'}) {
        SCOPED_TRACE(step);
        SetContent(_path, std::string(8192, '.'));
        _file.OpenWrite(_path.c_str());
        for (unsigned int at = 0; at < 8192; at += 32) _file.WriteAt(at, "old", 3);
        int start[2];
        ASSERT_EQ(pipe(start), 0);
        const pid_t child = fork();
        if (child == 0) {
            char byte = 0;
            bool good = read(start[0], &byte, 1) == 1;
            if (step == 'r') good = _file.ReadAt(0, &byte, 1) == IDX_True && byte == 'n';
            if (step == 'f') _file.Flush();
            if (step == 'c') _file.Close();
            if (step == 'p') IdxFile::SetPageMemory(0);
            if (step == 'w') good = _file.WriteAt(16, "own", 3) == IDX_True;
            std::exit(good ? 0 : 1);  // closes its files
        }
        for (unsigned int at = 0; at < 8192; at += 32) _file.WriteAt(at, "new", 3);
        _file.Flush();
        EXPECT_EQ(write(start[1], "", 1), 1);
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
        for (const int end : start) close(end);
        _file.Close();
        std::string expected;
        for (int i = 0; i < 256; ++i) expected += "new" + std::string(29, '.');
        if (step == 'w') expected.replace(16, 3, "own");
        EXPECT_TRUE(ContentOf(_path) == expected);
    }
}

TEST_F(Files, ADeathLosesLessThanAPageOfAppends) {
    std::string expected;
    for (unsigned int i = 0; i < 7000; ++i) expected += std::to_string(100000 + i) + "\n\0"s;
    const auto child = [&] {
        static auto* const file = new IDX_WT_File;  // left open
        file->OpenWrite(_path.c_str());
        for (int i = 0; i < 7000; ++i) file->Write(expected.data() + 8 * i, 7);
        std::raise(SIGKILL);
    };
    EXPECT_EXIT(child(), testing::KilledBySignal(SIGKILL), "");
    const std::string content = ContentOf(_path);
    EXPECT_TRUE(expected.starts_with(content));
    EXPECT_GT(content.size() + 4096, expected.size());
}
