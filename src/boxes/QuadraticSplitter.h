#ifndef QuadraticSplitter_h
#define QuadraticSplitter_h

#include "SplitBoxes.h"

#include <cstddef>

/// Parts boxes in two groups by the quadratic method: A. Guttman, "R-trees: a dynamic index structure for
/// spatial searching", SIGMOD 1984, with volume in the place of area. All numbers are 32-bit floats, and
/// every tie goes to the lower index. Works on four boxes at a time.
class QuadraticSplitter {
public:
    /// Floats of working memory for a number of boxes.
    static std::size_t LengthFor(std::size_t iCount);

    /// @param ioMemory  LengthFor(iCount) floats, at a multiple of 16 bytes; the caller's
    /// @param iBoxes    2 or more
    /// @param oVolumes  the volume of each box
    /// @param oGroups   0 or 1 for each box
    QuadraticSplitter(
        float* ioMemory,
        const IDX_Base_BoundingBox* iBoxes,
        unsigned int iCount,
        float* oVolumes,
        unsigned char* oGroups);

    /// @param iMinFill  a group that needs all undecided boxes to have so many gets them
    void Run(unsigned int iMinFill);

private:
    /// The undecided boxes, in any order: an array for each of their numbers. A growth for each group.
    enum Column : unsigned int {
        Volume,
        Growth,
        Index = 3,
        OfBoxes,
        ColumnCount = OfBoxes + SplitBoxes::kColumns
    };

    struct Group {
        IDX_Base_BoundingBox cover;
        float volume;
        unsigned int count;
    };
    struct Pair {
        unsigned int first;
        unsigned int second;
    };

    float* ColumnAt(unsigned int iColumn) const { return _columns + iColumn * _stride; }
    void FillColumns();
    Pair FindSeeds() const;
    void Seed(unsigned int iGroup, unsigned int iBox);
    void Remove(unsigned int iPlace);
    void Decide(unsigned int iPlace);
    void DecideAll(unsigned int iGroup);
    void UpdateGrowth(unsigned int iGroup);
    unsigned int StrongestPreference() const;
    unsigned int FirstUndecided() const;
    unsigned int PreferredGroup(unsigned int iPlace) const;

    float* _columns;
    std::size_t _stride;  ///< floats of a column
    const IDX_Base_BoundingBox* _boxes;
    SplitBoxes _undecidedBoxes;
    float* _volumes;
    unsigned char* _groupOf;
    unsigned int _count;
    unsigned int _undecided;
    Group _groups[2];
};

#endif
