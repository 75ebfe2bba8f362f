#include "MeshBytes.h"

#include "formats/UnalignedMemory.h"

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

/// Goes before each chunk. 8 bytes, little-endian.
struct GlbChunk {
    std::uint32_t length;  //  0  4  of the data after it
    std::uint32_t type;    //  4  4  kJsonChunk or another
};
static_assert(sizeof(GlbChunk) == 8, "binary glTF: chunk");

constexpr std::uint32_t kJsonChunk = 0x4E4F534A;  // "JSON"
constexpr std::uint32_t kAlignment = 4;

/// The T whose bytes start at an offset of a text of bytes.
template <typename T>
T LoadFrom(const std::string& iBytes, std::size_t iOffset) {
    return LoadAt<T>(reinterpret_cast<const unsigned char*>(iBytes.data()), iOffset);
}

template <typename T>
void StoreInto(std::string& ioBytes, std::size_t iOffset, const T& iValue) {
    StoreAt(reinterpret_cast<unsigned char*>(ioBytes.data()), iOffset, iValue);
}

}  // namespace

/// The unpacked size isn't known before: the buffer grows by a step at a time.
Status ReadBytes(const std::string& iPath, std::string& oBytes) {
    constexpr unsigned int kStep = 1U << 20;
    const gzFile file = gzopen(iPath.c_str(), "rb");  // gives a file that isn't packed as it is
    if (file == nullptr) return Status::PartFailed(std::strerror(errno));
    int nRead = 0;
    do {
        const std::size_t size = oBytes.size();
        oBytes.resize(size + kStep);
        nRead = gzread(file, oBytes.data() + size, kStep);
        oBytes.resize(size + static_cast<std::size_t>(std::max(nRead, 0)));
    } while (nRead > 0);
    int error = Z_OK;
    const char* text = gzerror(file, &error);
    const Status status = error == Z_OK ? Status() : Status::PartFailed(text);
    gzclose(file);
    return status;
}

bool HasUnalignedChunk(const std::string& iPath) {
    std::string bytes;
    return !ReadBytes(iPath, bytes).Failed() && AlignChunks(bytes) != bytes;
}

/// Lengths of padded chunks and of the whole file are written anew. JSON is padded with spaces, any
/// other chunk with zeros, as the format says.
std::string AlignChunks(const std::string& iGlb) {
    if (iGlb.size() < sizeof(GlbHeader) || iGlb.compare(0, 4, "glTF") != 0) return iGlb;
    std::string aligned = iGlb.substr(0, sizeof(GlbHeader));
    std::size_t offset = sizeof(GlbHeader);
    while (offset + sizeof(GlbChunk) <= iGlb.size()) {
        GlbChunk chunk = LoadFrom<GlbChunk>(iGlb, offset);
        offset += sizeof chunk;
        if (chunk.length > iGlb.size() - offset) return iGlb;
        const std::uint32_t padding = (kAlignment - chunk.length % kAlignment) % kAlignment;
        const std::string data = iGlb.substr(offset, chunk.length);
        offset += chunk.length;
        chunk.length += padding;
        const std::size_t chunkAt = aligned.size();
        aligned.resize(chunkAt + sizeof chunk);
        StoreInto(aligned, chunkAt, chunk);
        aligned += data;
        aligned.append(padding, chunk.type == kJsonChunk ? ' ' : '\0');
    }
    GlbHeader header = LoadFrom<GlbHeader>(iGlb, 0);
    header.length = static_cast<std::uint32_t>(aligned.size());
    StoreInto(aligned, 0, header);
    return aligned;
}
