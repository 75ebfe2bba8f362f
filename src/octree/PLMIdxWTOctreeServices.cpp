#include "PLMIdxWTOctreeServices.h"

#include "WorkingOctreeRecords.h"
#include "common/TraceFailure.h"

#include "IDX_WT_GeometryServices.h"

#include <cmath>

namespace {

struct Cell {
    IDX_Point low;
    IDX_Point high;
};

IDX_Point CentreOf(const Cell& iCell) {
    return {
        (iCell.low.x + iCell.high.x) * 0.5f, (iCell.low.y + iCell.high.y) * 0.5f,
        (iCell.low.z + iCell.high.z) * 0.5f};
}

/// A child of a cell. On each axis it reaches from the low side to the centre, or from there to the
/// high side.
Cell ChildOf(const Cell& iCell, const IDX_Point& iCentre, unsigned int iChild) {
    Cell child = {iCell.low, iCentre};
    if (HalfOf(iChild, 0) != 0) {
        child.low.x = iCentre.x;
        child.high.x = iCell.high.x;
    }
    if (HalfOf(iChild, 1) != 0) {
        child.low.y = iCentre.y;
        child.high.y = iCell.high.y;
    }
    if (HalfOf(iChild, 2) != 0) {
        child.low.z = iCentre.z;
        child.high.z = iCell.high.z;
    }
    return child;
}

/// Half the diagonal of a box: the radius of the sphere around it. The sum is in 32-bit floats, the
/// root in 64-bit ones.
float RadiusOf(const IDX_Point& iSize) {
    const float x = 0.5f * iSize.x;
    const float y = 0.5f * iSize.y;
    const float z = 0.5f * iSize.z;
    float sum = x * x;
    sum += y * y;
    sum += z * z;
    return static_cast<float>(std::sqrt(static_cast<double>(sum)));
}

}  // namespace

PLMIdxWTOctreeServices::PLMIdxWTOctreeServices(const PLMIdxIBaseOctree& iOctree)
    : _octree(iOctree) {}

PLMIdxWTOctreeServices::~PLMIdxWTOctreeServices() = default;

unsigned int PLMIdxWTOctreeServices::GetDepth() const {
    return _octree._depth;
}

long int PLMIdxWTOctreeServices::ExpandBox(
    IDX_Point& ioBoxMin, IDX_Point& ioBoxMax, const PLMIdxMatrix& iMatrix) {
    if (_octree._depth == 0) return IDX_S_OK;
    IDX_Point origin;
    IDX_Point size;
    _octree.GetBB(origin, size);
    const IDX_Point end = {origin.x + size.x, origin.y + size.y, origin.z + size.z};
    const long int status = _ExpandBox(
        IDX_Base_Octree_Iterator(), origin, end, ioBoxMin, ioBoxMax, iMatrix, RadiusOf(size));
    if (IDX_Failed(status)) {
        return TraceStatus("PLMIdxWTOctreeServices.ExpandBox._ExpandBox", IDX_E_FAIL);
    }
    return IDX_S_OK;
}

/// Goes down only where it may change the box. When the sphere around a cell doesn't enlarge the
/// box, nothing in the cell does: the walk ends there. Full cells enlarge the box by their own
/// sphere.
long int PLMIdxWTOctreeServices::_ExpandBox(
    const IDX_Base_Octree_Iterator& iIterator,
    const IDX_Point& iCellMin,
    const IDX_Point& iCellMax,
    IDX_Point& ioBoxMin,
    IDX_Point& ioBoxMax,
    const PLMIdxMatrix& iMatrix,
    float iRadius) {
    const Cell cell = {iCellMin, iCellMax};
    const IDX_Point centre = CentreOf(cell);
    IDX_Bool enlarged = IDX_False;
    // A program may replace this service: any value but IDX_True is a failure.
    if (IDX_WT_GeometryServices::IsBoxEnlargedSphere(
            ioBoxMin, ioBoxMax, centre, iRadius, iMatrix, enlarged) != IDX_True) {
        return TraceStatus(
            "PLMIdxWTOctreeServices._ExpandBoxSphere.IDX_WT_GeometryServices.IsBoxEnlarged",
            IDX_E_FAIL);
    }
    if (enlarged == IDX_False) return IDX_S_OK;

    const float childRadius = iRadius * 0.5f;
    unsigned int nEmpty = 0;
    for (unsigned int c = 0; c < kChildren; ++c) {
        const Cell child = ChildOf(cell, centre, c);
        const IDX_Base_Octree_TestResult state = _octree.Test(iIterator, c);
        if (state == OCTREE_FULL || state == OCTREE_SURFACE) {
            IDX_WT_GeometryServices::EnlargeBoxSphere(
                ioBoxMin, ioBoxMax, CentreOf(child), childRadius, iMatrix);
        } else if (state == OCTREE_PARTIAL) {
            IDX_Base_Octree_Iterator position = iIterator;
            (void)_octree.Move(position, c);  // a partial child can be entered
            const long int status = _ExpandBox(
                position, child.low, child.high, ioBoxMin, ioBoxMax, iMatrix, childRadius);
            if (IDX_Failed(status)) return IDX_E_FAIL;
            if (status == IDX_S_NOTHING_DONE) ++nEmpty;
        } else {
            ++nEmpty;
        }
    }
    return nEmpty == kChildren ? IDX_S_NOTHING_DONE : IDX_S_OK;
}
