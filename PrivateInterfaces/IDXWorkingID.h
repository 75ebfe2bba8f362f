#ifndef IDXWorkingID_h
#define IDXWorkingID_h

#include "GridloomExport.h"
#include "IDX_Base_Buffer.h"
#include "IDX_Base_ByteArray.h"
#include "IDX_Base_String.h"
#include "IDX_Bool.h"
#include "VEXUnicodeString.h"

/// The whole identity of an indexed object: an object id and a logical id of 16 bytes each, a type id
/// and the name of a repository. Owns all of it. docs/file-formats.md, "Serial form of a working
/// identifier".
///
/// One thread at a time for one object, even for reading: GetObjectAndLogicalID() keeps what it built.
class GRIDLOOM_API IDXWorkingID {
public:
    /// All fields empty.
    IDXWorkingID();
    IDXWorkingID(const IDXWorkingID& iOther);
    IDXWorkingID& operator=(const IDXWorkingID& iOther);
    ~IDXWorkingID();

    const IDX_Base_ByteArray& GetObjectID() const { return _OID; }
    const IDX_Base_ByteArray& GetLogicalID() const { return _LID; }
    const IDX_Base_String& GetTypeID() const { return _TypeID; }
    const IDX_Base_String& GetRepositoryName() const { return _RepositoryName; }

    /// Object id and logical id as 32 bytes, built at the first request. Valid until the object changes.
    /// Fatal stop when one of them hasn't 16 bytes.
    const IDX_Base_ByteArray& GetObjectAndLogicalID() const;

    /// Sets `oType` to the type id as a text.
    void GetType(VEXUnicodeString& oType) const;

    /// Any number of bytes is taken; the operations that need 16 say so.
    void SetObjectID(const IDX_Base_ByteArray& iObjectID);
    void SetLogicalID(const IDX_Base_ByteArray& iLogicalID);

    /// Sets both ids from 32 bytes. Fatal stop for any other number.
    void SetObjectAndLogicalID(const IDX_Base_ByteArray& iBinary);

    void SetTypeID(const IDX_Base_String& iTypeID);
    void SetRepositoryName(const IDX_Base_String& iRepositoryName);

    /// Compare the object ids alone.
    IDX_Bool operator==(const IDXWorkingID& iOther) const;
    IDX_Bool operator!=(const IDXWorkingID& iOther) const;

    /// Replaces the content of `oBuffer` by the serial form. It can be read back when both ids have 16
    /// bytes. Fatal stop when it would reach 2^32 bytes.
    void ConvertToBuffer(IDX_Base_Buffer& oBuffer);

    /// Takes all fields from a serial form, whatever the bytes. From a buffer that isn't one, exactly and
    /// to its last byte, all fields come out empty; the caller sees it by the empty object id.
    void ConvertFromBuffer(IDX_Base_Buffer& iBuffer);

private:
    bool _TakeFields(const unsigned char* iData, std::size_t iSize);

    IDX_Base_ByteArray _OID;                ///< object id, 16 bytes when complete
    IDX_Base_ByteArray _LID;                ///< logical id, 16 bytes when complete
    mutable IDX_Base_ByteArray _OIDAndLID;  ///< the one behind the other, or empty: not built yet
    IDX_Base_String _TypeID;                ///< without a terminator
    IDX_Base_String _RepositoryName;        ///< without a terminator
};

#endif
