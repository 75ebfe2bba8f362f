#ifndef ReferenceBuilder_h
#define ReferenceBuilder_h

#include "Meshes.h"

#include "IDX_Base_4x4Matrix.h"
#include "IDX_Bool.h"
#include "IDX_Status.h"

#include <array>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

/// A second opinion on building octrees, written to be obviously right instead of fast. Cells are
/// entries of hash maps, found by their place in the grid of their level; there are no records, only
/// a count of the bytes that the records would take. It gives the same status, trace, depth, counts
/// and image bytes as the library, and shares no code with it.
namespace reference {

/// Column, row and layer of a cell among the 2^level cells of its level along each axis.
struct Place {
    unsigned int level = 0;
    std::array<std::uint32_t, 3> at = {0, 0, 0};

    Place Child(unsigned int child) const;
    Place Ancestor(unsigned int ofLevel) const;
    unsigned int LastStep() const;  ///< its child number in its parent
    std::uint64_t Key() const;
};

enum State : unsigned int { kEmpty, kPartial, kFull, kSurface };

/// The working tree: states, tags and the bytes taken.
struct Tree {
    std::uint64_t arena = 0;
    unsigned int depth = 0;
    IDX_Point origin = {0, 0, 0};
    IDX_Point size = {0, 0, 0};
    std::uint64_t bytes = 0;
    std::array<int, 20> counts = {};
    std::unordered_map<std::uint64_t, std::uint16_t> states;  ///< of 8 children, by their parent
    std::unordered_map<std::uint64_t, std::uint16_t> tags;
    std::vector<std::string>* trace = nullptr;

    State Test(const Place& cell) const;
    void Fill(const Place& cell, State state);
    long int MoveCreate(const Place& cell);
    std::uint16_t& Tag(const Place& cell);
    long int Reset();
    long int CopyBelow(const Tree& source, const Place& cell);

private:
    std::uint16_t Word(const Place& parent) const;
    long int Alloc(unsigned int wanted);
};

struct Cuboid {
    int set = 0;
    IDX_Base_4x4Matrix matrix;
    std::array<IDX_Point, 2> points = {};
};

class Builder {
public:
    int maxDepth = 6;
    float voxelSize = 0;
    IDX_Bool useVoxelSize = IDX_False;
    Cuboid cuboid;

    Builder(std::uint64_t arena, float epsilon);
    long int Init(IDX_Point low, IDX_Point high);
    long int DrawTriangle(const IDX_Point& p1, const IDX_Point& p2, const IDX_Point& p3);
    long int ReduceDepth();
    long int End();
    long int DrawGeometry(const Mesh& mesh);

    Tree tree;
    std::vector<unsigned char> image;
    std::vector<std::string> trace;
    std::string output;  ///< what goes to the standard output

private:
    long int Fail(const char* tag);
    void SetDepthAndBox(int depth, IDX_Point origin, IDX_Point size);
    int StreamDepth(float extent) const;
    long int DrawBelow(
        const Place& cell,
        const float centre[3],
        const float half[3],
        const float triangle[3][3],
        float factor);
    long int DrawTriangles(const Mesh& mesh);
    long int FillAndPack();
    bool FillInside();
    bool TagComponents(const Place& cell);
    bool Propagate(const Place& cell);
    void GatherFace(unsigned int axis, const Place& cell, std::vector<std::uint16_t*>& slots);
    void SetAsEmptyOrFull(const Place& cell);
    void Pack();
    void PackBelow(const Place& cell, std::size_t record);
    void PutHeader(unsigned int depth);

    float _epsilon;
    bool _smallAndFar = false;
    int _drawn = 0;
    Cuboid _storedCuboid;  ///< of the packed tree
    IDX_Point _storedOrigin = {0, 0, 0};
    IDX_Point _storedSize = {0, 0, 0};
    std::vector<unsigned char> _records;
    std::vector<int> _links;  ///< of the tags, from position 1
};

}  // namespace reference

#endif
