// Value types, texts, lists and the dictionary, and the services for directories, files and time.

#include "ByteTexts.h"
#include "TemporaryFolder.h"

#include "IDX_Base_BoundingBox.h"
#include "IDX_Base_Buffer.h"
#include "IDX_Base_Endian.h"
#include "IDX_Base_Trace.h"
#include "PLMIdxMatrix.h"
#include "VEXDirectory.h"
#include "VEXFile.h"
#include "VEXHashCodeIter.h"
#include "VEXListValVEXBoolean.h"
#include "VEXListValVEXString.h"
#include "VEXMemory.h"
#include "VEXSleep.h"
#include "VEXTime.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace {

using namespace std::string_literals;

const float kNaN = std::numeric_limits<float>::quiet_NaN();
const float kInfinity = std::numeric_limits<float>::infinity();

std::string Letters(unsigned int count) {
    std::string text;
    for (unsigned int i = 0; i < count; ++i) text += static_cast<char>('a' + i % 26);
    return text;
}

TEST(ByteArray, CopiesItsContentAtEverySize) {
    IDX_Base_ByteArray used;
    for (const unsigned int size : {0u, 1u, 31u, 32u, 33u, 1000u, 20u, 33u, 0u, 40u}) {
        const std::string text = Letters(size);
        used.SetData(BytesOf(text), size);
        const IDX_Base_ByteArray copy(used);
        IDX_Base_ByteArray assigned = ArrayOf(Letters(50));
        assigned = used;
        used = *&used;
        EXPECT_EQ(TextOf(used), text);
        used.SetData(BytesOf("x"), 1);
        EXPECT_EQ(TextOf(copy), text);
        EXPECT_EQ(TextOf(assigned), text);
    }
    used.SetData(nullptr, 0);
    EXPECT_EQ(used.GetSize(), 0u);
}

TEST(ByteArray, TakesAPartOfItself) {
    for (const unsigned int size : {20u, 32u, 33u, 200u}) {
        IDX_Base_ByteArray array = ArrayOf(Letters(size));
        array.SetData(array.GetData() + 3, size - 5);
        EXPECT_EQ(TextOf(array), Letters(size).substr(3, size - 5));
    }
}

TEST(ByteArray, SortsAsUnsignedBytesThenByLength) {
    const std::string sorted[] = {
        "",
        "\0"s,
        "\0\0"s,
        "\0\1"s,
        "a",
        "aa",
        "ab",
        "b",
        "\x7f",
        "\x80",
        "\xff",
        Letters(40).insert(0, 1, '\xff'),
        Letters(41).insert(0, 1, '\xff')};
    for (const std::string& first : sorted) {
        for (const std::string& second : sorted) {
            short order = 42;
            EXPECT_EQ(ArrayOf(first).SortCompare(ArrayOf(second), order), IDX_True);
            EXPECT_EQ(order, (&first > &second) - (&first < &second));
        }
    }
}

TEST(ByteArray, Dumps) {
    const IDX_Base_ByteArray array = ArrayOf("\x00\x1f ~\x7f\xff%n"s);
    char* text = nullptr;
    array.DumpAsHexa(text);
    const std::unique_ptr<char[]> owned(text);
    EXPECT_STREQ(text, "001f207e7fff256e");
    testing::internal::CaptureStdout();
    array.DumpAsHexa();
    array.DumpPrintable();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "001f207e7fff256e\n.. ~..%n\n");
}

TEST(Buffer, KeepsWhatStaysInIt) {
    IDX_Base_Buffer buffer;
    EXPECT_EQ(buffer.GetSize(), 0u);
    buffer.Resize(2);
    std::memcpy(buffer.GetDataForWriting(), "ab", 2);
    buffer.Resize(4);
    EXPECT_EQ(std::memcmp(buffer.GetData(), "ab\0\0", 4), 0);
    buffer.Resize(1);
    EXPECT_EQ(buffer.GetSize(), 1u);
}

