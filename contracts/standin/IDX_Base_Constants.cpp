#include "IDX_Base_Constants.h"

const float IDX_Base_Constants::MIN_OCTREE_VOXEL_SIZE = 0.001f;
const float IDX_Base_Constants::OCTREE_EPSILON = 0.001f;
const unsigned int IDX_Base_Constants::MAX_OCTREE_SIZE = 536870912;

const char IDX_Base_Constants::PATH_SEPARATOR = '/';
const char* const IDX_Base_Constants::PATH_SEPARATOR_STR = "/";

const char* const IDX_Base_Constants::IDXBUFFER_FILE_BASE_NAME = "IDXBuffer";

const char* const IDX_Base_Constants::SECURITY_INDEX_DIRECTORY = "Security";
const char* const IDX_Base_Constants::URLMAP_INDEX_DIRECTORY = "UrlMap";
const char* const IDX_Base_Constants::DWH_INDEX_DIRECTORY = "Dwh";
