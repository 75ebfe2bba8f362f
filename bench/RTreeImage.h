#ifndef RTreeImage_h
#define RTreeImage_h

#include "IDX_Base_BoundingBox.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <emmintrin.h>

/// A search over an R-tree image where it lies, as docs/file-formats.md tells it. Trusts the image.
class RTreeImage {
public:
    /// @param iImage  header and nodes, which stay the caller's
    explicit RTreeImage(const unsigned char* iImage)
        : _nodes(iImage + kHeaderSize),
          _nodeSize(kNodeHeaderSize + kEntrySize * Number<std::uint16_t>(iImage + 2)),
          _root(Number<std::uint32_t>(iImage + 4)) {}

    /// Bytes of all nodes, as the header has it.
    static std::uint32_t SizeOfNodes(const unsigned char* iImage) {
        return Number<std::uint32_t>(iImage + 8);
    }

    std::size_t NodeSize() const { return _nodeSize; }

    /// Calls `iFound` with the value of each entry whose box has a point in common with `iWindow`.
    /// @return the number of nodes looked at
    template <class Found>
    std::size_t Search(const IDX_Base_BoundingBox& iWindow, const Found& iFound) const {
        const IDX_Point low = iWindow.GetLow();
        const IDX_Point high = iWindow.GetHigh();
        const Window window = {
            _mm_setr_ps(low.x, low.y, low.z, 0.0f), _mm_setr_ps(high.x, high.y, high.z, 0.0f)};
        return Visit(_root, window, iFound);
    }

private:
    static constexpr std::size_t kHeaderSize = 12;
    static constexpr std::size_t kNodeHeaderSize = 12;
    static constexpr std::size_t kEntrySize = 28;
    static constexpr std::size_t kValue = 24;  ///< in an entry, behind low and high corner

    struct Window {
        __m128 low;
        __m128 high;
    };

    template <class T>
    static T Number(const unsigned char* iAt) {
        T number;
        std::memcpy(&number, iAt, sizeof number);
        return number;
    }

    static __m128 FourFloats(const unsigned char* iAt) {
        return _mm_loadu_ps(reinterpret_cast<const float*>(iAt));
    }

    /// The fourth lanes hold what lies behind the corners and don't count.
    static bool Touches(const unsigned char* iEntry, const Window& iWindow) {
        const __m128 startsBefore = _mm_cmple_ps(FourFloats(iEntry), iWindow.high);
        const __m128 endsBehind = _mm_cmpge_ps(FourFloats(iEntry + 12), iWindow.low);
        return (_mm_movemask_ps(_mm_and_ps(startsBefore, endsBehind)) & 7) == 7;
    }

    template <class Found>
    std::size_t Visit(std::uint32_t iNode, const Window& iWindow, const Found& iFound) const {
        const unsigned char* node = _nodes + iNode;
        const bool isLeaf = Number<std::uint16_t>(node + 4) == 0;
        const unsigned char* entry = node + kNodeHeaderSize;
        const unsigned char* end = entry + kEntrySize * Number<std::uint16_t>(node + 6);
        std::size_t visited = 1;
        for (; entry != end; entry += kEntrySize) {
            if (!Touches(entry, iWindow)) continue;
            const auto value = Number<std::uint32_t>(entry + kValue);
            if (isLeaf) {
                iFound(value);
            } else {
                visited += Visit(value, iWindow, iFound);
            }
        }
        return visited;
    }

    const unsigned char* _nodes;
    std::size_t _nodeSize;
    std::uint32_t _root;
};

#endif
