#include "PLMIdxOctreeBuilder.h"

#include "OctreeTriangleDrawer.h"
#include "OverlapTest.h"
#include "WorkingOctreeRecords.h"
#include "common/FourFloats.h"
#include "common/TraceFailure.h"

#include "IDX_Base_Constants.h"
#include "PLMIdxOctreeFiller.h"
#include "VEXGetEnv.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <new>

// A build has four steps. Box and depth are chosen here. OctreeTriangleDrawer draws the triangles
// into the working octree, and PLMIdxOctreeFiller fills its inside. PLMIdxWTOptimOctree_0 packs the
// result into the stored form.
//
// The box goes into the stored image. So each number here is computed with the stated precision and
// in the stated order: another order would give other bytes.

namespace {

constexpr int kDefaultMaxDepth = 6;
constexpr int kMinDepth = 2;
constexpr int kDefaultPrecision = 1000000;

/// The search for the bounds of a mesh starts with this as the low side and its negative as the
/// high side. So a coordinate above it never becomes the low side, nor one below its negative the
/// high side.
constexpr float kBoundsLimit = 1000000000.0f;

/// Margin around a whole mesh, in cells of the last level.
constexpr float kMarginInCells = 0.05f;

/// Rounds a number to a float and cuts that to an integer again. A float above all integers gives
/// the highest one.
int ThroughFloat(int iValue) {
    const float value = static_cast<float>(iValue);
    return value >= 0x1p31f ? std::numeric_limits<int>::max() : static_cast<int>(value);
}

/// 1 divided by this number is the relative size below which a box counts as small and far. The
/// environment variable is read once.
int SmallFarPrecision() {
    static const int precision = [] {
        const char* text = VEXGetEnv("IDX_BBOX_SMALL_FAR_PRECISION");
        return text == nullptr ? kDefaultPrecision : ThroughFloat(std::atoi(text));
    }();
    return precision;
}

/// Halves in double precision, rounded to float.
float Half(float iValue) {
    return static_cast<float>(iValue * 0.5);
}

/// The padding of a box along an axis on which it is small and far: its extent is less than a
/// fraction of low + high, twice the distance of its centre from the origin. The padding brings the
/// extent up to that. 0 for any other axis.
/// @param ioIsSmallAndFar  becomes true for a small and far axis
double SmallFarPad(float iLow, float iHigh, double iFraction, bool& ioIsSmallAndFar) {
    const double l = iLow;
    const double h = iHigh;
    const double s = h + l;
    if (!(std::fabs(s) > iFraction && iFraction > std::fabs((l - h) / s))) return 0.0;
    ioIsSmallAndFar = true;
    return 0.5 * std::fabs(std::fabs(h * iFraction + l * iFraction) - (h - l));
}

/// The bounds of a mesh: of the points that its triangles use.
struct Bounds {
    float low[3];
    float high[3];
};

/// Finds the bounds of a mesh. An axis on which no coordinate counts becomes 0 to 0.
/// @return false when a triangle has an index that isn't below `iNPoints`
bool BoundsOfMesh(
    IDX_Point const* iPoints,
    unsigned int iNPoints,
    IDX_Triangle const* iTriangles,
    unsigned int iNTriangles,
    Bounds& oBounds) {
    FourFloats low = _mm_set1_ps(kBoundsLimit);
    FourFloats high = _mm_set1_ps(-kBoundsLimit);
    for (unsigned int i = 0; i < iNTriangles; ++i) {
        for (const unsigned int vertex : iTriangles[i].vertices) {
            if (vertex >= iNPoints) return false;
            const FourFloats point = AxesFrom(iPoints[vertex]);
            low =
                _mm_min_ps(point, low);  // of a NaN and a number, the second operand: the old bound
            high = _mm_max_ps(point, high);
        }
    }
    StoreAxes(low, oBounds.low);
    StoreAxes(high, oBounds.high);
    for (unsigned int axis = 0; axis < 3; ++axis) {
        if (oBounds.low[axis] > oBounds.high[axis]) oBounds.low[axis] = oBounds.high[axis] = 0.0f;
    }
    return true;
}

/// Makes the bounds a cube with the mesh at its centre and moves all faces outward by a margin.
/// Each step rounds to a float, and the box goes into the image: the order of the steps counts.
void MakeCube(Bounds& ioBounds, float iSide, float iMargin) {
    for (unsigned int axis = 0; axis < 3; ++axis) {
        const float extent = ioBounds.high[axis] - ioBounds.low[axis];
        const float growth = (iSide - extent) * 0.5f;
        ioBounds.low[axis] -= growth;
        ioBounds.high[axis] += growth;
        ioBounds.low[axis] -= iMargin;
        ioBounds.high[axis] += iMargin;
    }
}

float GreatestExtent(const Bounds& iBounds) {
    float greatest = iBounds.high[0] - iBounds.low[0];
    for (unsigned int axis = 1; axis < 3; ++axis) {
        const float extent = iBounds.high[axis] - iBounds.low[axis];
        if (extent > greatest) greatest = extent;
    }
    return greatest;
}

IDX_Point PointOf(const float (&iCoordinates)[3]) {
    return {iCoordinates[0], iCoordinates[1], iCoordinates[2]};
}

IDX_Point Extents(const IDX_Point& iLow, const IDX_Point& iHigh) {
    return {iHigh.x - iLow.x, iHigh.y - iLow.y, iHigh.z - iLow.z};
}

constexpr IDX_Point kZero = {0.0f, 0.0f, 0.0f};

}  // namespace

