#ifndef IDX_Base_Octree_Iterator_h
#define IDX_Base_Octree_Iterator_h

/// A position in an octree, copied freely. A default one is the root. A cell is named by the
/// position of its parent and its child number.
struct IDX_Base_Octree_Iterator {
    unsigned int offset = 0;  ///< byte offset in the octree's buffer; 0 at the root and below all
    unsigned int depth = 0;   ///< number of Move steps from the root
};
static_assert(sizeof(IDX_Base_Octree_Iterator) == 8, "IDX_Base_Octree_Iterator: two words");

#endif
