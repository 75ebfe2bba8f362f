#include "TreeReference.h"

#include <cstring>

// The fields of a node, by their offset in it.
namespace {

constexpr unsigned int kRoot = 4;
constexpr unsigned int kItems = 16;
const std::string kEmptyNode(28, '\0');

std::string Bytes(unsigned int number) {
    return {reinterpret_cast<const char*>(&number), sizeof number};
}

}  // namespace

TreeReference::TreeReference(unsigned int itemSize, unsigned int manifestSize)
    : _itemSize(itemSize) {
    const unsigned short start[] = {1, 45};
    std::string manifest(manifestSize, '\0');
    std::memcpy(manifest.data(), start, sizeof start);
    Append(manifest);
}

unsigned int TreeReference::At(unsigned int offset) const {
    unsigned int number = 0;
    std::memcpy(&number, _bytes.substr(offset, sizeof number).data(), sizeof number);
    return number;
}

void TreeReference::Set(unsigned int offset, unsigned int number) {
    _bytes.replace(offset, sizeof number, Bytes(number));
}

unsigned int TreeReference::Append(const std::string& data) {
    const std::size_t offset = _bytes.size();
    _bytes += data;
    _end = _bytes.size();
    while (_bytes.size() % 4 != 0) _bytes += '\0';
    return static_cast<unsigned int>(offset);
}

int TreeReference::Order(const std::string& id, unsigned int item) const {
    return id.compare(_bytes.substr(item + _itemSize + 4, At(item + _itemSize)));
}

std::string TreeReference::File(bool filledUp) const {
    return filledUp ? _bytes : _bytes.substr(0, _end);
}

/// The child at `index` is full. Its right half goes to the end of the file, its middle item into the parent.
void TreeReference::SplitChild(unsigned int parent, unsigned int index) {
    const unsigned int node = At(parent + 4 * index);
    const unsigned int middle = At(node + kItems + 4);
    const unsigned int sibling = Append(
        Bytes(At(node + 8)) + Bytes(At(node + 12)) + Bytes(0) + Bytes(0) + Bytes(At(node + 24)) +
        Bytes(0) + Bytes(0));
    for (unsigned int i = 2; i > index; --i) {
        Set(parent + kItems + 4 * i, At(parent + kItems + 4 * (i - 1)));
        Set(parent + 4 * (i + 1), At(parent + 4 * i));
    }
    Set(parent + kItems + 4 * index, middle);
    Set(parent + 4 * (index + 1), sibling);
    for (const unsigned int field : {8u, 12u, 20u, 24u}) Set(node + field, 0);
}

unsigned int TreeReference::Insert(const std::string& record, const std::string& id) {
    if (At(kRoot) == 0) Set(kRoot, Append(kEmptyNode));
    unsigned int parent = 0;
    unsigned int index = 0;
    for (unsigned int node = At(kRoot);;) {
        if (At(node + 24) != 0) {
            if (parent == 0) {
                parent = Append(kEmptyNode);
                Set(parent, node);
                Set(kRoot, parent);
            }
            SplitChild(parent, index);
            const unsigned int middle = At(parent + kItems + 4 * index);
            const int order = Order(id, middle);
            if (order == 0) return middle;
            if (order > 0) node = At(parent + 4 * (index + 1));
        }
        unsigned int place = 0;
        int order = 1;
        for (; place < 3 && At(node + kItems + 4 * place) != 0; ++place) {
            order = Order(id, At(node + kItems + 4 * place));
            if (order <= 0) break;
        }
        if (order == 0 || At(node) == 0) {
            const unsigned int item = Append(record);
            Append(Bytes(static_cast<unsigned int>(id.size())) + id);
            for (unsigned int i = 2; order != 0 && i > place; --i) {
                Set(node + kItems + 4 * i, At(node + kItems + 4 * (i - 1)));
            }
            Set(node + kItems + 4 * place, item);
            return item;
        }
        parent = node;
        index = place;
        node = At(node + 4 * place);
    }
}
