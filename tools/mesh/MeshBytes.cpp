#include "MeshBytes.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <zlib.h>

namespace {

/// Header of a binary glTF file. 12 bytes, little-endian.
struct GlbHeader {
    char magic[4];          //  0  4  "glTF"
    std::uint32_t version;  //  4  4
    std::uint32_t length;   //  8  4  of the whole file
};
static_assert(sizeof(GlbHeader) == 12, "binary glTF: header");

/// Stands before each chunk. 8 bytes, little-endian.
struct GlbChunk {
    std::uint32_t length;  //  0  4  of the data behind it
    std::uint32_t type;    //  4  4  kJsonChunk or another
};
static_assert(sizeof(GlbChunk) == 8, "binary glTF: chunk");

constexpr std::uint32_t kJsonChunk = 0x4E4F534A;  // "JSON"
constexpr std::uint32_t kAlignment = 4;

template <typename T>
T LoadAt(const std::string& iBytes, std::size_t iOffset) {
    T value;
    std::memcpy(&value, iBytes.data() + iOffset, sizeof value);
    return value;
}

template <typename T>
void Append(std::string& ioBytes, const T& iValue) {
    ioBytes.append(reinterpret_cast<const char*>(&iValue), sizeof iValue);
}

}  // namespace

bool ReadBytes(const std::string& iPath, std::string& oBytes, std::string& oFailure) {
    constexpr unsigned int kStep = 1U << 20;
    const gzFile file = gzopen(iPath.c_str(), "rb");  // gives a file that isn't packed as it stands
    if (file == nullptr) {
        oFailure = std::strerror(errno);
        return false;
    }
    int nRead = 0;
    do {
        const std::size_t size = oBytes.size();
        oBytes.resize(size + kStep);
        nRead = gzread(file, oBytes.data() + size, kStep);
        oBytes.resize(size + static_cast<std::size_t>(std::max(nRead, 0)));
    } while (nRead > 0);
    int error = Z_OK;
    const char* text = gzerror(file, &error);
    if (error != Z_OK) oFailure = text;
    gzclose(file);
    return oFailure.empty();
}

bool HasUnalignedChunk(const std::string& iPath) {
    std::string bytes;
    std::string failure;
    return ReadBytes(iPath, bytes, failure) && AlignChunks(bytes) != bytes;
}

std::string AlignChunks(const std::string& iGlb) {
    if (iGlb.size() < sizeof(GlbHeader) || iGlb.compare(0, 4, "glTF") != 0) return iGlb;
    std::string aligned = iGlb.substr(0, sizeof(GlbHeader));
    std::size_t offset = sizeof(GlbHeader);
    while (offset + sizeof(GlbChunk) <= iGlb.size()) {
        GlbChunk chunk = LoadAt<GlbChunk>(iGlb, offset);
        offset += sizeof chunk;
        if (chunk.length > iGlb.size() - offset) return iGlb;
        const std::uint32_t padding = (kAlignment - chunk.length % kAlignment) % kAlignment;
        const std::string data = iGlb.substr(offset, chunk.length);
        offset += chunk.length;
        chunk.length += padding;
        Append(aligned, chunk);
        aligned += data;
        aligned.append(padding, chunk.type == kJsonChunk ? ' ' : '\0');
    }
    GlbHeader header = LoadAt<GlbHeader>(iGlb, 0);
    header.length = static_cast<std::uint32_t>(aligned.size());
    std::memcpy(aligned.data(), &header, sizeof header);
    return aligned;
}
