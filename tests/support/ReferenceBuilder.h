#ifndef ReferenceBuilder_h
#define ReferenceBuilder_h

#include "ExactOverlap.h"
#include "Meshes.h"

#include "IDX_Base_4x4Matrix.h"
#include "IDX_Bool.h"
#include "IDX_Status.h"

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

/// A second opinion on building octrees, written to be obviously right instead of fast. Cells are
/// entries of hash maps; there are no records, only a count of the bytes that they would take. It
/// gives the same status, trace, depth, counts and image bytes as the library, without its code.
namespace reference {

/// A cell: the child numbers on its way from the root, three bits each, behind a leading 1.
using Cell = std::uint64_t;
constexpr Cell kRoot = 1;

enum State : unsigned int { kEmpty, kPartial, kFull, kSurface };

/// The octree under construction.
struct Tree {
    std::uint64_t arena = 0;  ///< bytes for its records
    unsigned int depth = 0;
    Triple origin = {};
    Triple size = {};
    std::uint64_t bytes = 0;  ///< taken by records
    std::array<int, 20> counts = {};
    std::unordered_map<Cell, std::uint16_t> states;  ///< of a cell's children, two bits each
    std::unordered_map<Cell, std::uint16_t> tags;
    bool filled = false;  ///< since the last Reset
    std::vector<std::string> trace;

    State Test(Cell cell) const;
    void Fill(Cell cell, State state);
    long int MoveCreate(Cell cell);
    std::uint16_t& Tag(Cell cell);
    long int Reset();
    long int CopyBelow(const Tree& source, Cell cell);
    long int Alloc(unsigned int wanted);
    long int Fail(const char* tag);
};

/// What a stored image holds beside the box and the cells.
struct Cuboid {
    int isThere = 0;
    IDX_Base_4x4Matrix matrix;
    std::array<IDX_Point, 2> points = {};
};

class Builder {
public:
    Builder(std::uint64_t arena, float epsilon);
    long int Init(IDX_Point low, IDX_Point high);
    long int DrawTriangle(const Corners& triangle);
    long int ReduceDepth();
    long int End();
    long int DrawGeometry(const Mesh& mesh);
    long int DrawTriangles(const Mesh& mesh);

    OverlapRule overlap = ExactRule;
    std::vector<unsigned int>
        handOn;  ///< for each point of a mesh the one that is drawn in its place
    int maxDepth = 6;
    float voxelSize = 0;
    IDX_Bool useVoxelSize = IDX_False;
    Cuboid cuboid;
    Tree tree;
    std::vector<unsigned char> image;  ///< of the packed octree
    std::string output;                ///< what goes to the standard output

private:
    void SetDepthAndBox(int depth, const Triple& origin, const Triple& size);
    int StreamDepth(float extent) const;
    long int DrawBelow(
        Cell cell, const Triple& centre, const Triple& half, const Corners& t, float factor);
    long int FillAndPack();
    bool False(const char* tag);
    bool FillInside();
    bool TagComponents(Cell cell);
    bool Propagate(Cell cell);
    void GatherFace(unsigned int axis, Cell cell);
    void SetAsEmptyOrFull(Cell cell);
    long int Pack();
    long int PackBelow(Cell cell, std::size_t record);
    void Store(unsigned int depth);

    float _epsilon;
    bool _smallAndFar = false;
    int _drawn = 0;
    Cuboid _stored;
    std::vector<unsigned char> _records;
    std::size_t _block;                  ///< bytes for them
    std::vector<int> _links;             ///< of the tags, from position 1
    std::vector<std::uint16_t*> _slots;  ///< tags beside a cell
};

}  // namespace reference

#endif
