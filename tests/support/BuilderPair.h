#ifndef BuilderPair_h
#define BuilderPair_h

#include "AdjustableConstants.h"
#include "AdjustableOverlap.h"
#include "Images.h"
#include "ReferenceBuilder.h"
#include "TraceRecorder.h"

/// A builder that draws meshes as a subclass may: into a box of its own, and with an override of DrawTriangle that
/// hands on other points of the array.
struct SubclassedBuilder : PLMIdxOctreeBuilder {
    long int DrawMesh(const Mesh& mesh);
    long int DrawTriangle(IDX_Point const& p1, IDX_Point const& p2, IDX_Point const& p3) override;

    std::vector<unsigned int> handOn;  ///< as that of the reference
    const IDX_Point* points = nullptr;
};

/// The library's builder and the reference, fed with the same calls: status, trace, depth, counts, questions asked of
/// the overlap test, and image. The two agree as long as `difference` is empty; after that nothing is looked at.
class BuilderPair {
public:
    /// @param rule  decides which boxes a triangle meets; null for the stand-in's operation
    explicit BuilderPair(OverlapRule rule = nullptr);
    ~BuilderPair() { SetOverlapRule(nullptr); }

    void SetParameters(int maxDepth, float voxelSize, IDX_Bool useVoxelSize);
    void SetCuboid(IDX_Point a, IDX_Point b);
    void SetHandOn(const std::vector<unsigned int>& points);
    void Init(IDX_Point low, IDX_Point high);
    void DrawGeometry(const Mesh& mesh);
    void DrawTriangles(const Mesh& mesh);
    void DrawTriangle(const std::array<IDX_Point, 3>& p);
    void ReduceDepth();
    void End();

    SubclassedBuilder library;
    reference::Builder plain{arenaSize, boxMargin};
    std::string difference;

private:
    void Compare(long int ofLibrary, long int ofPlain);
    void CompareImages();
    void Differ(bool differs, const std::string& what);

    TraceRecorder _trace;
};

#endif
