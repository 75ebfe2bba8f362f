#ifndef QuadraticSplitter_h
#define QuadraticSplitter_h

#include "SplitBoxes.h"

#include <cstddef>

/// Divides the boxes of a full node into two groups by the quadratic split: A. Guttman, "R-trees: a
/// dynamic index structure for spatial searching", SIGMOD 1984, with volume instead of area.
///  1. PickSeeds: the two boxes that would waste most volume in one group start the two groups.
///  2. PickNext: of the undecided boxes, the one with the strongest preference for a group is next.
///     It goes to the group whose cover grows less.
///  3. A group that needs all undecided boxes to reach the minimum fill gets them all.
/// All numbers are 32-bit floats, and of equal numbers the lower index wins. So the groups don't
/// depend on the fact that four boxes are compared at a time.
class QuadraticSplitter {
public:
    /// Floats of working memory that a number of boxes needs.
    static std::size_t LengthFor(std::size_t iCount);

    /// All arrays stay the caller's.
    /// @param ioMemory  LengthFor(iCount) floats, at a multiple of 16 bytes
    /// @param iBoxes    iCount boxes, 2 or more
    /// @param oVolumes  becomes the volume of each box
    /// @param oGroups   becomes 0 or 1 for each box
    QuadraticSplitter(
        float* ioMemory,
        const IDX_Base_BoundingBox* iBoxes,
        unsigned int iCount,
        float* oVolumes,
        unsigned char* oGroups);

    /// Does the split.
    /// @param iMinFill  fewest boxes of a group
    void Run(unsigned int iMinFill);

private:
    /// The working memory is a table: a row for each undecided box, in any order, and a column for
    /// each of its numbers. The place of a box is its row.
    enum Column : unsigned int {
        Volume,     ///< of the box
        Growth,     ///< two columns: by how much the cover of group 0 or 1 would grow
        Index = 3,  ///< of the box in the caller's array
        OfBoxes,    ///< the first column of SplitBoxes
        ColumnCount = OfBoxes + SplitBoxes::kColumns
    };

    struct Group {
        IDX_Base_BoundingBox cover;  ///< encloses the boxes of the group
        float volume;                ///< of the cover
        unsigned int count;          ///< boxes
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
    std::size_t _stride;                 ///< floats of a column
    const IDX_Base_BoundingBox* _boxes;  ///< the caller's
    SplitBoxes _undecidedBoxes;
    float* _volumes;          ///< the caller's
    unsigned char* _groupOf;  ///< the caller's
    unsigned int _count;      ///< boxes in all
    unsigned int _undecided;  ///< rows in use
    Group _groups[2];
};

#endif
