// Value types, texts and the dictionary, and the services for directories, files, time, memory and
// the trace: what the files, trees and readers built on them can't show by themselves.

#include "ByteTexts.h"
#include "TemporaryFolder.h"
#include "TraceRecorder.h"

#include "IDX_Base_Buffer.h"
#include "IDX_Base_Endian.h"
#include "PLMIdxMatrix.h"
#include "VEXDirectory.h"
#include "VEXFatalError.h"
#include "VEXFile.h"
#include "VEXHashCodeIter.h"
#include "VEXMemory.h"
#include "VEXSleep.h"
#include "VEXTime.h"

#include <cstring>
#include <gtest/gtest.h>
#include <memory>

static timespec slept;

/// The program's own pause, which VEXSleep comes to: no test waits for a clock.
extern "C" __attribute__((visibility("default"))) int nanosleep(const timespec* time, timespec*) {
    slept.tv_sec += time->tv_sec;
    slept.tv_nsec += time->tv_nsec;
    return 0;
}

namespace {

using std::string_literals::operator""s;

std::string Letters(std::size_t count) {
    std::string text(count, 'a');
    for (std::size_t i = 0; i < count; ++i) text[i] = static_cast<char>('a' + i % 26);
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
    EXPECT_STREQ(std::unique_ptr<char[]>(text).get(), "001f207e7fff256e");
    testing::internal::CaptureStdout();
    array.DumpAsHexa();
    array.DumpPrintable();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "001f207e7fff256e\n.. ~..%n\n");
}

TEST(Numbers, KeepTheirBits) {
    IDX_Base_Buffer buffer;
    buffer.Resize(2);
    std::memcpy(buffer.GetDataForWriting(), "ab", 2);
    buffer.Resize(4);
    EXPECT_EQ(std::memcmp(buffer.GetData(), "ab\0\0", 4), 0);

    const unsigned char signalling[4] = {0x01, 0x00, 0xa0, 0x7f};  // a NaN when reversed
    float number = 0;
    std::memcpy(&number, signalling, sizeof number);
    IDX_Base_Endian::swap(number);
    EXPECT_EQ(std::memcmp(&number, "\x7f\xa0\x00\x01", 4), 0);
    EXPECT_EQ(IDX_Base_Endian::one(), 1);

    // 2^24 + 1 is no float: another order of the sum along x would give 2^24 + 2 or more.
    PLMIdxMatrix matrix;
    const float rows[] = {16777216, 1, 1, -16777216, 0, 1, 2, 3, 1, 0, 0, 0.5f};
    std::memcpy(matrix.coefficients, rows, sizeof rows);
    IDX_Point moved{};
    PLMIdxMatrix::Multiply(matrix, {1, 1, 1}, moved);
    EXPECT_TRUE(moved.x == 0 && moved.y == 6 && moved.z == 1.5f);
}

TEST(UnicodeString, IsUtf8) {
    const VEXUnicodeString greek("\u03b1=\u03b2\U0001F600");
    EXPECT_EQ(greek.GetLengthInByte(), 9);
    EXPECT_EQ(greek.GetLengthInChar(), 4);
    EXPECT_EQ(greek.SearchSubString("=", 2, VEXSearchForward), 2);
    EXPECT_EQ(greek.SearchSubString("=", 3, VEXSearchForward), -1);
    EXPECT_EQ(greek.SearchSubString("=", 1000, VEXSearchForward), -1);
    EXPECT_STREQ(greek.SubString(0, 2), "\u03b1");
    EXPECT_TRUE(greek.SubString(3, 100) == "\u03b2\U0001F600");
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
    EXPECT_TRUE(text == "-2147483648");
    EXPECT_FALSE(VEXUnicodeString("a\0b", 3) == "a") << "a zero byte is a character like others";
    EXPECT_TRUE(VEXUnicodeString(nullptr) == "" && VEXUnicodeString(nullptr, 3) == "");
}

/// A walk meets the first of some numbers in their order, and each is found by its place.
void ExpectHolds(const VEXHashDico& dictionary, std::vector<int>& numbers, std::size_t count) {
    VEXHashCodeIter iterator(dictionary);
    for (std::size_t i = 0; i <= numbers.size(); ++i) {
        void* const expected = i < count ? &numbers[i] : nullptr;
        ASSERT_EQ(iterator++, expected);
        ASSERT_EQ(dictionary[iterator], expected);
        ASSERT_EQ(dictionary.Locate(std::to_string(i).c_str()), expected);
    }
}

TEST(HashDico, FindsAllAndWalksInOrderOfInsertion) {
    std::vector<int> numbers(3000);
    VEXHashDico dictionary(10);
    ExpectHolds(dictionary, numbers, 0);
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        EXPECT_NE(dictionary.Insert(std::to_string(i).c_str(), &numbers[i]), 0);
    }
    const VEXHashDico copy(dictionary);
    dictionary.RemoveAll();
    ExpectHolds(copy, numbers, 3000);
    ExpectHolds(dictionary, numbers, 0);
    EXPECT_EQ(copy.Locate(VEXUnicodeString("7\0", 2)), nullptr);
    dictionary = copy;
    ExpectHolds(dictionary, numbers, 3000);
}

