#include "IDX_WT_File.h"

#include "PagedFile.h"
#include "common/Require.h"
#include "common/TraceFailure.h"

#include "IDX_Base_ByteArray.h"
#include "IDX_Base_Endian.h"
#include "IDX_Base_Identifier.h"
#include "IDX_Base_String.h"
#include "IDX_WT_Identifier.h"
#include "IdxFile.h"

#include "formats/LengthPrefix.h"
#include "formats/SplitFile.h"

#include <cerrno>
#include <cstdlib>
#include <memory>

// Three objects serve a file. IDX_WT_File has a path and checks the arguments. IdxFile has what
// belongs to the path: the stream, the mode and the size. PagedFile has the bytes of the file in
// memory, whatever its path. A device or pipe has no PagedFile; the stream serves it.
//
// The operations for values (numbers, byte arrays, strings, identifiers) call those for bytes.

namespace {

/// Values up to this size, in bytes, are read without an allocation.
constexpr unsigned int kStackSize = 1024;

// The value forms call ReadAt and WriteAt of bytes, which a derived class may override. Of what
// these give, IDX_True alone counts as success, so the tests here are `!= IDX_True`.

/// A size rounded up to a multiple of 4; `iOtherwise` when that needs more than 32 bits.
unsigned int Align(unsigned long long iSize, unsigned int iOtherwise) {
    // Close to 2^32 there is no higher multiple of 4 in 32 bits. Such a size only occurs after a
    // failed write.
    const std::size_t aligned = NextAppend(iSize);
    return aligned <= 0xFFFFFFFFULL ? static_cast<unsigned int>(aligned) : iOtherwise;
}

void SetBytes(IDX_Base_ByteArray& oValue, const unsigned char* iData, unsigned int iSize) {
    oValue.SetData(iData, iSize);
}

void SetBytes(IDX_Base_String& oValue, const unsigned char* iData, unsigned int iSize) {
    oValue.SetData(reinterpret_cast<const char*>(iData), iSize);
}

// A byte array and a string are read by the same templates. They differ in SetBytes() and in their
// tags.

/// The tags of one kind of value, one for each step that can fail.
struct ReadTags {
    const char* length;
    const char* heap;
    const char* stack;
    const char* data;  ///< traced after `heap` or `stack`
};

constexpr ReadTags kByteArrayReadTags = {
    "IDX_WT_File.ReadAt(ByteArray).ReadAt(size)", "IDX_WT_File.ReadAt(ByteArray).ReadAt(data) (1)",
    "IDX_WT_File.ReadAt(ByteArray).ReadAt(data) (2)", "IDX_WT_File.ReadAt(ByteArray).ReadAt(data)"};

constexpr ReadTags kStringReadTags = {
    "IDX_WT_File.ReadAt(String).ReadAt(length)", "IDX_WT_File.ReadAt(String).ReadAt(data) (1)",
    "IDX_WT_File.ReadAt(String).ReadAt(data) (2)", "IDX_WT_File.ReadAt(String).ReadAt(data)"};

/// Reads by way of a block on the heap; false when the read fails or there is no memory for the
/// block.
template <class Value>
bool ReadOverHeap(IDX_WT_File& ioFile, unsigned int iOffset, unsigned int iSize, Value& oValue) {
    struct Free {
        void operator()(unsigned char* iBytes) const { std::free(iBytes); }
    };
    const std::unique_ptr<unsigned char, Free> bytes(
        static_cast<unsigned char*>(std::malloc(iSize)));
    if (bytes == nullptr || ioFile.ReadAt(iOffset, bytes.get(), iSize) != IDX_True) return false;
    SetBytes(oValue, bytes.get(), iSize);
    return true;
}

/// Reads by way of a buffer on the stack.
template <class Value>
bool ReadOverStack(IDX_WT_File& ioFile, unsigned int iOffset, unsigned int iSize, Value& oValue) {
    unsigned char bytes[kStackSize];
    if (ioFile.ReadAt(iOffset, bytes, iSize) != IDX_True) return false;
    SetBytes(oValue, bytes, iSize);
    return true;
}

/// Reads `iSize` bytes, at least one. Empties the value on failure.
template <class Value>
IDX_Bool ReadBytes(
    IDX_WT_File& ioFile,
    unsigned int iOffset,
    unsigned int iSize,
    Value& oValue,
    const ReadTags& iTags) {
    if (iSize <= kStackSize) {
        if (ReadOverStack(ioFile, iOffset, iSize, oValue)) return IDX_True;
        IDX_Base_Trace::Debug("%s", iTags.stack);
    } else {
        if (ReadOverHeap(ioFile, iOffset, iSize, oValue)) return IDX_True;
        IDX_Base_Trace::Debug("%s", iTags.heap);
    }
    oValue.SetData(nullptr, 0);
    return IDX_False;
}

/// Reads a value without a length prefix. A value of no bytes needs no access to the file.
template <class Value>
IDX_Bool ReadData(
    IDX_WT_File& ioFile,
    unsigned int iOffset,
    unsigned int iSize,
    Value& oValue,
    const ReadTags& iTags) {
    if (iSize != 0) return ReadBytes(ioFile, iOffset, iSize, oValue, iTags);
    oValue.SetData(nullptr, 0);
    return IDX_True;
}

/// Reads a length-prefixed value.
template <class Value>
IDX_Bool ReadPrefixed(
    IDX_WT_File& ioFile, unsigned int iOffset, Value& oValue, const ReadTags& iTags) {
    LengthPrefix length = 0;
    if (ioFile.ReadAt(iOffset, &length, sizeof length) != IDX_True) {
        oValue.SetData(nullptr, 0);
        return TraceNo(iTags.length);
    }
    if (ReadData(ioFile, iOffset + kLengthPrefixSize, length, oValue, iTags) == IDX_False) {
        return TraceNo(iTags.data);
    }
    return IDX_True;
}

/// Writes a length-prefixed value.
IDX_Bool WritePrefixed(
    IDX_WT_File& ioFile,
    unsigned int iOffset,
    const void* iData,
    unsigned int iSize,
    const char* iSizeTag,
    const char* iDataTag) {
    if (ioFile.WriteAt(iOffset, iSize) != IDX_True) return TraceNo(iSizeTag);
    if (iSize == 0) return IDX_True;
    if (ioFile.WriteAt(iOffset + kLengthPrefixSize, iData, iSize) != IDX_True) {
        return TraceNo(iDataTag);
    }
    return IDX_True;
}

/// Reverses the bytes of a number in the file.
template <class Number>
IDX_Bool SwapAt(
    IDX_WT_File& ioFile, unsigned int iOffset, const char* iReadTag, const char* iWriteTag) {
    Number value = 0;
    if (ioFile.ReadAt(iOffset, &value, sizeof value) != IDX_True) return TraceNo(iReadTag);
    IDX_Base_Endian::swap(value);
    if (ioFile.WriteAt(iOffset, &value, sizeof value) != IDX_True) return TraceNo(iWriteTag);
    return IDX_True;
}

}  // namespace