PLMIdxOctreeBuilder::PLMIdxOctreeBuilder()
    : _maxDepth(kDefaultMaxDepth),
      _voxelSize(0.0f),
      _useVoxelSize(IDX_False),
      _smallAndFar(false),
      _nDrawnTriangles(0),
      _drawer(nullptr) {}

PLMIdxOctreeBuilder::~PLMIdxOctreeBuilder() {
    delete _drawer;
}

void PLMIdxOctreeBuilder::SetParameters(int iMaxDepth, float iVoxelSize, IDX_Bool iUseVoxelSize) {
    _maxDepth = iMaxDepth;
    _voxelSize = iVoxelSize;
    _useVoxelSize = iUseVoxelSize;
}

/// A box that is small and far on one axis is padded on all three, by the largest padding. Its
/// octree will be one full box, so no triangle is drawn and nothing else is set up. For any other
/// box the padding is 0 and the working octree is made ready.
long int PLMIdxOctreeBuilder::Init(IDX_Point iLow, IDX_Point iHigh) {
    _nDrawnTriangles = 0;
    _smallAndFar = false;

    const double fraction = 1.0 / SmallFarPrecision();
    const double pad = std::max(
        {0.0, SmallFarPad(iLow.x, iHigh.x, fraction, _smallAndFar),
         SmallFarPad(iLow.y, iHigh.y, fraction, _smallAndFar),
         SmallFarPad(iLow.z, iHigh.z, fraction, _smallAndFar)});
    const auto less = [pad](float iValue) { return static_cast<float>(iValue - pad); };
    const auto more = [pad](float iValue) { return static_cast<float>(iValue + pad); };
    const IDX_Point low = {less(iLow.x), less(iLow.y), less(iLow.z)};
    const IDX_Point high = {more(iHigh.x), more(iHigh.y), more(iHigh.z)};

    if (_smallAndFar) {
        std::fputs("small and far object\n", stdout);
        _workingOctree.SetBB(low, Extents(low, high));
        return IDX_S_OK;
    }
    const long int status = _workingOctree.Reset();
    if (IDX_Failed(status)) {
        return TraceStatus("PLMIdxOctreeBuilder.DrawTriangles.PLMIdxWTWorkingOctree.Reset", status);
    }
    InitOctreeParams(low, high);
    _workingOctree.UnsetCuboid();
    if (WorkingOctreeAccess::HasRoot(_workingOctree)) return IDX_S_OK;
    // Why there is no root: SetDepth() and SetBB() drop the status that would say it.
    const bool tooDeep = GetDepth() >= PLMIdxWTWorkingOctree::MAXDEPTH;
    const bool tooSmall = WorkingOctreeAccess::HasArena(_workingOctree);
    return tooDeep || tooSmall ? IDX_E_FAIL : IDX_E_OUT_OF_MEMORY;
}

void PLMIdxOctreeBuilder::SetCuboid(
    IDX_Base_4x4Matrix const& iMatrix, IDX_Point iPoint1, IDX_Point iPoint2) {
    _workingOctree.SetCuboid(iMatrix, iPoint1, iPoint2);
}

/// The end of a stream. Without a triangle the octree is empty. A small and far object has no
/// cells: its octree is the full box that Init() stored.
long int PLMIdxOctreeBuilder::End() {
    if (_nDrawnTriangles == 0) {
        ConstructEmpty();
        return IDX_S_OK;
    }
    if (_smallAndFar) {
        IDX_Point origin;
        IDX_Point size;
        _workingOctree.GetBB(origin, size);
        return _optimOctree.ConstructFullOctree(origin, size);
    }
    return FillAndPack();
}

