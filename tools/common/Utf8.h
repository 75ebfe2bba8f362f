#ifndef Utf8_h
#define Utf8_h

#include <string>
#include <string_view>

/// The text as valid UTF-8: each byte that is part of no character becomes U+FFFD.
std::string ValidUtf8(std::string_view iText);

#endif
