#ifndef PagePool_h
#define PagePool_h

#include "WrittenBytes.h"

#include <cstddef>
#include <cstdint>

constexpr unsigned int kPageBits = 12;
/// Bytes of a page: 4 KiB, the unit in which operating systems cache files.
constexpr unsigned int kPageSize = 1U << kPageBits;
/// Bytes of the bits that a page has for its WrittenBytes.
constexpr unsigned int kBitsSize = WrittenBytes::SizeOfBits(kPageSize);

/// A file with pages in the pool. The pool calls it to evict a page, and so needs to know nothing
/// of files.
class PageOwner {
public:
    /// Writes back the dirty bytes of a page, and those that continue them in the pages after it;
    /// false when some are still dirty.
    virtual bool WriteBackPage(unsigned int iPage) = 0;

    /// Drops a page; its dirty bytes are lost.
    virtual void Drop(unsigned int iPage) = 0;

protected:
    ~PageOwner() = default;
};

/// Memory for one page of a file. The bytes before `valid` are those of the file, or newer ones.
struct PageFrame {
    PageOwner* owner;  ///< null when free
    PageFrame* nextFree;
    unsigned char* bytes;      ///< kPageSize of them, then kBitsSize for the bits of `written`
    WrittenBytes written;      ///< bytes written since the last flush of the file; all are valid
    unsigned int nFlushes;     ///< of the owner, when `written` was cleared last
    unsigned int page;         ///< offset in the file, in pages
    std::uint16_t valid;       ///< number of valid bytes
    std::uint16_t dirtyLimit;  ///< bytes before this one may be dirty: their blocks are in the file
    bool recent;               ///< used since the clock's hand last passed
};

/// All page frames of the process, up to a limit. When no frame is free, the clock algorithm picks
/// a page to evict: F. J. Corbató, "A Paging Experiment with the Multics System", 1968. A hand goes
/// round all frames. It skips a page that was used since its last visit and clears that mark; it
/// evicts the first page without the mark. This comes close to "least recently used", but a use
/// costs one store only.
///
/// Memory is allocated in blocks as needed. It is freed when no page is in use.
class PagePool {
public:
    /// True when a page should be loaded into memory: a frame is free for it, or the page is wanted
    /// for the second time within a short while. In files much larger than the limit most pages
    /// aren't wanted again. To load them for a few bytes costs more than to read these bytes from
    /// the file.
    bool IsWorthCaching(const PageOwner* iOwner, unsigned int iPage);

    /// A frame for a page of a file, without valid bytes. May write back and drop pages of any
    /// file.
    /// @return null without memory, or when all pages are dirty and none can be written back
    PageFrame* Allocate(PageOwner* iOwner, unsigned int iPage);

    /// Makes a frame free. Its dirty bytes are lost.
    void Release(PageFrame* ioFrame);

    /// Sets how many bytes of pages may be in memory, and drops all pages that can be written back.
    void SetLimit(std::size_t iBytes);

    /// Forgets all pages without reading them: in a new process, where they are copies of the
    /// parent's.
    void ForgetAll();

private:
    /// Frames and their memory. The first block is small and stays. Each other block is one huge
    /// page of the processor (2 MiB), which avoids most page faults.
    struct Block {
        Block* next;
        unsigned int nFrames;
        unsigned char* bytes;
        PageFrame* frames;  ///< nFrames of them, after the block
    };
    static constexpr unsigned int kFirstBlockFrames = 16;
    static constexpr std::size_t kFrameSize = kPageSize + kBitsSize;
    static constexpr std::size_t kHugePageSize = std::size_t{2} << 20U;
    static constexpr unsigned int kBlockFrames = kHugePageSize / kFrameSize;
    static constexpr unsigned int kMissSlots = 256;

    /// Adds a block of free frames; false without memory.
    bool Grow();

    /// Moves the hand to the next frame.
    PageFrame& Advance();

    /// Drops a page that wasn't used lately; false when none can be written back.
    bool EvictOne();

    /// Writes back and drops every page that can be written back.
    void DropAll();

    /// Frees all blocks but the one with that many frames. No page may be in use.
    void ReleaseBlocks(unsigned int iKeptFrames);

    /// Adds the frames of a block to the free ones.
    void AddFrames(Block& ioBlock);

    Block* _blocks = nullptr;
    PageFrame* _free = nullptr;
    std::size_t _nInUse = 0;
    std::size_t _maxFrames = (std::size_t{256} << 20U) / kPageSize;
    Block* _handBlock = nullptr;  ///< the clock's hand points at frame `_handFrame` of this block
    unsigned int _handFrame = 0;
    /// Keys of pages that weren't loaded lately, each in the slot that its hash gives.
    std::uint64_t _misses[kMissSlots] = {};
};

#endif
