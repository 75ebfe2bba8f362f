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
};

#endif