TEST(Endian, ReversesBytesAndKeepsThem) {
    unsigned short two = 0x0102;
    unsigned int four = 0x01020304;
    // Reversed, this is a signalling NaN, which a move as a float could change.
    const unsigned char signalling[4] = {0x01, 0x00, 0xa0, 0x7f};
    float number = 0;
    std::memcpy(&number, signalling, sizeof number);
    IDX_Base_Endian::swap(two);
    IDX_Base_Endian::swap(four);
    IDX_Base_Endian::swap(number);
    EXPECT_EQ(two, 0x0201);
    EXPECT_EQ(four, 0x04030201u);
    EXPECT_EQ(std::memcmp(&number, "\x7f\xa0\x00\x01", 4), 0);
    IDX_Base_Endian::swap(number);
    EXPECT_EQ(std::memcmp(&number, signalling, 4), 0);
    EXPECT_EQ(IDX_Base_Endian::one(), 1);
}

TEST(Matrix, SumsFromLeftToRight) {
    PLMIdxMatrix matrix;
    const IDX_Point point{3, -4, 5};
    IDX_Point moved{};
    PLMIdxMatrix::Multiply(matrix, point, moved);
    EXPECT_EQ(std::memcmp(&moved, &point, sizeof point), 0) << "a new one is the identity";
    // 2^24 + 1 is no float: another order of the sum along x would give 2^24 + 2 or more.
    matrix = {};
    const float rows[3][4] = {
        {16777216, 1, 1, -16777216},
        {0,        1, 2, 3        },
        {1,        0, 0, 0.5f     }
    };
    std::memcpy(matrix.coefficients, rows, sizeof rows);
    PLMIdxMatrix::Multiply(matrix, {1, 1, 1}, moved);
    EXPECT_EQ(moved.x, 0);
    EXPECT_EQ(moved.y, 6);
    EXPECT_EQ(moved.z, 1.5f);
}

struct BoxCase {
    const char* name;
    IDX_Base_BoundingBox first, second;
    float united[6];
    float volume;
};

const BoxCase kBoxCases[] = {
    {"apart",                 {{0, 0, 0}, {1, 1, 1}}, {{2, -3, 4}, {5, 6, 7}}, {0, -3, 0, 5, 6, 7}, 5 * 9 * 7},
    {"inside",                {{0, 0, 0}, {2, 3, 4}}, {{1, 1, 1}, {2, 2, 2}},  {0, 0, 0, 2, 3, 4},  24       },
    {"a new one",             {},                     {{1, 1, 1}, {2, 2, 2}},  {0, 0, 0, 2, 2, 2},  8        },
    {"NaN stays out",
     {{0, 0, 0}, {1, 1, 1}},
     {{kNaN, -1, kNaN}, {kNaN, kNaN, 2}},
     {0, -1, 0, 1, 1, 2},
     1 * 2 * 2                                                                                               },
    {"infinite",
     {{0, 0, 0}, {1, 1, 1}},
     {{1, 1, 1}, {kInfinity, 1, 1}},
     {0, 0, 0, kInfinity, 1, 1},
     kInfinity                                                                                               },
    {"too large for a float",
     {{0, 0, 0}, {3e20f, 3e20f, 1e-3f}},
     {{1, 1, 0}, {1, 1, 0}},
     {0, 0, 0, 3e20f, 3e20f, 1e-3f},
     kInfinity                                                                                               },
};

TEST(BoundingBox, GrowsAndMeasures) {
    for (const BoxCase& row : kBoxCases) {
        SCOPED_TRACE(row.name);
        IDX_Base_BoundingBox grown = row.first;
        grown.Union(row.second);
        EXPECT_EQ(std::memcmp(&grown, row.united, sizeof row.united), 0);
        EXPECT_EQ(grown.Volume(), row.volume);
        IDX_Base_BoundingBox into = row.second;
        IDX_Base_BoundingBox::Union(row.first, into, into);
        EXPECT_EQ(std::memcmp(&into, &grown, sizeof into), 0);
    }
}

