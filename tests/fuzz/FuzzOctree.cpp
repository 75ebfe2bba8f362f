// The octree builder beside the flat reference, which must agree in status, trace, counts, questions asked of the
// overlap test, and image: how coordinates are made, parameters, arena, rule for what a triangle meets, points and
// triangles; then operations on one builder, in any order.

#include "BuilderPair.h"
#include "FuzzSupport.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace {

/// Coordinates as one byte, which meet cell faces often, or two, or any float; of any size down to sub-normal.
class Coordinates {
public:
    explicit Coordinates(FuzzInput& input) : _input(input), _kind(input.Byte() % 4) {
        const int exponent = input.Byte();
        _exponent = exponent % 4 == 0 ? exponent - 149 : -4;
    }

    IDX_Point Point() {
        const float x = Next();
        const float y = Next();
        return {x, y, Next()};
    }

private:
    float Next() {
        if (_kind == 0) return _input.Float();
        int value = static_cast<std::int8_t>(_input.Byte());
        if (_kind == 1) value = value * 256 + _input.Byte();
        return std::ldexp(static_cast<float>(value), _exponent);
    }

    FuzzInput& _input;
    int _kind;
    int _exponent;
};

struct Case {
    explicit Case(FuzzInput& fuzz) : input(fuzz), coordinates(fuzz) {
        const unsigned int flags = input.Byte();
        rule = flags % 2 != 0 ? kOverlapRules[flags / 2 % 3] : nullptr;
        boxMargin = flags & 16 ? 0.001f : 0.0f;
        useVoxelSize = flags & 32 ? IDX_True : IDX_False;
        voxelSize = flags & 64 ? input.Float() : 0.0f;
        arenaSize = flags & 128 ? 8u * input.Byte() : 1u << 17;
        const unsigned int nPoints = 1 + input.Byte() % 12;
        for (unsigned int i = 0; i < nPoints; ++i) mesh.points.push_back(coordinates.Point());
        // Fewer triangles at great depth, where each draws many cells.
        maxDepth = 1 + input.Byte() % (rule != nullptr ? 4 : 5);
        for (int i = input.Byte() % (14 - 2 * maxDepth); i >= 0; --i)
            mesh.AddFace(Index(), Index(), Index());
    }

    unsigned int Index() { return input.Byte() % static_cast<unsigned int>(mesh.points.size()); }

    void Run(BuilderPair& pair) {
        switch (input.Byte() % 9) {
            case 0:
                return pair.DrawGeometry(mesh);
            case 1: {
                const IDX_Point low = coordinates.Point();
                return pair.Init(low, coordinates.Point());
            }
            case 2: {
                const IDX_Point a = coordinates.Point();
                const IDX_Point b = coordinates.Point();
                return pair.DrawTriangle({a, b, coordinates.Point()});
            }
            case 3: {
                std::vector<unsigned int> handOn;
                for (std::size_t i = 0; i < mesh.points.size(); ++i) handOn.push_back(Index());
                return pair.SetHandOn(handOn);
            }
            case 4:
                return pair.ReduceDepth();
            case 5:
                return pair.End();
            case 6:
                return pair.SetCuboid(mesh.points[Index()], mesh.points[Index()]);
            default:
                return pair.DrawTriangles(mesh);
        }
    }

    FuzzInput& input;
    Coordinates coordinates;
    OverlapRule rule;
    int maxDepth;
    float voxelSize;
    IDX_Bool useVoxelSize;
    Mesh mesh;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    Case fuzzed(input);
    BuilderPair pair(fuzzed.rule);
    pair.SetParameters(fuzzed.maxDepth, fuzzed.voxelSize, fuzzed.useVoxelSize);
    for (int operations = 0; operations < 8 && !input.IsAtEnd(); ++operations) {
        fuzzed.Run(pair);
        if (pair.difference.empty()) continue;
        std::fprintf(stderr, "operation %d differs in %s\n", operations, pair.difference.c_str());
        std::abort();
    }
    return 0;
}
