#ifndef Meshes_h
#define Meshes_h

#include "IDX_Point.h"
#include "IDX_Triangle.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <random>
#include <vector>

struct Mesh {
    std::vector<IDX_Point> points;
    std::vector<IDX_Triangle> triangles;

    std::array<IDX_Point, 3> CornersOf(const IDX_Triangle& triangle) const;
    void AddFace(unsigned int a, unsigned int b, unsigned int c);

    /// A triangle with points of its own.
    void AddTriangle(IDX_Point a, IDX_Point b, IDX_Point c);
};

/// A source of numbers: repeatable random ones, or those that a fuzzer chooses.
class Random {
public:
    explicit Random(unsigned long seed) : _engine(seed) {}
    /// Reads numbers from bytes, which must outlive it. Zeros follow the last byte.
    Random(const std::uint8_t* bytes, std::size_t size)
        : _reads(true), _next(bytes), _end(bytes + size) {}
    unsigned int Below(unsigned int limit);
    float Between(double low, double high);
    bool OneIn(unsigned int n) { return Below(n) == 0; }
    IDX_Point PointIn(double low, double high);

private:
    std::uint32_t Read(int bytes);

    std::mt19937_64 _engine;
    bool _reads = false;
    const std::uint8_t* _next = nullptr;
    const std::uint8_t* _end = nullptr;
};

enum Faces : unsigned int { kLowX = 1, kHighX = 2, kLowY = 4, kHighY = 8, kLowZ = 16, kHighZ = 32 };

/// The faces of a box, two triangles each, but for those in `openFaces`.
Mesh BoxMesh(IDX_Point low, IDX_Point high, unsigned int openFaces = 0);

/// One point, as a triangle without extent, for each cell of a grid of `side` cells that is wall.
/// With the cells (0, 0, 0) and (side - 1, ...) among them and a depth of log2(side), a whole-mesh
/// build marks exactly these cells.
using Cells = std::function<bool(int x, int y, int z)>;
Mesh CellMesh(int side, const Cells& isWall);

#endif
