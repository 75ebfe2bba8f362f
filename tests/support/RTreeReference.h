#ifndef RTreeReference_h
#define RTreeReference_h

#include "Images.h"

#include "IDX_Base_BoundingBox.h"

#include <cmath>
#include <vector>

/// The R-tree written down flat: nodes in a list, every number worked out anew, nothing kept. Slow.
class RTreeReference {
public:
    RTreeReference(unsigned int minFill, unsigned int maxChildren)
        : _minFill(minFill), _maxChildren(maxChildren) {
        NewNode(0);
    }

    void Insert(const IDX_Base_BoundingBox& box, unsigned int value) {
        const IDX_Point low = box.GetLow();
        const IDX_Point high = box.GetHigh();
        const Entry entry = {
            {{low.x, low.y, low.z}, {high.x, high.y, high.z}},
            value
        };
        unsigned int node = _root;
        while (_nodes[node].level != 0) node = ChooseChild(_nodes[node], entry.box);
        Put(node, entry);
    }

    unsigned int Root() const { return _root * NodeSize(); }  ///< byte offset

    /// All nodes as they stand in an image.
    Bytes Nodes() const {
        Bytes bytes;
        const auto put = [&bytes](const auto& value) {
            const auto* first = reinterpret_cast<const unsigned char*>(&value);
            bytes.insert(bytes.end(), first, first + sizeof value);
        };
        for (const Node& node : _nodes) {
            const unsigned short shorts[4] = {node.level, node.count, node.slot, 0};
            put(node.parent * NodeSize());
            put(shorts);
            for (const auto& [box, value] : node.entries) {
                const auto& [low, high] = box;
                put(IDX_Base_BoundingBox({low[0], low[1], low[2]}, {high[0], high[1], high[2]}));
                put(node.level == 0 ? value : value * NodeSize());
            }
        }
        return bytes;
    }

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
        std::vector<Entry> entries;  ///< all slots, those past `count` too
    };

    static Box Union(const Box& a, const Box& b) {
        Box both = a;
        for (int axis = 0; axis < 3; ++axis) {
            if (b.low[axis] < both.low[axis]) both.low[axis] = b.low[axis];
            if (b.high[axis] > both.high[axis]) both.high[axis] = b.high[axis];
        }
        return both;
    }

    static float Volume(const Box& box) {
        const float x = box.high[0] - box.low[0];
        const float y = box.high[1] - box.low[1];
        const float z = box.high[2] - box.low[2];
        const float area = x * y;
        return area * z;
    }

    static float Growth(const Box& box, const Box& added) {
        return Volume(Union(box, added)) - Volume(box);
    }

    unsigned int NodeSize() const { return 12 + 28 * _maxChildren; }

    unsigned int NewNode(unsigned int level) {
        _nodes.push_back(
            {0, static_cast<unsigned short>(level), 0, 0, std::vector<Entry>(_maxChildren)});
        return static_cast<unsigned int>(_nodes.size()) - 1;
    }

    static unsigned int ChooseChild(const Node& node, const Box& box) {
        const Entry* best = &node.entries[0];
        for (unsigned int slot = 1; slot < node.count; ++slot) {
            const Entry& entry = node.entries[slot];
            const float growth = Growth(entry.box, box);
            const float bestGrowth = Growth(best->box, box);
            const bool isSmaller = Volume(entry.box) < Volume(best->box);
            if (growth < bestGrowth || (growth == bestGrowth && isSmaller)) best = &entry;
        }
        return best->value;
    }

    void Append(unsigned int at, const Entry& entry) {
        Node& node = _nodes[at];
        if (node.level != 0) {
            _nodes[entry.value].parent = at;
            _nodes[entry.value].slot = node.count;
        }
        node.entries[node.count++] = entry;
    }

    Box CoverOf(unsigned int at) const {
        const Node& node = _nodes[at];
        Box box = node.entries[0].box;
        for (unsigned int slot = 1; slot < node.count; ++slot) {
            box = Union(box, node.entries[slot].box);
        }
        return box;
    }

    void SetCoverInParent(unsigned int at) {
        const Node& node = _nodes[at];
        _nodes[node.parent].entries[node.slot].box = CoverOf(at);
    }

    /// Puts an entry into a node, splits those that are full, and works out the boxes up to the
    /// root.
    void Put(unsigned int at, Entry entry) {
        while (_nodes[at].count == _maxChildren) {
            if (at == _root) {
                _root = NewNode(_nodes[at].level + 1u);
                Append(_root, {{}, at});
            }
            const unsigned int newNode = Split(at, entry);
            SetCoverInParent(at);
            at = _nodes[at].parent;
            entry = {CoverOf(newNode), newNode};
        }
        for (Append(at, entry); at != _root; at = _nodes[at].parent) SetCoverInParent(at);
    }

    /// Gives the new node.
    unsigned int Split(unsigned int at, const Entry& entry) {
        const unsigned int newNode = NewNode(_nodes[at].level);
        std::vector<Entry> entries = _nodes[at].entries;
        entries.push_back(entry);
        const std::vector<int> groups = Groups(entries);
        _nodes[at].count = 0;
        for (std::size_t i = 0; i < entries.size(); ++i) {
            Append(groups[i] == 0 ? at : newNode, entries[i]);
        }
        return newNode;
    }

    /// The quadratic split: 0 or 1 for each entry.
    std::vector<int> Groups(const std::vector<Entry>& entries) const {
        const std::size_t n = entries.size();
        const auto waste = [&](std::size_t i, std::size_t j) {
            const float both = Volume(Union(entries[i].box, entries[j].box));
            const float withoutFirst = both - Volume(entries[i].box);
            return withoutFirst - Volume(entries[j].box);
        };
        std::size_t seeds[2] = {0, 1};
        for (std::size_t i = 0; i + 1 < n; ++i) {
            for (std::size_t j = i + 1; j < n; ++j) {
                if (!(waste(i, j) > waste(seeds[0], seeds[1]))) continue;
                seeds[0] = i;
                seeds[1] = j;
            }
        }
        constexpr int kUndecided = 2;
        std::vector<int> groups(n, kUndecided);
        groups[seeds[0]] = 0;
        groups[seeds[1]] = 1;
        Box covers[2] = {entries[seeds[0]].box, entries[seeds[1]].box};
        std::size_t counts[2] = {1, 1};
        for (std::size_t rest = n - 2; rest > 0; --rest) {
            for (const int g : {0, 1}) {
                if (counts[g] + rest != _minFill) continue;
                for (int& group : groups) group = group == kUndecided ? g : group;
                return groups;
            }
            std::size_t chosen = n;
            float best = -1.0f;
            for (std::size_t i = 0; i < n; ++i) {
                if (groups[i] != kUndecided) continue;
                const Box& box = entries[i].box;
                const float difference = std::fabs(Growth(covers[0], box) - Growth(covers[1], box));
                if (chosen == n || difference > best) chosen = i;
                if (difference > best) best = difference;
            }
            const Box& box = entries[chosen].box;
            const float d0 = Growth(covers[0], box);
            const float d1 = Growth(covers[1], box);
            const float v0 = Volume(covers[0]);
            const float v1 = Volume(covers[1]);
            const int fewer = counts[1] < counts[0] ? 1 : 0;
            const int smaller = v1 < v0 ? 1 : v0 < v1 ? 0 : fewer;
            const int group = d1 < d0 ? 1 : d0 < d1 ? 0 : smaller;
            groups[chosen] = group;
            covers[group] = Union(covers[group], box);
            ++counts[group];
        }
        return groups;
    }

    unsigned int _minFill;
    unsigned int _maxChildren;
    unsigned int _root = 0;
    std::vector<Node> _nodes;
};

#endif
