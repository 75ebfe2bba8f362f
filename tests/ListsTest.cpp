// Lists, collections and the stack of messages. Where they have no memory: RefusedMemoryTest.

#include "BBDMessage.h"
#include "ByteTexts.h"

#include "IDX_WT_ListOfIDX_UInt32.h"
#include "VEXListValIDXWorkingID.h"
#include "VEXListValIDX_WT_Identifier.h"
#include "VEXListValVEXUnicodeString.h"
#include "VEXRawCollint.h"

#include <gtest/gtest.h>
#include <vector>

namespace {

/// The logical ids of a list.
std::string WordsIn(const VEXListValIDXWorkingID& list) {
    std::string words;
    std::vector<IDXWorkingID> array(static_cast<std::size_t>(list.Size()));
    list.Array(array.data());
    for (int i = 1; i <= list.Size(); ++i) {
        words += TextOf(list[i].GetLogicalID()) + ' ';
        EXPECT_EQ(
            TextOf(array[static_cast<std::size_t>(i) - 1].GetLogicalID()),
            TextOf(list[i].GetLogicalID()));
    }
    return words;
}

/// Identifiers that start alike count as equal.
IDXWorkingID IdOf(const std::string& word) {
    IDXWorkingID id;
    id.SetObjectID(ArrayOf(word.substr(0, 1)));
    id.SetLogicalID(ArrayOf(word));
    return id;
}

TEST(WorkingIDList, OwnsCopiesThatAreEqualByTheirObjectIDs) {
    VEXListValIDXWorkingID list(0, 7);
    for (const char* word : {"a1", "b1", "a2", "c1", "b2", "a3"}) list.Append(IdOf(word));
    const std::vector<int> kPlaces = {2, 2, 2, 2, 5, 5, 5, 0, 0};  // of b from -1, 0, 1, ... on
    for (int i = 0; i < 9; ++i) EXPECT_EQ(list.Locate(IdOf("b"), i - 1), kPlaces[std::size_t(i)]);
    VEXListValIDXWorkingID copy(list);
    list = *&list;
    copy[2] = IdOf("b9");
    EXPECT_TRUE(copy == list && !(copy != list)) << "equal, not the same";
    copy.Append(IdOf("d1"));
    EXPECT_TRUE(copy != list && list != copy && !(copy == list));
    copy.RemovePosition(7);
    copy[6] = IdOf("d2");
    EXPECT_TRUE(copy != list);
    EXPECT_EQ(WordsIn(list), "a1 b1 a2 c1 b2 a3 ");
    EXPECT_EQ(list.RemoveDuplicates(), 3);
    EXPECT_EQ(WordsIn(list), "a1 b1 c1 ");
    list = copy;
    for (const auto handling : {VEXCollec::KeepMemory, VEXCollec::ReleaseMemory}) {
        copy.RemoveAll(handling);
        copy.Append(list[1]);
        EXPECT_EQ(WordsIn(copy), "a1 ");
    }
    EXPECT_EQ(WordsIn(list), "a1 b9 a2 c1 b2 d2 ");
}

TEST(IdentifierListDeathTest, GrowsByCopiesOfAFiller) {
    IDX_WT_Identifier filler;
    VEXListValIDX_WT_Identifier list(5);
    for (const int size : {3, 5, 5, 1, 0, 2}) {
        const int before = list.Size();
        filler.SetData(BytesOf(std::to_string(size)), 1);
        EXPECT_EQ(list.Size(size, size > before ? &filler : nullptr), size);
        for (int i = 1; i <= size; ++i) {
            EXPECT_EQ(
                TextOf(list[i].GetByteArray()), i > before || i > 3 ? std::to_string(size) : "3");
        }
    }
    VEXListValIDX_WT_Identifier other(list);
    EXPECT_TRUE(list == other);
    other[2].SetData(nullptr, 0);
    EXPECT_TRUE(list != other);
    const testing::KilledBySignal aborted(SIGABRT);
    EXPECT_EXIT(list.Size(3, nullptr), aborted, "AssertionFailed:NULL != iFiller");
    EXPECT_EXIT(list.Size(-1, nullptr), aborted, "AssertionFailed:0 <= iSize");
}

TEST(NumberList, HoldsUnsignedNumbers) {
    using Numbers = std::vector<unsigned int>;
    IDX_WT_ListOfIDX_UInt32 list(1);
    const auto numbers = [&list] {
        Numbers all(list.Size());
        for (unsigned int i = 0; i < list.Size(); ++i) EXPECT_TRUE(list.Get(i, all[i]));
        return all;
    };
    for (const unsigned int number : {5u, 1u, 0xFFFFFFF0u, 5u, 3u, 5u, 1u}) list.Append(number);
    EXPECT_TRUE(list.RemoveDuplicates() && list.Locate(3) && !list.Locate(4));
    EXPECT_EQ(numbers(), (Numbers{5, 1, 0xFFFFFFF0, 3}));
    EXPECT_TRUE(list.Sort());
    EXPECT_EQ(numbers(), (Numbers{1, 3, 5, 0xFFFFFFF0}));
    unsigned int number = 42;
    EXPECT_FALSE(list.RemovePosition(4) || list.Get(4, number));
    EXPECT_TRUE(list.RemovePosition(1) && list.RemoveLast());
    EXPECT_EQ(numbers(), (Numbers{1, 5}));
    list.RemoveAll();
    EXPECT_FALSE(
        list.RemoveLast() || list.RemovePosition(0) || list.Locate(1) || list.Get(0, number));
    EXPECT_TRUE(number == 42 && list.Size() == 0 && list.Sort() && list.RemoveDuplicates());
}

TEST(Collections, CountFromOneAndGrow) {
    int things[1000];
    VEXRawCollPV pointers(0);
    VEXRawCollint numbers(3);
    for (int i = 0; i < 1000; ++i) {
        EXPECT_EQ(pointers.Append(&things[i]), i + 1);
        EXPECT_EQ(numbers.Append(i), i + 1);
    }
    EXPECT_EQ(numbers[1000], 999);
    for (int i = 0; i < 997; ++i) pointers.RemovePosition(2);
    VEXRawCollPV copy(pointers);
    pointers[1] = nullptr;
    EXPECT_TRUE(copy.Size() == 3 && copy[1] == things && copy[3] == &things[999]);
    copy = pointers;
    EXPECT_EQ(copy.Size(1) + copy.Size(2000), 2001);
    EXPECT_TRUE(copy[1] == nullptr && copy[2] == nullptr) << "copied, and new";
    for (const auto handling : {VEXCollec::KeepMemory, VEXCollec::ReleaseMemory}) {
        copy.RemoveAll(handling);
        EXPECT_EQ(copy.Append(&things[5]), 1);
        EXPECT_EQ(copy[1], &things[5]);
    }
}

TEST(TypedLists, KeepTheAddressesOfTheirElements) {
    VEXListValVEXUnicodeString list;
    std::vector<const void*> addresses;
    for (int i = 1; i <= 5000; ++i) {
        EXPECT_EQ(list.Append(i == 1 ? "text" : list[1]), i);
        addresses.push_back(&list[i]);
    }
    for (int i = 1; i <= 5000; ++i) ASSERT_EQ(&list[i], addresses[std::size_t(i) - 1]);
    VEXListValVEXUnicodeString other(list);
    other[2] = "other";
    EXPECT_TRUE(list[2] == "text");
    list.RemoveAll(VEXCollec::ReleaseMemory);
    EXPECT_EQ(list.Size() + other.Size(), 5000);
}

TEST(MessageStack, KeepsTheTenNewest) {
    const auto push = [](int number) {
        const std::string text = std::to_string(number) + std::string(40, ' ');
        BBDMessage::Push(BBDMessageSeverity(number), ("-" + text).c_str(), text.c_str());
    };
    auto severity = BBDMessageSeverity(-1);
    VEXString code;
    VEXUnicodeString text;
    for (int number = 1; number <= 12; ++number) push(number);
    for (int number = 12; number > 2; --number) {
        ASSERT_TRUE(BBDMessage::Pop(severity, code, text));
        EXPECT_EQ(severity, number);
        EXPECT_EQ(std::atoi(text), number);
        EXPECT_EQ(std::atoi(code.CastToCharPtr()), -number);
    }
    EXPECT_FALSE(BBDMessage::Pop(severity, code, text));
    EXPECT_TRUE(severity == 3 && std::atoi(text) == 3) << "as they were";
    push(13);
    BBDMessage::Empty();
    EXPECT_FALSE(BBDMessage::Pop(severity, code, text));
}

}  // namespace
