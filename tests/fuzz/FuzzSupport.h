#ifndef FuzzSupport_h
#define FuzzSupport_h

#include "ReferenceBuilder.h"

#include "PLMIdxOctreeBuilder.h"

#include <cstddef>
#include <cstdint>

/// The bytes of the fuzzer, read from front to back; zeros follow the last one.
class FuzzInput {
public:
    FuzzInput(const std::uint8_t* data, std::size_t size) : _next(data), _end(data + size) {}
    bool IsAtEnd() const { return _next == _end; }
    std::uint8_t Byte() { return IsAtEnd() ? std::uint8_t{0} : *_next++; }
    float Float();

    /// Coordinates are small whole numbers, one byte each, or any floats, four bytes each.
    IDX_Point Point(bool anyFloats);

private:
    const std::uint8_t* _next;
    const std::uint8_t* _end;
};

/// The library's builder with parameters out of the input and, when a bit there asks for it, the
/// reference beside it. A difference ends the process.
struct FuzzedBuilder {
    explicit FuzzedBuilder(FuzzInput& input);

    void ExpectSameStatus(long int ofLibrary, long int ofReference) const;

    /// Walks the stored image to its last cell, with every position inside it.
    void ExpectSoundImage();

    PLMIdxOctreeBuilder ours;
    reference::Builder plain;
    bool compares;
    bool anyFloats;
};

#endif
