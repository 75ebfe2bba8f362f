#ifndef IDX_Base_Constants_h
#define IDX_Base_Constants_h

#include "GridloomContractsExport.h"

/// Constants shared by the writers and the readers of index files. They are defined in one source
/// file and never inline: a program that defines one of them itself changes it for both libraries.
class GRIDLOOM_CONTRACTS_API IDX_Base_Constants {
public:
    static const float MIN_OCTREE_VOXEL_SIZE;   ///< lower limit of a cell's side, model units
    static const float OCTREE_EPSILON;          ///< margin around an octree's box / its extent
    static const unsigned int MAX_OCTREE_SIZE;  ///< bytes of an octree's arena or block

    static const char PATH_SEPARATOR;             ///< between the directories of a path
    static const char* const PATH_SEPARATOR_STR;  ///< the same as a text

    static const char* const IDXBUFFER_FILE_BASE_NAME;  ///< redirecting file of an index directory

    // Names of the directories under an index base.
    static const char* const SECURITY_INDEX_DIRECTORY;
    static const char* const URLMAP_INDEX_DIRECTORY;
    static const char* const DWH_INDEX_DIRECTORY;
};

#endif