TEST(UnicodeString, IsUtf8) {
    const VEXUnicodeString greek("\u03b1=\u03b2\U0001F600");
    EXPECT_EQ(greek.GetLengthInByte(), 9);
    EXPECT_EQ(greek.GetLengthInChar(), 4);
    const int position = greek.SearchSubString("=", 0, VEXSearchForward);
    EXPECT_EQ(position, 2);
    EXPECT_STREQ(greek.SubString(0, position), "\u03b1");
    EXPECT_STREQ(greek.SubString(position + 1, 100), "\u03b2\U0001F600");
    EXPECT_STREQ(greek.SubString(9, 1), "");
    EXPECT_STREQ(greek.SubString(-5, -1), "");
    EXPECT_STREQ(greek.SubString(2000000000, 2000000000), "");
    EXPECT_EQ(greek.SearchSubString("=", 3, VEXSearchForward), -1);
    EXPECT_EQ(greek.SearchSubString("=", 1000, VEXSearchForward), -1);
}

TEST(UnicodeString, BehavesAsAValue) {
    VEXUnicodeString text("abcdef", 3);
    const VEXUnicodeString copy = text;
    EXPECT_TRUE(text == "abc" && text == copy && text != "abcd" && text != VEXUnicodeString());
    text.Append(text).Append("!");
    EXPECT_STREQ(text, "abcabc!");
    text = text.ConvertToChar() + 4;
    EXPECT_STREQ(text + "-" + copy, "bc!-abc");
    EXPECT_EQ(text.BuildFromNum(-2147483647 - 1, "%d"), 11);
    EXPECT_STREQ(text, "-2147483648");
    EXPECT_FALSE(VEXUnicodeString("a\0b", 3) == "a") << "a zero byte is a character like others";
    EXPECT_EQ(VEXUnicodeString("a\0b", 3).GetLengthInByte(), 3);
    EXPECT_TRUE(VEXUnicodeString(nullptr) == "" && VEXUnicodeString(nullptr, 3) == "");
    VEXString narrow("one");
    const VEXString other = narrow;
    narrow = VEXString("two");
    EXPECT_STREQ(narrow.CastToCharPtr(), "two");
    EXPECT_STREQ(other.CastToCharPtr(), "one");
}

template <class List, class Value>
void ExpectStableList(const std::vector<Value>& values) {
    List list;
    std::vector<Value*> addresses;
    for (const auto handling : {VEXCollec::KeepMemory, VEXCollec::ReleaseMemory}) {
        addresses.clear();
        for (int i = 0; i < 5000; ++i) {
            const auto& value = values[static_cast<std::size_t>(i) % values.size()];
            EXPECT_EQ(list.Append(value), i + 1);
            addresses.push_back(&list[i + 1]);
        }
        for (int i = 1; i <= 5000; ++i)
            ASSERT_EQ(&list[i], addresses[static_cast<std::size_t>(i - 1)]);
        list.Append(list[2]);
        list.RemoveAll(handling);
        EXPECT_EQ(list.Size(), 0);
    }
}

TEST(Lists, KeepTheAddressesOfTheirElements) {
    ExpectStableList<VEXListValVEXString, VEXString>({"a", "b"});
    ExpectStableList<VEXListValVEXUnicodeString, VEXUnicodeString>({"a", Letters(90).c_str()});
    ExpectStableList<VEXListValVEXBoolean, unsigned char>({0, 1});
    VEXListValVEXUnicodeString first;
    first.Append("x");
    VEXListValVEXUnicodeString second(first);
    second[1] = "y";
    EXPECT_STREQ(first[1], "x");
    first = second;
    EXPECT_STREQ(first[1], "y");
}

std::vector<void*> Walk(const VEXHashDico& dictionary) {
    std::vector<void*> values;
    VEXHashCodeIter iterator(dictionary);
    while (void* value = iterator++) {
        EXPECT_EQ(dictionary[iterator], value);
        values.push_back(value);
    }
    EXPECT_EQ(iterator++, nullptr);
    EXPECT_EQ(dictionary[iterator], nullptr);
    return values;
}