/// The road of a whole mesh: bounds, depth, box, drawing, filling, packing. The box is a cube, so
/// that the cells are cubes, too. Its margin depends on the depth that is chosen first; a mesh that
/// has to be drawn again, less deep, keeps the box.
long int PLMIdxOctreeBuilder::DrawGeometry(
    IDX_Point const* iPoints,
    unsigned int iNPoints,
    IDX_Triangle const* iTriangles,
    unsigned int iNTriangles) {
    if (iNPoints == 0 || iPoints == nullptr || iNTriangles == 0 || iTriangles == nullptr) {
        ConstructEmpty();
        return IDX_S_OK;
    }
    Bounds bounds;
    if (!BoundsOfMesh(iPoints, iNPoints, iTriangles, iNTriangles, bounds)) {
        return TraceStatus("PLMIdxOctreeBuilder.DrawGeometry.IncorrectPoint", IDX_E_FAIL);
    }
    const float side = GreatestExtent(bounds);
    int depth = kMinDepth;
    float cellSide = side * 0.25f;  // at depth 2
    for (; depth < _maxDepth && cellSide > _voxelSize; ++depth) cellSide = Half(cellSide);
    MakeCube(bounds, side, cellSide * kMarginInCells);

    const IDX_Point low = PointOf(bounds.low);
    _workingOctree.SetDepth(depth);
    _workingOctree.SetBB(low, Extents(low, PointOf(bounds.high)));
    // The arena may be too small for the cells of this depth. One level less deep there are about a
    // quarter as many, since they cover a surface.
    for (; depth >= kMinDepth; --depth) {
        _workingOctree.SetDepth(depth);
        if (!IDX_Failed(DrawTriangles(iPoints, iNPoints, iTriangles, iNTriangles))) {
            return FillAndPack();
        }
    }
    return IDX_E_FAIL;
}

long int PLMIdxOctreeBuilder::DrawTriangle(
    IDX_Point const& iP1, IDX_Point const& iP2, IDX_Point const& iP3) {
    if (_smallAndFar) {
        ++_nDrawnTriangles;
        return IDX_S_OK;
    }
    const long int status = ReadyDrawer();
    if (IDX_Failed(status)) return status;
    return _drawer->Draw(iP1, iP2, iP3, _nDrawnTriangles);
}

/// Makes a drawer for the octree at the first triangle, and a new one in its place when the octree
/// has changed since.
long int PLMIdxOctreeBuilder::ReadyDrawer() {
    if (_drawer != nullptr && _drawer->IsCurrent()) return IDX_S_OK;
    if (!WorkingOctreeAccess::HasRoot(_workingOctree)) return IDX_E_FAIL;
    if (_drawer != nullptr) {
        new (_drawer) OctreeTriangleDrawer(_workingOctree);
    } else {
        _drawer = new (std::nothrow) OctreeTriangleDrawer(_workingOctree);
    }
    return _drawer != nullptr ? IDX_S_OK : IDX_E_OUT_OF_MEMORY;
}

unsigned char const* PLMIdxOctreeBuilder::GetOctreeStream(unsigned int& oSize) {
    return _optimOctree.GetOctreeBuffer(oSize);
}

long int PLMIdxOctreeBuilder::ReduceDepth() {
    if (_workingOctree._depth < 3) return IDX_E_FAIL;
    return _workingOctree.ReduceDepth(static_cast<int>(_workingOctree._depth) - 1);
}

int* PLMIdxOctreeBuilder::GetNCellsByDepth() {
    return WorkingOctreeAccess::Counts(_workingOctree);
}

/// Each triangle goes through the virtual DrawTriangle(), which a derived class may override.
long int PLMIdxOctreeBuilder::DrawTriangles(
    IDX_Point const* iPoints,
    unsigned int,
    IDX_Triangle const* iTriangles,
    unsigned int iNTriangles) {
    const long int status = _workingOctree.Reset();
    if (IDX_Failed(status)) {
        return TraceStatus("PLMIdxOctreeBuilder.DrawTriangles.PLMIdxWTWorkingOctree.Reset", status);
    }
    unsigned int outside = 0;
    for (unsigned int i = 0; i < iNTriangles; ++i) {
        const unsigned int(&v)[3] = iTriangles[i].vertices;
        const long int result = DrawTriangle(iPoints[v[0]], iPoints[v[1]], iPoints[v[2]]);
        if (IDX_Failed(result)) {
            return TraceStatus("PLMIdxOctreeBuilder.DrawTriangles.DrawTriangle", IDX_E_FAIL);
        }
        if (result == IDX_S_NOTHING_DONE) ++outside;
    }
    if (outside > 0) {
        IDX_Base_Trace::Debug(
            "PLMIdxOctreeBuilder.DrawTriangles - %d / %d triangles outside initial BB!!",
            static_cast<int>(outside), static_cast<int>(iNTriangles));
    }
    return outside < iNTriangles ? IDX_S_OK : IDX_S_NOTHING_DONE;
}

