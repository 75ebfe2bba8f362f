#include "PartTreeCheck.h"

#include "IndexFiles.h"

#include "IDX_WT_Tree234.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

namespace {

constexpr unsigned int kFirst = sizeof(IDX_234Struct_Manifest) + sizeof(PartsManifest);
constexpr unsigned short kEndian = 1;
constexpr unsigned short kTreeVersion = 45;
constexpr unsigned int kMostLevels = 32;
constexpr unsigned int kLengthSize = 4;

/// 28 bytes.
struct Node {
    unsigned int children[4];  //  0 16
    unsigned int items[3];     // 16 12
};
static_assert(sizeof(Node) == 28, "identifier tree file: node");

/// Visits all nodes in the order of their identifiers.
class TreeWalk {
public:
    TreeWalk(const unsigned char* iBytes, std::size_t iSize, std::vector<unsigned int>& oItems)
        : _bytes(iBytes), _size(iSize), _items(oItems) {}

    std::string Run() {
        if (_size < kFirst) return "is shorter than its manifest";
        const auto manifest = Load<IDX_234Struct_Manifest>(0);
        const auto own = Load<PartsManifest>(sizeof manifest);
        if (manifest.endian != kEndian) return "was written in another byte order";
        if (manifest.version != kTreeVersion) return "is of another version";
        if (own.format != kPartsFormat) return "isn't the tree of a part index";
        if (manifest.root != 0) Visit(manifest.root, 0);
        if (!_failure.empty()) return _failure;
        if (own.nParts != _items.size()) return "its manifest tells another number of parts";
        return CheckCover();
    }

private:
    template <class Value>
    Value Load(std::size_t iOffset) const {
        Value value;
        std::memcpy(&value, _bytes + iOffset, sizeof value);
        return value;
    }

    bool Fail(unsigned int iOffset, const char* iText) {
        _failure = "at " + std::to_string(iOffset) + ": " + iText;
        return false;
    }

    /// Whether a stretch lies behind the manifest and in the file.
    bool IsInFile(unsigned int iOffset, std::size_t iLength) const {
        return iOffset >= kFirst && iOffset % kBlockAlignment == 0 && iOffset <= _size &&
               iLength <= _size - iOffset;
    }

    bool Visit(unsigned int iNode, unsigned int iLevel) {
        if (!IsInFile(iNode, sizeof(Node))) return Fail(iNode, "no node");
        if (iLevel == kMostLevels || _cover.size() > _size / sizeof(Node)) {
            return Fail(iNode, "more levels or nodes than a tree of this length has");
        }
        _cover.emplace_back(iNode, sizeof(Node));
        const auto node = Load<Node>(iNode);
        const auto nItems = static_cast<unsigned int>(
            std::find(std::begin(node.items), std::end(node.items), 0U) - node.items);
        if (nItems == 0) return Fail(iNode, "a node without an item");
        if (!HasRightFields(node, nItems)) return Fail(iNode, "a node whose fields don't fit");
        const bool isLeaf = node.children[0] == 0;
        if (isLeaf && !IsLeafLevel(iLevel)) return Fail(iNode, "a leaf of another depth");
        for (unsigned int i = 0; i <= nItems; ++i) {
            if (!isLeaf && !Visit(node.children[i], iLevel + 1)) return false;
            if (i < nItems && !TakeItem(node.items[i])) return false;
        }
        return true;
    }

    /// Whether the items and children stand to the left, and the children are none or one more than the items.
    static bool HasRightFields(const Node& iNode, unsigned int iItems) {
        const bool isLeaf = iNode.children[0] == 0;
        for (unsigned int i = 0; i < 4; ++i) {
            if ((iNode.children[i] != 0) != (!isLeaf && i <= iItems)) return false;
            if (i < 3 && (iNode.items[i] != 0) != (i < iItems)) return false;
        }
        return true;
    }

    bool IsLeafLevel(unsigned int iLevel) {
        if (_leafLevel == kMostLevels) _leafLevel = iLevel;
        return _leafLevel == iLevel;
    }

    bool TakeItem(unsigned int iItem) {
        constexpr std::size_t kFixed = sizeof(PartRecord) + kLengthSize;
        if (!IsInFile(iItem, kFixed)) return Fail(iItem, "no item");
        const std::size_t length = Load<unsigned int>(iItem + sizeof(PartRecord));
        if (!IsInFile(iItem, kFixed + length)) return Fail(iItem, "an item beyond the end");
        const std::string_view identifier(
            reinterpret_cast<const char*>(_bytes) + iItem + kFixed, length);
        if (!_items.empty() && identifier <= _last) {
            return Fail(iItem, "an identifier that doesn't rise");
        }
        _last = identifier;
        _items.push_back(iItem);
        _cover.emplace_back(iItem, kFixed + length);
        return true;
    }

    /// Whether nodes and items follow on each other from the manifest to the end of the file.
    std::string CheckCover() {
        std::sort(_cover.begin(), _cover.end());
        std::size_t end = kFirst;
        for (const auto& [offset, length] : _cover) {
            const std::size_t start = NextBlock(end);
            if (offset != start)
                return "at " + std::to_string(start) + ": bytes of no node or item";
            end = start + length;
        }
        return end == _size ? "" : "holds bytes behind its last node or item";
    }

    const unsigned char* _bytes;
    std::size_t _size;
    std::vector<unsigned int>& _items;
    std::vector<std::pair<unsigned int, std::size_t>>
        _cover;                             ///< offset and length of what was met
    std::string_view _last;                 ///< the identifier met last
    unsigned int _leafLevel = kMostLevels;  ///< kMostLevels before the first leaf
    std::string _failure;
};

}  // namespace

std::string CheckPartTree(
    const unsigned char* iBytes, std::size_t iSize, std::vector<unsigned int>& oItems) {
    oItems.clear();
    return TreeWalk(iBytes, iSize, oItems).Run();
}
