#ifndef BuildJob_h
#define BuildJob_h

#include "ChildProcess.h"
#include "PartBuild.h"
#include "Projection.h"

#include <string>
#include <vector>

/// How parts are built.
struct BuildSettings {
    BuildParameters parameters;
    unsigned int seconds = 600;  ///< processor time for one part
    bool pictures = false;
};

/// One part to be built.
struct PartToBuild {
    const MeshPart* mesh;    ///< must live until the child was started
    std::string identifier;  ///< for its picture, as is the next
    UpAxis up;
};

/// What a child sends back for one part.
struct PartResult {
    Status status;  ///< after a failure the image is empty, and the figures mean nothing
    PartFacts facts;
    std::string image;    ///< bytes of the stored octree
    std::string picture;  ///< bytes of a PNG file, or empty
    std::string note;     ///< what fell short of what was asked for; mostly empty
};

/// The work of a child that builds some parts: its messages are their results, in the order of the
/// parts.
ChildProcess::Work BuildWork(
    const std::vector<PartToBuild>& iParts, const BuildSettings& iSettings);

/// The message, at the other end. False for bytes that can't be from a sound build.
bool DecodeResult(const std::string& iMessage, PartResult& oResult);

#endif
