#ifndef ReferenceBuilder_h
#define ReferenceBuilder_h

#include "AdjustableOverlap.h"
#include "Meshes.h"

#include "IDX_Status.h"

#include <cstdint>
#include <unordered_map>
#include <vector>

/// A second definition of building octrees, written to be obviously right instead of fast. Cells are
/// entries of hash maps; there are no records, only a count of the bytes that they would take. It
/// gives the same status, counts and image bytes as the library, without its code. What a table of
/// cases says better isn't here: small and far boxes, the depth of a stream, cuboids, and failures
/// of the memory.
namespace reference {

/// A cell: the child numbers on its way from the root, three bits each, after a leading 1.
using Cell = std::uint64_t;
constexpr Cell kRoot = 1;

enum State : unsigned int { kEmpty, kPartial, kFull, kSurface };

/// Ends a call: the arena is full, the overlap rule can't decide, or there is nothing to draw into.
struct Failure {};

/// Each call gives the status of the library's, or throws Failure where that gives IDX_E_FAIL.
class Builder {
public:
    /// @param arena    bytes for records, at least those of a root
    /// @param epsilon  margin of the box of a stream, as a part of its extent along X
    Builder(std::uint64_t arena, float epsilon);
    void Init(unsigned int depthOfStream, IDX_Point low, IDX_Point high);
    long int DrawTriangle(const Corners& triangle);
    long int DrawTriangles(const Mesh& mesh);
    long int DrawGeometry(const Mesh& mesh);
    long int ReduceDepth();
    long int End();

    int maxDepth = 6;
    float voxelSize = 0;
    unsigned int depth = 0;
    std::array<int, 20> counts = {};   ///< of cells, by level
    std::vector<unsigned char> image;  ///< of the packed octree

private:
    State Test(Cell cell) const;
    void Fill(Cell cell, State state);
    void MoveCreate(Cell cell);
    std::uint16_t& Tag(Cell cell);
    void Take(unsigned int bytes);
    void Reset(unsigned int newDepth);
    void CopyBelow(const Builder& source, Cell cell);
    bool DrawBelow(
        Cell cell, const Triple& centre, const Triple& half, const Corners& t, float factor);
    long int FillAndPack();
    void TagComponents(Cell cell);
    void Propagate(Cell cell);
    void GatherFace(unsigned int axis, Cell cell, std::vector<std::uint16_t*>& tags);
    void SetAsEmptyOrFull(Cell cell);
    long int Pack();
    void PackBelow(Cell cell, std::size_t record);

    std::uint64_t _arena;
    float _epsilon;
    std::uint64_t _taken = 0;  ///< bytes of the arena
    Triple _origin = {};
    Triple _size = {};
    std::unordered_map<Cell, std::uint16_t> _states;  ///< of a cell's children, two bits each
    std::unordered_map<Cell, std::uint16_t> _tags;
    std::vector<std::uint16_t> _links;  ///< of the tags
    bool _filled = false;               ///< since the last Reset
    int _drawn = 0;
    std::vector<unsigned char> _records;  ///< of the image
};

}  // namespace reference

#endif
