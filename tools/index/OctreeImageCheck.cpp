#include "OctreeImageCheck.h"

#include "Finite.h"

#include "IDXOctreeType.h"
#include "IDX_Point.h"

#include <bit>
#include <cstring>

namespace {

/// The fields of an image's header that decide what follows it.
struct Header {
    std::uint32_t type;     //  0  4
    std::uint32_t version;  //  4  4
    std::uint32_t depth;    //  8  4
    IDX_Point origin;       // 12 12
    IDX_Point extents;      // 24 12
};
static_assert(sizeof(Header) == 36, "octree image: start of the header");

constexpr std::size_t kHeaderSize = 132;
constexpr std::size_t kSizeField = 128;
constexpr std::size_t kRecordSize = 8;
constexpr std::uint32_t kType = 2;
constexpr std::uint32_t kVersion = 1;
constexpr std::uint32_t kDeepest = 19;
constexpr std::uint32_t kPartialBits = 0x5555;  // the low bit of each of eight states

template <class Value>
Value Load(const unsigned char* iBytes, std::size_t iOffset) {
    Value value;
    std::memcpy(&value, iBytes + iOffset, sizeof value);
    return value;
}

/// Why a header can't stand before these records; empty when it can.
std::string CheckHeader(const unsigned char* iBytes, std::size_t iSize) {
    if (iSize < kHeaderSize) return "shorter than its header";
    const auto header = Load<Header>(iBytes, 0);
    if (header.type != kType) return "another type of octree";
    if (header.version != kVersion) return "another version";
    if (header.depth == 1 || header.depth > kDeepest) return "depth out of range";
    if (!IsFinite(header.origin) || !IsFinite(header.extents)) return "box not finite";
    const IDX_Point& extents = header.extents;
    if (extents.x < 0 || extents.y < 0 || extents.z < 0) return "box inside out";
    const auto size = Load<std::uint32_t>(iBytes, kSizeField);
    if (size != iSize - kHeaderSize) return "header tells another length";
    const std::size_t smallest = header.depth == 0 ? 0 : kRecordSize;
    if (size % kRecordSize != 0 || size < smallest) return "length not that of whole records";
    if (header.depth <= 2 && size != smallest) return "length not that of its depth";
    return {};
}

/// Walks the records in the order in which they were written. Each child set must be where that order puts it,
/// which leaves no room for a record that is shared, missing or too many.
class RecordWalk {
public:
    RecordWalk(const unsigned char* iRecords, std::size_t iSize)
        : _records(iRecords), _size(iSize) {}

    /// @param iLevels  levels below the record's cell
    bool Visit(std::size_t iRecord, unsigned int iLevels) {
        if (iLevels == 2) {
            nOccupied +=
                static_cast<std::uint64_t>(std::popcount(Load<std::uint64_t>(_records, iRecord)));
            return true;
        }
        const auto states = Load<std::uint16_t>(_records, iRecord);
        const std::uint32_t partial = states & kPartialBits;
        const std::uint32_t full = std::uint32_t{states} >> 1U & kPartialBits;
        if ((partial & full) != 0 || Load<std::uint16_t>(_records, iRecord + 2) != 0) return false;
        nOccupied += static_cast<std::uint64_t>(std::popcount(full)) << 3U * (iLevels - 1);
        const auto childSet = Load<std::uint32_t>(_records, iRecord + 4);
        const auto nChildren = static_cast<std::size_t>(std::popcount(partial));
        if (nChildren == 0) return childSet == 0;
        if (childSet != next || nChildren * kRecordSize > _size - next) return false;
        next += nChildren * kRecordSize;
        for (std::size_t child = 0; child < nChildren; ++child) {
            if (!Visit(childSet + child * kRecordSize, iLevels - 1)) return false;
        }
        return true;
    }

    std::size_t next = kRecordSize;  ///< where the next child set belongs
    std::uint64_t nOccupied = 0;

private:
    const unsigned char* _records;
    std::size_t _size;
};

}  // namespace

std::string CheckOctreeImage(
    const unsigned char* iBytes, std::size_t iSize, std::uint64_t& oOccupied) {
    oOccupied = 0;
    std::string failure = CheckHeader(iBytes, iSize);
    if (!failure.empty()) return failure;
    const auto depth = Load<Header>(iBytes, 0).depth;
    if (depth == 0) return {};
    const std::size_t size = iSize - kHeaderSize;
    RecordWalk walk(iBytes + kHeaderSize, size);
    if (!walk.Visit(0, depth) || walk.next != size) return "records don't fit together";
    oOccupied = walk.nOccupied;
    return {};
}
