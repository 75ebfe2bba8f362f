#ifndef TreeReference_h
#define TreeReference_h

#include <cstring>
#include <string>

/// The identifier tree written down flat: one string of bytes, read and changed in place, numbers
/// in the byte order of this machine. Slow, and without any check.
class TreeReference {
public:
    TreeReference(unsigned int itemSize, unsigned int manifestSize) : _itemSize(itemSize) {
        Append(BytesOf(1 + 45 * 0x10000) + std::string(manifestSize - 4, '\0'));
    }

    /// The file, filled up to a multiple of 4 after its last byte, as the memory store leaves it,
    /// or not.
    std::string File(bool filledUp) const { return filledUp ? _bytes : _bytes.substr(0, _end); }

    /// Gives the offset of the item.
    unsigned int Insert(const std::string& record, const std::string& id) {
        if (At(kRoot) == 0) Set(kRoot, Append(std::string(28, '\0')));
        unsigned int parent = 0;
        unsigned int index = 0;
        for (unsigned int node = At(kRoot);;) {
            if (At(node + 24) != 0) {
                if (parent == 0) {
                    parent = Append(std::string(28, '\0'));
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
                Append(BytesOf(static_cast<unsigned int>(id.size())) + id);
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

private:
    static constexpr unsigned int kRoot = 4;    ///< in the manifest
    static constexpr unsigned int kItems = 16;  ///< in a node

    static std::string BytesOf(unsigned int number) {
        return {reinterpret_cast<const char*>(&number), sizeof number};
    }

    unsigned int At(unsigned int offset) const {
        unsigned int number = 0;
        std::memcpy(&number, _bytes.substr(offset, sizeof number).data(), sizeof number);
        return number;
    }

    void Set(unsigned int offset, unsigned int number) {
        _bytes.replace(offset, sizeof number, BytesOf(number));
    }

    unsigned int Append(const std::string& data) {
        const std::size_t offset = _bytes.size();
        _bytes += data;
        _end = _bytes.size();
        while (_bytes.size() % 4 != 0) _bytes += '\0';
        return static_cast<unsigned int>(offset);
    }

    int Order(const std::string& id, unsigned int item) const {
        return id.compare(_bytes.substr(item + _itemSize + 4, At(item + _itemSize)));
    }

    /// The child at `index` is full. Its right half goes to the end of the file, its middle item
    /// into the parent.
    void SplitChild(unsigned int parent, unsigned int index) {
        const unsigned int node = At(parent + 4 * index);
        const unsigned int middle = At(node + kItems + 4);
        const unsigned int sibling = Append(std::string(28, '\0'));
        Set(sibling, At(node + 8));
        Set(sibling + 4, At(node + 12));
        Set(sibling + kItems, At(node + 24));
        for (unsigned int i = 2; i > index; --i) {
            Set(parent + kItems + 4 * i, At(parent + kItems + 4 * (i - 1)));
            Set(parent + 4 * (i + 1), At(parent + 4 * i));
        }
        Set(parent + kItems + 4 * index, middle);
        Set(parent + 4 * (index + 1), sibling);
        for (const unsigned int field : {8u, 12u, 20u, 24u}) Set(node + field, 0);
    }

    unsigned int _itemSize;
    std::string _bytes;    ///< its length is a multiple of 4
    std::size_t _end = 0;  ///< of the last append
};

#endif
