#ifndef AssemblyPicture_h
#define AssemblyPicture_h

#include "Pixels.h"
#include "Projection.h"
#include "Status.h"

#include "IDX_Base_BoundingBox.h"
#include "PLMIdxIBaseOctree.h"

#include <functional>
#include <string>
#include <vector>

/// One part of an assembly, as it is shown.
struct ShownPart {
    std::string name;
    IDX_Base_BoundingBox box;
    bool isHighlighted = false;
};

/// What is shown of an assembly.
struct AssemblyFacts {
    std::string title;
    std::string subtitle;
    std::vector<ShownPart> parts;
    UpAxis up = UpAxis::Z;
};

/// Gives the octree of a part by its number in the list, from 0. It is looked at until the next
/// call.
using OctreeSource = std::function<Status(std::size_t iNumber, const PLMIdxIBaseOctree*& oOctree)>;

/// Draws an assembly in one view: its parts in different colours or, when some are highlighted,
/// those in colours in front of all others in a faint grey, so that none is hidden; with a legend.
/// Each part is drawn as fine as the picture shows it. Fails with a failure of `iOctreeOf` and when
/// there is no memory.
/// @param iProgress  called with the number of parts that are drawn; may be empty
/// @param oPng       the picture as the bytes of a PNG file
Status DrawAssembly(
    const AssemblyFacts& iFacts,
    const OctreeSource& iOctreeOf,
    const std::function<void(std::size_t iDone)>& iProgress,
    std::string& oPng);

/// The colour of the part with a number in an order; those of neighbours differ well.
Colour ColourOf(std::size_t iNumber);

#endif
