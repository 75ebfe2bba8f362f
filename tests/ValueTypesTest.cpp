// Value types, texts, lists and the dictionary, and the services for directories, files and time: what the files,
// trees and readers built on them can't show by themselves.

#include "ByteTexts.h"
#include "TemporaryFolder.h"

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

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

namespace {

timespec slept;

}  // namespace

/// The program's own pause, which VEXSleep comes to: no test waits for a clock.
extern "C" __attribute__((visibility("default"))) int nanosleep(const timespec* time, timespec*) {
    slept.tv_sec += time->tv_sec;
    slept.tv_nsec += time->tv_nsec;
    return 0;
}

namespace {

using namespace std::string_literals;

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
        used.SetData(used.GetData() + size / 3, size / 2);  // a part of itself
        EXPECT_EQ(TextOf(used), text.substr(size / 3, size / 2));
        EXPECT_EQ(TextOf(copy), text);
        EXPECT_EQ(TextOf(assigned), text);
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
    buffer.Resize(2);
    std::memcpy(buffer.GetDataForWriting(), "ab", 2);
    buffer.Resize(4);
    EXPECT_EQ(std::memcmp(buffer.GetData(), "ab\0\0", 4), 0);
}

TEST(Endian, ReversesTheBytesOfANumberThatAMoveWouldChange) {
    const unsigned char signalling[4] = {0x01, 0x00, 0xa0, 0x7f};  // a NaN when reversed
    float number = 0;
    std::memcpy(&number, signalling, sizeof number);
    IDX_Base_Endian::swap(number);
    EXPECT_EQ(std::memcmp(&number, "\x7f\xa0\x00\x01", 4), 0);
    IDX_Base_Endian::swap(number);
    EXPECT_EQ(std::memcmp(&number, signalling, 4), 0);
    EXPECT_EQ(IDX_Base_Endian::one(), 1);
}

TEST(Matrix, SumsFromLeftToRight) {
    PLMIdxMatrix matrix;
    IDX_Point moved{};
    // 2^24 + 1 is no float: another order of the sum along x would give 2^24 + 2 or more.
    const float rows[3][4] = {
        {16777216, 1, 1, -16777216},
        {0,        1, 2, 3        },
        {1,        0, 0, 0.5f     }
    };
    std::memcpy(matrix.coefficients, rows, sizeof rows);
    PLMIdxMatrix::Multiply(matrix, {1, 1, 1}, moved);
    const IDX_Point expected{0, 6, 1.5f};
    EXPECT_EQ(std::memcmp(&moved, &expected, sizeof moved), 0);
}

TEST(UnicodeString, IsUtf8) {
    const VEXUnicodeString greek("\u03b1=\u03b2\U0001F600");
    EXPECT_EQ(greek.GetLengthInByte(), 9);
    EXPECT_EQ(greek.GetLengthInChar(), 4);
    EXPECT_EQ(greek.SearchSubString("=", 0, VEXSearchForward), 2);
    EXPECT_EQ(greek.SearchSubString("=", 3, VEXSearchForward), -1);
    EXPECT_EQ(greek.SearchSubString("=", 1000, VEXSearchForward), -1);
    EXPECT_STREQ(greek.SubString(0, 2), "\u03b1");
    EXPECT_STREQ(greek.SubString(3, 100), "\u03b2\U0001F600");
    EXPECT_STREQ(greek.SubString(-5, -1), "");
    EXPECT_STREQ(greek.SubString(2000000000, 2000000000), "");
}

TEST(UnicodeString, BehavesAsAValue) {
    VEXUnicodeString text("abcdef", 3);
    const VEXUnicodeString copy = text;
    text.Append(text).Append("!");
    EXPECT_TRUE(copy == "abc" && copy != text);
    text = text.ConvertToChar() + 4;
    EXPECT_STREQ(text + "-" + copy, "bc!-abc");
    EXPECT_EQ(text.BuildFromNum(-2147483647 - 1, "%d"), 11);
    EXPECT_STREQ(text, "-2147483648");
    EXPECT_FALSE(VEXUnicodeString("a\0b", 3) == "a") << "a zero byte is a character like others";
    EXPECT_TRUE(VEXUnicodeString(nullptr) == "" && VEXUnicodeString(nullptr, 3) == "");
}

template <class List, class Value>
void ExpectStableList(const Value& value) {
    List list;
    std::vector<Value*> addresses;
    for (int i = 1; i <= 5000; ++i) {
        EXPECT_EQ(list.Append(i == 1 ? value : list[1]), i);
        addresses.push_back(&list[i]);
    }
    for (int i = 1; i <= 5000; ++i) ASSERT_EQ(&list[i], addresses[std::size_t(i) - 1]);
    List other(list);
    other[2] = Value();
    EXPECT_TRUE(list[2] == value);
    list = other;
    EXPECT_TRUE(list[2] == Value());
    list.RemoveAll(VEXCollec::ReleaseMemory);
    EXPECT_EQ(list.Size() + other.Size(), 5000);
}

