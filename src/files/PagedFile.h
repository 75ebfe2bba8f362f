#ifndef PagedFile_h
#define PagedFile_h

#include "FileBlocks.h"
#include "FileCalls.h"
#include "PagePool.h"
#include "PageTable.h"
#include "common/RawMemory.h"

#include <cstdio>
#include <span>
#include <sys/types.h>

/// One file of the disk, with a write-back cache of its pages. All streams of the process on that
/// file share this object, under whatever names they opened it. So no stream reads old bytes.
///
/// Small accesses use the pages. Written bytes stay dirty in a page only where the file already has
/// its block on the disk (FileBlocks). They reach the file at Flush(), when the last writer leaves,
/// or when the pool evicts the page. All other writes go to the file at once. So the write that
/// finds the disk full is the one that fails, and the file on the disk lacks less than one page at
/// its end.
///
/// Large accesses bypass the pages and update those in memory. Only bytes that this process wrote
/// go to the file.
///
/// A child process starts without pages. The parent alone writes back what was dirty at the fork.
///
/// Offsets are below kEndOfOffsets. A read past the known end asks the file each time, since
/// another process may have made it longer.
class PagedFile final : private PageOwner {
public:
    /// The object of the file under a stream that was just opened. The stream becomes unbuffered.
    /// Dirty bytes of the file are written back first, so that the size of the file is right.
    /// @return null for anything but a regular file, and without memory; the caller then uses the
    /// stream
    static PagedFile* Attach(FILE* ioStream, bool iForWriting);

    /// The object of the file under a descriptor; null when no stream of the process has it open.
    static PagedFile* Find(int iDescriptor);

    /// Forgets a stream that is about to be closed. The last writer writes back the dirty bytes.
    /// The last stream drops the pages and deletes this object.
    /// @return false when written bytes can't reach the file
    bool Detach(FILE* iStream);

    /// Sets how many bytes of pages the process may hold, over all files.
    static void SetPageMemory(std::size_t iBytes) { _pool.SetLimit(iBytes); }

    /// Reads bytes.
    /// @param oError  set to true on an error of the system, else left alone
    /// @return the number of bytes read; fewer than asked for at the end of the file and on an
    /// error
    std::size_t Read(std::size_t iOffset, unsigned char* oData, std::size_t iSize, bool& oError);

    /// Writes bytes; false when not all of them could be written.
    bool Write(std::size_t iOffset, const unsigned char* iData, std::size_t iSize);

    /// Writes back all dirty bytes; false when some are still dirty.
    bool Flush();

    /// Drops all pages without dirty bytes, so that the next read asks the file.
    /// @param iAlsoDirty  drops the others, too, and loses their dirty bytes
    void DropPages(bool iAlsoDirty);

    /// The fast path of Read(): true when one page in memory has all the bytes.
    bool ReadCached(std::size_t iOffset, void* oData, std::size_t iSize) {
        PageFrame* frame = _pages.Find(iOffset >> kPageBits).frame;
        const std::size_t from = iOffset & (kPageSize - 1);
        if (frame == nullptr || from + iSize > frame->valid) return false;
        frame->recent = true;
        CopyBytes(oData, frame->bytes + from, iSize);
        return true;
    }

    /// The fast path of Write(): true when the bytes may stay dirty in one page in memory and leave
    /// no gap after its valid bytes.
    /// @param iSize  at least 1
    bool WriteCached(std::size_t iOffset, const void* iData, std::size_t iSize) {
        const PageTable::Entry page = _pages.Find(iOffset >> kPageBits);
        const std::size_t from = iOffset & (kPageSize - 1);
        if (page.frame == nullptr) return false;
        __builtin_prefetch(page.bytes + kPageSize + from / 8, 1);  // the bits of `written`
        if (from > page.frame->valid || from + iSize > page.frame->dirtyLimit) return false;
        StoreDirty(*page.frame, from, iData, iSize);
        return true;
    }

    /// The bytes in memory from an offset to the end of its page; none when they aren't in memory.
    std::span<const unsigned char> CachedFrom(std::size_t iOffset) const {
        const PageTable::Entry page = _pages.Find(iOffset >> kPageBits);
        const std::size_t from = iOffset & (kPageSize - 1);
        if (page.frame == nullptr || from >= page.frame->valid) return {};
        page.frame->recent = true;
        return {page.bytes + from, page.frame->valid - from};
    }

    /// Asks the processor to load bytes that are read soon, if one page in memory has them.
    void Prefetch(std::size_t iOffset, std::size_t iSize) const {
        const unsigned char* bytes = _pages.Find(iOffset >> kPageBits).bytes;
        const std::size_t from = iOffset & (kPageSize - 1);
        if (bytes == nullptr || from + iSize > kPageSize) return;
        __builtin_prefetch(bytes + from);
        __builtin_prefetch(bytes + from + iSize - 1);
    }

private:
    /// An open stream on the file.
    struct Stream {
        Stream* next;
        FILE* stream;
        int descriptor;
        bool forWriting;
    };

    /// The arguments of one system call that writes back several pages.
    struct GatherList;

