#ifndef RTreeReference_h
#define RTreeReference_h

#include "Images.h"

#include "IDX_Base_BoundingBox.h"

#include <vector>

/// The R-tree written down flat: nodes in a list, every number worked out anew, nothing kept. Slow.
class RTreeReference {
public:
    RTreeReference(unsigned int iMinFill, unsigned int iMaxChildren);

    void Insert(const IDX_Base_BoundingBox& iBox, unsigned int iValue);

    unsigned int Root() const { return _root * NodeSize(); }  ///< byte offset
    Bytes Nodes() const;  ///< all nodes as they stand in an image

private:
    struct Box {
        float low[3];
        float high[3];
    };
    struct Entry {
        Box box;
        unsigned int value;  ///< of an inner node: the number of the child
    };
    struct Node {
        unsigned int parent;  ///< its number
        unsigned short level, count, slot;
        std::vector<Entry> entries;  ///< all slots, those behind `count` too
    };

    static Box Union(const Box& iA, const Box& iB);
    static float Volume(const Box& iBox);
    static float Growth(const Box& iBox, const Box& iAdded);

    unsigned int NodeSize() const { return 12 + 28 * _maxChildren; }
    unsigned int NewNode(unsigned int iLevel);
    unsigned int ChooseLeaf(const Box& iBox) const;
    Box CoverOf(unsigned int iNode) const;
    void Append(unsigned int iNode, const Entry& iEntry);
    void Put(unsigned int iNode, const Entry& iEntry);
    std::vector<int> Groups(const std::vector<Entry>& iEntries) const;
    unsigned int Split(unsigned int iNode, const Entry& iEntry);

    unsigned int _minFill;
    unsigned int _maxChildren;
    unsigned int _root = 0;
    std::vector<Node> _nodes;
};

#endif
