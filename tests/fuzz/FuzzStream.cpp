// Streams: flags, depth, cell side, the corners of the box; then operations, each with its points.

#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    PLMIdxOctreeBuilder builder;
    SetParameters(builder, input);
    const IDX_Point low = input.Point();
    const IDX_Point high = input.Point();
    if (IDX_Failed(builder.Init(low, high))) return 0;
    bool mayEnd = true;  // a second End needs a cut before it
    const auto end = [&] {
        if (!mayEnd) return;
        (void)builder.End();
        ExpectSoundImage(builder);
        mayEnd = false;
    };
    for (int operations = 0; operations < 32 && !input.IsAtEnd(); ++operations) {
        const std::uint8_t operation = input.Byte() % 16;
        const int depth = builder.GetDepth();
        if (operation == 1) {
            (void)builder.ReduceDepth();
            mayEnd |= builder.GetDepth() < depth;
        } else if (operation == 2) {
            end();
        } else {
            const IDX_Point a = input.Point();
            const IDX_Point b = input.Point();
            (void)builder.DrawTriangle(a, b, input.Point());
        }
    }
    end();
    return 0;
}
