#include "VEXUnicodeString.h"

#include <algorithm>
#include <cstdio>

namespace {

/// A null text counts as the empty text.
const char* TextOf(const char* iText) {
    return iText != nullptr ? iText : "";
}

/// Whether a byte starts a code point. In UTF-8 only the bytes 10xxxxxx continue one.
bool StartsCodePoint(char iByte) {
    return (static_cast<unsigned char>(iByte) & 0xC0u) != 0x80u;
}

}  // namespace

VEXUnicodeString::VEXUnicodeString(const char* iText) : _text(TextOf(iText)) {}

VEXUnicodeString::VEXUnicodeString(const char* iText, std::uint64_t iBytes)
    : _text(TextOf(iText), iText != nullptr ? iBytes : 0) {}

VEXUnicodeString& VEXUnicodeString::operator=(const char* iText) {
    _text = TextOf(iText);
    return *this;
}

bool VEXUnicodeString::operator==(const char* iText) const {
    return _text == TextOf(iText);
}

VEXUnicodeString VEXUnicodeString::operator+(const char* iText) const {
    VEXUnicodeString sum(*this);
    sum._text += TextOf(iText);
    return sum;
}

VEXUnicodeString& VEXUnicodeString::Append(const VEXUnicodeString& iText) {
    _text += iText._text;
    return *this;
}

// The format is the caller's.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
int VEXUnicodeString::BuildFromNum(int iValue, const char* iFormat) {
    _text.clear();
    const int length = std::snprintf(nullptr, 0, iFormat, iValue);
    if (length <= 0) return length;
    // The first call measures. The second one writes a terminator, too, which needs one character
    // more.
    _text.resize(static_cast<std::size_t>(length) + 1);
    (void)std::snprintf(&_text[0], _text.size(), iFormat, iValue);
    _text.pop_back();
    return length;
}
#pragma GCC diagnostic pop

int VEXUnicodeString::GetLengthInChar() const {
    return static_cast<int>(std::count_if(_text.begin(), _text.end(), StartsCodePoint));
}

int VEXUnicodeString::SearchSubString(
    const VEXUnicodeString& iWhat, int iStart, VEXSearchMode) const {
    const auto start = static_cast<std::size_t>(std::max(iStart, 0));
    const std::size_t position = _text.find(iWhat._text, start);
    return position != _text.npos ? static_cast<int>(position) : -1;
}

VEXUnicodeString VEXUnicodeString::SubString(int iStart, int iLength) const {
    // Both arguments are limited to the text, so that any numbers are safe.
    const std::size_t start = std::min(static_cast<std::size_t>(std::max(iStart, 0)), _text.size());
    const std::size_t length =
        std::min(static_cast<std::size_t>(std::max(iLength, 0)), _text.size() - start);
    return VEXUnicodeString(_text.data() + start, length);
}