IDX_WT_File::IDX_WT_File() : m_entry(nullptr) {}

IDX_WT_File::~IDX_WT_File() {
    IDX_WT_File::Close();
}

inline IdxFile& IDX_WT_File::Entry() const {
    // The look-up hashes the path, so its result is kept. Entries live as long as the process.
    if (m_entry == nullptr) m_entry = IdxFile::GetFile(m_path);
    return *m_entry;
}

const PagedFile* IDX_WT_File::Pages() const {
    return Entry().m_pages;
}

void IDX_WT_File::SetPath(const char* iPath) {
    m_path = iPath;
    m_entry = nullptr;
}

IDX_Bool IDX_WT_File::OpenRead(const char* iPath) {
    // The entry of the path is shared: when some object has the path open for reading, this one
    // joins it.
    SetPath(iPath);
    IdxFile& entry = Entry();
    Require(
        entry.m_mode == IdxFile::NotOpened || entry.m_mode == IdxFile::ReadOnly,
        "AssertionFailed:NotOpened == idxFile->m_mode || ReadOnly == idxFile->m_mode");
    if (entry.m_stream != nullptr) return IDX_True;
    FILE* stream = std::fopen(iPath, "rb");
    if (stream == nullptr) return TraceNo("IDX_WT_File.OpenRead.fopen");
    entry.Attach(stream, IdxFile::ReadOnly);
    if (!entry.FindEnd(entry.m_size)) return TraceNo("IDX_WT_File.OpenRead.fseek");
    return IDX_True;
}

