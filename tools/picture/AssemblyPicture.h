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

/// Draws an assembly in one view: its parts in different colours or, when some are highlighted, those in colours
/// in front of all others in a faint grey, so that none is hidden; with a legend. Each part is drawn as fine as the picture shows it.
/// @param iOctreeOf  gives the octree of the part with a place in the list, for the time of the call's next use
/// @param iProgress  told how many parts are drawn; may be empty
/// @param oPng       the picture as the bytes of a PNG file
Status DrawAssembly(
    const AssemblyFacts& iFacts,
    const std::function<const PLMIdxIBaseOctree&(std::size_t iPart)>& iOctreeOf,
    const std::function<void(std::size_t iDone)>& iProgress,
    std::string& oPng);

/// The colour of the part with a place in an order; those of neighbours differ well.
Colour ColourOf(std::size_t iPlace);

#endif
