#ifndef BoxIndexes_h
#define BoxIndexes_h

#include "IDX_Base_BoundingBox.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

/// An index of boxes, ours or a peer's: boxes go in one by one, then it is asked.
class BoxIndex {
public:
    virtual ~BoxIndex() = default;

    virtual void Insert(const IDX_Base_BoundingBox& iBox, std::uint32_t iValue) = 0;

    /// No more insertions follow.
    virtual void Finish() {}

    /// The number of boxes that touch a window.
    virtual std::size_t CountHits(const IDX_Base_BoundingBox& iWindow) = 0;

    /// The number of nodes that such a search looks at; 0 where that isn't known.
    virtual std::size_t CountNodes(const IDX_Base_BoundingBox&) { return 0; }
};

/// A kind of index, built here for nodes of `fanOut` entries.
struct BoxIndexKind {
    std::string name;
    std::unique_ptr<BoxIndex> (*make)(unsigned int iMinFill, unsigned int iFanOut);
    bool isSlow;  ///< measured on the smaller data with one fan-out
};

/// Ours first, then the peers that are there.
std::vector<BoxIndexKind> BoxIndexKinds();

#endif