/// What each operation on a directory gives; opened and closed alike through both kinds of handle.
void ExpectDirectory(const std::string& path, long int expected) {
    SCOPED_TRACE(path);
    VEXUnicodeString text(path.c_str());
    VEXDirHandle handle;
    VEXDIR directory;
    EXPECT_EQ(VEXCreateDirectory(text), expected);
    EXPECT_EQ(_VEXCreateDirectory(text), expected) << "is there already, or not";
    EXPECT_EQ(VEXOpenDirectory(text, &handle), expected);
    EXPECT_EQ(VEXCloseDirectory(&handle), expected);
    for (int i = 0; i < 2; ++i) EXPECT_EQ(VEXOpenDirectory(&text, &directory), expected);
    EXPECT_EQ(VEXCloseDirectory(&directory), expected);
    EXPECT_EQ(VEXCloseDirectory(&directory), IDX_E_FAIL);
}

TEST(Directories, AreCreatedOpenedAndListed) {
    const TemporaryFolder folder;
    SetContent(folder / "file", "");
    ExpectDirectory(folder / "a/b//c/", IDX_S_OK);
    for (const std::string& path : {folder / "file", folder / "file/below", ""s}) {
        ExpectDirectory(path, IDX_E_FAIL);
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
}

TEST(Files, AreFoundAndDeleted) {
    const TemporaryFolder folder;
    VEXUnicodeString path((folder / "file").c_str());
    struct stat found;
    for (const bool byText : {false, true}) {
        SetContent(folder / "file", "12345");
        EXPECT_EQ(VEXFileStat(&path, &found, 0), IDX_S_OK);
        EXPECT_EQ(found.st_size, 5);
        EXPECT_EQ(byText ? _VEXDeleteFile(path) : VEXDeleteFile(path), IDX_S_OK);
        EXPECT_EQ(byText ? _VEXDeleteFile(path) : VEXDeleteFile(path), IDX_E_FAIL);
        EXPECT_EQ(VEXFileStat(&path, &found, 0), IDX_E_FAIL);
    }
    EXPECT_EQ(VEXDeleteFile((folder / "").c_str()), IDX_E_FAIL) << "a folder";
}

TEST(Time, IsNowInLocalTimeAndSleepsHalfMilliseconds) {
    setenv("TZ", "XYZ-5:30", 1);
    const std::time_t before = std::time(nullptr);
    const VEXTime now;
    EXPECT_TRUE(before <= now.Gettime_t() && now.Gettime_t() <= std::time(nullptr));
    const auto minutes = (now.Gettime_t() / 60 + 5 * 60 + 30) % (24 * 60);
    const VEXUnicodeString clock = now.ConvertToString("%H:%M", 0);
    EXPECT_EQ(std::atoi(clock) * 60 + std::atoi(clock.SubString(3, 2)), minutes);
    EXPECT_STREQ(now.ConvertToString("", 0), "");
    EXPECT_STREQ(now.ConvertToString(Letters(500).c_str(), 0), Letters(500).c_str());
    VEXSleep(3000);
    VEXSleep(-1);
    EXPECT_TRUE(slept.tv_sec == 1 && slept.tv_nsec == 500000000);
}

TEST(MemoryDeathTest, GivesNullOrEndsTheProcess) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{100}}) {
        VEXMemFree(std::memset(VEXMemAlloc(size), 1, size));
        VEXMemFree(std::memset(VEXUnsecuredMemAlloc(size), 1, size));
    }
    const testing::KilledBySignal aborted(SIGABRT);
#ifndef GRIDLOOM_SANITIZED  // a sanitizer stops at such a size itself
    const std::size_t tooMuch = std::size_t{1} << 62;
    EXPECT_EQ(VEXUnsecuredMemAlloc(tooMuch), nullptr);
    EXPECT_EXIT(VEXMemAlloc(tooMuch), aborted, "AssertionFailed: memory");
#endif
    EXPECT_EXIT(
        VEXFatalError("AssertionFailed: n > 0", nullptr, nullptr, nullptr, "Some.cpp", 42), aborted,
        "Some.cpp:42: AssertionFailed: n > 0");
}

TEST(Trace, FormatsLinesOfAnyLength) {
    const std::string longText(100000, 'x');
    TraceRecorder trace;
    IDX_Base_Trace::Debug("%s %d %%", "a", 5);
    IDX_Base_Trace::Info("%s", "");
    IDX_Base_Trace::Info("%s!", longText.c_str());
    EXPECT_EQ(trace.Take(), (Lines{"a 5 %", "", longText + "!"}));
}

/// At both levels, to the standard error.
void TraceAndExit(const char* level) {
    setenv("KEELSTONE_TRACE", level, 1);
    { const TraceRecorder taken; }
    IDX_Base_Trace::Info("info");
    IDX_Base_Trace::Debug("debug");
    std::exit(0);
}

TEST(TraceDeathTest, ShowsDebugWhereItIsAskedFor) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(TraceAndExit("info"), testing::ExitedWithCode(0), "^info\n$");
    EXPECT_EXIT(TraceAndExit("debug"), testing::ExitedWithCode(0), "^info\ndebug\n$");
}

}  // namespace
