// Lists of identifiers and numbers beside a vector, and the stack of messages beside a plain one, on random
// sequences of operations; and lists whose memory runs out.

#include "BBDMessage.h"
#include "ByteTexts.h"

#include "IDX_WT_ListOfIDX_UInt32.h"
#include "VEXListValIDXWorkingID.h"
#include "VEXListValIDX_WT_Identifier.h"

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <functional>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using Words = std::vector<std::string>;
using Numbers = std::vector<unsigned int>;

unsigned int Random(unsigned int limit) {
    static std::mt19937 random(2718);
    return static_cast<unsigned int>(random() % limit);
}

/// Few values, so that many are equal, and some too long to lie inside an object.
std::string RandomWord() {
    const std::string value(Random(10) == 0 ? 50 : 1, static_cast<char>('a' + Random(4)));
    return value + static_cast<char>('0' + Random(3));
}

/// An identifier holds a word; those that start alike count as equal.
IDXWorkingID IdOf(const std::string& word) {
    IDXWorkingID id;
    id.SetObjectID(ArrayOf(word.substr(0, 1)));
    id.SetLogicalID(ArrayOf(word));
    return id;
}

bool StartAlike(const std::string& one, const std::string& other) {
    return one[0] == other[0];
}

/// Keeps the first of each group of equals.
template <class T, class Equals>
std::vector<T> WithoutDuplicates(const std::vector<T>& values, Equals equals) {
    std::vector<T> kept;
    for (const T& value : values) {
        const auto isEqual = [&](const T& other) { return equals(value, other); };
        if (std::none_of(kept.begin(), kept.end(), isEqual)) kept.push_back(value);
    }
    return kept;
}

void Step(VEXListValIDXWorkingID& list, Words& words) {
    const std::string word = RandomWord();
    const int from = static_cast<int>(Random(static_cast<unsigned>(list.Size()) + 4)) - 2;
    auto found = words.begin() + std::min(std::max(from, 1) - 1, list.Size());
    while (found != words.end() && !StartAlike(*found, word)) ++found;
    const auto position = static_cast<int>(found - words.begin()) + 1;
    EXPECT_EQ(list.Locate(IdOf(word), from), found != words.end() ? position : 0);
    const unsigned int kind = Random(40);
    if (kind == 0) {
        list.RemoveAll(Random(2) == 0 ? VEXCollec::KeepMemory : VEXCollec::ReleaseMemory);
        words.clear();
    } else if (kind == 1) {
        const std::size_t before = words.size();
        words = WithoutDuplicates(words, StartAlike);
        EXPECT_EQ(list.RemoveDuplicates(), static_cast<int>(before - words.size()));
    } else if (kind < 26 || found == words.end()) {
        list.Append(IdOf(word));
        words.push_back(word);
    } else if (kind < 30) {
        list[position] = IdOf(word);
        *found = word;
    } else {
        list.RemovePosition(position);
        words.erase(found);
    }
}

void ExpectWords(const VEXListValIDXWorkingID& list, const Words& words) {
    ASSERT_EQ(list.Size(), static_cast<int>(words.size()));
    std::vector<IDXWorkingID> array(words.size());
    list.Array(array.data());
    for (std::size_t i = 0; i < words.size(); ++i) {
        EXPECT_EQ(TextOf(list[static_cast<int>(i) + 1].GetLogicalID()), words[i]);
        EXPECT_EQ(TextOf(array[i].GetLogicalID()), words[i]);
    }
}

TEST(WorkingIDList, BesideAVector) {
    VEXListValIDXWorkingID lists[] = {
        { },
        VEXListValIDXWorkingID(5), { 0, 7}
    };
    Words words[3];
    for (int step = 0; step < 6000 && !testing::Test::HasFailure(); ++step) {
        SCOPED_TRACE(step);
        const unsigned int one = Random(3);
        const unsigned int other = Random(3);
        Step(lists[one], words[one]);
        if (Random(10) == 0) {
            lists[one] = lists[other];
            words[one] = words[other];
        }
        const VEXListValIDXWorkingID copy(lists[other]);
        const Words copied = words[other];
        Step(lists[other], words[other]);
        ExpectWords(copy, copied);
        for (const unsigned int i : {0u, 1u, 2u}) ExpectWords(lists[i], words[i]);
        const bool areEqual = std::equal(
            words[one].begin(), words[one].end(), copied.begin(), copied.end(), StartAlike);
        EXPECT_EQ(lists[one] != copy, areEqual ? 0 : 1);
        EXPECT_EQ(lists[one] == copy, areEqual ? 1 : 0);
    }
}

