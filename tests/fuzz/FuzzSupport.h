#ifndef FuzzSupport_h
#define FuzzSupport_h

#include "Images.h"

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
    IDX_Point Point();

    bool anyFloats = false;

private:
    const std::uint8_t* _next;
    const std::uint8_t* _end;
};

/// Takes flags and the parameters of a builder out of the input.
void SetParameters(PLMIdxOctreeBuilder& builder, FuzzInput& input);

/// Walks the stored image to its last cell, with every position inside it.
void ExpectSoundImage(PLMIdxOctreeBuilder& builder);

#endif
