#ifndef Bytes_h
#define Bytes_h

#include "Status.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>

// Messages between a process and its children, which are the same program: values travel as they
// lie in memory; a list is its length, then its elements.

/// Puts values one after the other.
class ByteWriter {
public:
    template <typename T>
    void Put(const T& iValue) {
        static_assert(std::is_trivially_copyable_v<T>);
        _bytes.append(reinterpret_cast<const char*>(&iValue), sizeof iValue);
    }

    void PutBytes(const void* iBytes, std::size_t iSize) {
        Put(std::uint64_t{iSize});
        if (iSize > 0) _bytes.append(static_cast<const char*>(iBytes), iSize);
    }

    template <typename List>
    void PutList(const List& iList) {
        static_assert(std::is_trivially_copyable_v<typename List::value_type>);
        PutBytes(iList.data(), iList.size() * sizeof(typename List::value_type));
    }

    /// Success, or why a file or a part failed: its text. Nothing else can become of one.
    void PutPartStatus(const Status& iStatus) {
        Put(std::uint32_t{iStatus.Failed() ? 1U : 0U});
        PutList(iStatus.Text());
    }

    const std::string& Bytes() const { return _bytes; }

private:
    std::string _bytes;
};

/// Gets them back in the same order. A child that was broken by what it read may send anything:
/// each operation is false when too few bytes are left, or they are no such value.
class ByteReader {
public:
    /// @param iBytes  must live as long as the reader
    explicit ByteReader(const std::string& iBytes)
        : _next(iBytes.data()), _end(iBytes.data() + iBytes.size()) {}

    template <typename T>
    bool Get(T& oValue) {
        static_assert(std::is_trivially_copyable_v<T>);
        if (Left() < sizeof oValue) return false;
        std::memcpy(&oValue, _next, sizeof oValue);
        _next += sizeof oValue;
        return true;
    }

    template <typename List>
    bool GetList(List& oList) {
        using Element = typename List::value_type;
        std::uint64_t size = 0;
        if (!Get(size) || size > Left() || size % sizeof(Element) != 0) return false;
        oList.resize(static_cast<std::size_t>(size) / sizeof(Element));
        if (size > 0) std::memcpy(oList.data(), _next, static_cast<std::size_t>(size));
        _next += size;
        return true;
    }

    bool GetPartStatus(Status& oStatus) {
        std::uint32_t isFailure = 0;
        std::string text;
        if (!Get(isFailure) || !GetList(text) || isFailure > 1) return false;
        oStatus = isFailure == 1 ? Status::PartFailed(std::move(text)) : Status();
        return true;
    }

    bool IsAtEnd() const { return _next == _end; }

private:
    std::size_t Left() const { return static_cast<std::size_t>(_end - _next); }

    const char* _next;
    const char* _end;
};

#endif
