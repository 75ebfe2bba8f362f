#ifndef BuilderPair_h
#define BuilderPair_h

#include "AdjustableConstants.h"
#include "Images.h"
#include "ReferenceBuilder.h"
#include "TraceRecorder.h"

/// The library's builder and the reference, fed with the same calls: status, depth, counts, number of questions asked
/// of the overlap rule, and image. The two agree as long as `difference` is empty; after that nothing is compared.
class BuilderPair {
public:
    /// @param rule  decides which boxes a triangle meets; null for the stand-in's operation
    explicit BuilderPair(OverlapRule rule) { SetOverlapRule(rule); }
    ~BuilderPair() { SetOverlapRule(nullptr); }

    void SetParameters(int maxDepth, float voxelSize, IDX_Bool useVoxelSize);

    /// Starts a stream in a box that isn't small and far. The reference takes over the depth.
    void Init(IDX_Point low, IDX_Point high);
    void DrawTriangle(const std::array<IDX_Point, 3>& p);

    /// Draws a mesh in any box, as a subclass may.
    void DrawTriangles(const Mesh& mesh);
    void ReduceDepth();
    void End();
    void DrawGeometry(const Mesh& mesh);

    struct : PLMIdxOctreeBuilder {
        using PLMIdxOctreeBuilder::DrawTriangles;
    } library;
    std::string difference;

private:
    void Compare(long int ofLibrary, const std::function<long int()>& callReference);
    void Differ(bool differs, const std::string& what);

    reference::Builder _reference{arenaSize, boxMargin};
    TraceRecorder _trace;
};

/// Feeds a pair with random calls: whole meshes and streams, far and near, large and tiny, with walls, gaps and
/// numbers that aren't finite; now and then with a small arena or another overlap rule.
/// @return the first difference, empty when there is none
std::string DifferenceOnRandomCalls(Random& random);

#endif
