#ifndef PlainVoxelizer_h
#define PlainVoxelizer_h

#include "Mesh.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

/// The bar that has to be passed: what a good engineer writes in an afternoon. A bitmap of the whole
/// grid, one bit for each cell, rows of 64-bit words along X.
///
/// Draw, Flood, Pack, in this order and once each. Cells and triangles are closed sets: touching
/// counts. The arithmetic is plain double precision, so that contacts within its rounding may go
/// either way.
class PlainVoxelizer {
public:
    /// @param iDepth  the grid has 2^iDepth cells a side; 6 to 10
    PlainVoxelizer(const GridBox& iBox, unsigned int iDepth);

    /// Marks every cell that a triangle touches: for each row of cells, the span that none of the 13
    /// separating axes of triangle and box takes away (Akenine-Moeller 2001, solved for X as in
    /// Schwarz and Seidel 2010).
    void Draw(const Mesh& iMesh);

    /// Finds the cells outside: floods from the border of the grid through shared faces.
    void Flood();

    /// The stored octree image of all cells that aren't outside, header included.
    std::vector<unsigned char> Pack();

private:
    using Word = uint64_t;

    /// Cells `first` to `last` of a row; empty when `first` is above `last`.
    struct Span {
        int first;
        int last;
    };
    static Span Intersect(const Span& iA, const Span& iB);

    /// A triangle in grid coordinates (cell i reaches from i to i + 1), and the cells of its box.
    struct GridTriangle {
        double p[3][3];  ///< vertex, axis
        Span cells[3];   ///< by axis
    };
    class Plane;

    GridTriangle ToGrid(const IDX_Point* const (&iVertices)[3]) const;
    void DrawTriangle(const GridTriangle& iTriangle);
    void DrawRows(const GridTriangle& iTriangle);
    void SetSpan(const Span& iX, int iY, int iZ);
    static void ProjectSpans(const GridTriangle& iTriangle, int iU, int iV, Span* oSpans);

    size_t RowIndex(int iY, int iZ) const {
        return (static_cast<size_t>(iZ) * static_cast<size_t>(_side) + static_cast<size_t>(iY)) *
               _rowWords;
    }
    const Word* OutsideRow(int iY, int iZ) const;
    void SeedLayer(int iZ);
    bool FloodLayer(int iZ);
    bool FloodRow(int iY, int iZ, int iFromY);
    void SpreadAlongRow(const Word* iWalls, Word* ioOutside) const;

    void SummarizeBlocks();
    void SummarizeBlockRow(int iY, int iZ, unsigned char* oStates) const;
    void HalveSummary();
    void PackNode(unsigned int iLevel, const unsigned int (&iAt)[3], size_t iRecord);
    void PackNodeSets(const unsigned int (&iAt)[3], size_t iRecord);
    size_t Append(size_t iRecords);
    unsigned char SummaryAt(
        unsigned int iLevel, unsigned int iX, unsigned int iY, unsigned int iZ) const;

    struct Free {
        void operator()(Word* iWords) const { std::free(iWords); }
    };
    using Bitmap = std::unique_ptr<Word[], Free>;
    static Bitmap MakeBitmap(size_t iWords);

    GridBox _box;
    unsigned int _depth;
    int _side;         ///< cells a side
    size_t _rowWords;  ///< words of a row
    double _origin[3];
    double _scale[3];  ///< cells in a model unit
    Bitmap _walls;     ///< cells that a triangle touches
    Bitmap _outside;
    std::vector<Word> _beyond;  ///< a row of ones: what lies beside the grid is outside
    std::vector<Span> _spans[3];
    std::vector<std::vector<unsigned char>>
        _summary;  ///< CellState of the blocks of 8 cells a side and up
    std::vector<unsigned char> _image;
};

#endif
