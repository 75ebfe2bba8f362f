#ifndef PagedFile_h
#define PagedFile_h

#include "FileBlocks.h"
#include "PagePool.h"
#include "common/RawMemory.h"

#include <cstdio>
#include <span>
#include <sys/types.h>

/// One file of the disk, with the part of its content that is held in memory. All streams of the process
/// on that file share it, by whatever name they opened it, so that none of them sees old bytes.
///
/// Small accesses are served from pages. What is written waits there only where the file has its block
/// already (FileBlocks), until Flush(), the last writer's leaving, or until its page must give way; all
/// else goes straight to the file. So a disk that is full is noticed by the write that meets it, and what
/// waits at the end of the file is part of one page. Large accesses go straight to the file, too, and keep
/// the pages true. The bytes that were written go to the file and no others.
///
/// A child process starts with no page and nothing that waits: that is its parent's to write.
///
/// Offsets stay below kEndOfOffsets. Reads that run into the end ask the file anew each time.
class PagedFile final : private PageOwner {
public:
    /// No byte of a file lies at or behind this offset.
    static constexpr std::size_t kEndOfOffsets = 0x7FFFFFFF;

    /// The file under a stream that was just opened; the stream is made unbuffered, and what waits for the
    /// file goes to it, so that its size is true. Null for what isn't a regular file, and without memory:
    /// such a stream serves itself.
    static PagedFile* Attach(FILE* ioStream, bool iForWriting);

    /// The file under a descriptor, if a stream of the process has it open; null otherwise.
    static PagedFile* Find(int iDescriptor);

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

    /// Brings all that waits to the file; false when something still waits.
    bool Flush();

    /// Drops all pages where nothing waits, so that what is read next comes from the file; and if asked so,
    /// also the others, with what waits there.
    void DropPages(bool iAlsoWaiting);

    /// The fast way of Read: true when one page holds it all.
    bool ReadHeld(std::size_t iOffset, void* oData, std::size_t iSize) {
        PageFrame* frame = Held(iOffset >> kPageBits).frame;
        const std::size_t from = iOffset & (kPageSize - 1);
        if (frame == nullptr || from + iSize > frame->valid) return false;
        frame->recent = true;
        CopyBytes(oData, frame->bytes + from, iSize);
        return true;
    }

    /// The fast way of Write: true when all may wait in one page that is held and leaves no gap there.
    /// @param iSize  at least 1
    bool WriteHeld(std::size_t iOffset, const void* iData, std::size_t iSize) {
        const HeldPage page = Held(iOffset >> kPageBits);
        const std::size_t from = iOffset & (kPageSize - 1);
        if (page.frame == nullptr) return false;
        __builtin_prefetch(page.bytes + kPageSize + from / 8, 1);  // the bits of `written`
        if (from > page.frame->valid || from + iSize > page.frame->room) return false;
        Put(*page.frame, from, iData, iSize);
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

private:
    struct Stream {
        Stream* next;
        FILE* stream;
        int descriptor;
        bool forWriting;
    };

    /// Bytes that go to the file in one system call: one piece of each page, each following on the one before.
    struct Pieces;

    PagedFile(dev_t iDevice, ino_t iNumber);
    ~PagedFile();

    bool WriteBackPage(unsigned int iPage) override;
    void Drop(unsigned int iPage) override;

    static PagedFile* Find(dev_t iDevice, ino_t iNumber);

    /// The object of the file under a descriptor, new or not; null as Attach().
    static PagedFile* Of(int iDescriptor);

    /// Takes note of the file as its first writer finds it.
    void StartWriting(int iDescriptor);

    /// Called in a new process: forgets all pages of all files.
    static void ForgetInherited();

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
    std::size_t WriteSome(std::size_t iOffset, const unsigned char* iData, std::size_t iSize);
    std::size_t WriteStraight(std::size_t iOffset, const unsigned char* iData, std::size_t iSize);

    /// Before bytes that make the file longer: brings to the file what waits in the page where it ends. If
    /// the bytes follow on that, they go in the same system call.
    /// @return how many of the bytes went
    std::size_t WriteWithTail(std::size_t iOffset, const unsigned char* iData, std::size_t iSize);

    /// Takes note that bytes reached the file.
    void NoteWritten(std::size_t iFrom, std::size_t iTo);

    /// Makes a page true for bytes that reached the file. They may leave no gap in it but padding.
    void Show(PageFrame& ioFrame, std::size_t iFrom, const unsigned char* iData, std::size_t iSize);

    /// Takes note of how much of a page lies in blocks that the file has, if these end at an offset. What lies
    /// past the process's limit of file sizes doesn't count.
    void SetRoom(PageFrame& ioFrame, std::size_t iEndOfBlocks) const;

    /// How many bytes from `iOffset` on, at most `iSize`, lie in pages that aren't held.
    std::size_t NotHeld(std::size_t iOffset, std::size_t iSize) const;

    /// A place in the table of pages. It has the way to the bytes, too: it is taken without waiting for the frame.
    struct HeldPage {
        PageFrame* frame = nullptr;  ///< null where not held
        unsigned char* bytes = nullptr;
    };

    HeldPage Held(std::size_t iPage) const { return iPage < _nPages ? _pages[iPage] : HeldPage{}; }

    /// The page, with or without valid bytes in it; null when it can't be held.
    PageFrame* FindOrTake(std::size_t iPage);
    bool GrowTable(std::size_t iPage);

    /// Reads what the file has after the valid bytes of a page; false on an error.
    bool Extend(PageFrame& ioFrame);

    /// Makes the page ready for bytes from `iFrom` on: no byte before them may be unknown. The padding before
    /// an append is known to be zero.
    bool Prepare(PageFrame& ioFrame, std::size_t iFrom);

    /// Puts bytes into a page that is ready for them, to wait there.
    void Put(PageFrame& ioFrame, std::size_t iFrom, const void* iData, std::size_t iSize) {
        CopyBytes(ioFrame.bytes + iFrom, iData, iSize);
        const auto from = static_cast<unsigned int>(iFrom);
        const auto to = static_cast<unsigned int>(iFrom + iSize);
        if (!ioFrame.written.Wait()) StartWaiting(ioFrame);
        ioFrame.written.AddWaiting(from, to);
        ioFrame.valid = std::max(ioFrame.valid, static_cast<std::uint16_t>(to));
        ioFrame.recent = true;
    }

    /// Makes ready for the first bytes of a page that wait.
    void StartWaiting(PageFrame& ioFrame);

    /// Forgets what was written to a page before the file was last flushed.
    void ForgetFlushed(PageFrame& ioFrame) const;

    /// Takes note that these bytes of a page no longer wait.
    void SetInFile(PageFrame& ioFrame, WrittenBytes::Run iRun);

    /// Writes what waits in a run, and what follows on it in further pages; false when some of it still waits.
    bool WriteBack(const PageFrame& iFrame, WrittenBytes::Run iRun);
    Pieces Collect(const PageFrame& iFrame, WrittenBytes::Run iRun) const;

    static PagePool _pool;
    static PagedFile* _files;

    PagedFile* _next;
    Stream* _streams;
    dev_t _device;
    ino_t _number;
    std::size_t
        _fileEnd;  ///< as its first writer found it, or further on where the process has written
    FileBlocks _blocks;  ///< of a file that has a writer
    HeldPage* _pages;    ///< by page number
    std::size_t _nPages;
    std::size_t _nWaiting;       ///< pages in which bytes wait
    std::size_t _lowestWaiting;  ///< page numbers between which all these pages lie
    std::size_t _highestWaiting;
    unsigned int _nFlushes;
};

#endif