TEST(HashDico, FindsAllAndWalksInOrderOfInsertion) {
    std::vector<int> numbers(3000);
    std::vector<void*> inserted;
    VEXHashDico dictionary(10);
    EXPECT_EQ(dictionary.Locate("0"), nullptr);
    EXPECT_TRUE(Walk(dictionary).empty());
    for (int& number : numbers) {
        const auto key = std::to_string(inserted.size());  // dies at once
        EXPECT_NE(dictionary.Insert(key.c_str(), &number), 0);
        inserted.push_back(&number);
    }
    EXPECT_EQ(Walk(dictionary), inserted);
    VEXHashDico copy(dictionary);
    dictionary.RemoveAll();
    EXPECT_EQ(dictionary.Locate("7"), nullptr);
    EXPECT_TRUE(Walk(dictionary).empty());
    dictionary.Insert("7", &copy);
    EXPECT_EQ(Walk(dictionary), std::vector<void*>{&copy});
    EXPECT_EQ(copy.Locate("7"), inserted[7]);
    for (std::size_t i = 0; i < inserted.size(); ++i) {
        ASSERT_EQ(copy.Locate(std::to_string(i).c_str()), inserted[i]);
    }
    EXPECT_EQ(copy.Locate("3000"), nullptr);
    EXPECT_EQ(copy.Locate(VEXUnicodeString("7\0", 2)), nullptr);
    copy = dictionary;
    EXPECT_EQ(Walk(copy), std::vector<void*>{&copy});
}

/// A directory must be opened and closed alike through both kinds of handle.
void ExpectOpens(const std::string& path, bool opens) {
    VEXDirHandle handle;
    EXPECT_EQ(VEXOpenDirectory(path.c_str(), &handle), opens ? IDX_S_OK : IDX_E_FAIL) << path;
    EXPECT_EQ(VEXCloseDirectory(&handle), opens ? IDX_S_OK : IDX_E_FAIL);
    VEXUnicodeString text(path.c_str());
    VEXDIR directory;
    EXPECT_EQ(VEXCloseDirectory(&directory), IDX_E_FAIL);
    for (int twice = 0; twice < 2; ++twice) {
        EXPECT_EQ(VEXOpenDirectory(&text, &directory), opens ? IDX_S_OK : IDX_E_FAIL) << path;
    }
    EXPECT_EQ(VEXCloseDirectory(&directory), opens ? IDX_S_OK : IDX_E_FAIL);
    EXPECT_EQ(VEXCloseDirectory(&directory), IDX_E_FAIL);
}

TEST(Directories, AreCreatedOpenedAndListed) {
    const TemporaryFolder folder;
    SetContent(folder / "file", "");
    EXPECT_EQ(VEXCreateDirectory((folder / "a/b//c/").c_str()), IDX_S_OK);
    EXPECT_EQ(_VEXCreateDirectory((folder / "a/b/c").c_str()), IDX_S_OK) << "is there already";
    for (const char* name : {"file", "file/below", ""}) {
        const std::string path = *name != '\0' ? folder / name : "";
        EXPECT_EQ(VEXCreateDirectory(path.c_str()), IDX_E_FAIL) << path;
        EXPECT_EQ(_VEXCreateDirectory(path.c_str()), IDX_E_FAIL) << path;
        ExpectOpens(path, false);
    }
    ExpectOpens(folder / "a/b/c", true);
    ExpectOpens(folder / "missing", false);

    for (const char* name : {"b", "\xc3\xa4", "B", "a b", ".hidden"}) {
        SetContent(folder / "a/b/c/" + name, "");
    }
    VEXUnicodeString path((folder / "a").c_str()), next("b/c");
    EXPECT_EQ(VEXMakePath(&path, &next), IDX_S_OK);
    EXPECT_EQ(path, (folder / "a/b/c").c_str());
    VEXListValVEXUnicodeString names;
    names.Append("old");
    EXPECT_EQ(VEXListDirectory(path, names), IDX_S_OK);
    std::string all;
    for (int i = 1; i <= names.Size(); ++i) all += std::string(names[i]) + "|";
    EXPECT_EQ(all, ".hidden|B|a b|b|\xc3\xa4|");
    path = "/missing";
    EXPECT_EQ(VEXListDirectory(path, names), IDX_E_FAIL);
    EXPECT_EQ(names.Size(), 0);

    VEXUnicodeString report("base");
    IDX_Base_Trace::GetBBDMonitorDir(report, report);
    EXPECT_STREQ(report, "base/BBDMonitor");
}

