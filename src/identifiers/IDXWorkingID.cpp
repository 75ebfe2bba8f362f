#include "IDXWorkingID.h"

#include "common/Require.h"

#include "formats/UnalignedMemory.h"
#include "formats/WorkingIdentifier.h"

#include <cstdint>

namespace {

/// Empties an array.
void Clear(IDX_Base_ByteArray& oBytes) {
    oBytes.SetData(nullptr, 0);
}

/// Appends bytes to a serial form, and moves the offset past them.
void Put(unsigned char* ioData, std::uint64_t& ioOffset, const void* iBytes, std::size_t iSize) {
    std::memcpy(ioData + ioOffset, iBytes, iSize);
    ioOffset += iSize;
}

/// Appends a text: its length prefix, then its bytes.
void PutText(unsigned char* ioData, std::uint64_t& ioOffset, const IDX_Base_String& iText) {
    const LengthPrefix length = iText.GetLength();
    Put(ioData, ioOffset, &length, sizeof(length));
    Put(ioData, ioOffset, iText.GetData(), length);
}

/// Reads a length-prefixed text and moves the offset past it.
/// @param ioOffset  at most `iSize`
/// @return false when the bytes end before the text does
bool ReadText(
    const unsigned char* iData, std::size_t iSize, std::size_t& ioOffset, IDX_Base_String& oText) {
    // The comparisons subtract from iSize, so that a huge length can't wrap the offset round.
    if (iSize - ioOffset < kLengthPrefixSize) return false;
    const auto length = LoadAt<LengthPrefix>(iData, ioOffset);
    ioOffset += kLengthPrefixSize;
    if (iSize - ioOffset < length) return false;
    oText.SetData(reinterpret_cast<const char*>(iData + ioOffset), length);
    ioOffset += length;
    return true;
}

}  // namespace

IDXWorkingID::IDXWorkingID() = default;

IDXWorkingID::IDXWorkingID(const IDXWorkingID& iOther)
    : _OID(iOther._OID),
      _LID(iOther._LID),
      _TypeID(iOther._TypeID),
      _RepositoryName(iOther._RepositoryName) {}

IDXWorkingID& IDXWorkingID::operator=(const IDXWorkingID& iOther) {
    // The array of both ids isn't copied: it is built again when it is asked for.
    if (this != &iOther) {
        _OID = iOther._OID;
        _LID = iOther._LID;
        Clear(_OIDAndLID);
        _TypeID = iOther._TypeID;
        _RepositoryName = iOther._RepositoryName;
    }
    return *this;
}

IDXWorkingID::~IDXWorkingID() = default;

const IDX_Base_ByteArray& IDXWorkingID::GetObjectAndLogicalID() const {
    // Built at the first request and kept until an id changes.
    if (_OIDAndLID.GetSize() == 0) {
        Require(kWorkingIdSize == _OID.GetSize(), "AssertionFailed:16 == this->_OID.GetSize()");
        Require(kWorkingIdSize == _LID.GetSize(), "AssertionFailed:16 == this->_LID.GetSize()");
        unsigned char both[2 * kWorkingIdSize];
        std::memcpy(both, _OID.GetData(), kWorkingIdSize);
        std::memcpy(both + kWorkingIdSize, _LID.GetData(), kWorkingIdSize);
        _OIDAndLID.SetData(both, sizeof(both));
    }
    return _OIDAndLID;
}

void IDXWorkingID::GetType(VEXUnicodeString& oType) const {
    oType = VEXUnicodeString(_TypeID.GetData(), _TypeID.GetLength());
}

void IDXWorkingID::SetObjectID(const IDX_Base_ByteArray& iObjectID) {
    _OID = iObjectID;
    Clear(_OIDAndLID);
}

void IDXWorkingID::SetLogicalID(const IDX_Base_ByteArray& iLogicalID) {
    _LID = iLogicalID;
    Clear(_OIDAndLID);
}

void IDXWorkingID::SetObjectAndLogicalID(const IDX_Base_ByteArray& iBinary) {
    Require(2 * kWorkingIdSize == iBinary.GetSize(), "AssertionFailed:32 == iBinary.GetSize()");
    _OIDAndLID = iBinary;  // first, since the argument may be one of the two ids
    _OID.SetData(_OIDAndLID.GetData(), kWorkingIdSize);
    _LID.SetData(_OIDAndLID.GetData() + kWorkingIdSize, kWorkingIdSize);
}

void IDXWorkingID::SetTypeID(const IDX_Base_String& iTypeID) {
    _TypeID = iTypeID;
}

void IDXWorkingID::SetRepositoryName(const IDX_Base_String& iRepositoryName) {
    _RepositoryName = iRepositoryName;
}

IDX_Bool IDXWorkingID::operator==(const IDXWorkingID& iOther) const {
    short order = 0;
    if (_OID.SortCompare(iOther._OID, order) == IDX_False) return IDX_False;
    return order == 0 ? IDX_True : IDX_False;
}

IDX_Bool IDXWorkingID::operator!=(const IDXWorkingID& iOther) const {
    // Without an order the two count neither as equal nor as different.
    short order = 0;
    if (_OID.SortCompare(iOther._OID, order) == IDX_False) return IDX_False;
    return order != 0 ? IDX_True : IDX_False;
}

// The serial form is written in two passes: the first adds up the sizes, the second copies the
// fields into a buffer of exactly that size.

void IDXWorkingID::ConvertToBuffer(IDX_Base_Buffer& oBuffer) {
    const std::uint64_t size = std::uint64_t{_OID.GetSize()} + _LID.GetSize() +
                               _TypeID.GetLength() + _RepositoryName.GetLength() +
                               2 * kLengthPrefixSize;
    // The size of a buffer has 32 bits, so the sum is formed in 64 bits and checked.
    Require(size <= UINT32_MAX, "AssertionFailed:offset == size");
    oBuffer.Resize(static_cast<unsigned int>(size));
    unsigned char* data = oBuffer.GetDataForWriting();
    std::uint64_t offset = 0;
    Put(data, offset, _OID.GetData(), _OID.GetSize());
    Put(data, offset, _LID.GetData(), _LID.GetSize());
    PutText(data, offset, _TypeID);
    PutText(data, offset, _RepositoryName);
    Require(offset == size, "AssertionFailed:offset == size");
}

void IDXWorkingID::ConvertFromBuffer(IDX_Base_Buffer& iBuffer) {
    // A failure may leave some fields set, so all are emptied.
    if (!_ReadFields(iBuffer.GetData(), iBuffer.GetSize())) *this = IDXWorkingID();
    Clear(_OIDAndLID);
}

/// Sets the fields one by one. False when a field isn't whole, and when bytes follow the last
/// field.
bool IDXWorkingID::_ReadFields(const unsigned char* iData, std::size_t iSize) {
    if (iSize < kTypeIdOffset) return false;
    _OID.SetData(iData + kObjectIdOffset, kWorkingIdSize);
    _LID.SetData(iData + kLogicalIdOffset, kWorkingIdSize);
    std::size_t offset = kTypeIdOffset;
    return ReadText(iData, iSize, offset, _TypeID) &&
           ReadText(iData, iSize, offset, _RepositoryName) && offset == iSize;
}
