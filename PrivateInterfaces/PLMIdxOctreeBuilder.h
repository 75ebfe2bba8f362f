#ifndef PLMIdxOctreeBuilder_h
#define PLMIdxOctreeBuilder_h

#include "GridloomExport.h"
#include "IDX_Bool.h"
#include "IDX_Triangle.h"
#include "PLMIdxWTOptimOctree_0.h"
#include "PLMIdxWTWorkingOctree.h"

class OctreeTriangleDrawer;

/// Turns a triangle mesh into a stored octree: chooses depth and box, draws the triangles, fills
/// the inside and packs the result.
///
/// A whole mesh: SetParameters, optionally SetCuboid, DrawGeometry, then GetOctreeStream or
/// GetOctree. A stream: SetParameters, Init, optionally SetCuboid, DrawTriangle for each triangle,
/// optionally ReduceDepth, End, then GetOctreeStream or GetOctree.
///
/// A builder may be used again, also after a failure. Its parameters stay. One exception: after a
/// small and far object its compact octree has memory for one full box only, and a further build
/// ends with "PLMIdxWTOptimOctree_0._Alloc.MaxSize". Use a new builder then.
///
/// It belongs to one thread. It owns two blocks of IDX_Base_Constants::MAX_OCTREE_SIZE bytes. The
/// system gives memory only for the pages of them that are used.
class GRIDLOOM_API PLMIdxOctreeBuilder {
public:
    /// Depth at most 6, no wanted cell side.
    PLMIdxOctreeBuilder();
    PLMIdxOctreeBuilder(const PLMIdxOctreeBuilder&) = delete;
    PLMIdxOctreeBuilder& operator=(const PLMIdxOctreeBuilder&) = delete;
    ~PLMIdxOctreeBuilder();

    // The order of the virtual operations is part of the interface.

    /// Stores the parameters of all further builds and checks nothing.
    /// @param iMaxDepth      highest depth that may be chosen, at most 19; the lowest is 2
    /// @param iVoxelSize     wanted side of a cell of the last level, in model units
    /// @param iUseVoxelSize  for a stream. IDX_True: the depth follows from `iVoxelSize`, else from
    ///                       `iMaxDepth` alone. A whole mesh always uses both.
    virtual void SetParameters(int iMaxDepth, float iVoxelSize, IDX_Bool iUseVoxelSize);

    /// Starts a stream of triangles in the box from `iLow` to `iHigh`. When the box is small
    /// compared to its distance from the origin, the object becomes one full box, the cuboid stays,
    /// and the standard output gets the line "small and far object". Otherwise the cuboid is
    /// cleared.
    /// @return IDX_S_OK; IDX_E_OUT_OF_MEMORY when there is no memory for the arena; IDX_E_FAIL when
    ///         the arena is too small for a root
    virtual long int Init(IDX_Point iLow, IDX_Point iHigh);

    /// Sets the cuboid that goes into the stored image. It changes nothing else. Call it after Init
    /// in a stream, before DrawGeometry for a whole mesh.
    virtual void SetCuboid(IDX_Base_4x4Matrix const& iMatrix, IDX_Point iPoint1, IDX_Point iPoint2);

    /// Ends a stream: fills and packs. A second End fills nothing, unless ReduceDepth came before
    /// it.
    /// @return IDX_S_OK, or IDX_E_FAIL when the packing failed. When only the fill failed, the
    ///         trace has "PLMIdxOctreeBuilder.DrawGeometry.PLMIdxOctreeFiller.Fill", the octree is
    ///         packed without it, and the result is IDX_S_OK.
    virtual long int End();

    /// Builds the octree of a whole mesh. The box is the cube around the triangles with a margin.
    /// When the arena is full, the mesh is drawn again one level less deep, down to depth 2.
    /// @param iPoints     `iNPoints` vertices; only read
    /// @param iTriangles  `iNTriangles` triples of indices below `iNPoints`; only read
    /// @return IDX_S_OK. An empty mesh (a null array or a count of 0) gives the empty octree.
    ///         IDX_E_FAIL with "PLMIdxOctreeBuilder.DrawGeometry.IncorrectPoint" for an index out
    ///         of range; IDX_E_FAIL when even depth 2 or the packing finds no memory
    virtual long int DrawGeometry(
        IDX_Point const* iPoints,
        unsigned int iNPoints,
        IDX_Triangle const* iTriangles,
        unsigned int iNTriangles);

