#ifndef IndexCheck_h
#define IndexCheck_h

#include "PartIndex.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// What a verification found.
struct IndexCheckResult {
    /// Each names a file or a part, and what is wrong; at most kMostProblems.
    std::vector<std::string> problems;
    std::uint64_t nProblems = 0;  ///< all of them
    unsigned int nParts = 0;
    std::uint64_t nBytes = 0;  ///< of all files, each read once

    static constexpr std::size_t kMostProblems = 100;
};

/// Reads an index whole: the structure of every file, every octree image, and that identifier,
/// record, image and box lead to each other, with no byte that belongs to nothing. What no reader
/// looks at may hold anything: the slots of an R-tree node that aren't in use, the cuboid of an
/// octree without one.
/// @param iProgress  called with the share that is done, from 0 to 1; may be empty
IndexCheckResult CheckIndex(const PartIndex& iIndex, const std::function<void(double)>& iProgress);

/// The same for the index in a folder, which it opens; an index that can't be opened is a problem,
/// too.
IndexCheckResult CheckIndex(
    const std::string& iFolder, const std::function<void(double)>& iProgress);

#endif
