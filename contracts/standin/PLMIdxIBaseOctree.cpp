#include "PLMIdxIBaseOctree.h"

namespace {

/// The format word of stored octrees. Writers and readers must have the same one.
constexpr unsigned int kOctreeVersion = 1;

}  // namespace

PLMIdxIBaseOctree::PLMIdxIBaseOctree(IDXOctreeType iType)
    : _type(iType),
      _bbOrigin{0.0f, 0.0f, 0.0f},
      _bbSize{0.0f, 0.0f, 0.0f},
      _depth(0),
      _version(kOctreeVersion),
      _hasCuboid(0),
      _cuboidPoint1{0.0f, 0.0f, 0.0f},
      _cuboidPoint2{0.0f, 0.0f, 0.0f} {}

PLMIdxIBaseOctree::~PLMIdxIBaseOctree() = default;

void PLMIdxIBaseOctree::GetBB(IDX_Point& oOrigin, IDX_Point& oSize) const {
    oOrigin = _bbOrigin;
    oSize = _bbSize;
}

void PLMIdxIBaseOctree::GetCuboid(
    IDX_Base_4x4Matrix& oMatrix, IDX_Point& oPoint1, IDX_Point& oPoint2) const {
    oMatrix = _cuboidMatrix;
    oPoint1 = _cuboidPoint1;
    oPoint2 = _cuboidPoint2;
}
