#include "IDX_Base_Constants.h"

const float IDX_Base_Constants::MIN_OCTREE_VOXEL_SIZE = 0.001f;
const float IDX_Base_Constants::OCTREE_EPSILON = 0.001f;
const unsigned int IDX_Base_Constants::MAX_OCTREE_SIZE = 536870912;