IDX_Bool IDX_WT_File::OpenWrite(const char* iPath) {
    // Closing comes first, even for the same path: that writes its dirty bytes and takes the new
    // size.
    if (Entry().m_mode != IdxFile::NotOpened) Close();
    SetPath(iPath);
    IdxFile& entry = Entry();
    Require(
        entry.m_mode == IdxFile::NotOpened || entry.m_mode == IdxFile::ReadWrite,
        "AssertionFailed:NotOpened == idxFile->m_mode || ReadWrite == idxFile->m_mode");
    if (entry.m_stream != nullptr) return IDX_True;
    FILE* stream = std::fopen(iPath, "rb+");
    // Mode "wb+" empties a file. So it is used only when the file doesn't exist, and not when its
    // opening failed for another reason, such as too many open files.
    if (stream == nullptr && errno == ENOENT) stream = std::fopen(iPath, "wb+");
    if (stream == nullptr) return TraceNo("IDX_WT_File.OpenWrite.fopen");
    entry.Attach(stream, IdxFile::ReadWrite);
    unsigned int end = 0;
    if (!entry.FindEnd(end)) {
        entry.CloseStream();
        return TraceNo("IDX_WT_File.OpenRead.fseek");
    }
    entry.m_size = Align(end, end);  // where the next append starts
    return IDX_True;
}

IDX_Bool IDX_WT_File::Close() {
    // An empty path has no entry of its own: nothing was opened, or the path was forgotten.
    if (m_path.GetLengthInByte() != 0 && !Entry().CloseStream()) {
        IDX_Base_Trace::Debug("IDX_WT_File.Close.fclose");
    }
    return IDX_True;
}

void IDX_WT_File::ForgetPath() {
    SetPath("");
}

void IDX_WT_File::Flush() {
    // A file that is open for reading has no dirty bytes of its own.
    IdxFile& entry = Entry();
    if (entry.m_mode == IdxFile::ReadWrite && !entry.Flush()) {
        IDX_Base_Trace::Debug("IDX_WT_File.Flush.fflush");
    }
}

unsigned int IDX_WT_File::GetSize() const {
    return Entry().m_size;
}

IDX_Bool IDX_WT_File::IsOpened() const {
    return Entry().m_mode != IdxFile::NotOpened ? IDX_True : IDX_False;
}

IDX_Bool IDX_WT_File::IsReadWrite() const {
    return Entry().m_mode == IdxFile::ReadWrite ? IDX_True : IDX_False;
}

IDX_Bool IDX_WT_File::ReadAt(unsigned int iOffset, void* oData, unsigned int iDataSize) {
    IdxFile& entry = Entry();
    if (entry.m_stream == nullptr) return TraceNo("IDX_WT_File.ReadAt.InvalidFile");
    if (oData == nullptr || iDataSize == 0) {
        return TraceNo("IDX_WT_File.ReadAt.InvalidInputData");
    }
    // The bytes of most reads are in memory. A seek can fail on its own, and has its own tag.
    PagedFile* pages = entry.m_pages;
    if (pages != nullptr && pages->ReadCached(iOffset, oData, iDataSize)) return IDX_True;
    if (!entry.Seek(iOffset)) {
        IDX_Base_Trace::Debug("IDX_WT_File.ReadAt.fseek[%d]", static_cast<int>(iOffset));
        return IDX_False;
    }
    bool atEnd = false;
    if (entry.Read(iOffset, oData, iDataSize, atEnd)) return IDX_True;
    if (atEnd) {
        IDX_Base_Trace::Debug(
            "IDX_WT_File.ReadAt.InvalidOffset[fOffset=%d,fSize=%d,dSize=%d]",
            static_cast<int>(iOffset), static_cast<int>(GetSize()), static_cast<int>(iDataSize));
    } else {
        IDX_Base_Trace::Debug("IDX_WT_File.ReadAt.fread[%d]", static_cast<int>(iDataSize));
    }
    return IDX_False;
}

