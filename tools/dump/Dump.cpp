#include "Dump.h"

#include "FieldPrinter.h"

#include "formats/IdentifierTreeFile.h"
#include "formats/OctreeImage.h"
#include "formats/PartIndexFiles.h"
#include "formats/RTreeImage.h"
#include "formats/RedirectingFile.h"
#include "formats/SplitFile.h"

#include <charconv>
#include <cstdlib>
#include <iterator>
#include <vector>

namespace {

using nlohmann::json;

/// The number with the fewest digits that reads back as the same float.
double Shortest(float iNumber) {
    char digits[32] = {};
    std::to_chars(std::begin(digits), std::end(digits), iNumber);
    return std::strtod(digits, nullptr);
}

json ListOf(const IDX_Point& iPoint) {
    return {Shortest(iPoint.x), Shortest(iPoint.y), Shortest(iPoint.z)};
}

json ListOf(const IDX_Base_BoundingBox& iBox) {
    json list = ListOf(iBox.GetLow());
    for (const json& number : ListOf(iBox.GetHigh())) list.push_back(number);
    return list;
}

// Octree images.

void PrintOctreeHeader(FieldPrinter& ioPrinter, std::size_t iAt, const OctreeHeader& iHeader) {
    ioPrinter.Block(iAt, "octree image, header");
    ioPrinter.Field(iAt + offsetof(OctreeHeader, type), "type", iHeader.type);
    ioPrinter.Field(iAt + offsetof(OctreeHeader, version), "version", iHeader.version);
    ioPrinter.Field(iAt + offsetof(OctreeHeader, depth), "depth", iHeader.depth);
    ioPrinter.Field(iAt + offsetof(OctreeHeader, bbOrigin), "bbOrigin", ListOf(iHeader.bbOrigin));
    ioPrinter.Field(iAt + offsetof(OctreeHeader, bbSize), "bbSize", ListOf(iHeader.bbSize));
    ioPrinter.Field(iAt + offsetof(OctreeHeader, hasCuboid), "hasCuboid", iHeader.hasCuboid);
    ioPrinter.Field(
        iAt + offsetof(OctreeHeader, cuboidMatrix), "cuboidMatrix",
        iHeader.cuboidMatrix.coefficients);
    ioPrinter.Field(
        iAt + offsetof(OctreeHeader, cuboidPoint1), "cuboidPoint1", ListOf(iHeader.cuboidPoint1));
    ioPrinter.Field(
        iAt + offsetof(OctreeHeader, cuboidPoint2), "cuboidPoint2", ListOf(iHeader.cuboidPoint2));
    ioPrinter.Field(iAt + offsetof(OctreeHeader, size), "size", iHeader.size);
}

json StatesOf(unsigned int iStates) {
    json states = json::array();
    for (unsigned int child = 0; child < kChildren; ++child) {
        states.push_back(StateOf(iStates, child));
    }
    return states;
}

/// Prints the record of a cell and those below it.
/// @param iLevels  levels below the cell, 2 or more
void PrintRecord(
    FieldPrinter& ioPrinter,
    const unsigned char* iBytes,
    std::size_t iRecords,
    std::size_t iRecord,
    unsigned int iLevels) {
    const std::size_t at = iRecords + iRecord;
    if (iLevels == 2) {
        ioPrinter.Block(at, "node set");
        const auto record = LoadAt<NodeSetOptim>(iBytes, at);
        return ioPrinter.Field(at + offsetof(NodeSetOptim, groups), "groups", record.groups);
    }
    const auto node = LoadAt<NodeOptim>(iBytes, at);
    ioPrinter.Block(at, "node, " + std::to_string(iLevels) + " levels above the bottom");
    ioPrinter.Field(at + offsetof(NodeOptim, states), "states", StatesOf(node.states));
    ioPrinter.Field(at + offsetof(NodeOptim, childSet), "childSet", node.childSet);
    const unsigned int nChildren = CountBits(PartialChildren(node.states));
    for (unsigned int child = 0; child < nChildren; ++child) {
        PrintRecord(
            ioPrinter, iBytes, iRecords, node.childSet + child * kCompactRecordSize, iLevels - 1);
    }
}

/// Images follow on each other at multiples of the alignment of appends. Each is checked before it
/// is printed, so that a damaged one doesn't hide those before it.
Damage DumpImages(FieldPrinter& ioPrinter, const unsigned char* iBytes, std::size_t iSize) {
    for (std::size_t at = 0; at < iSize;) {
        if (iSize - at < kOctreeHeaderSize) return Damage::At(at, "no room for another header");
        const auto header = LoadAt<OctreeHeader>(iBytes, at);
        const std::size_t size = std::size_t{kOctreeHeaderSize} + header.size;
        if (size > iSize - at) return Damage::At(at, "an image past the end of the file");
        std::uint64_t nOccupied = 0;
        const Damage damage = OctreeImage::Check(iBytes + at, size, nOccupied);
        if (damage) return Damage::At(at, damage.Text().c_str());
        PrintOctreeHeader(ioPrinter, at, header);
        if (header.depth != 0) {
            PrintRecord(ioPrinter, iBytes, at + kOctreeHeaderSize, 0, header.depth);
        }
        at = NextAppend(at + size);
    }
    return {};
}

// Boxes.

void PrintNode(FieldPrinter& ioPrinter, const RTreeImage& iTree, unsigned int iNode) {
    const RTreeNodeHeader node = iTree.Node(iNode);
    const std::size_t at = kRTreeImageHeaderSize + iNode;
    ioPrinter.Block(at, node.level == 0 ? "leaf" : "inner node");
    ioPrinter.Field(at + offsetof(RTreeNodeHeader, parent), "parent", node.parent);
    ioPrinter.Field(at + offsetof(RTreeNodeHeader, level), "level", node.level);
    ioPrinter.Field(at + offsetof(RTreeNodeHeader, count), "count", node.count);
    ioPrinter.Field(at + offsetof(RTreeNodeHeader, slot), "slot", node.slot);
    for (unsigned int slot = 0; slot < node.count; ++slot) {
        const RTreeImage::Entry entry = iTree.EntryOf(iNode, slot);
        const std::size_t entryAt =
            at + kRTreeNodeHeaderSize + std::size_t{slot} * sizeof(RTreeImage::Entry);
        ioPrinter.Field(entryAt + offsetof(RTreeImage::Entry, box), "box", ListOf(entry.box));
        ioPrinter.Field(entryAt + offsetof(RTreeImage::Entry, value), "value", entry.value);
    }
}

Damage DumpBoxes(FieldPrinter& ioPrinter, const unsigned char* iBytes, std::size_t iSize) {
    Damage damage = RTreeImage::Check(iBytes, iSize);
    if (damage) return damage;
    const RTreeImage tree(iBytes);
    const RTreeImageHeader& header = tree.Header();
    ioPrinter.Block(0, "R-tree image, header");
    ioPrinter.Field(offsetof(RTreeImageHeader, minFill), "minFill", header.minFill);
    ioPrinter.Field(offsetof(RTreeImageHeader, maxChildren), "maxChildren", header.maxChildren);
    ioPrinter.Field(offsetof(RTreeImageHeader, root), "root", header.root);
    ioPrinter.Field(offsetof(RTreeImageHeader, size), "size", header.size);
    for (unsigned int node = 0; node < header.size;
         node += static_cast<unsigned int>(tree.NodeSize())) {
        PrintNode(ioPrinter, tree, node);
    }
    return {};
}

// Identifiers.

void PrintPart(FieldPrinter& ioPrinter, const IdentifierTreeFile& iFile, unsigned int iItem) {
    const auto record = LoadAt<PartRecord>(iFile.RecordOf(iItem), 0);
    const IdentifierTreeFile::Identifier name = iFile.IdentifierOf(iItem);
    ioPrinter.Block(iItem, "part");
    ioPrinter.Field(iItem + offsetof(PartRecord, octreePiece), "octreePiece", record.octreePiece);
    ioPrinter.Field(
        iItem + offsetof(PartRecord, octreeOffset), "octreeOffset", record.octreeOffset);
    ioPrinter.Field(iItem + offsetof(PartRecord, octreeSize), "octreeSize", record.octreeSize);
    ioPrinter.Field(iItem + offsetof(PartRecord, nTriangles), "nTriangles", record.nTriangles);
    ioPrinter.Field(iItem + offsetof(PartRecord, box), "box", ListOf(record.box));
    ioPrinter.Field(
        iItem + offsetof(PartRecord, nOccupiedLow), "nOccupied", record.CountOccupied());
    ioPrinter.Field(
        iItem + sizeof(PartRecord) + 4, "identifier",
        std::string(reinterpret_cast<const char*>(name.bytes), name.size));
}

void PrintTreeNode(FieldPrinter& ioPrinter, const IdentifierTreeFile& iFile, unsigned int iNode) {
    const Tree234Node node = iFile.Node(iNode);
    ioPrinter.Block(iNode, node.IsLeaf() ? "leaf" : "inner node");
    ioPrinter.Field(iNode + offsetof(Tree234Node, children), "children", node.children);
    ioPrinter.Field(iNode + offsetof(Tree234Node, items), "items", node.items);
    for (unsigned int i = 0; i <= node.CountItems(); ++i) {
        if (!node.IsLeaf()) PrintTreeNode(ioPrinter, iFile, node.children[i]);
        if (i < node.CountItems()) PrintPart(ioPrinter, iFile, node.items[i]);
    }
}

/// The whole tree is checked first: a walk through unchecked nodes might never end.
Damage DumpParts(FieldPrinter& ioPrinter, const unsigned char* iBytes, std::size_t iSize) {
    constexpr std::size_t kOwn = sizeof(IDX_234Struct_Manifest);
    const IdentifierTreeFile file(iBytes, iSize, kOwn + sizeof(PartsManifest), sizeof(PartRecord));
    std::vector<unsigned int> items;
    Damage damage = file.Check(items);
    if (damage) return damage;
    const IDX_234Struct_Manifest manifest = file.Manifest();
    const auto own = LoadAt<PartsManifest>(iBytes, kOwn);
    ioPrinter.Block(0, "manifest");
    ioPrinter.Field(offsetof(IDX_234Struct_Manifest, endian), "endian", manifest.endian);
    ioPrinter.Field(offsetof(IDX_234Struct_Manifest, version), "version", manifest.version);
    ioPrinter.Field(offsetof(IDX_234Struct_Manifest, root), "root", manifest.root);
    ioPrinter.Field(kOwn + offsetof(PartsManifest, format), "format", own.format);
    ioPrinter.Field(kOwn + offsetof(PartsManifest, nParts), "nParts", own.nParts);
    if (manifest.root != 0) PrintTreeNode(ioPrinter, file, manifest.root);
    return {};
}

Damage DumpRedirecting(FieldPrinter& ioPrinter, const unsigned char* iBytes, std::size_t) {
    const auto content = LoadAt<RedirectingFile>(iBytes, 0);
    if (!content.IsValid()) return Damage("names no sub-directory");
    ioPrinter.Block(0, "redirecting file");
    ioPrinter.Field(offsetof(RedirectingFile, number), "number", content.number);
    return {};
}

struct Kind {
    const char* name;
    Damage (*dump)(FieldPrinter& ioPrinter, const unsigned char* iBytes, std::size_t iSize);
};

/// Goes by the first bytes, and by the length where these leave it open.
Kind KindOf(const unsigned char* iBytes, std::size_t iSize) {
    if (iSize == sizeof(RedirectingFile)) return {"redirecting file", DumpRedirecting};
    if (iSize >= sizeof(IDX_234Struct_Manifest) &&
        LoadAt<IDX_234Struct_Manifest>(iBytes, 0).version == kTree234Version) {
        return {"identifier tree of parts", DumpParts};
    }
    if (iSize >= kRTreeImageHeaderSize &&
        LoadAt<RTreeImageHeader>(iBytes, 0).size == iSize - kRTreeImageHeaderSize) {
        return {"R-tree image", DumpBoxes};
    }
    return {"octree images", DumpImages};
}

}  // namespace

Damage DumpFile(
    const std::string& iPath, const unsigned char* iBytes, std::size_t iSize, bool iAsJson) {
    const Kind kind = KindOf(iBytes, iSize);
    FieldPrinter printer(iPath, kind.name, iSize, iAsJson);
    return kind.dump(printer, iBytes, iSize);
}
