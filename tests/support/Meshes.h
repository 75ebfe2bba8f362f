#ifndef Meshes_h
#define Meshes_h

#include "IDX_Point.h"
#include "IDX_Triangle.h"

#include <array>
#include <functional>
#include <random>
#include <vector>

struct Mesh {
    std::vector<IDX_Point> points;
    std::vector<IDX_Triangle> triangles;

    void Add(const Mesh& other);
    std::array<IDX_Point, 3> CornersOf(const IDX_Triangle& triangle) const;
    void AddFace(unsigned int a, unsigned int b, unsigned int c);
    void AddQuad(unsigned int a, unsigned int b, unsigned int c, unsigned int d);
};

/// A repeatable source of random numbers.
class Random {
public:
    explicit Random(unsigned long seed) : _engine(seed) {}
    unsigned int Below(unsigned int limit);
    float Between(double low, double high);
    bool OneIn(unsigned int n) { return Below(n) == 0; }
    IDX_Point PointIn(double low, double high);

private:
    std::mt19937_64 _engine;
};

enum Faces : unsigned int { kLowX = 1, kHighX = 2, kLowY = 4, kHighY = 8, kLowZ = 16, kHighZ = 32 };

/// The faces of a box, two triangles each, but for those in `openFaces`.
Mesh BoxMesh(IDX_Point low, IDX_Point high, unsigned int openFaces = 0);

/// A surface of quads over the unit square, each cut in two.
Mesh GridMesh(
    unsigned int rows,
    unsigned int columns,
    const std::function<IDX_Point(double u, double v)>& pointAt);

/// A closed sphere of 2 * rings * (rings - 1) * 2 triangles.
Mesh SphereMesh(IDX_Point centre, float radius, unsigned int rings);

/// One point, as a triangle without extent, for each cell of a grid of `side` cells that is wall.
/// With the cells (0, 0, 0) and (side - 1, ...) among them and a depth of log2(side), a whole-mesh
/// build marks exactly these cells.
using Cells = std::function<bool(int x, int y, int z)>;
Mesh CellMesh(int side, const Cells& isWall);

/// A mesh of a random kind: soup, slivers, sheet, box, sphere, lattice, sponge, nested shells; placed near or
/// far, large or tiny, with doubled and degenerate triangles now and then, and with `hostile` also
/// with coordinates that are huge or aren't finite. About `size` triangles.
Mesh RandomMesh(Random& random, unsigned int size, bool hostile);

#endif