/// The second stage of drawing alone, for derived classes that walk down by themselves.
long int PLMIdxOctreeBuilder::DrawTriangle2(
    IDX_Base_Octree_Iterator const& iIterator,
    float* const iCentre,
    float const* const iHalfSize,
    float (*const iTriangle)[3],
    float (*const iBounds)[3],
    int iDepth,
    float iFactor) {
    const long int status = ReadyDrawer();
    if (IDX_Failed(status)) return status;
    const FourFloats centre = AxesFrom(iCentre);
    const FourFloats halfSize = AxesFrom(iHalfSize);
    TriangleCells triangle(iTriangle, centre, halfSize, iFactor, !OverlapTestIsOurs());
    triangle.SetReach(AxesFrom(iBounds[0]), AxesFrom(iBounds[1]));
    return _drawer->DrawBelow(
        iIterator, centre, halfSize, triangle, static_cast<unsigned int>(iDepth));
}

/// Depth and box of a stream. Both the depth and the margin on all sides follow from the extent
/// along X.
void PLMIdxOctreeBuilder::InitOctreeParams(IDX_Point iLow, IDX_Point iHigh) {
    const float extent = iHigh.x - iLow.x;
    int depth = 0;
    float voxelSize = 0.0f;
    GetDepthAndVoxelSize(extent, depth, voxelSize);
    const float margin = extent * IDX_Base_Constants::OCTREE_EPSILON;
    const float margins = 2.0f * margin;
    const IDX_Point origin = {iLow.x - margin, iLow.y - margin, iLow.z - margin};
    const IDX_Point size = {
        extent + margins, (iHigh.y - iLow.y) + margins, (iHigh.z - iLow.z) + margins};
    _workingOctree.SetDepth(depth);
    _workingOctree.SetBB(origin, size);
}

/// The depth of a stream, from the wanted side of a cell or from the highest depth. The first way
/// goes down from depth 2 until the cells are small enough. The second way goes up from the highest
/// depth until the cells are large enough.
/// @param oVoxelSize  the side of a cell of the last level
void PLMIdxOctreeBuilder::GetDepthAndVoxelSize(
    float const& iExtent, int& oDepth, float& oVoxelSize) const {
    if (_useVoxelSize == IDX_True) {
        oDepth = kMinDepth;
        oVoxelSize = iExtent * 0.25f;
        for (; oDepth < _maxDepth && oVoxelSize > _voxelSize; ++oDepth) {
            oVoxelSize = Half(oVoxelSize);
        }
        // The last halving went below the wanted side: one level less deep is right.
        if (_voxelSize > oVoxelSize && oDepth != kMinDepth) {
            --oDepth;
            oVoxelSize = static_cast<float>(oVoxelSize * 2.0);
        }
        return;
    }
    for (oDepth = _maxDepth; oDepth >= 1; --oDepth) {
        oVoxelSize = iExtent / std::ldexp(1.0f, oDepth);
        if (!(oVoxelSize < IDX_Base_Constants::MIN_OCTREE_VOXEL_SIZE)) break;
    }
    oDepth = std::max(oDepth, kMinDepth);
}

/// The empty octree, in both forms.
void PLMIdxOctreeBuilder::ConstructEmpty() {
    _workingOctree.SetDepth(0);
    _workingOctree.SetBB(kZero, kZero);
    (void)_optimOctree.ConstructFrom(_workingOctree);  // needs no memory
}

/// Fills the inside and packs the result. A fill that fails is traced, and the surface alone is
/// packed: the index has a part that is hollow, and not none.
long int PLMIdxOctreeBuilder::FillAndPack() {
    PLMIdxOctreeFiller filler(_workingOctree);
    if (IDX_Failed(filler.Fill())) {
        IDX_Base_Trace::Debug("PLMIdxOctreeBuilder.DrawGeometry.PLMIdxOctreeFiller.Fill");
    }
    return IDX_Failed(_optimOctree.ConstructFrom(_workingOctree)) ? IDX_E_FAIL : IDX_S_OK;
}