IDX_Bool IDX_WT_File::Write(const void* iData, unsigned int iDataSize) {
    IdxFile& entry = Entry();
    if (entry.m_mode != IdxFile::ReadWrite) return TraceNo("IDX_WT_File.Write.InvalidFile");
    if (iData == nullptr || iDataSize == 0) return TraceNo("IDX_WT_File.Write.InvalidData");
    // GetSize() is virtual: a derived class decides where an append goes.
    const unsigned int offset = GetSize();
    PagedFile* pages = entry.m_pages;
    if (pages == nullptr || !pages->WriteCached(offset, iData, iDataSize)) {
        if (!entry.Seek(offset, iDataSize)) return TraceNo("IDX_WT_File.Write.fseek");
        if (!entry.Write(offset, iData, iDataSize)) return TraceNo("IDX_WT_File.Write.fwrite");
    }
    entry.m_size = Align(0ULL + entry.m_size + iDataSize, entry.m_size);
    return IDX_True;
}

IDX_Bool IDX_WT_File::WriteAt(unsigned int iOffset, const void* iData, unsigned int iDataSize) {
    IdxFile& entry = Entry();
    if (entry.m_mode != IdxFile::ReadWrite) return TraceNo("IDX_WT_File.Write.InvalidFile");
    if (iData == nullptr) return TraceNo("IDX_WT_File.Write.InvalidData");
    // The size grows before the write and stays so when the write fails. That is part of the
    // interface.
    const unsigned long long end = 0ULL + iOffset + iDataSize;
    if (end > entry.m_size) entry.m_size = Align(end, entry.m_size);
    PagedFile* pages = entry.m_pages;
    if (pages != nullptr && iDataSize != 0 && pages->WriteCached(iOffset, iData, iDataSize)) {
        return IDX_True;
    }
    if (!entry.Seek(iOffset, iDataSize)) return TraceNo("IDX_WT_File.WriteAt.fseek");
    if (!entry.Write(iOffset, iData, iDataSize)) return TraceNo("IDX_WT_File.WriteAt.fwrite");
    return IDX_True;
}

IDX_Bool IDX_WT_File::ReadAt(unsigned int iOffset, unsigned short& oValue) {
    return ReadAt(iOffset, &oValue, sizeof oValue);
}

IDX_Bool IDX_WT_File::ReadAt(unsigned int iOffset, unsigned int& oValue) {
    return ReadAt(iOffset, &oValue, sizeof oValue);
}

IDX_Bool IDX_WT_File::ReadAt(unsigned int iOffset, float& oValue) {
    return ReadAt(iOffset, &oValue, sizeof oValue);
}

IDX_Bool IDX_WT_File::ReadAt(unsigned int iOffset, IDX_Base_ByteArray& oValue) {
    return ReadPrefixed(*this, iOffset, oValue, kByteArrayReadTags);
}

IDX_Bool IDX_WT_File::ReadAt(unsigned int iOffset, IDX_Base_String& oValue) {
    return ReadPrefixed(*this, iOffset, oValue, kStringReadTags);
}

IDX_Bool IDX_WT_File::ReadAt(unsigned int iOffset, IDX_WT_Identifier& oValue) {
    if (ReadAt(iOffset, oValue.GetByteArray()) == IDX_False) {
        return TraceNo("IDX_WT_File.ReadAt(ID).ReadAt(ByteArray)");
    }
    return IDX_True;
}

IDX_Bool IDX_WT_File::ReadAt(unsigned int iOffset, unsigned int iSize, IDX_Base_ByteArray& oValue) {
    return ReadData(*this, iOffset, iSize, oValue, kByteArrayReadTags);
}

IDX_Bool IDX_WT_File::ReadAt(unsigned int iOffset, unsigned int iSize, IDX_Base_String& oValue) {
    return ReadData(*this, iOffset, iSize, oValue, kStringReadTags);
}

