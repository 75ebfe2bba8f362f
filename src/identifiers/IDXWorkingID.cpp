#include "IDXWorkingID.h"

#include "common/Require.h"

#include "formats/UnalignedMemory.h"

#include <cstdint>

namespace {

constexpr unsigned int kIdSize = 16;

// The serial form, in host byte order; nothing is aligned.
//
//   0       16  object id
//  16       16  logical id
//  32        4  T, the length of the type id
//  36        T  type id
//  36 + T    4  R, the length of the repository name
//  40 + T    R  repository name
using Length = std::uint32_t;
constexpr std::size_t kObjectIdOffset = 0;
constexpr std::size_t kLogicalIdOffset = kObjectIdOffset + kIdSize;
constexpr std::size_t kTypeIdOffset = kLogicalIdOffset + kIdSize;
static_assert(kTypeIdOffset == 32 && sizeof(Length) == 4, "serial form of a working identifier");

void Clear(IDX_Base_ByteArray& oBytes) {
    oBytes.SetData(nullptr, 0);
}

void Put(unsigned char* ioData, std::uint64_t& ioOffset, const void* iBytes, std::size_t iSize) {
    std::memcpy(ioData + ioOffset, iBytes, iSize);
    ioOffset += iSize;
}

/// Puts the length of a text, and its bytes.
void PutText(unsigned char* ioData, std::uint64_t& ioOffset, const IDX_Base_String& iText) {
    const Length length = iText.GetLength();
    Put(ioData, ioOffset, &length, sizeof(length));
    Put(ioData, ioOffset, iText.GetData(), length);
}

/// Takes the length at `ioOffset`, which isn't above `iSize`, and so many bytes behind it.
/// @return false when they aren't all there
bool TakeText(
    const unsigned char* iData, std::size_t iSize, std::size_t& ioOffset, IDX_Base_String& oText) {
    if (iSize - ioOffset < sizeof(Length)) return false;
    const auto length = LoadAt<Length>(iData, ioOffset);
    ioOffset += sizeof(Length);
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
    if (_OIDAndLID.GetSize() == 0) {
        Require(kIdSize == _OID.GetSize(), "AssertionFailed:16 == this->_OID.GetSize()");
        Require(kIdSize == _LID.GetSize(), "AssertionFailed:16 == this->_LID.GetSize()");
        unsigned char both[2 * kIdSize];
        std::memcpy(both, _OID.GetData(), kIdSize);
        std::memcpy(both + kIdSize, _LID.GetData(), kIdSize);
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
    Require(2 * kIdSize == iBinary.GetSize(), "AssertionFailed:32 == iBinary.GetSize()");
    _OIDAndLID = iBinary;  // first of all: the argument may be one of the ids
    _OID.SetData(_OIDAndLID.GetData(), kIdSize);
    _LID.SetData(_OIDAndLID.GetData() + kIdSize, kIdSize);
}

void IDXWorkingID::SetTypeID(const IDX_Base_String& iTypeID) {
    _TypeID = iTypeID;
}

void IDXWorkingID::SetRepositoryName(const IDX_Base_String& iRepositoryName) {
    _RepositoryName = iRepositoryName;
}

IDX_Bool IDXWorkingID::operator==(const IDXWorkingID& iOther) const {
    short order = 0;
    if (!_OID.SortCompare(iOther._OID, order)) return IDX_False;
    return order == 0 ? IDX_True : IDX_False;
}

IDX_Bool IDXWorkingID::operator!=(const IDXWorkingID& iOther) const {
    short order = 0;
    if (!_OID.SortCompare(iOther._OID, order)) return IDX_False;
    return order != 0 ? IDX_True : IDX_False;
}

void IDXWorkingID::ConvertToBuffer(IDX_Base_Buffer& oBuffer) {
    const std::uint64_t size = std::uint64_t{_OID.GetSize()} + _LID.GetSize() +
                               _TypeID.GetLength() + _RepositoryName.GetLength() +
                               2 * sizeof(Length);
    // A buffer has a size of 32 bits.
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
    if (!_TakeFields(iBuffer.GetData(), iBuffer.GetSize())) *this = IDXWorkingID();
    Clear(_OIDAndLID);
}

/// Sets the fields one by one; false at the first that isn't whole, and for bytes behind the last.
bool IDXWorkingID::_TakeFields(const unsigned char* iData, std::size_t iSize) {
    if (iSize < kTypeIdOffset) return false;
    _OID.SetData(iData + kObjectIdOffset, kIdSize);
    _LID.SetData(iData + kLogicalIdOffset, kIdSize);
    std::size_t offset = kTypeIdOffset;
    return TakeText(iData, iSize, offset, _TypeID) &&
           TakeText(iData, iSize, offset, _RepositoryName) && offset == iSize;
}
