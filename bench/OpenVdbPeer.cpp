#include "OpenVdbPeer.h"

#include <cmath>
#include <openvdb/io/Stream.h>
#include <openvdb/openvdb.h>
#include <openvdb/tools/LevelSetUtil.h>
#include <openvdb/tools/MeshToVolume.h>
#include <sstream>
#include <tbb/global_control.h>

namespace {

constexpr float kBandWidth = 1.0f;  // voxels, the narrowest that gives a level set
constexpr float kSurface = 0.5f;    // voxels: as far out as a cell that is half covered

/// Gives OpenVDB a mesh in the coordinates of the grid, without a copy. The value of a voxel is that
/// of its cell's centre.
class GridMesh {
public:
    GridMesh(const Mesh& iMesh, unsigned int iDepth) : _mesh(iMesh) {
        const GridBox box = CubeAround(iMesh, iDepth);
        const double side = std::ldexp(1.0, static_cast<int>(iDepth));
        _origin = {box.origin.x, box.origin.y, box.origin.z};
        _scale = {side / box.size.x, side / box.size.y, side / box.size.z};
    }

    size_t polygonCount() const { return _mesh.triangles.size(); }
    size_t pointCount() const { return _mesh.points.size(); }
    size_t vertexCount(size_t) const { return 3; }

    void getIndexSpacePoint(size_t iTriangle, size_t iVertex, openvdb::Vec3d& oPosition) const {
        const IDX_Point& p = _mesh.points[_mesh.triangles[iTriangle].vertices[iVertex]];
        oPosition = (openvdb::Vec3d(p.x, p.y, p.z) - _origin) * _scale - openvdb::Vec3d(0.5);
    }

private:
    const Mesh& _mesh;
    openvdb::Vec3d _origin;
    openvdb::Vec3d _scale;
};

class OpenVdb : public Contestant {
public:
    OpenVdb() : _oneThread(tbb::global_control::max_allowed_parallelism, 1) {
        openvdb::initialize();
    }

    void Run(const Mesh& iMesh, unsigned int iDepth) override {
        const auto transform = openvdb::math::Transform::createLinearTransform(1.0);
        const auto distances = openvdb::tools::meshToVolume<openvdb::FloatGrid>(
            GridMesh(iMesh, iDepth), *transform, kBandWidth, kBandWidth);
        _solid = openvdb::tools::sdfInteriorMask(*distances, kSurface);
    }

    /// The stored form is a VDB stream, compressed as by default. It holds a random identifier.
    Outcome Describe() override {
        std::ostringstream stream(std::ios::binary);
        openvdb::io::Stream(stream).write(openvdb::GridCPtrVec{_solid});
        return {stream.str().size(), _solid->activeVoxelCount(), {}};
    }

private:
    tbb::global_control _oneThread;
    openvdb::BoolGrid::Ptr _solid;
};

}  // namespace

std::unique_ptr<Contestant> MakeOpenVdbPeer() {
    return std::make_unique<OpenVdb>();
}

struct OpenVdbMask::Grid {
    openvdb::BoolGrid::Ptr mask;
};

OpenVdbMask::OpenVdbMask(const OctreeImage& iImage) : _grid(std::make_unique<Grid>()) {
    openvdb::initialize();
    _grid->mask = openvdb::BoolGrid::create(false);
    iImage.ForEachOccupied([&](const OctreeCell& iCell) {
        const unsigned int level = iImage.Depth() - iCell.level;
        const openvdb::Coord low(
            static_cast<int>(iCell.x << level), static_cast<int>(iCell.y << level),
            static_cast<int>(iCell.z << level));
        _grid->mask->fill(openvdb::CoordBBox::createCube(low, 1 << level), true);
    });
    _grid->mask->pruneGrid();
}

OpenVdbMask::~OpenVdbMask() = default;

size_t OpenVdbMask::CountOccupied(const std::vector<Cell>& iCells) const {
    const auto accessor = _grid->mask->getConstAccessor();
    size_t count = 0;
    for (const Cell& cell : iCells) {
        const openvdb::Coord at(
            static_cast<int>(cell.x), static_cast<int>(cell.y), static_cast<int>(cell.z));
        count += accessor.isValueOn(at) ? 1 : 0;
    }
    return count;
}
