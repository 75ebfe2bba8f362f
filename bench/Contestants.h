#ifndef Contestants_h
#define Contestants_h

#include "Mesh.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// What came out of a build.
struct Outcome {
    uint64_t imageBytes = 0;       ///< of the stored form
    uint64_t cells = 0;            ///< occupied cells of the last level
    std::optional<uint64_t> hash;  ///< of the stored form, where that is the same from run to run
};

/// One of those that turn a mesh in memory into solid voxels.
class Contestant {
public:
    virtual ~Contestant() = default;

    /// The work that is measured, on a grid of 2^iDepth cells a side. Once for each object.
    /// Throws std::runtime_error.
    virtual void Run(const Mesh& iMesh, unsigned int iDepth) = 0;

    /// Looks at the result. Not measured.
    virtual Outcome Describe() = 0;
};

/// The names of those that this build has: Gridloom first, then the peers.
std::vector<std::string> ContestantNames();

/// Makes one by its name. Loads what it needs, so that Run doesn't pay for that.
std::unique_ptr<Contestant> MakeContestant(const std::string& iName);

#endif
