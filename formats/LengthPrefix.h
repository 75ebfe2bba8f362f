#ifndef LengthPrefix_h
#define LengthPrefix_h

#include <cstdint>

// A length-prefixed value is the number of its bytes and then those bytes, without a terminator.
// docs/file-formats.md, "Raw file".

/// The number of bytes that follow. Host byte order.
using LengthPrefix = std::uint32_t;
constexpr unsigned int kLengthPrefixSize = 4;  ///< bytes of the number itself
static_assert(sizeof(LengthPrefix) == kLengthPrefixSize, "length-prefixed value");

#endif