TEST(Lists, KeepTheAddressesOfTheirElements) {
    ExpectStableList<VEXListValVEXUnicodeString>(VEXUnicodeString(Letters(90).c_str()));
    ExpectStableList<VEXListValVEXBoolean, unsigned char>(1);
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
    for (int& number : numbers) {
        const auto key = std::to_string(inserted.size());  // dies at once
        EXPECT_NE(dictionary.Insert(key.c_str(), &number), 0);
        inserted.push_back(&number);
    }
    const VEXHashDico copy(dictionary);
    dictionary.RemoveAll();
    EXPECT_EQ(Walk(copy), inserted);
    EXPECT_TRUE(Walk(dictionary).empty());
    for (std::size_t i = 0; i < inserted.size(); ++i) {
        const auto key = std::to_string(i);
        ASSERT_EQ(copy.Locate(key.c_str()), inserted[i]);
        ASSERT_EQ(dictionary.Locate(key.c_str()), nullptr);
    }
    EXPECT_EQ(copy.Locate("3000"), nullptr);
    EXPECT_EQ(copy.Locate(VEXUnicodeString("7\0", 2)), nullptr);
    dictionary = copy;
    EXPECT_EQ(Walk(dictionary), inserted);
}

/// A directory must be opened and closed alike through both kinds of handle.
void ExpectOpens(const std::string& path, bool opens) {
    const long int expected = opens ? IDX_S_OK : IDX_E_FAIL;
    VEXDirHandle handle;
    EXPECT_EQ(VEXOpenDirectory(path.c_str(), &handle), expected) << path;
    EXPECT_EQ(VEXCloseDirectory(&handle), expected);
    VEXUnicodeString text(path.c_str());
    VEXDIR directory;
    for (int twice = 0; twice < 2; ++twice)
        EXPECT_EQ(VEXOpenDirectory(&text, &directory), expected);
    EXPECT_EQ(VEXCloseDirectory(&directory), expected);
    EXPECT_EQ(VEXCloseDirectory(&directory), IDX_E_FAIL);
}

TEST(Directories, AreCreatedOpenedAndListed) {
    const TemporaryFolder folder;
    SetContent(folder / "file", "");
    EXPECT_EQ(VEXCreateDirectory((folder / "a/b//c/").c_str()), IDX_S_OK);
    EXPECT_EQ(_VEXCreateDirectory((folder / "a/b/c").c_str()), IDX_S_OK) << "is there already";
    ExpectOpens(folder / "a/b/c", true);
    ExpectOpens(folder / "missing", false);
    for (const std::string& path : {folder / "file", folder / "file/below", ""s}) {
        EXPECT_EQ(VEXCreateDirectory(path.c_str()), IDX_E_FAIL) << path;
        EXPECT_EQ(_VEXCreateDirectory(path.c_str()), IDX_E_FAIL) << path;
        ExpectOpens(path, false);
    }

    for (const char* name : {"b", "\xc3\xa4", "B", "a b", ".hidden"}) {
        SetContent(folder / "a/b/c/" + name, "");
    }
    VEXUnicodeString path((folder / "a").c_str()), next("b/c");
    EXPECT_EQ(VEXMakePath(&path, &next), IDX_S_OK);
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
    VEXUnicodeString one((folder / "one").c_str());
    const VEXUnicodeString two((folder / "two").c_str());
    struct stat found;
    EXPECT_EQ(VEXFileStat(&one, &found, 0), IDX_S_OK);
    EXPECT_EQ(found.st_size, 5);
    EXPECT_EQ(VEXDeleteFile(one), IDX_S_OK);
    EXPECT_EQ(_VEXDeleteFile(two), IDX_S_OK);
    for (const VEXUnicodeString& path : {one, two, VEXUnicodeString((folder / "").c_str())}) {
        EXPECT_EQ(VEXDeleteFile(path), IDX_E_FAIL);
        EXPECT_EQ(_VEXDeleteFile(path), IDX_E_FAIL);
    }
    EXPECT_EQ(VEXFileStat(&one, &found, 0), IDX_E_FAIL);
}

TEST(Time, IsNowInLocalTime) {
    setenv("TZ", "XYZ-5:30", 1);
    const std::time_t before = std::time(nullptr);
    const VEXTime now;
    EXPECT_GE(now.Gettime_t(), before);
    EXPECT_LE(now.Gettime_t(), std::time(nullptr));
    const auto minutes = (now.Gettime_t() / 60 + 5 * 60 + 30) % (24 * 60);
    const VEXUnicodeString clock = now.ConvertToString("%H:%M", 0);
    EXPECT_EQ(std::atoi(clock) * 60 + std::atoi(clock.SubString(3, 2)), minutes);
    EXPECT_STREQ(now.ConvertToString("", 0), "");
    EXPECT_STREQ(now.ConvertToString(Letters(500).c_str(), 0), Letters(500).c_str());
}

TEST(Time, SleepsHalfMilliseconds) {
    slept = {};
    VEXSleep(3000);
    VEXSleep(-1);
    EXPECT_EQ(slept.tv_sec, 1);
    EXPECT_EQ(slept.tv_nsec, 500000000);
}

TEST(MemoryDeathTest, GivesNullOrEndsTheProcess) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{100}}) {
        VEXMemFree(std::memset(VEXMemAlloc(size), 1, size));
        VEXMemFree(std::memset(VEXUnsecuredMemAlloc(size), 1, size));
    }
#ifndef GRIDLOOM_SANITIZED  // a sanitizer stops at such a size itself
    const std::size_t tooMuch = std::size_t{1} << 62;
    EXPECT_EQ(VEXUnsecuredMemAlloc(tooMuch), nullptr);
    EXPECT_EXIT(VEXMemAlloc(tooMuch), testing::KilledBySignal(SIGABRT), "AssertionFailed: memory");
#endif
}

}  // namespace
