#include "PagePool.h"

#include <algorithm>
#include <cstdlib>
#include <sys/mman.h>

// A block of memory:
//
//   Block | PageFrame 0 | PageFrame 1 | ...       one allocation: what the pool knows of its pages
//           |             |
//           bytes         bytes
//           v             v
//   4096 bytes of a page, 512 of its bits | 4096 bytes, 512 of bits | ...       another allocation
//
// The frames are apart from the bytes. So the clock's hand, which looks at frames only, touches
// little memory, and the bytes fill huge pages of the processor.

PageFrame* PagePool::Allocate(PageOwner* iOwner, unsigned int iPage) {
    // Three ways to a frame: below the limit a free one, else the frame of an evicted page. Where
    // the limit allows one more and there is no memory for it, an evicted page helps as well.
    while (_nInUse >= _maxFrames) {
        if (_nInUse == 0 || !EvictOne()) return nullptr;
    }
    if (_free == nullptr && !Grow() && _nInUse != 0) EvictOne();
    if (_free == nullptr) return nullptr;
    PageFrame* frame = _free;
    _free = frame->nextFree;
    ++_nInUse;
    auto* bits = reinterpret_cast<std::uint64_t*>(frame->bytes + kPageSize);
    *frame = {iOwner, nullptr, frame->bytes, WrittenBytes(bits, kPageSize), 0, iPage, 0, 0, true};
    return frame;
}

/// With the last page in use the memory goes, too: a program that closes its files gets it back.
void PagePool::Release(PageFrame* ioFrame) {
    ioFrame->owner = nullptr;
    ioFrame->nextFree = _free;
    _free = ioFrame;
    if (--_nInUse == 0) ReleaseBlocks(kFirstBlockFrames);
}

/// A lower limit must hold at once, so all pages are dropped; those in use come back on demand.
void PagePool::SetLimit(std::size_t iBytes) {
    _maxFrames = iBytes / kPageSize;
    DropAll();
}

bool PagePool::IsWorthCaching(const PageOwner* iOwner, unsigned int iPage) {
    if (_nInUse < _maxFrames) return true;
    // Multiplicative hashing by 2^64 over the golden ratio: D. E. Knuth, "The Art of Computer
    // Programming", volume 3, section 6.4. The factor is odd, so each key is different, and the
    // upper 8 bits of the key choose one of 256 slots. A slot remembers only its latest key, so an
    // old miss is soon forgotten.
    constexpr std::uint64_t kSpread = 0x9E3779B97F4A7C15U;
    const std::uint64_t key = (reinterpret_cast<std::uintptr_t>(iOwner) ^ iPage) * kSpread;
    std::uint64_t& slot = _misses[key >> 56U];
    if (slot == key) return true;
    slot = key;
    return false;
}

bool PagePool::Grow() {
    // A process that opens one small file needs few frames, so the first block has 16. One calloc
    // holds the block and its frames; the bytes are apart, as a huge page has to be aligned to its
    // size.
    const bool isFirst = _blocks == nullptr;
    const unsigned int nFrames = isFirst ? kFirstBlockFrames : kBlockFrames;
    const std::size_t size = isFirst ? nFrames * kFrameSize : kHugePageSize;
    auto* block = static_cast<Block*>(std::calloc(1, sizeof(Block) + nFrames * sizeof(PageFrame)));
    if (block == nullptr) return false;
    block->bytes = static_cast<unsigned char*>(
        std::aligned_alloc(isFirst ? alignof(std::uint64_t) : kHugePageSize, size));
    if (block->bytes == nullptr) {
        std::free(block);
        return false;
    }
    if (!isFirst) madvise(block->bytes, size, MADV_HUGEPAGE);
    block->frames = reinterpret_cast<PageFrame*>(block + 1);
    block->nFrames = nFrames;
    block->next = _blocks;
    _blocks = block;
    AddFrames(*block);
    return true;
}

void PagePool::AddFrames(Block& ioBlock) {
    for (unsigned int i = ioBlock.nFrames; i-- > 0;) {
        ioBlock.frames[i].bytes = ioBlock.bytes + i * kFrameSize;
        ioBlock.frames[i].nextFree = _free;
        _free = &ioBlock.frames[i];
    }
}

PageFrame& PagePool::Advance() {
    // Frame by frame through a block, then to the next block, and from the last block to the first.
    if (_handBlock == nullptr || ++_handFrame == _handBlock->nFrames) {
        _handFrame = 0;
        _handBlock = _handBlock != nullptr ? _handBlock->next : nullptr;
        if (_handBlock == nullptr) _handBlock = _blocks;
    }
    return _handBlock->frames[_handFrame];
}

bool PagePool::EvictOne() {
    // One round clears the marks, the next finds a page without one. A page that can't be written
    // back gets its mark again. When more failures than pages were met, no page can be written
    // back.
    std::size_t nFailed = 0;
    while (nFailed <= _nInUse) {
        PageFrame& frame = Advance();
        if (frame.owner == nullptr) continue;
        if (frame.recent) {
            frame.recent = false;
        } else if (frame.written.IsDirty() && !frame.owner->WriteBackPage(frame.page)) {
            frame.recent = true;
            ++nFailed;
        } else {
            frame.owner->Drop(frame.page);
            return true;
        }
    }
    return false;
}

/// A page that can't be written back stays, with its dirty bytes.
void PagePool::DropAll() {
    // A drop of the last page frees the blocks, so no block may be read after it.
    for (Block* block = _blocks; _nInUse != 0 && block != nullptr;) {
        Block* next = block->next;
        const unsigned int nFrames = block->nFrames;
        for (unsigned int i = 0; _nInUse != 0 && i < nFrames; ++i) {
            PageFrame& frame = block->frames[i];
            if (frame.owner == nullptr) continue;
            if (frame.written.IsDirty() && !frame.owner->WriteBackPage(frame.page)) continue;
            frame.owner->Drop(frame.page);
        }
        block = next;
    }
}

void PagePool::ForgetAll() {
    _nInUse = 0;
    ReleaseBlocks(0);
}

void PagePool::ReleaseBlocks(unsigned int iKeptFrames) {
    // The first block is the last of the chain: new blocks are put before it.
    while (_blocks != nullptr && _blocks->nFrames != iKeptFrames) {
        Block* block = _blocks;
        _blocks = block->next;
        std::free(block->bytes);
        std::free(block);
    }
    _free = nullptr;
    _handBlock = nullptr;
    _handFrame = 0;
    if (_blocks != nullptr) AddFrames(*_blocks);
}
