#ifndef OpenVdbPeer_h
#define OpenVdbPeer_h

#include "Cells.h"
#include "Contestants.h"

#include "formats/OctreeImage.h"

/// meshToVolume with bands of one voxel, then sdfInteriorMask at half a voxel; on one thread.
std::unique_ptr<Contestant> MakeOpenVdbPeer();

/// The occupied cells of an octree as a mask grid, for point look-ups.
class OpenVdbMask {
public:
    explicit OpenVdbMask(const OctreeImage& iImage);
    ~OpenVdbMask();

    /// Number of occupied cells among the given ones, looked up through one accessor.
    size_t CountOccupied(const std::vector<Cell>& iCells) const;

private:
    struct Grid;
    std::unique_ptr<Grid> _grid;
};

#endif
