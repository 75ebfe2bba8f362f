#include "RTreeReference.h"

#include <cmath>

RTreeReference::RTreeReference(unsigned int iMinFill, unsigned int iMaxChildren)
    : _minFill(iMinFill), _maxChildren(iMaxChildren) {
    NewNode(0);
}

RTreeReference::Box RTreeReference::Union(const Box& iA, const Box& iB) {
    Box both = iA;
    for (int axis = 0; axis < 3; ++axis) {
        if (iB.low[axis] < both.low[axis]) both.low[axis] = iB.low[axis];
        if (iB.high[axis] > both.high[axis]) both.high[axis] = iB.high[axis];
    }
    return both;
}

float RTreeReference::Volume(const Box& iBox) {
    const float x = iBox.high[0] - iBox.low[0];
    const float y = iBox.high[1] - iBox.low[1];
    const float z = iBox.high[2] - iBox.low[2];
    const float area = x * y;
    return area * z;
}

float RTreeReference::Growth(const Box& iBox, const Box& iAdded) {
    return Volume(Union(iBox, iAdded)) - Volume(iBox);
}

unsigned int RTreeReference::NewNode(unsigned int iLevel) {
    const auto level = static_cast<unsigned short>(iLevel);
    _nodes.push_back({0, level, 0, 0, std::vector<Entry>(_maxChildren)});
    return static_cast<unsigned int>(_nodes.size()) - 1;
}

void RTreeReference::Insert(const IDX_Base_BoundingBox& iBox, unsigned int iValue) {
    const IDX_Point low = iBox.GetLow();
    const IDX_Point high = iBox.GetHigh();
    const Entry entry = {
        {{low.x, low.y, low.z}, {high.x, high.y, high.z}},
        iValue
    };
    Put(ChooseLeaf(entry.box), entry);
}

unsigned int RTreeReference::ChooseLeaf(const Box& iBox) const {
    unsigned int at = _root;
    while (_nodes[at].level != 0) {
        const Node& node = _nodes[at];
        unsigned int best = 0;
        for (unsigned int slot = 1; slot < node.count; ++slot) {
            const Box& box = node.entries[slot].box;
            const Box& bestBox = node.entries[best].box;
            const float growth = Growth(box, iBox);
            const float bestGrowth = Growth(bestBox, iBox);
            if (growth < bestGrowth || (growth == bestGrowth && Volume(box) < Volume(bestBox))) {
                best = slot;
            }
        }
        at = node.entries[best].value;
    }
    return at;
}

RTreeReference::Box RTreeReference::CoverOf(unsigned int iNode) const {
    const Node& node = _nodes[iNode];
    Box box = node.entries[0].box;
    for (unsigned int slot = 1; slot < node.count; ++slot) {
        box = Union(box, node.entries[slot].box);
    }
    return box;
}

void RTreeReference::Append(unsigned int iNode, const Entry& iEntry) {
    Node& node = _nodes[iNode];
    if (node.level != 0) {
        _nodes[iEntry.value].parent = iNode;
        _nodes[iEntry.value].slot = node.count;
    }
    node.entries[node.count++] = iEntry;
}

/// Puts an entry into a node, splits those that are full, and works out the boxes up to the root.
void RTreeReference::Put(unsigned int iNode, const Entry& iEntry) {
    unsigned int at = iNode;
    Entry entry = iEntry;
    while (_nodes[at].count == _maxChildren) {
        if (at == _root) {
            _root = NewNode(_nodes[at].level + 1u);
            Append(_root, {{}, at});
        }
        const unsigned int newNode = Split(at, entry);
        const Node& node = _nodes[at];
        _nodes[node.parent].entries[node.slot].box = CoverOf(at);
        at = node.parent;
        entry = {CoverOf(newNode), newNode};
    }
    for (Append(at, entry); at != _root; at = _nodes[at].parent) {
        const Node& node = _nodes[at];
        _nodes[node.parent].entries[node.slot].box = CoverOf(at);
    }
}

/// The quadratic split: 0 or 1 for each entry.
std::vector<int> RTreeReference::Groups(const std::vector<Entry>& iEntries) const {
    const std::size_t n = iEntries.size();
    const auto waste = [&](std::size_t i, std::size_t j) {
        const float both = Volume(Union(iEntries[i].box, iEntries[j].box));
        const float withoutFirst = both - Volume(iEntries[i].box);
        return withoutFirst - Volume(iEntries[j].box);
    };
    std::size_t first = 0;
    std::size_t second = 1;
    for (std::size_t i = 0; i + 1 < n; ++i) {
        for (std::size_t j = i + 1; j < n; ++j) {
            if (!(waste(i, j) > waste(first, second))) continue;
            first = i;
            second = j;
        }
    }
    std::vector<int> groups(n, 2);
    groups[first] = 0;
    groups[second] = 1;
    Box covers[2] = {iEntries[first].box, iEntries[second].box};
    std::size_t counts[2] = {1, 1};
    for (std::size_t rest = n - 2; rest > 0; --rest) {
        int all = 2;
        if (counts[1] + rest == _minFill) all = 1;
        if (counts[0] + rest == _minFill) all = 0;
        if (all != 2) {
            for (int& group : groups) group = group == 2 ? all : group;
            break;
        }
        std::size_t chosen = n;
        float best = -1.0f;
        for (std::size_t i = 0; i < n; ++i) {
            if (groups[i] != 2) continue;
            const Box& box = iEntries[i].box;
            const float difference = std::fabs(Growth(covers[0], box) - Growth(covers[1], box));
            if (chosen == n || difference > best) chosen = i;
            if (difference > best) best = difference;
        }
        const Box& box = iEntries[chosen].box;
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

/// Gives the new node.
unsigned int RTreeReference::Split(unsigned int iNode, const Entry& iEntry) {
    const unsigned int newNode = NewNode(_nodes[iNode].level);
    std::vector<Entry> entries = _nodes[iNode].entries;
    entries.push_back(iEntry);
    const std::vector<int> groups = Groups(entries);
    _nodes[iNode].count = 0;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        Append(groups[i] == 0 ? iNode : newNode, entries[i]);
    }
    return newNode;
}

Bytes RTreeReference::Nodes() const {
    Bytes bytes;
    const auto put = [&bytes](const auto& value) {
        const auto* first = reinterpret_cast<const unsigned char*>(&value);
        bytes.insert(bytes.end(), first, first + sizeof value);
    };
    for (const Node& node : _nodes) {
        const unsigned short header[4] = {node.level, node.count, node.slot, 0};
        put(node.parent * NodeSize());
        put(header);
        for (const Entry& entry : node.entries) {
            const float* low = entry.box.low;
            const float* high = entry.box.high;
            put(IDX_Base_BoundingBox({low[0], low[1], low[2]}, {high[0], high[1], high[2]}));
            put(node.level == 0 ? entry.value : entry.value * NodeSize());
        }
    }
    return bytes;
}