// Appends of values are writes at the end, so each has the tag of its own and that of the write.

IDX_Bool IDX_WT_File::Write(unsigned int iValue) {
    return Write(&iValue, sizeof iValue);
}

IDX_Bool IDX_WT_File::Write(const IDX_Base_ByteArray& iValue) {
    if (WriteAt(GetSize(), iValue) == IDX_False) {
        return TraceNo("IDX_WT_File.Write(ByteArray).WriteAt(ByteArray)");
    }
    return IDX_True;
}

IDX_Bool IDX_WT_File::Write(const IDX_Base_String& iValue) {
    if (WriteAt(GetSize(), iValue) == IDX_False) {
        return TraceNo("IDX_WT_File.Write(IDX_Base_String).WriteAt(IDX_Base_String)");
    }
    return IDX_True;
}

IDX_Bool IDX_WT_File::Write(const IDX_Base_Identifier& iValue) {
    if (WriteAt(GetSize(), iValue) == IDX_False) {
        return TraceNo("IDX_WT_File.Write(IDX_Base_Identifier).WriteAt(IDX_Base_Identifier)");
    }
    return IDX_True;
}

IDX_Bool IDX_WT_File::WriteAt(unsigned int iOffset, unsigned short iValue) {
    return WriteAt(iOffset, &iValue, sizeof iValue);
}

IDX_Bool IDX_WT_File::WriteAt(unsigned int iOffset, unsigned int iValue) {
    return WriteAt(iOffset, &iValue, sizeof iValue);
}

IDX_Bool IDX_WT_File::WriteAt(unsigned int iOffset, float iValue) {
    return WriteAt(iOffset, &iValue, sizeof iValue);
}

IDX_Bool IDX_WT_File::WriteAt(unsigned int iOffset, const IDX_Base_ByteArray& iValue) {
    const unsigned char* data = iValue.GetData();
    const unsigned int size = iValue.GetSize();
    Require(size == 0 || data != nullptr, "AssertionFailed:NULL != data");
    return WritePrefixed(
        *this, iOffset, data, size, "IDX_WT_File.WriteAt(ByteArray).WriteAt(size)",
        "IDX_WT_File.WriteAt(ByteArray).WriteAt(data)");
}

IDX_Bool IDX_WT_File::WriteAt(unsigned int iOffset, const IDX_Base_String& iValue) {
    const char* data = iValue.GetData();
    const unsigned int length = iValue.GetLength();
    Require(length == 0 || data != nullptr, "AssertionFailed:NULL != data");
    return WritePrefixed(
        *this, iOffset, data, length, "IDX_WT_File.WriteAt(String).WriteAt(length)",
        "IDX_WT_File.WriteAt(String).WriteAt(data)");
}

IDX_Bool IDX_WT_File::WriteAt(unsigned int iOffset, const IDX_Base_Identifier& iValue) {
    const unsigned char* pData = iValue.GetData();
    const unsigned int size = iValue.GetSize();
    Require(size == 0 || pData != nullptr, "AssertionFailed:NULL != pData");
    return WritePrefixed(
        *this, iOffset, pData, size, "IDX_WT_File.WriteAt(IDX_Base_Identifier).WriteAt(size)",
        "IDX_WT_File.WriteAt(IDX_Base_Identifier).WriteAt(data)");
}

IDX_Bool IDX_WT_File::Swap16At(unsigned int iOffset) {
    return SwapAt<unsigned short>(
        *this, iOffset, "IDX_WT_File.Swap16At.ReadAt", "IDX_WT_File.Swap16At.WriteAt");
}

IDX_Bool IDX_WT_File::Swap32At(unsigned int iOffset) {
    return SwapAt<unsigned int>(
        *this, iOffset, "IDX_WT_File.Swap32At.ReadAt", "IDX_WT_File.Swap32At.WriteAt");
}

IDX_Bool IDX_WT_File::SwapRealAt(unsigned int iOffset) {
    return SwapAt<float>(
        *this, iOffset, "IDX_WT_File.SwapRealAt.ReadAt", "IDX_WT_File.SwapRealAt.WriteAt");
}
