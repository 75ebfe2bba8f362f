// Identifiers of the tree and of the batch tools, and the serial form of the latter.

#include "ByteTexts.h"

#include "IDXWorkingID.h"
#include "IDX_WT_Identifier.h"

#include <gtest/gtest.h>

namespace {

using std::string_literals::operator""s;

/// Calls one of the two operations by the names and types under which others call them.
std::string Converted(
    IDXWorkingID& id, void (IDXWorkingID::*operation)(IDX_Base_Buffer&), const std::string& bytes) {
    IDX_Base_Buffer buffer;
    buffer.Resize(static_cast<unsigned int>(bytes.size()));
    bytes.copy(reinterpret_cast<char*>(buffer.GetDataForWriting()), bytes.size());
    (id.*operation)(buffer);
    return {reinterpret_cast<const char*>(buffer.GetData()), buffer.GetSize()};
}

std::string SerialFormOf(IDXWorkingID id) {
    return Converted(id, &IDXWorkingID::ConvertToBuffer, "what was there before is replaced");
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

/// All four fields, between bars.
std::string FieldsOf(const IDXWorkingID& id) {
    return TextOf(id.GetObjectID()) + "|" + TextOf(id.GetLogicalID()) + "|" +
           TextOf(id.GetTypeID()) + "|" + TextOf(id.GetRepositoryName());
}

/// A subclass with a use for the value beside the bytes.
struct Numbered : IDX_WT_Identifier {
    explicit Numbered(unsigned int number) { m_auxValue = number; }
    using IDX_WT_Identifier::m_auxValue;
};

TEST(Identifier, CarriesAValueBesideItsBytes) {
    Numbered first(7);
    first.GetByteArray() = ArrayOf("key");
    Numbered assigned(0);
    assigned = first;
    Numbered copy(assigned);
    EXPECT_TRUE(copy.m_auxValue == 7 && TextOf(copy.GetByteArray()) == "key");
    copy.SetData(BytesOf("other"), 5);
    EXPECT_TRUE(copy.m_auxValue == 0 && TextOf(copy.GetByteArray()) == "other");
}

/// Any two identifiers sort by this operation of their bytes; TreeRandomTest shows it.
TEST(Identifier, SortsAsUnsignedBytesThenByLength) {
    const std::string sorted[] = {"",         "\0"s,       "\0\0"s,       "a",
                                  "abcdefgh", "abcdefgha", "abcdefgi",    "ac",
                                  "bbbbbbba", "\x7f",      "\x80zzzzzzz", "\x80zzzzzzzz"};
    for (const std::string& first : sorted) {
        for (const std::string& second : sorted) {
            short order = 42;
            EXPECT_EQ(ArrayOf(first).SortCompare(ArrayOf(second), order), IDX_True);
            EXPECT_EQ(order, (&first > &second) - (&first < &second)) << first << " " << second;
        }
    }
}

TEST(WorkingID, SerialFormToTheByteAndBack) {
    const std::string form = kObject + kLogical + "\4\0\0\0PART\5\0\0\0Vault"s;
    EXPECT_EQ(SerialFormOf(SampleID()), form);
    EXPECT_EQ(SerialFormOf(IDXWorkingID()), "\0\0\0\0\0\0\0\0"s);
    for (const std::string& type : {""s, "T"s, "with\0zero"s, std::string(70000, 't')}) {
        for (const std::string& repository : {""s, "R"s, std::string(300, 'r')}) {
            IDXWorkingID id = SampleID("before", "before");
            id.SetObjectAndLogicalID(ArrayOf(std::string(32, 'b')));
            const IDXWorkingID wanted = SampleID(type, repository);
            Converted(id, &IDXWorkingID::ConvertFromBuffer, SerialFormOf(wanted));
            EXPECT_EQ(FieldsOf(id), FieldsOf(wanted));
            EXPECT_EQ(TextOf(id.GetObjectAndLogicalID()), kObject + kLogical);
        }
    }
}

TEST(WorkingID, ABadBufferResetsTheObject) {
    const std::string good = SerialFormOf(SampleID());
    std::vector<std::string> bad = {good + '\0'};
    for (std::size_t size = 0; size < good.size(); ++size) bad.push_back(good.substr(0, size));
    const std::string tail = "12345678";
    for (const std::string& lengths : {
             "\xff\xff\xff\xff" + tail,           // sums of offset and T pass 2^32
             "\xd8\xff\xff\xff" + tail,           // 40 + T = 2^32
             "\xdc\xff\xff\xff" + tail,           // 36 + T = 2^32
             "\0\0\0\x80"s + tail,                // negative as a signed number
             "\0\0\0\0\xff\xff\xff\xff"s + tail,  // R beyond the end
             "\1\0\0\0T\xd7\xff\xff\xff"s,        // 40 + T + R = 2^32
             "\2\0\0\0T\1\0\0\0R"s,               // T reaches into R
         }) {
        bad.push_back(kObject + kLogical + lengths);
    }
    for (const std::string& bytes : bad) {
        IDXWorkingID id = SampleID();
        Converted(id, &IDXWorkingID::ConvertFromBuffer, bytes);
        EXPECT_EQ(FieldsOf(id), "|||") << bytes.size() << " bytes";
    }
}

TEST(WorkingID, BothIDsFollowEveryChange) {
    const auto both = [](const IDXWorkingID& id) { return TextOf(id.GetObjectAndLogicalID()); };
    const std::string other(16, 'x');
    IDXWorkingID id = SampleID();
    EXPECT_EQ(both(id), kObject + kLogical);
    id.SetObjectID(ArrayOf(other));
    EXPECT_EQ(both(id), other + kLogical);
    id.SetLogicalID(ArrayOf(other));
    EXPECT_EQ(both(id), other + other);
    IDXWorkingID assigned = SampleID();
    EXPECT_EQ(both(assigned), kObject + kLogical);
    assigned = id;
    EXPECT_EQ(both(assigned), other + other);
    EXPECT_EQ(FieldsOf(IDXWorkingID(assigned)), FieldsOf(id));

    id.SetObjectAndLogicalID(ArrayOf(kLogical + kObject));
    EXPECT_EQ(both(id), kLogical + kObject);
    id.SetObjectID(id.GetObjectAndLogicalID());
    id.SetObjectAndLogicalID(id.GetObjectID());  // its own object id, of 32 bytes
    EXPECT_EQ(FieldsOf(id), kLogical + "|" + kObject + "|PART|Vault");
}

TEST(WorkingID, IsEqualByItsObjectIDAndGivesItsTypeAsAText) {
    IDXWorkingID other = SampleID("x", "y");
    other.SetLogicalID(ArrayOf("z"));
    EXPECT_TRUE(SampleID() == other && !(SampleID() != other));
    other.SetObjectID(ArrayOf("0123456789abcdeF"));
    EXPECT_TRUE(SampleID() != other && !(SampleID() == other));
    VEXUnicodeString type("before");
    SampleID().GetType(type);
    EXPECT_STREQ(type, "PART");
    IDXWorkingID().GetType(type);
    EXPECT_STREQ(type, "");
}

TEST(WorkingIDDeathTest, WrongSizesEndTheProcess) {
    const testing::KilledBySignal aborted(SIGABRT);
    for (const std::size_t size : {15U, 17U, 31U, 33U}) {
        const IDX_Base_ByteArray wrong = ArrayOf(std::string(size, 'x'));
        IDXWorkingID ids[] = {SampleID(), SampleID()};
        ids[0].SetObjectID(wrong);
        ids[1].SetLogicalID(wrong);
        EXPECT_EXIT(ids[0].GetObjectAndLogicalID(), aborted, "16 == this->_OID.GetSize\\(\\)\n$");
        EXPECT_EXIT(ids[1].GetObjectAndLogicalID(), aborted, "16 == this->_LID.GetSize\\(\\)\n$");
        EXPECT_EXIT(ids[0].SetObjectAndLogicalID(wrong), aborted, "32 == iBinary.GetSize\\(\\)\n$");
    }
}

}  // namespace
