// Streams: flags, depth, cell side, the corners of the box; then operations, each with its points.

#include "FuzzSupport.h"

#include <bit>
#include <cmath>
#include <cstdio>

namespace {

/// Drives both builders, and keeps to the order of calls: a second End needs a cut before it.
class Stream {
public:
    explicit Stream(FuzzedBuilder& builder) : _builder(builder) {}

    void Draw(FuzzInput& input) {
        std::array<IDX_Point, 3> p;
        float sum = 0;
        for (IDX_Point& point : p) {
            point = input.Point(_builder.anyFloats);
            sum += point.x + point.y + point.z;
        }
        // On a tree with full cells it is open which of them a triangle without bounds reaches.
        if (_ended && !std::isfinite(sum)) return;
        const long int status = _builder.ours.DrawTriangle(p[0], p[1], p[2]);
        if (_builder.compares)
            _builder.ExpectSameStatus(
                status, _builder.plain.DrawTriangle(std::bit_cast<Corners>(p)));
    }

    void Cut() {
        const int depth = _builder.ours.GetDepth();
        const long int status = _builder.ours.ReduceDepth();
        if (_builder.compares) _builder.ExpectSameStatus(status, _builder.plain.ReduceDepth());
        _mayEnd |= _builder.ours.GetDepth() < depth;
    }

    void End() {
        if (!_mayEnd) return;
        const long int status = _builder.ours.End();
        if (_builder.compares) _builder.ExpectSameStatus(status, _builder.plain.End());
        _builder.ExpectSoundImage();
        _mayEnd = false;
        _ended = true;
    }

private:
    FuzzedBuilder& _builder;
    bool _mayEnd = true;
    bool _ended = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    FuzzedBuilder builder(input);
    const IDX_Point low = input.Point(builder.anyFloats);
    const IDX_Point high = input.Point(builder.anyFloats);
    const long int status = builder.ours.Init(low, high);
    if (IDX_Failed(status)) return 0;
    if (builder.compares) builder.ExpectSameStatus(status, builder.plain.Init(low, high));
    Stream stream(builder);
    for (int operations = 0; operations < 32 && !input.IsAtEnd(); ++operations) {
        const std::uint8_t operation = input.Byte() % 16;
        if (operation == 1) stream.Cut();
        if (operation == 2) stream.End();
        if (operation != 1 && operation != 2) stream.Draw(input);
    }
    stream.End();
    return 0;
}
