// Whole meshes: flags, depth, cell side; a number of points and the points; then triangles, three
// bytes each, of which 255 stands for an index out of range.

#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzInput input(data, size);
    PLMIdxOctreeBuilder builder;
    SetParameters(builder, input);
    Mesh mesh;
    const unsigned int nPoints = input.Byte() % 64;
    for (unsigned int i = 0; i < nPoints; ++i) mesh.points.push_back(input.Point());
    while (!input.IsAtEnd() && mesh.triangles.size() < 32) {
        unsigned int v[3];
        for (unsigned int& index : v) {
            const unsigned int byte = input.Byte();
            index = byte == 255 || nPoints == 0 ? nPoints : byte % nPoints;
        }
        mesh.AddFace(v[0], v[1], v[2]);
    }
    (void)Draw(builder, mesh);
    ExpectSoundImage(builder);
    return 0;
}
