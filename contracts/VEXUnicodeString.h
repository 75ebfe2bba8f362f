#ifndef VEXUnicodeString_h
#define VEXUnicodeString_h

#include "GridloomContractsExport.h"
#include "VEXAllocator.h"

#include <cstdint>
#include <string>

/// The direction of SearchSubString().
enum VEXSearchMode { VEXSearchForward = 1 };

/// A text in UTF-8. A copy has its own content. It may contain zero bytes. A null `const char*`
/// counts as the empty text. Positions are in bytes and count from 0. No operation fails.
class GRIDLOOM_CONTRACTS_API VEXUnicodeString {
public:
    VEXUnicodeString() = default;
    VEXUnicodeString(const char* iText);

    /// Copies exactly `iBytes` bytes, which need no terminator.
    VEXUnicodeString(const char* iText, std::uint64_t iBytes);

    VEXUnicodeString& operator=(const char* iText);

    bool operator==(const char* iText) const;
    bool operator==(const VEXUnicodeString& iOther) const { return _text == iOther._text; }
    bool operator!=(const char* iText) const { return !(*this == iText); }
    bool operator!=(const VEXUnicodeString& iOther) const { return !(*this == iOther); }

    /// The text, terminated. Valid until the string is changed or destroyed.
    operator const char*() const { return _text.c_str(); }
    const char* ConvertToChar() const { return _text.c_str(); }

    /// A new string: this text and then `iText`.
    VEXUnicodeString operator+(const char* iText) const;

    VEXUnicodeString& Append(const VEXUnicodeString& iText);

    /// Replaces the text by `iValue`, formatted by a printf format for one `int`.
    /// @return the length in bytes; negative when formatting fails, then the text is empty
    int BuildFromNum(int iValue, const char* iFormat);

    int GetLengthInByte() const { return static_cast<int>(_text.size()); }

    /// The number of code points.
    int GetLengthInChar() const;

    /// The position of the first `iWhat` at or after `iStart`; -1 when there is none. An empty text
    /// is found at `iStart`, if that is inside the text or at its end.
    int SearchSubString(const VEXUnicodeString& iWhat, int iStart, VEXSearchMode iMode) const;

    /// Up to `iLength` bytes from `iStart` on, as far as the text goes.
    VEXUnicodeString SubString(int iStart, int iLength) const;

private:
    std::basic_string<char, std::char_traits<char>, VEXAllocator<char>> _text;
};

#endif