TEST(Files, AreFoundAndDeleted) {
    const TemporaryFolder folder;
    SetContent(folder / "one", "12345");
    SetContent(folder / "two", "");
    VEXUnicodeString one((folder / "one").c_str()), two((folder / "two").c_str());
    VEXUnicodeString itself((folder / "").c_str());
    struct stat found;
    EXPECT_EQ(VEXFlushInodeCache(), IDX_S_OK);
    EXPECT_EQ(VEXFileStat(&one, &found, 0), IDX_S_OK);
    EXPECT_EQ(found.st_mode & 0x8000u, 0x8000u);
    EXPECT_EQ(found.st_size, 5);
    EXPECT_EQ(VEXFileStat(&itself, &found, 0), IDX_S_OK);
    EXPECT_EQ(found.st_mode & 0x8000u, 0u);
    EXPECT_EQ(VEXDeleteFile(one), IDX_S_OK);
    EXPECT_EQ(_VEXDeleteFile(two), IDX_S_OK);
    for (const VEXUnicodeString& path : {one, two, itself}) {
        EXPECT_EQ(VEXDeleteFile(path), IDX_E_FAIL);
        EXPECT_EQ(_VEXDeleteFile(path), IDX_E_FAIL);
    }
    EXPECT_EQ(VEXFileStat(&one, &found, 0), IDX_E_FAIL);
}

TEST(Time, IsNowInLocalTime) {
    setenv("TZ", "XYZ-5:30", 1);
    const VEXTime now;
    EXPECT_NEAR(static_cast<double>(now.Gettime_t()), static_cast<double>(std::time(nullptr)), 2);
    const auto seconds = (now.Gettime_t() + 5 * 3600 + 30 * 60) % 86400;
    char expected[16];
    (void)std::snprintf(
        expected, sizeof expected, "%02d:%02d:%02d", static_cast<int>(seconds / 3600),
        static_cast<int>(seconds / 60 % 60), static_cast<int>(seconds % 60));
    EXPECT_STREQ(now.ConvertToString("%H:%M:%S", 0), expected);
    EXPECT_STREQ(now.ConvertToString("", 0), "");
    EXPECT_STREQ(now.ConvertToString(Letters(500).c_str(), 0), Letters(500).c_str());
}

TEST(Time, SleepsHalfMilliseconds) {
    const auto before = std::chrono::steady_clock::now();
    VEXSleep(40);
    VEXSleep(-1);
    const auto slept = std::chrono::steady_clock::now() - before;
    EXPECT_GE(slept, std::chrono::milliseconds(20));
    EXPECT_LT(slept, std::chrono::seconds(10));
}

TEST(MemoryDeathTest, GivesNullOrEndsTheProcess) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{100}}) {
        VEXMemFree(std::memset(VEXMemAlloc(size), 1, size));
        VEXMemFree(std::memset(VEXUnsecuredMemAlloc(size), 1, size));
    }
    VEXMemFree(nullptr);
#ifndef GRIDLOOM_SANITIZED  // a sanitizer stops at such a size itself
    const std::size_t tooMuch = std::size_t{1} << 62;
    EXPECT_EQ(VEXUnsecuredMemAlloc(tooMuch), nullptr);
    EXPECT_EXIT(VEXMemAlloc(tooMuch), testing::KilledBySignal(SIGABRT), "AssertionFailed: memory");
#endif
}

}  // namespace