TEST(IdentifierListDeathTest, GrowsByCopiesOfAFiller) {
    IDX_WT_Identifier filler;
    VEXListValIDX_WT_Identifier list;
    for (const int size : {3, 5, 5, 1, 0, 2}) {
        const int before = std::min(list.Size(), size);
        filler.SetData(BytesOf(std::to_string(size)), 1);
        EXPECT_EQ(list.Size(size, size > before ? &filler : nullptr), size);
        for (int i = before + 1; i <= size; ++i)
            EXPECT_EQ(TextOf(list[i].GetByteArray()), std::to_string(size));
    }
    VEXListValIDX_WT_Identifier other(list);
    EXPECT_TRUE(list == other);
    other[2].SetData(nullptr, 0);
    EXPECT_TRUE(list != other);
    const testing::KilledBySignal aborted(SIGABRT);
    EXPECT_EXIT(list.Size(3, nullptr), aborted, "AssertionFailed:NULL != iFiller");
    EXPECT_EXIT(list.Size(-1, nullptr), aborted, "AssertionFailed:0 <= iSize");
}

void ExpectNumbers(const IDX_WT_ListOfIDX_UInt32& list, const Numbers& numbers) {
    ASSERT_EQ(list.Size(), numbers.size());
    unsigned int value = 42;
    EXPECT_FALSE(list.Get(list.Size(), value));
    EXPECT_EQ(value, 42u);
    for (unsigned int i = 0; i < list.Size(); ++i) {
        EXPECT_TRUE(list.Get(i, value));
        EXPECT_EQ(value, numbers[i]);
    }
}

void Step(IDX_WT_ListOfIDX_UInt32& list, Numbers& numbers) {
    // Few values, small ones and such that are negative as signed numbers.
    const unsigned int value = Random(20) + (Random(2) == 0 ? 0u : 0xFFFFFFE0u);
    const unsigned int kind = Random(64);
    if (kind == 0) {
        list.RemoveAll();
        numbers.clear();
    } else if (kind == 1) {
        EXPECT_TRUE(list.Sort());
        std::sort(numbers.begin(), numbers.end());
    } else if (kind == 2) {
        EXPECT_TRUE(list.RemoveDuplicates());
        numbers = WithoutDuplicates(numbers, std::equal_to<>());
    } else if (kind < 10) {
        EXPECT_EQ(list.RemoveLast(), numbers.empty() ? IDX_False : IDX_True);
        if (!numbers.empty()) numbers.pop_back();
    } else if (kind < 20) {
        const unsigned int position = Random(list.Size() + 2);
        const bool isThere = position < numbers.size();
        EXPECT_EQ(list.RemovePosition(position), isThere ? IDX_True : IDX_False);
        if (isThere) numbers.erase(numbers.begin() + position);
    } else {
        EXPECT_TRUE(list.Append(value));
        numbers.push_back(value);
    }
    const bool isIn = std::count(numbers.begin(), numbers.end(), value) != 0;
    EXPECT_EQ(list.Locate(value), isIn ? IDX_True : IDX_False);
}

TEST(NumberList, BesideAVector) {
    for (const unsigned int size : {0u, 1u, 10u, 100u}) {
        IDX_WT_ListOfIDX_UInt32 list(size);
        Numbers numbers;
        for (int step = 0; step < 2000 && !testing::Test::HasFailure(); ++step) {
            SCOPED_TRACE(step);
            Step(list, numbers);
            ExpectNumbers(list, numbers);
        }
    }
}

