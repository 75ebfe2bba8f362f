#ifndef PagedFile_h
#define PagedFile_h

#include "PagePool.h"
#include "RawMemory.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <span>
#include <sys/types.h>

/// One file of the disk, with the part of its content that is held in memory. All streams of the process
/// on that file share it, by whatever name they opened it, so that none of them sees old bytes.
///
/// Small accesses are served from pages; what is written stays there until Flush(), the last writer's
/// leaving, or until its page must give way. A page is held back only once the file system has promised
/// the space under it: else the bytes go straight to the file, so that a full disk is noticed by the
/// write that meets it. Large accesses go straight to the file and keep the pages true.
///
/// Offsets stay below kEndOfOffsets. Reads that run into the end ask the file anew each time.
class PagedFile {
public:
    /// No byte of a file lies at or behind this offset.
    static constexpr std::size_t kEndOfOffsets = 0x7FFFFFFF;

    /// The file under a stream that was just opened; the stream is made unbuffered. Null for what isn't a
    /// regular file, and without memory: such a stream serves itself.
    static PagedFile* Attach(FILE* ioStream, bool iForWriting);

    /// Forgets a stream that is about to be closed. The last writer that leaves writes back what is
    /// held, the last stream drops the pages and this object.
    /// @return false when bytes that were written can't reach the file
    bool Detach(FILE* iStream);

    /// Sets how many bytes of pages the process may hold.
    static void SetPageMemory(std::size_t iBytes) { _pool.SetLimit(iBytes); }

    /// Reads bytes and gives how many came. Fewer: the end of the file or, if so told, an error.
    std::size_t Read(std::size_t iOffset, unsigned char* oData, std::size_t iSize, bool& oError);

    /// Writes bytes; false when not all of them could be written.
    bool Write(std::size_t iOffset, const unsigned char* iData, std::size_t iSize);

    /// Brings all held bytes to the file; false when some are still held.
    bool Flush();

    /// The fast way of Read: true when one page holds it all.
    bool ReadHeld(std::size_t iOffset, void* oData, std::size_t iSize) {
        PageFrame* frame = Find(iOffset >> kPageBits);
        const std::size_t from = iOffset & (kPageSize - 1);
        if (frame == nullptr || from + iSize > frame->valid) return false;
        frame->recent = true;
        CopyBytes(oData, frame->bytes + from, iSize);
        return true;
    }

    /// The fast way of Write: true when it ends in a page that is dirty already and leaves no gap there.
    bool WriteHeld(std::size_t iOffset, const void* iData, std::size_t iSize) {
        PageFrame* frame = Find(iOffset >> kPageBits);
        const std::size_t from = iOffset & (kPageSize - 1);
        if (frame == nullptr || !frame->IsDirty() || from > frame->valid ||
            from + iSize > kPageSize) {
            return false;
        }
        Put(*frame, from, iData, iSize);
        return true;
    }

    /// The bytes that are held from an offset on, up to the end of its page.
    std::span<const unsigned char> HeldFrom(std::size_t iOffset) const {
        const HeldPage page = Held(iOffset >> kPageBits);
        const std::size_t from = iOffset & (kPageSize - 1);
        if (page.frame == nullptr || from >= page.frame->valid) return {};
        page.frame->recent = true;
        return {page.bytes + from, page.frame->valid - from};
    }

    /// Has the processor fetch bytes that are soon to be read, if one page holds them.
    void Prefetch(std::size_t iOffset, std::size_t iSize) const {
        const unsigned char* bytes = Held(iOffset >> kPageBits).bytes;
        const std::size_t from = iOffset & (kPageSize - 1);
        if (bytes == nullptr || from + iSize > kPageSize) return;
        __builtin_prefetch(bytes + from);
        __builtin_prefetch(bytes + from + iSize - 1);
    }

    // For the pool.

    /// Writes back a run of dirty pages that starts with this one.
    bool WriteBackFrom(unsigned int iPage);

    /// Drops a page; what is dirty in it is lost.
    void Drop(unsigned int iPage);

private:
    struct Stream {
        Stream* next;
        FILE* stream;
        int descriptor;
        bool forWriting;
    };

    PagedFile(dev_t iDevice, ino_t iNumber, std::size_t iEnd, bool iHasHoles);
    ~PagedFile();

    /// The object of the file under a descriptor, new or not; null as Attach().
    static PagedFile* Of(int iDescriptor);

    /// The descriptor of a stream, if asked so of one open for writing; -1 when there is none.
    int Descriptor(bool iForWriting) const;

