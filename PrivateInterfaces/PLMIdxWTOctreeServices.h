#ifndef PLMIdxWTOctreeServices_h
#define PLMIdxWTOctreeServices_h

#include "GridloomExport.h"
#include "PLMIdxIBaseOctree.h"
#include "PLMIdxMatrix.h"

/// Enlarges a box to hold the occupied cells of an octree, transformed by a matrix. That is tighter
/// than the octree's own box, which holds empty regions, too. Several objects may work on one
/// loaded octree at the same time.
class GRIDLOOM_API PLMIdxWTOctreeServices {
public:
    /// @param iOctree  must outlive this object
    explicit PLMIdxWTOctreeServices(const PLMIdxIBaseOctree& iOctree);
    ~PLMIdxWTOctreeServices();

    /// Levels of the octree.
    unsigned int GetDepth() const;

    /// Enlarges a box to hold every occupied cell. A cell counts as the cube around its
    /// circumscribed sphere. The matrix moves the centre of the sphere and doesn't change its
    /// radius. So the box may become larger than the cells are. Regions that the box holds already
    /// aren't walked. An octree of depth 0 changes nothing.
    /// @return IDX_S_OK, or IDX_E_FAIL with "PLMIdxWTOctreeServices.ExpandBox._ExpandBox"
    long int ExpandBox(IDX_Point& ioBoxMin, IDX_Point& ioBoxMax, const PLMIdxMatrix& iMatrix);

protected:
    /// The same for one cell.
    /// @param iIterator           the cell
    /// @param iCellMin, iCellMax  its corners
    /// @param iRadius             of the sphere around it
    /// @return IDX_S_NOTHING_DONE when the walk found nothing occupied below the cell, else
    ///         IDX_S_OK; IDX_E_FAIL when IDX_WT_GeometryServices fails
    long int _ExpandBox(
        const IDX_Base_Octree_Iterator& iIterator,
        const IDX_Point& iCellMin,
        const IDX_Point& iCellMax,
        IDX_Point& ioBoxMin,
        IDX_Point& ioBoxMax,
        const PLMIdxMatrix& iMatrix,
        float iRadius);

private:
    const PLMIdxIBaseOctree& _octree;
};

#endif