TEST(MessageStack, BesideAPlainOne) {
    BBDMessage::Empty();
    std::deque<int> numbers;
    const auto textOf = [](int number) { return std::to_string(number) + std::string(40, ' '); };
    for (int step = 1; step < 3000; ++step) {
        if (Random(40) == 0) {
            BBDMessage::Empty();
            numbers.clear();
        }
        if (Random(5) < (step / 50 % 2 == 0 ? 4u : 1u)) {  // fills up and empties by turns
            const auto severity = static_cast<BBDMessageSeverity>(step);
            BBDMessage::Push(severity, textOf(-step).c_str(), textOf(step).c_str());
            numbers.push_back(step);
            if (numbers.size() > 10) numbers.pop_front();
        } else {
            auto severity = static_cast<BBDMessageSeverity>(-1);
            VEXString code(textOf(1).c_str());
            VEXUnicodeString text(textOf(-1).c_str());
            ASSERT_EQ(BBDMessage::Pop(severity, code, text), !numbers.empty());
            EXPECT_EQ(severity, numbers.empty() ? -1 : numbers.back());
            EXPECT_EQ(text.ConvertToChar(), textOf(severity));
            EXPECT_EQ(code.CastToCharPtr(), textOf(-severity));
            if (!numbers.empty()) numbers.pop_back();
        }
    }
}

}  // namespace

#ifndef GRIDLOOM_SANITIZED

namespace {

Numbers* blocksInNumbers = nullptr;  ///< takes the size of each block asked for, if anyone does
bool blocksAreRefused = false;

/// Notes a request; true when nothing is to be had for it.
bool IsRefused(std::size_t size) {
    Numbers* const blocks = std::exchange(blocksInNumbers, nullptr);  // its own doesn't count
    if (blocks == nullptr) return false;
    blocks->push_back(static_cast<unsigned int>(size / sizeof(unsigned int)));
    blocksInNumbers = blocks;
    return blocksAreRefused;
}

/// Does something with its blocks noted, or refused.
template <class Action>
Numbers BlocksOf(bool areRefused, Action action) {
    Numbers blocks;
    blocksAreRefused = areRefused;
    blocksInNumbers = &blocks;
    action();
    blocksInNumbers = nullptr;
    return blocks;
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_realloc(void*, std::size_t);

// The program's own, which the library calls. Nobody here touches more than the first MiB of a block.
void* malloc(std::size_t size) {
    return IsRefused(size) ? nullptr : __libc_malloc(std::min<std::size_t>(size, 1u << 20));
}
void* realloc(void* block, std::size_t size) {
    return IsRefused(size) ? nullptr : __libc_realloc(block, size);
}
}
#pragma GCC visibility pop

TEST(ListMemory, BlocksOfNumbersDoubleUpToTheLimit) {
    const auto fill = [] {
        IDX_WT_ListOfIDX_UInt32 list(0);
        for (unsigned int i = 0; i < 4; ++i) list.Append(i);
        IDX_WT_ListOfIDX_UInt32(0xFFFFFFFFu);
    };
    EXPECT_EQ(BlocksOf(false, fill), (Numbers{1, 2, 4, 0xFFFFFFFFu}));
}

TEST(ListMemory, AFailedGrowthLosesTheNumbers) {
    IDX_WT_ListOfIDX_UInt32 list(0);
    list.Append(7);
    for (const unsigned int refused : {2u, 11u}) {  // with a block, and without one
        IDX_Bool result = IDX_True;
        EXPECT_EQ(BlocksOf(true, [&] { result = list.Append(8); }), Numbers{refused});
        EXPECT_FALSE(result);
        ExpectNumbers(list, {});
        EXPECT_FALSE(list.Locate(7));
        EXPECT_FALSE(list.RemoveDuplicates());
        EXPECT_FALSE(list.RemoveLast());
        EXPECT_FALSE(list.RemovePosition(0));
        EXPECT_TRUE(list.Sort());
        list.RemoveAll();
    }
    EXPECT_EQ(BlocksOf(false, [&] { list.Append(9); }), Numbers{11});
    ExpectNumbers(list, {9});
}

TEST(ListMemoryDeathTest, WithoutAnElementOrTheFirstBlock) {
    const testing::KilledBySignal aborted(SIGABRT);
    const auto append = [] { VEXListValIDXWorkingID().Append(IDXWorkingID()); };
    EXPECT_EXIT(BlocksOf(true, append), aborted, "AssertionFailed: memory for an element");
    const auto make = [] { IDX_WT_ListOfIDX_UInt32(); };
    EXPECT_EXIT(BlocksOf(true, make), aborted, "AssertionFailed:0 != m_array");
}

#endif
