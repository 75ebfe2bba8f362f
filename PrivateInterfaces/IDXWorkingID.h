#ifndef IDXWorkingID_h
#define IDXWorkingID_h

#include "GridloomExport.h"
#include "IDX_Base_Buffer.h"
#include "IDX_Base_ByteArray.h"
#include "IDX_Base_String.h"
#include "IDX_Bool.h"
#include "VEXUnicodeString.h"

/// The full identity of an indexed object: an object id and a logical id of 16 bytes each, a type
/// id and the name of a repository. Owns its fields. docs/file-formats.md, "Serial form of a
/// working identifier".
///
/// One thread at a time for one object, even for reading: GetObjectAndLogicalID() changes a field.
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

    /// The object id and then the logical id, 32 bytes, built at the first request. Valid until the
    /// object changes. Fatal stop when one of the two doesn't have 16 bytes.
    const IDX_Base_ByteArray& GetObjectAndLogicalID() const;

    /// Sets `oType` to the type id as a text.
    void GetType(VEXUnicodeString& oType) const;

    /// Accept any number of bytes. The operations that need 16 bytes say so.
    void SetObjectID(const IDX_Base_ByteArray& iObjectID);
    void SetLogicalID(const IDX_Base_ByteArray& iLogicalID);

    /// Sets both ids from 32 bytes. Fatal stop for any other number.
    void SetObjectAndLogicalID(const IDX_Base_ByteArray& iBinary);

    void SetTypeID(const IDX_Base_String& iTypeID);
    void SetRepositoryName(const IDX_Base_String& iRepositoryName);

    /// Compare the object ids only.
    IDX_Bool operator==(const IDXWorkingID& iOther) const;
    IDX_Bool operator!=(const IDXWorkingID& iOther) const;

    /// Replaces the content of `oBuffer` by the serial form. ConvertFromBuffer() can read it when
    /// both ids have 16 bytes. Fatal stop when it would have 2^32 bytes or more.
    void ConvertToBuffer(IDX_Base_Buffer& oBuffer);

    /// Sets all fields from a serial form. Any bytes are safe. When the buffer isn't exactly one
    /// serial form, all fields become empty; the caller sees this by the empty object id.
    void ConvertFromBuffer(IDX_Base_Buffer& iBuffer);

private:
    bool _ReadFields(const unsigned char* iData, std::size_t iSize);

    IDX_Base_ByteArray _OID;                ///< object id, 16 bytes when complete
    IDX_Base_ByteArray _LID;                ///< logical id, 16 bytes when complete
    mutable IDX_Base_ByteArray _OIDAndLID;  ///< both ids in this order; empty when not built yet
    IDX_Base_String _TypeID;                ///< without a terminator
    IDX_Base_String _RepositoryName;        ///< without a terminator
};

#endif
