// Identifiers of the tree and of the batch tools, and the serial form of the latter.

#include "ByteTexts.h"

#include "IDXWorkingID.h"
#include "IDX_WT_Identifier.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <type_traits>

namespace {

using namespace std::string_literals;

IDX_Base_Buffer BufferOf(const std::string& bytes) {
    IDX_Base_Buffer buffer;
    buffer.Resize(static_cast<unsigned int>(bytes.size()));
    bytes.copy(reinterpret_cast<char*>(buffer.GetDataForWriting()), bytes.size());
    return buffer;
}

static_assert(
    std::is_same_v<
        decltype(&IDXWorkingID::ConvertToBuffer),
        decltype(&IDXWorkingID::ConvertFromBuffer)> &&
        std::is_same_v<
            decltype(&IDXWorkingID::ConvertToBuffer),
            void (IDXWorkingID::*)(IDX_Base_Buffer&)>,
    "called under these names by others");

void Convert(IDXWorkingID& id, const std::string& bytes) {
    IDX_Base_Buffer buffer = BufferOf(bytes);
    id.ConvertFromBuffer(buffer);
}

std::string SerialFormOf(IDXWorkingID id) {
    IDX_Base_Buffer buffer = BufferOf("what was there before is replaced");
    id.ConvertToBuffer(buffer);
    return {reinterpret_cast<const char*>(buffer.GetData()), buffer.GetSize()};
}

const std::string kObject = "0123456789abcdef";
const std::string kLogical = "ABCDEFGHIJKLMNOP";

IDXWorkingID SampleID(const std::string& type = "PART", const std::string& repository = "Vault") {
    IDXWorkingID id;
    id.SetObjectID(ArrayOf(kObject));
    id.SetLogicalID(ArrayOf(kLogical));
    id.SetTypeID(StringOf(type));
    id.SetRepositoryName(StringOf(repository));
    return id;
}

/// All four fields, told apart by bars.
std::string FieldsOf(const IDXWorkingID& id) {
    return TextOf(id.GetObjectID()) + "|" + TextOf(id.GetLogicalID()) + "|" +
           TextOf(id.GetTypeID()) + "|" + TextOf(id.GetRepositoryName());
}

/// A subclass with a use for the value beside the bytes.
class Numbered : public IDX_WT_Identifier {
public:
    explicit Numbered(unsigned int number) { m_auxValue = number; }
    unsigned int Number() const { return m_auxValue; }
};

TEST(Identifier, CarriesAValueBesideItsBytes) {
    Numbered first(7);
    first.GetByteArray() = ArrayOf("key");
    EXPECT_EQ(first.Number(), 7u) << "the bytes alone were set";
    Numbered assigned(0);
    assigned = first;
    first.SetData(BytesOf("other"), 5);
    EXPECT_EQ(first.Number(), 0u);
    EXPECT_EQ(Numbered(assigned).Number(), 7u);
    EXPECT_EQ(TextOf(Numbered(assigned).GetByteArray()), "key");
}

/// An identifier that isn't the library's: compared through the two operations alone.
class Foreign : public IDX_Base_Identifier {
public:
    explicit Foreign(const std::string& text) : _text(text) {}
    const unsigned char* GetData() const override { return BytesOf(_text); }
    unsigned int GetSize() const override { return static_cast<unsigned int>(_text.size()); }

private:
    std::string _text;
};

TEST(Identifier, SortsAsUnsignedBytesThenByLength) {
    const std::string zeros("\0\0", 2);
    const std::string sorted[] = {"",         zeros.substr(1), zeros,         "a",
                                  "abcdefgh", "abcdefgha",     "abcdefgi",    "ac",
                                  "bbbbbbba", "\x7f",          "\x80zzzzzzz", "\x80zzzzzzzz"};
    for (const std::string& first : sorted) {
        IDX_WT_Identifier own;
        own.GetByteArray() = ArrayOf(first);
        for (const std::string& second : sorted) {
            short orders[3] = {42, 42, 42};
            EXPECT_EQ(own.SortCompare(Foreign(second), orders[0]), IDX_True);
            EXPECT_EQ(Foreign(first).SortCompare(Foreign(second), orders[1]), IDX_True);
            EXPECT_EQ(ArrayOf(first).SortCompare(ArrayOf(second), orders[2]), IDX_True);
            const int expected = (&first > &second) - (&first < &second);
            for (const short order : orders) EXPECT_EQ(order, expected) << first << " " << second;
        }
    }
}

TEST(WorkingID, SerialFormToTheByte) {
    const std::string form = kObject + kLogical + "\4\0\0\0PART\5\0\0\0Vault"s;
    EXPECT_EQ(SerialFormOf(SampleID()), form);
    EXPECT_EQ(SerialFormOf(IDXWorkingID()), "\0\0\0\0\0\0\0\0"s);
}

TEST(WorkingID, ComesBackFromItsSerialForm) {
    for (const std::string& type : {""s, "T"s, "with\0zero"s, std::string(70000, 't')}) {
        for (const std::string& repository : {""s, "R"s, std::string(300, 'r')}) {
            IDXWorkingID id = SampleID("before", "before");
            id.GetObjectAndLogicalID();
            const IDXWorkingID wanted = SampleID(type, repository);
            Convert(id, SerialFormOf(wanted));
            EXPECT_EQ(FieldsOf(id), FieldsOf(wanted));
            EXPECT_EQ(TextOf(id.GetObjectAndLogicalID()), kObject + kLogical);
        }
    }
}

/// The buffer must leave nothing of what the object held.
void ExpectRefused(const std::string& bytes) {
    IDXWorkingID id = SampleID();
    id.GetObjectAndLogicalID();
    Convert(id, bytes);
    EXPECT_EQ(FieldsOf(id), "|||");
}

TEST(WorkingID, ABadBufferResetsTheObject) {
    const std::string good = SerialFormOf(SampleID());
    for (std::size_t size = 0; size < good.size(); ++size) {
        SCOPED_TRACE(size);
        ExpectRefused(good.substr(0, size));
    }
    ExpectRefused(good + '\0');
    const std::string tail = "12345678";
    const std::string badLengths[] = {
        "\xff\xff\xff\xff" + tail,           // sums of offset and T pass 2^32
        "\xd8\xff\xff\xff" + tail,           // 40 + T = 2^32
        "\xdc\xff\xff\xff" + tail,           // 36 + T = 2^32
        "\0\0\0\x80"s + tail,                // negative as a signed number
        "\0\0\0\0\xff\xff\xff\xff"s + tail,  // R beyond the end
        "\1\0\0\0T\xd7\xff\xff\xff"s,        // 40 + T + R = 2^32
        "\2\0\0\0T\1\0\0\0R"s,               // T reaches into R
    };
    for (const std::string& lengths : badLengths) ExpectRefused(kObject + kLogical + lengths);
}

TEST(WorkingID, BothIDsFollowEveryChange) {
    const std::string other(16, 'x');
    IDXWorkingID id = SampleID();
    EXPECT_EQ(TextOf(id.GetObjectAndLogicalID()), kObject + kLogical);
    id.SetObjectID(ArrayOf(other));
    EXPECT_EQ(TextOf(id.GetObjectAndLogicalID()), other + kLogical);
    id.SetLogicalID(ArrayOf(other));
    EXPECT_EQ(TextOf(id.GetObjectAndLogicalID()), other + other);
    IDXWorkingID assigned = SampleID();
    assigned.GetObjectAndLogicalID();
    assigned = id;
    EXPECT_EQ(TextOf(assigned.GetObjectAndLogicalID()), other + other);
    EXPECT_EQ(FieldsOf(IDXWorkingID(assigned)), FieldsOf(id));

    id.SetObjectAndLogicalID(ArrayOf(kLogical + kObject));
    EXPECT_EQ(TextOf(id.GetObjectAndLogicalID()), kLogical + kObject);
    id.SetObjectID(id.GetObjectAndLogicalID());
    id.SetObjectAndLogicalID(id.GetObjectID());  // its own object id, of 32 bytes
    EXPECT_EQ(FieldsOf(id), kLogical + "|" + kObject + "|PART|Vault");
}

TEST(WorkingID, OnlyTheObjectIDIsCompared) {
    IDXWorkingID other = SampleID("x", "y");
    other.SetLogicalID(ArrayOf("z"));
    EXPECT_TRUE(SampleID() == other && !(SampleID() != other));
    other.SetObjectID(ArrayOf("0123456789abcdeF"));
    EXPECT_TRUE(SampleID() != other && !(SampleID() == other));
}

TEST(WorkingID, GivesItsTypeAsAText) {
    VEXUnicodeString type("before");
    SampleID().GetType(type);
    EXPECT_STREQ(type, "PART");
    IDXWorkingID().GetType(type);
    EXPECT_STREQ(type, "");
}

/// IDs of these sizes, then the form of both.
void GiveBoth(unsigned int objectSize, unsigned int logicalSize) {
    IDXWorkingID id;
    id.SetObjectID(ArrayOf(std::string(objectSize, 'o')));
    id.SetLogicalID(ArrayOf(std::string(logicalSize, 'l')));
    id.GetObjectAndLogicalID();
}

void SetBoth(unsigned int size) {
    IDXWorkingID().SetObjectAndLogicalID(ArrayOf(std::string(size, 'b')));
}

TEST(WorkingIDDeathTest, WrongSizesEndTheProcess) {
    const char* const object = ": AssertionFailed:16 == this->_OID.GetSize\\(\\)\n$";
    const char* const logical = ": AssertionFailed:16 == this->_LID.GetSize\\(\\)\n$";
    const char* const binary = ": AssertionFailed:32 == iBinary.GetSize\\(\\)\n$";
    const testing::KilledBySignal aborted(SIGABRT);
    EXPECT_EXIT(GiveBoth(17, 16), aborted, object);
    EXPECT_EXIT(GiveBoth(16, 15), aborted, logical);
    EXPECT_EXIT(SetBoth(31), aborted, binary);
    EXPECT_EXIT(SetBoth(33), aborted, binary);
}

}  // namespace
