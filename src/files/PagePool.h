#ifndef PagePool_h
#define PagePool_h

#include "WrittenBytes.h"

#include <cstddef>
#include <cstdint>

constexpr unsigned int kPageBits = 12;
/// 4 KiB, the unit in which systems hold files.
constexpr unsigned int kPageSize = 1U << kPageBits;
constexpr unsigned int kBitsSize = WrittenBytes::SizeOfBits(kPageSize);

/// A file that holds pages of the pool. The pool asks it to let go of one.
class PageOwner {
public:
    /// Writes what waits in a page, and what follows on it; false when some of the page still waits.
    virtual bool WriteBackPage(unsigned int iPage) = 0;

    /// Drops a page; what waits in it is lost.
    virtual void Drop(unsigned int iPage) = 0;

protected:
    ~PageOwner() = default;
};

/// A page of a file in memory. Bytes from 0 to `valid` are as in the file, or newer.
struct PageFrame {
    PageOwner* owner;  ///< null when free
    PageFrame* nextFree;
    unsigned char* bytes;   ///< kPageSize of them, then kBitsSize for those of `written`
    WrittenBytes written;   ///< since the file was flushed; some of the valid ones
    unsigned int nFlushes;  ///< of the owner, when `written` began
    unsigned int page;      ///< offset in the file, in pages
    std::uint16_t valid;
    std::uint16_t dirtyLimit;  ///< bytes before this one may be dirty: their blocks are in the file
    bool recent;         ///< touched since the hand last passed
};

/// All page frames of the process, up to a limit. When none is free the one that a clock's hand finds
/// untouched since its last round gives way (F. J. Corbató, A Paging Experiment with the Multics
/// System, 1968). Memory is taken in blocks as needed, and given back when no page is in use.
class PagePool {
public:
    /// True when a page should be taken into memory: there is room for it, or it is asked for again
    /// after a short while. In files far beyond the limit most pages aren't, and to load them for a few
    /// bytes would cost more than to read these bytes from the file.
    bool IsWorthCaching(const PageOwner* iOwner, unsigned int iPage);

    /// A frame for a file's page, with nothing valid in it. May write back and drop pages of any file.
    /// Null without memory, or when no page can be written back.
    PageFrame* Allocate(PageOwner* iOwner, unsigned int iPage);

    /// Makes a frame free. What waits in it is lost.
    void Release(PageFrame* ioFrame);

    /// Sets how many bytes of pages may be held, and drops all pages that can be dropped.
    void SetLimit(std::size_t iBytes);

    /// Forgets all pages without a look at them: in a new process, whose copies they are of another's.
    void ForgetAll();

private:
    /// Frames and the memory under them. The first block is small and stays; all others are one huge page of
    /// the processor, which spares most of the page faults.
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

    /// Drops a page that wasn't touched lately; false when none can be written back.
    bool EvictOne();

    /// Writes back and drops every page that can be written back.
    void DropAll();

    /// Gives the memory of blocks back, but for the block of that many frames. No page may be in use.
    void ReleaseBlocks(unsigned int iKeptFrames);

    void AddFrames(Block& ioBlock);

    Block* _blocks = nullptr;
    PageFrame* _free = nullptr;
    std::size_t _nInUse = 0;
    std::size_t _maxFrames = (std::size_t{256} << 20U) / kPageSize;
    Block* _handBlock = nullptr;  ///< where the clock's hand points
    unsigned int _handFrame = 0;
    std::uint64_t _misses[kMissSlots] =
        {};  ///< pages that weren't taken lately, by a hash of their own
};

#endif
