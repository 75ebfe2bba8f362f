#ifndef VEXUnicodeString_h
#define VEXUnicodeString_h

#include "GridloomContractsExport.h"
#include "VEXAllocator.h"

#include <cstdint>
#include <string>

/// How SearchSubString goes through a text.
enum VEXSearchMode { VEXSearchForward = 1 };

/// A text in UTF-8, copied with its content. It may hold zero bytes; a null `const char*` counts as
/// the empty text. Positions are in bytes and counted from 0. None of its operations fails.
class GRIDLOOM_CONTRACTS_API VEXUnicodeString {
public:
    VEXUnicodeString() = default;
    VEXUnicodeString(const char* iText);

    /// Takes exactly `iBytes` bytes, which need no terminator.
    VEXUnicodeString(const char* iText, std::uint64_t iBytes);

    VEXUnicodeString& operator=(const char* iText);

    bool operator==(const char* iText) const;
    bool operator==(const VEXUnicodeString& iOther) const { return _text == iOther._text; }
    bool operator!=(const char* iText) const { return !(*this == iText); }
    bool operator!=(const VEXUnicodeString& iOther) const { return !(*this == iOther); }

    /// The text, terminated. Valid until the string is changed or destroyed.
    operator const char*() const { return _text.c_str(); }
    const char* ConvertToChar() const { return _text.c_str(); }

    /// A new string with `iText` behind this one.
    VEXUnicodeString operator+(const char* iText) const;

    VEXUnicodeString& Append(const VEXUnicodeString& iText);

    /// Becomes `iValue`, written by a printf format for one `int`.
    /// @return the length in bytes; negative for a format that can't be written, which empties the
    ///         string
    int BuildFromNum(int iValue, const char* iFormat);

    int GetLengthInByte() const { return static_cast<int>(_text.size()); }

    /// The number of code points.
    int GetLengthInChar() const;

    /// The position of the first `iWhat` at or behind `iStart`, or -1. An empty text is found at
    /// once.
    int SearchSubString(const VEXUnicodeString& iWhat, int iStart, VEXSearchMode iMode) const;

    /// `iLength` bytes from `iStart` on, cut to what the text has.
    VEXUnicodeString SubString(int iStart, int iLength) const;

private:
    std::basic_string<char, std::char_traits<char>, VEXAllocator<char>> _text;
};

#endif