    /// Draws one triangle of a stream: marks every cell of the last level that it touches.
    /// IDX_Base_GeometryServices::TriangleToBox decides whether it touches a cell.
    /// @return IDX_S_OK when it is drawn; IDX_S_NOTHING_DONE when it touches no cell; IDX_E_FAIL
    ///         when the arena is full, when the test can't decide, or when there is no octree to
    ///         draw into; IDX_E_OUT_OF_MEMORY when drawing gets no memory (about 2 KiB for each
    ///         builder)
    virtual long int DrawTriangle(IDX_Point const& iP1, IDX_Point const& iP2, IDX_Point const& iP3);

    /// The stored image of the last build.
    /// @param oSize  its length in bytes
    /// @return a new block, owned by the caller, who gives it back with delete[]
    virtual unsigned char const* GetOctreeStream(unsigned int& oSize);

    /// Makes the octree under construction one level less deep. The next End packs it.
    /// @return IDX_S_OK, or IDX_E_FAIL at depth 2 and below and when the cut failed
    virtual long int ReduceDepth();

    /// The packed octree of the last build, owned by the builder and changed by its next build.
    PLMIdxWTOptimOctree_0 const& GetOctree() { return _optimOctree; }

    /// Depth of the octree under construction.
    int GetDepth() { return static_cast<int>(_workingOctree._depth); }

    /// Number of non-empty cells of each level as drawn, before the fill:
    /// PLMIdxWTWorkingOctree::MAXDEPTH entries, valid as long as the builder lives.
    int* GetNCellsByDepth();

protected:
    /// Draws a mesh into an octree that has its depth and box, through the virtual DrawTriangle.
    /// Points that no triangle uses don't count. A triangle may reach out of the box.
    /// @return IDX_S_OK, IDX_S_NOTHING_DONE when no triangle touched a cell, a negative value on
    ///         failure
    long int DrawTriangles(
        IDX_Point const* iPoints,
        unsigned int iNPoints,
        IDX_Triangle const* iTriangles,
        unsigned int iNTriangles);

    /// Marks the cells of the last level that a triangle touches below one cell.
    /// @param iIterator  the cell
    /// @param iCentre    its centre, 3 floats
    /// @param iHalfSize  its half-size, 3 floats
    /// @param iTriangle  the vertices
    /// @param iBounds    minimum (row 0) and maximum (row 1) of the vertices
    /// @param iDepth     depth of the octree
    /// @param iFactor    enlarges the boxes that are given to the overlap test
    /// @return IDX_S_OK, IDX_S_NOTHING_DONE when no cell is touched, IDX_E_FAIL
    long int DrawTriangle2(
        IDX_Base_Octree_Iterator const& iIterator,
        float* const iCentre,
        float const* const iHalfSize,
        float (*const iTriangle)[3],
        float (*const iBounds)[3],
        int iDepth,
        float iFactor);

    PLMIdxWTWorkingOctree _workingOctree;  ///< the octree under construction
    PLMIdxWTOptimOctree_0 _optimOctree;    ///< the finished one
    int _maxDepth;                         ///< highest depth that may be chosen
    float _voxelSize;                      ///< wanted side of a cell of the last level
    IDX_Bool _useVoxelSize;                ///< IDX_True: a stream's depth follows from _voxelSize
    bool _smallAndFar;                     ///< set by Init: nothing is drawn, triangles are counted
    int _nDrawnTriangles;                  ///< triangles counted since Init

private:
    void InitOctreeParams(IDX_Point iLow, IDX_Point iHigh);
    void GetDepthAndVoxelSize(float const& iExtent, int& oDepth, float& oVoxelSize) const;
    long int ReadyDrawer();
    void ConstructEmpty();
    long int FillAndPack();

    OctreeTriangleDrawer* _drawer;  ///< owned; null before the first triangle
};

#endif