    PagedFile(dev_t iDevice, ino_t iNumber);
    ~PagedFile();

    // Streams of the file.

    static PagedFile* Find(dev_t iDevice, ino_t iNumber);

    /// The object of the file under a descriptor, made if there is none; null as Attach().
    static PagedFile* FindOrCreate(int iDescriptor);

    /// Called for the first writer: asks the system for the size of the file and its blocks.
    void StartWriting(int iDescriptor);

    /// Called in a new process: forgets all pages of all files.
    static void ForgetInherited();

    /// The descriptor of any stream, or of one that is open for writing; -1 when there is none.
    int Descriptor(bool iForWriting) const;

    // Pages in memory.

    /// The frame of a page, with or without valid bytes; null when the page can't be in memory.
    PageFrame* FindOrAdd(std::size_t iPage);

    /// Reads what the file has after the valid bytes of a page; false on an error.
    bool LoadRest(PageFrame& ioFrame);

    /// Makes all bytes of a page before `iFrom` valid; false when it can't.
    bool FillBefore(PageFrame& ioFrame, std::size_t iFrom);

    /// How many bytes from `iOffset` on, at most `iSize`, lie in pages that aren't in memory.
    std::size_t CountNotCached(std::size_t iOffset, std::size_t iSize) const;

    void Drop(unsigned int iPage) override;

    // Reads and writes go in steps, of one page or of all bytes that bypass the pages. Each returns
    // the number of bytes that it moved.

    std::size_t ReadStep(
        std::size_t iOffset, unsigned char* oData, std::size_t iSize, bool& oError);
    std::size_t ReadPage(
        PageFrame& ioFrame,
        std::size_t iFrom,
        unsigned char* oData,
        std::size_t iSize,
        bool& oError);
    std::size_t WriteStep(std::size_t iOffset, const unsigned char* iData, std::size_t iSize);

    /// Writes to the file at once, and updates the pages in memory.
    std::size_t WriteThrough(std::size_t iOffset, const unsigned char* iData, std::size_t iSize);

    /// Called before bytes that make the file longer: writes back the dirty bytes of the page where
    /// the file ends. Where these end at `iOffset`, the new bytes go with them in one system call.
    /// @return how many of the new bytes were written
    std::size_t WriteWithTail(std::size_t iOffset, const unsigned char* iData, std::size_t iSize);

    /// Records that bytes have reached the file.
    void RecordWrite(std::size_t iFrom, std::size_t iTo);

    /// Copies bytes that have reached the file into a page. Between its valid bytes and these there
    /// may only be padding.
    void UpdatePage(
        PageFrame& ioFrame, std::size_t iFrom, const unsigned char* iData, std::size_t iSize);

    /// Raises `dirtyLimit` of a page, given where the blocks of the file end. Bytes past the
    /// process's limit of file sizes may not be dirty, since their write back would fail.
    void RaiseDirtyLimit(PageFrame& ioFrame, std::size_t iEndOfBlocks) const;

    /// Copies bytes into a page, below its `dirtyLimit` and without a gap, and marks them dirty.
    void StoreDirty(PageFrame& ioFrame, std::size_t iFrom, const void* iData, std::size_t iSize) {
        CopyBytes(ioFrame.bytes + iFrom, iData, iSize);
        const auto from = static_cast<unsigned int>(iFrom);
        const auto to = static_cast<unsigned int>(iFrom + iSize);
        if (!ioFrame.written.IsDirty()) CountDirtyPage(ioFrame);
        ioFrame.written.AddDirty(from, to);
        ioFrame.valid = std::max(ioFrame.valid, static_cast<std::uint16_t>(to));
        ioFrame.recent = true;
    }

    // Dirty pages and their write back.

    /// Counts a clean page as dirty, just before its first byte becomes dirty.
    void CountDirtyPage(PageFrame& ioFrame);

    /// Forgets which bytes of a clean page were written before the last flush.
    void ClearFlushed(PageFrame& ioFrame) const;

    /// Records that these bytes of a page have reached the file.
    void MarkClean(PageFrame& ioFrame, WrittenBytes::Run iRun);

    bool WriteBackPage(unsigned int iPage) override;

    /// Writes back a run, and the runs that continue it in the pages after it; false when some of
    /// these bytes are still dirty.
    bool WriteBack(const PageFrame& iFrame, WrittenBytes::Run iRun);
    GatherList Gather(const PageFrame& iFrame, WrittenBytes::Run iRun) const;

    static PagePool _pool;
    static PagedFile* _files;  ///< all open files, in one chain

    PagedFile* _next;
    Stream* _streams;
    dev_t _device;  ///< with `_number` the identity of the file, whatever its name
    ino_t _number;
    std::size_t _fileEnd;  ///< as its first writer found it, raised by writes of this process
    FileBlocks _blocks;    ///< of a file that has a writer
    PageTable _pages;
    std::size_t _nDirty;  ///< pages with dirty bytes
    std::size_t
        _lowestDirty;  ///< all dirty pages lie between these two page numbers, both included
    std::size_t _highestDirty;
    unsigned int _nFlushes;
};

#endif