    // Reads and writes in steps: one page, or all that goes past the pages. They give the bytes done.
    std::size_t ReadSome(
        std::size_t iOffset, unsigned char* oData, std::size_t iSize, bool& oError);
    std::size_t ReadPage(
        PageFrame& ioFrame,
        std::size_t iFrom,
        unsigned char* oData,
        std::size_t iSize,
        bool& oError);
    std::size_t ReadStraight(
        std::size_t iOffset, unsigned char* oData, std::size_t iSize, bool& oError) const;
    std::size_t WriteSome(std::size_t iOffset, const unsigned char* iData, std::size_t iSize);
    std::size_t WriteStraight(std::size_t iOffset, const unsigned char* iData, std::size_t iSize);

    /// How many bytes from `iOffset` on, at most `iSize`, lie in pages that aren't held.
    std::size_t NotHeld(std::size_t iOffset, std::size_t iSize) const;

    /// A place in the table of pages. It has the way to the bytes, too: it is taken without waiting for the frame.
    struct HeldPage {
        PageFrame* frame = nullptr;  ///< null where not held
        unsigned char* bytes = nullptr;
    };

    HeldPage Held(std::size_t iPage) const { return iPage < _nPages ? _pages[iPage] : HeldPage{}; }

    /// The page if it is held.
    PageFrame* Find(std::size_t iPage) const { return Held(iPage).frame; }

    /// The page, with or without valid bytes in it; null when it can't be held.
    PageFrame* FindOrTake(std::size_t iPage);
    bool GrowTable(std::size_t iPage);

    /// Reads what the file has behind the valid bytes of a page; false on an error.
    bool Extend(PageFrame& ioFrame);

    /// Zeroes what the file doesn't have yet and will be a hole in it, since more is held behind. Gives
    /// how many bytes these are, from the first on.
    std::size_t FillHole(std::size_t iOffset, unsigned char* oData, std::size_t iSize) const;

    /// Makes the page ready for bytes from `iFrom` on: nothing unknown before them, its space taken.
    bool Prepare(PageFrame& ioFrame, std::size_t iFrom);

    /// Puts bytes into a page that is ready for them.
    void Put(PageFrame& ioFrame, std::size_t iFrom, const void* iData, std::size_t iSize) {
        CopyBytes(ioFrame.bytes + iFrom, iData, iSize);
        const auto from = static_cast<std::uint16_t>(iFrom);
        const auto to = static_cast<std::uint16_t>(iFrom + iSize);
        if (!ioFrame.IsDirty()) {
            ioFrame.dirtyFrom = from;
            ioFrame.dirtyTo = to;
            CountDirty(ioFrame.page);
        } else {
            ioFrame.dirtyFrom = std::min(ioFrame.dirtyFrom, from);
            ioFrame.dirtyTo = std::max(ioFrame.dirtyTo, to);
        }
        ioFrame.valid = std::max(ioFrame.valid, to);
        ioFrame.recent = true;
        const std::size_t end = (std::size_t{ioFrame.page} << kPageBits) + to;
        _heldEnd = std::max(_heldEnd, end);
        _knownEnd = std::max(_knownEnd, end);
    }

    void CountDirty(unsigned int iPage);
    void SetClean(PageFrame& ioFrame);

    /// Has the file system promise the blocks under a page, so that the page can be held back.
    bool TakeSpace(PageFrame& ioFrame);
    bool PromiseSpace(std::size_t iOffset, std::size_t iSize);

    /// The dirty bytes that follow on each other from a page on, at most kRunPages pieces.
    int CollectRun(unsigned int iPage, struct iovec* oRun) const;
    bool WriteBack(const PageFrame& iFrame) const;
    void DropDirty();

    static PagePool _pool;
    static PagedFile* _files;

    PagedFile* _next;
    Stream* _streams;
    dev_t _device;
    ino_t _number;
    HeldPage* _pages;  ///< by page number
    std::size_t _nPages;
    std::size_t _knownEnd;     ///< nothing that this process knows of lies behind it
    std::size_t _heldEnd;      ///< end of what is dirty; 0 when nothing is
    std::size_t _spaceEnd;     ///< the blocks below it are the file's already
    std::size_t _nDirty;       ///< pages
    std::size_t _lowestDirty;  ///< page numbers between which all dirty pages lie
    std::size_t _highestDirty;
    bool _canTakeSpace;  ///< false once the file system said that it makes no such promise
};

#endif
