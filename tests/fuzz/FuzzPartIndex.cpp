// Any bytes as a file of a part index. What the checking walks let pass is walked as a reader walks it: every walk ends
// within the bytes, and finds what was counted. The first byte says which file it is.

#include "PLMIdxOctreeLoader.h"

#include "formats/IdentifierTreeFile.h"
#include "formats/OctreeImage.h"
#include "formats/PartIndexFiles.h"
#include "formats/RTreeImage.h"

#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;  // a block of its own, whose end the sanitizer watches

void Expect(bool holds) {
    if (!holds) std::abort();
}

void WalkOctree(Bytes& bytes) {
    std::uint64_t nOccupied = 0;
    if (OctreeImage::Check(bytes.data(), bytes.size(), nOccupied)) return;
    const OctreeImage image(bytes.data());
    Expect(image.CountOccupied() == nOccupied);
    const PLMIdxOctreeLoader loader(bytes.data());
    Expect(loader.GetOctree() != nullptr && loader.GetOctree()->_depth == image.Depth());
}

void SearchBoxes(const Bytes& bytes) {
    if (RTreeImage::Check(bytes.data(), bytes.size())) return;
    std::size_t count = 0;
    const auto all = [](const IDX_Base_BoundingBox&) { return true; };
    RTreeImage(bytes.data()).Search(all, [&](const RTreeImage::Entry&) { ++count; });
    Expect(count <= bytes.size() / sizeof(RTreeImage::Entry));
}

void CheckParts(const Bytes& bytes) {
    constexpr std::size_t kManifest = sizeof(IDX_234Struct_Manifest) + sizeof(PartsManifest);
    const IdentifierTreeFile file(bytes.data(), bytes.size(), kManifest, sizeof(PartRecord));
    std::vector<unsigned int> items;
    if (file.Check(items)) return;
    for (const unsigned int item : items) Expect(file.SizeOfItem(item) != 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return 0;
    Bytes bytes(data + 1, data + size);
    bytes.shrink_to_fit();
    switch (data[0] % 3) {
        case 0:
            WalkOctree(bytes);
            break;
        case 1:
            SearchBoxes(bytes);
            break;
        default:
            CheckParts(bytes);
    }
    return 0;
}
