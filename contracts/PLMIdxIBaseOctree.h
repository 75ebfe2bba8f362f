#ifndef PLMIdxIBaseOctree_h
#define PLMIdxIBaseOctree_h

#include "GridloomContractsExport.h"
#include "IDXOctreeType.h"
#include "IDX_Base_4x4Matrix.h"
#include "IDX_Base_Octree_Iterator.h"
#include "IDX_Base_Octree_TestResult.h"
#include "IDX_Point.h"
#include "IDX_Status.h"

class IDX_WT_SplittedFile;

/// The interface of an octree of any form. An octree is an axis-aligned box that is halved along
/// each axis `_depth` times.
///
/// Child number of a cell, at every level: bit 0 is set in the high half along X, bit 1 along Y,
/// bit 2 along Z. An iterator is a position, and r = `_depth` - iterator.depth levels are below it.
/// Its kind depends on r alone: for r >= 3 it is a node, for r = 2 a node set (8 leaf groups), for
/// r = 1 a leaf group (8 cells of the last level), for r = 0 nothing.
///
/// A full walk calls Test for child 0 to 7. On OCTREE_PARTIAL it copies the iterator, moves the
/// copy into the child and goes on there. Any number of threads may walk one octree that nobody
/// changes, each with its own iterator.
///
/// Derived classes read and write the fields directly.
class GRIDLOOM_CONTRACTS_API PLMIdxIBaseOctree {
public:
    /// A zero box, depth 0, no cuboid.
    explicit PLMIdxIBaseOctree(IDXOctreeType iType);

    // The order of the virtual operations is part of the interface.

    virtual ~PLMIdxIBaseOctree();

    /// State of the cell (iIterator, iChild), iChild from 0 to 7.
    virtual IDX_Base_Octree_TestResult Test(
        IDX_Base_Octree_Iterator const& iIterator, unsigned int iChild) const = 0;

    /// Moves the iterator into a child. Its `depth` grows by 1, also when the move fails.
    /// @return IDX_S_OK, or IDX_E_FAIL below the last level and for a child that the form can't
    ///         enter
    virtual long int Move(IDX_Base_Octree_Iterator& ioIterator, unsigned int iChild) const = 0;

    /// Length in bytes of the stored image: its header of 132 bytes and the records.
    virtual int GetSizeInFiles() const = 0;

    /// Appends the image to a split file.
    /// @param oPart    number of the piece that it went to
    /// @param oOffset  where it begins there
    virtual long int Save(
        IDX_WT_SplittedFile& ioFile, unsigned int& oPart, unsigned int& oOffset) const = 0;

    /// Makes this octree a view of the image that starts at `iBuffer`. The image stays the
    /// caller's.
    virtual long int Load(void* iBuffer) = 0;

    /// The low corner of the box and its extents, in model units.
    void GetBB(IDX_Point& oOrigin, IDX_Point& oSize) const;

    /// The cuboid that is stored with the octree. Without one the values mean nothing.
    void GetCuboid(IDX_Base_4x4Matrix& oMatrix, IDX_Point& oPoint1, IDX_Point& oPoint2) const;

    IDXOctreeType _type;               ///< concrete form, never changed
    IDX_Point _bbOrigin;               ///< low corner of the box
    IDX_Point _bbSize;                 ///< extents of the box: a size and not the high corner
    unsigned int _depth;               ///< levels below the root; 0 for the empty octree
    unsigned int _version;             ///< format word, second word of a stored image
    int _hasCuboid;                    ///< 1 when a cuboid is set, else 0
    IDX_Base_4x4Matrix _cuboidMatrix;  ///< orientation of the cuboid
    IDX_Point _cuboidPoint1;           ///< first point of the cuboid
    IDX_Point _cuboidPoint2;           ///< second point of the cuboid
};

#endif
