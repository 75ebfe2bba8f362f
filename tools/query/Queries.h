#ifndef Queries_h
#define Queries_h

#include "PartIndex.h"
#include "Solids.h"

#include <string>
#include <vector>

// The questions that an open index answers. Parts come in rising order of their identifiers. What
// is damaged on the way makes the question fail; its answer means nothing then.

using Parts = std::vector<StoredPart>;

/// The part of that identifier or, when there is none, all whose identifiers match the text as a
/// shell pattern: '*' for any characters, '/' too, '?' for one, [...] for one of some.
Status FindByName(const PartIndex& iIndex, const std::string& iName, Parts& oParts);

/// The parts whose boxes meet a box.
Status FindInBox(const PartIndex& iIndex, const Box& iBox, Parts& oParts);

/// The parts that are solid at a point.
Status FindAt(const PartIndex& iIndex, const Point& iPoint, Parts& oParts);

/// The parts whose solid meets that of a part, without the part itself.
Status FindClashes(const PartIndex& iIndex, const StoredPart& iPart, Parts& oParts);

/// A part, and how far it is.
struct NearPart {
    StoredPart part;
    double distance;  ///< to its nearest solid cell, model units; 0 inside
};

/// The parts nearest to a point, nearest first; of those at one distance, in the order of their
/// identifiers. A best-first search: G. R. Hjaltason, H. Samet, "Distance browsing in spatial
/// databases", ACM TODS 24(2), 1999.
/// @param iCount  how many, at most
Status FindNearest(
    const PartIndex& iIndex,
    const Point& iPoint,
    unsigned int iCount,
    std::vector<NearPart>& oParts);

#endif
