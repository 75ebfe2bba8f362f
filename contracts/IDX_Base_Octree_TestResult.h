#ifndef IDX_Base_Octree_TestResult_h
#define IDX_Base_Octree_TestResult_h

/// State of one cell. The values fit into two bits, and the octrees' records hold them so.
enum IDX_Base_Octree_TestResult : unsigned int {
    OCTREE_EMPTY = 0,    ///< holds nothing; also the answer for a position below the last level
    OCTREE_PARTIAL = 1,  ///< subdivided; never the state of a cell of the last level
    OCTREE_FULL = 2,     ///< wholly solid
    OCTREE_SURFACE = 3   ///< last level of a working octree: at least one triangle touches the cell
};

#endif
