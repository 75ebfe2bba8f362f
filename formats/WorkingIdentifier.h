#ifndef WorkingIdentifier_h
#define WorkingIdentifier_h

#include "LengthPrefix.h"

#include <cstddef>

// The serial form of a working identifier. Host byte order; no field is aligned.
// docs/file-formats.md, "Serial form of a working identifier".
//
//   0       16  object id
//  16       16  logical id
//  32        4  T, the length of the type id
//  36        T  type id
//  36 + T    4  R, the length of the repository name
//  40 + T    R  repository name

/// Bytes of an object id and of a logical id.
constexpr unsigned int kWorkingIdSize = 16;

constexpr std::size_t kObjectIdOffset = 0;
constexpr std::size_t kLogicalIdOffset = kObjectIdOffset + kWorkingIdSize;

/// The first of two length-prefixed texts: the type id, then the repository name.
constexpr std::size_t kTypeIdOffset = kLogicalIdOffset + kWorkingIdSize;
static_assert(kTypeIdOffset == 32, "serial form of a working identifier");

#endif
