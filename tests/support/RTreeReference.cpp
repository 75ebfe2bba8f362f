#include "RTreeReference.h"

#include <cmath>
#include <cstring>

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
    const Entry none = {};
    _nodes.push_back({0, iLevel, 0, 0, std::vector<Entry>(_maxChildren, none)});
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

void RTreeReference::Put(unsigned int iNode, const Entry& iEntry) {
    unsigned int at = iNode;
    Entry entry = iEntry;
    while (_nodes[at].count == _maxChildren) {
        if (at == _root) {
            const unsigned int root = NewNode(_nodes[at].level + 1);
            _nodes[root].count = 1;
            _nodes[root].entries[0].value = at;
            _nodes[at].slot = 0;
            _nodes[at].parent = root;
            _root = root;
        }
        Entry stayed;
        Entry moved;
        Split(at, entry, stayed, moved);
        _nodes[_nodes[at].parent].entries[_nodes[at].slot].box = stayed.box;
        at = _nodes[at].parent;
        entry = moved;
    }
    Node& node = _nodes[at];
    if (node.level != 0) {
        _nodes[entry.value].parent = at;
        _nodes[entry.value].slot = node.count;
    }
    node.entries[node.count++] = entry;
    Adjust(at);
}

/// Works out the boxes of the nodes from `iNode` up to the root.
void RTreeReference::Adjust(unsigned int iNode) {
    for (unsigned int at = iNode; at != _root; at = _nodes[at].parent) {
        const Node& node = _nodes[at];
        Box box = node.entries[0].box;
        for (unsigned int slot = 1; slot < node.count; ++slot) {
            box = Union(box, node.entries[slot].box);
        }
        _nodes[node.parent].entries[node.slot].box = box;
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
        int group = 0;
        if (d1 < d0) {
            group = 1;
        } else if (!(d0 < d1) && v1 < v0) {
            group = 1;
        } else if (!(d0 < d1) && !(v0 < v1) && counts[1] < counts[0]) {
            group = 1;
        }
        groups[chosen] = group;
        covers[group] = Union(covers[group], box);
        ++counts[group];
    }
    return groups;
}

void RTreeReference::Split(unsigned int iNode, const Entry& iEntry, Entry& oOld, Entry& oNew) {
    const unsigned int newNode = NewNode(_nodes[iNode].level);
    std::vector<Entry> entries = _nodes[iNode].entries;
    entries.push_back(iEntry);
    const std::vector<int> groups = Groups(entries);
    _nodes[iNode].count = 0;
    oOld.value = iNode;
    oNew.value = newNode;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const unsigned int at = groups[i] == 0 ? iNode : newNode;
        Entry& cover = groups[i] == 0 ? oOld : oNew;
        Node& node = _nodes[at];
        cover.box = node.count == 0 ? entries[i].box : Union(cover.box, entries[i].box);
        if (node.level != 0) {
            _nodes[entries[i].value].parent = at;
            _nodes[entries[i].value].slot = node.count;
        }
        node.entries[node.count++] = entries[i];
    }
}

Bytes RTreeReference::Nodes() const {
    Bytes bytes;
    const auto append = [&bytes](unsigned int value, int size) {
        for (int i = 0; i < size; ++i) bytes.push_back(static_cast<unsigned char>(value >> 8 * i));
    };
    for (const Node& node : _nodes) {
        append(node.parent * NodeSize(), 4);
        append(node.level, 2);
        append(node.count, 2);
        append(node.slot, 2);
        append(0, 2);
        for (unsigned int slot = 0; slot < _maxChildren; ++slot) {
            const Entry& entry = node.entries[slot];
            unsigned int coordinates[6];
            std::memcpy(coordinates, &entry.box, sizeof coordinates);
            for (const unsigned int bits : coordinates) append(bits, 4);
            append(node.level == 0 ? entry.value : entry.value * NodeSize(), 4);
        }
    }
    return bytes;
}
