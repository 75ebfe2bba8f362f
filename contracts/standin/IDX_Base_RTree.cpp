#include "IDX_Base_RTree.h"

namespace {

/// Parent, level, count, slot and two bytes of zero. No image holds this number: writers and
/// readers must have the same one.
constexpr unsigned int kNodeHeaderSize = 12;

}  // namespace

IDX_Base_RTree::IDX_Base_RTree()
    : m_minFill(0),
      m_maxChildren(0),
      m_root(0),
      m_nodeSize(0),
      m_nodeHeaderSize(kNodeHeaderSize),
      m_storage(nullptr),
      m_size(0) {}

IDX_Base_RTree::~IDX_Base_RTree() = default;
