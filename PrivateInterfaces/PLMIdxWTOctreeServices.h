#ifndef PLMIdxWTOctreeServices_h
#define PLMIdxWTOctreeServices_h

#include "GridloomExport.h"
#include "PLMIdxIBaseOctree.h"
#include "PLMIdxMatrix.h"

/// Enlarges a box by the occupied cells of an octree seen through a matrix: the empty regions of the octree's
/// own box add nothing to it. Several objects may work on one loaded octree at the same time.
class GRIDLOOM_API PLMIdxWTOctreeServices {
public:
    /// @param iOctree  must outlive this object
    explicit PLMIdxWTOctreeServices(const PLMIdxIBaseOctree& iOctree);
    ~PLMIdxWTOctreeServices();

    /// Levels of the octree.
    unsigned int GetDepth() const;

    /// Enlarges a box by every occupied cell, each as the cube around its circumscribed sphere, whose
    /// radius doesn't go through the matrix: the box may come out larger than the cells. Regions
    /// that the box covers already aren't walked. An octree of depth 0 changes nothing.
    /// @return IDX_S_OK, or IDX_E_FAIL with "PLMIdxWTOctreeServices.ExpandBox._ExpandBox"
    long int ExpandBox(IDX_Point& ioBoxMin, IDX_Point& ioBoxMax, const PLMIdxMatrix& iMatrix);

protected:
    /// The same for one cell.
    /// @param iIterator           stands on the cell
    /// @param iCellMin, iCellMax  its corners
    /// @param iRadius             of the sphere around it
    /// @return IDX_S_NOTHING_DONE when nothing below the cell is occupied, as far as the walk went,
    ///         else IDX_S_OK; IDX_E_FAIL when a service of the box fails
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
