#include "SurfaceExport.h"

#include "VoxelGrid.h"

#include <array>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

namespace {

using Corner = std::array<float, 3>;
using Face = std::array<Corner, 4>;

constexpr std::size_t kCorners = 4;

/// Calls back with the corners of each outer face of a part's cells, anticlockwise seen from
/// outside. A face between two occupied cells isn't seen and is left out.
template <class Take>
void ForEachFace(const PLMIdxIBaseOctree& iOctree, const Take& iTake) {
    if (iOctree._depth == 0) return;
    const VoxelGrid grid(iOctree);
    const double origin[3] = {iOctree._bbOrigin.x, iOctree._bbOrigin.y, iOctree._bbOrigin.z};
    const double size[3] = {iOctree._bbSize.x, iOctree._bbSize.y, iOctree._bbSize.z};
    const auto cornerAt = [&](const VoxelGrid::Position& position) {
        Corner corner;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            corner[axis] =
                static_cast<float>(origin[axis] + size[axis] * position[axis] / grid.Side());
        }
        return corner;
    };
    const auto visitSide = [&](VoxelGrid::Position cell, std::size_t axis, bool isHigh) {
        VoxelGrid::Position neighbour = cell;
        neighbour[axis] += isHigh ? 1 : -1;
        if (grid.At(neighbour) != VoxelGrid::Empty) return;
        // Round the face by its two other axes, the other way round on the low side.
        const std::size_t first = (axis + (isHigh ? 1U : 2U)) % 3;
        const std::size_t second = (axis + (isHigh ? 2U : 1U)) % 3;
        cell[axis] += isHigh ? 1 : 0;
        Face face;
        face[0] = cornerAt(cell);
        ++cell[first];
        face[1] = cornerAt(cell);
        ++cell[second];
        face[2] = cornerAt(cell);
        --cell[first];
        face[3] = cornerAt(cell);
        iTake(face);
    };
    grid.ForEachCell([&](const VoxelGrid::Position& cell) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            visitSide(cell, axis, false);
            visitSide(cell, axis, true);
        }
    });
}

/// The same for all parts, one after the other.
template <class Take>
Status ForEachFace(const ExportedParts& iParts, const Take& iTake) {
    for (std::size_t number = 0; number < iParts.count; ++number) {
        ExportedPart part = {};
        Status status = iParts.get(number, part);
        if (status.Failed()) return status;
        ForEachFace(*part.octree, [&](const Face& face) { iTake(part, face); });
    }
    return {};
}

/// Fails for more vertices than a file can number.
Status CountFaces(const ExportedParts& iParts, std::uint64_t& oCount) {
    constexpr std::uint64_t kMostVertices = std::numeric_limits<std::int32_t>::max();
    oCount = 0;
    Status status = ForEachFace(iParts, [&](const ExportedPart&, const Face&) { ++oCount; });
    if (status.Failed()) return status;
    return oCount * kCorners <= kMostVertices ? Status() : Status::System(EFBIG);
}

template <class Value>
void Put(std::FILE* ioFile, const Value& iValue) {
    (void)std::fwrite(&iValue, sizeof iValue, 1, ioFile);  // a failure stays in the stream
}

/// The bytes of a number in reversed order: the library runs on little-endian machines.
std::uint32_t BigEndian(std::uint32_t iValue) {
    return __builtin_bswap32(iValue);
}

std::uint8_t Channel(double iValue) {
    return static_cast<std::uint8_t>(std::lround(255.0 * iValue));
}

void PutColouredCorners(std::FILE* ioFile, const ExportedPart& iPart, const Face& iFace) {
    const std::array<std::uint8_t, 3> colour = {
        Channel(iPart.colour.red), Channel(iPart.colour.green), Channel(iPart.colour.blue)};
    for (const Corner& corner : iFace) {
        Put(ioFile, corner);
        Put(ioFile, colour);
    }
}

void PutCornersBigEndian(std::FILE* ioFile, const Face& iFace) {
    for (const Corner& corner : iFace) {
        for (const float coordinate : corner) {
            Put(ioFile, BigEndian(std::bit_cast<std::uint32_t>(coordinate)));
        }
    }
}

}  // namespace

/// The header holds the number of faces, so the parts are walked twice: all faces at once might not
/// fit into the memory.
Status WritePly(const ExportedParts& iParts, std::FILE* ioFile) {
    std::uint64_t nFaces = 0;
    Status status = CountFaces(iParts, nFaces);
    if (status.Failed()) return status;
    const auto count = static_cast<unsigned long long>(nFaces);
    std::fprintf(
        ioFile,
        "ply\nformat binary_little_endian 1.0\nelement vertex %llu\nproperty float x\n"
        "property float y\nproperty float z\nproperty uchar red\nproperty uchar green\n"
        "property uchar blue\nelement face %llu\nproperty list uchar int vertex_indices\n"
        "end_header\n",
        count * kCorners, count);
    status = ForEachFace(iParts, [&](const ExportedPart& part, const Face& face) {
        PutColouredCorners(ioFile, part, face);
    });
    if (status.Failed()) return status;
    for (std::uint32_t vertex = 0; vertex < nFaces * kCorners;) {
        Put(ioFile, static_cast<std::uint8_t>(kCorners));
        for (std::size_t corner = 0; corner < kCorners; ++corner) Put(ioFile, vertex++);
    }
    return {};
}

/// One section after the other: corners, faces, numbers of the parts. The parts are walked for
/// each.
Status WriteVtk(const ExportedParts& iParts, std::FILE* ioFile) {
    std::uint64_t nFaces = 0;
    Status status = CountFaces(iParts, nFaces);
    if (status.Failed()) return status;
    const auto count = static_cast<unsigned long long>(nFaces);
    std::fprintf(
        ioFile, "# vtk DataFile Version 3.0\nparts of an index\nBINARY\nDATASET POLYDATA\n");
    std::fprintf(ioFile, "POINTS %llu float\n", count * kCorners);
    status = ForEachFace(
        iParts, [&](const ExportedPart&, const Face& face) { PutCornersBigEndian(ioFile, face); });
    if (status.Failed()) return status;
    std::fprintf(ioFile, "\nPOLYGONS %llu %llu\n", count, count * (1 + kCorners));
    for (std::uint32_t vertex = 0; vertex < nFaces * kCorners;) {
        Put(ioFile, BigEndian(static_cast<std::uint32_t>(kCorners)));
        for (std::size_t corner = 0; corner < kCorners; ++corner) Put(ioFile, BigEndian(vertex++));
    }
    std::fprintf(ioFile, "\nCELL_DATA %llu\nSCALARS part int 1\nLOOKUP_TABLE default\n", count);
    status = ForEachFace(iParts, [&](const ExportedPart& part, const Face&) {
        Put(ioFile, BigEndian(part.number));
    });
    std::fprintf(ioFile, "\n");
    return status;
}
