#include "Contestants.h"

#include "Cells.h"
#include "PlainVoxelizer.h"

#ifdef BENCH_OPENVDB
#include "OpenVdbPeer.h"
#endif

#include "PLMIdxOctreeBuilder.h"

#include "formats/OctreeImage.h"

#include <span>
#include <stdexcept>

namespace {

Outcome DescribeImage(std::span<const unsigned char> iImage) {
    return {iImage.size(), OctreeImage(iImage.data()).CountOccupied(), HashOf(iImage)};
}

/// DrawGeometry and GetOctreeStream.
class Gridloom : public Contestant {
public:
    void Run(const Mesh& iMesh, unsigned int iDepth) override {
        _builder.SetParameters(static_cast<int>(iDepth), 0.0f, IDX_False);
        const long int status = _builder.DrawGeometry(
            iMesh.points.data(), static_cast<unsigned int>(iMesh.points.size()),
            iMesh.triangles.data(), static_cast<unsigned int>(iMesh.triangles.size()));
        if (status != IDX_S_OK) throw std::runtime_error("DrawGeometry failed");
        _image.reset(_builder.GetOctreeStream(_size));
        if (_builder.GetDepth() != static_cast<int>(iDepth))
            throw std::runtime_error("arena too small");
    }

    Outcome Describe() override { return DescribeImage({_image.get(), _size}); }

private:
    PLMIdxOctreeBuilder _builder;
    std::unique_ptr<const unsigned char[]> _image;
    unsigned int _size = 0;
};

class Plain : public Contestant {
public:
    void Run(const Mesh& iMesh, unsigned int iDepth) override {
        PlainVoxelizer voxelizer(CubeAround(iMesh, iDepth), iDepth);
        voxelizer.Draw(iMesh);
        voxelizer.Flood();
        _image = voxelizer.Pack();
    }

    Outcome Describe() override { return DescribeImage(_image); }

private:
    std::vector<unsigned char> _image;
};

}  // namespace

std::vector<std::string> ContestantNames() {
    std::vector<std::string> names = {"Gridloom", "plain"};
#ifdef BENCH_OPENVDB
    names.emplace_back("OpenVDB");
#endif
    return names;
}

std::unique_ptr<Contestant> MakeContestant(const std::string& iName) {
    if (iName == "Gridloom") return std::make_unique<Gridloom>();
    if (iName == "plain") return std::make_unique<Plain>();
#ifdef BENCH_OPENVDB
    if (iName == "OpenVDB") return MakeOpenVdbPeer();
#endif
    throw std::runtime_error("no such contestant: " + iName);
}
