#include "PagedFile.h"

#include "formats/SplitFile.h"

#include <cstring>
#include <fcntl.h>
#include <new>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

// A read of few bytes:
//   1. ReadCached(), inline: all bytes are valid in one page. Most reads end here.
//   2. Read() goes page by page. It loads a page when the pool finds that worth it (FindOrAdd,
//      LoadRest), and copies from it. Without a page it reads the bytes from the file.
//
// A write of few bytes:
//   1. WriteCached(), inline: the bytes join those of a page, and are dirty.
//   2. Write() does the same after it has made a page ready: all bytes before the new ones are
//      valid (FillBefore), and the disk has reserved their block (RaiseDirtyLimit).
//   3. Otherwise they go to the file (WriteThrough), and the page gets a copy (UpdatePage).
//
// Reads and writes of kBypassSize bytes and more go to the file. Pages in memory are used and
// updated.
//
// A page starts without valid bytes. `valid` grows from its start, so a page never has a gap of
// unknown bytes. Bytes between `valid` and the end of the page are in the file, or past its end.

namespace {

/// From this size on, in bytes, an access bypasses the pages: a second copy of the bytes would cost
/// more than a system call.
constexpr std::size_t kBypassSize = kPageSize;

/// The most pages that one system call writes back.
constexpr int kRunPages = 64;

/// The number of the page that holds an offset.
std::size_t PageOf(std::size_t iOffset) {
    return iOffset >> kPageBits;
}

/// The offset at which a page starts.
std::size_t OffsetOf(std::size_t iPage) {
    return iPage << kPageBits;
}

}  // namespace

constinit PagePool PagedFile::_pool;
constinit PagedFile* PagedFile::_files = nullptr;

/// One piece from each of several consecutive pages; each piece continues the one before.
struct PagedFile::GatherList {
    iovec bytes[kRunPages];
    int count = 0;
    std::size_t size = 0;

    void Add(const PageFrame& iFrame, WrittenBytes::Run iRun) {
        bytes[count++] = {iFrame.bytes + iRun.from, iRun.to - iRun.from};
        size += iRun.to - iRun.from;
    }
};

/// The new object joins the chain of all open files.
PagedFile::PagedFile(dev_t iDevice, ino_t iNumber)
    : _next(_files),
      _streams(nullptr),
      _device(iDevice),
      _number(iNumber),
      _fileEnd(0),
      _nDirty(0),
      _lowestDirty(0),
      _highestDirty(0),
      _nFlushes(0) {
    _files = this;
}

/// Called when the last stream leaves. What is still dirty can't be written any more.
PagedFile::~PagedFile() {
    for (std::size_t page = 0; page < _pages.End(); ++page) {
        PageFrame* frame = _pages.Find(page).frame;
        if (frame != nullptr) _pool.Release(frame);
    }
    PagedFile** link = &_files;
    while (*link != this) link = &(*link)->_next;
    *link = _next;
}

// Streams of the file.

PagedFile* PagedFile::Attach(FILE* ioStream, bool iForWriting) {
    // The handler runs in each child process. Without it a child would write the parent's dirty
    // bytes.
    static const bool isHandled = pthread_atfork(nullptr, nullptr, ForgetInherited) == 0;
    if (!isHandled) return nullptr;
    auto* stream = new (std::nothrow) Stream{nullptr, ioStream, fileno(ioStream), iForWriting};
    // Device and inode number identify the file, so two names of one file lead to one object.
    PagedFile* file = stream != nullptr ? FindOrCreate(stream->descriptor) : nullptr;
    if (file == nullptr) {
        delete stream;
        return nullptr;
    }
    std::setvbuf(ioStream, nullptr, _IONBF, 0);  // the pages are the buffer
    if (iForWriting && file->Descriptor(true) < 0) file->StartWriting(stream->descriptor);
    stream->next = file->_streams;
    file->_streams = stream;
    return file;
}

PagedFile* PagedFile::Find(int iDescriptor) {
    struct stat status = {};
    return fstat(iDescriptor, &status) == 0 ? Find(status.st_dev, status.st_ino) : nullptr;
}

PagedFile* PagedFile::Find(dev_t iDevice, ino_t iNumber) {
    PagedFile* file = _files;
    while (file != nullptr && (file->_device != iDevice || file->_number != iNumber)) {
        file = file->_next;
    }
    return file;
}

PagedFile* PagedFile::FindOrCreate(int iDescriptor) {
    struct stat status = {};
    if (fstat(iDescriptor, &status) != 0 || !S_ISREG(status.st_mode)) return nullptr;
    PagedFile* file = Find(status.st_dev, status.st_ino);
    if (file == nullptr) return new (std::nothrow) PagedFile(status.st_dev, status.st_ino);
    (void)file
        ->Flush();  // on failure the bytes stay dirty, and every stream on the file can read them
    return file;
}

void PagedFile::StartWriting(int iDescriptor) {
    struct stat status = {};
    if (fstat(iDescriptor, &status) != 0) return;
    // While nobody here wrote, another process may have changed the file and its blocks. So the
    // pages, and what they say of blocks, are dropped.
    DropPages(false);
    _fileEnd = static_cast<std::size_t>(status.st_size);
    _blocks = FileBlocks(iDescriptor, _fileEnd);
}

void PagedFile::ForgetInherited() {
    for (PagedFile* file = _files; file != nullptr; file = file->_next) {
        file->_pages.Abandon();
        file->_nDirty = 0;
    }
    _pool.ForgetAll();
}

bool PagedFile::Detach(FILE* iStream) {
    // The write back comes before the stream leaves the list: it needs a descriptor. When it fails
    // and no other writer is left, nobody can write the dirty bytes any more, and they are lost.
    Stream** link = &_streams;
    while ((*link)->stream != iStream) link = &(*link)->next;
    Stream* stream = *link;
    const bool written = !stream->forWriting || Flush();
    *link = stream->next;
    delete stream;
    if (!written && Descriptor(true) < 0) DropPages(true);
    if (_streams == nullptr) delete this;
    return written;
}

int PagedFile::Descriptor(bool iForWriting) const {
    const Stream* stream = _streams;
    while (stream != nullptr && iForWriting && !stream->forWriting) stream = stream->next;
    return stream != nullptr ? stream->descriptor : -1;
}

// Reads.

std::size_t PagedFile::Read(
    std::size_t iOffset, unsigned char* oData, std::size_t iSize, bool& oError) {
    if (iOffset >= kEndOfOffsets) return 0;
    const std::size_t size = std::min(iSize, kEndOfOffsets - iOffset);
    // A step that reads nothing is at the end of the file, or has failed.
    std::size_t done = 0;
    while (done < size) {
        const std::size_t n = ReadStep(iOffset + done, oData + done, size - done, oError);
        if (n == 0) break;
        done += n;
    }
    return done;
}

std::size_t PagedFile::ReadStep(
    std::size_t iOffset, unsigned char* oData, std::size_t iSize, bool& oError) {
    // A page in memory is always used: its dirty bytes are newer than the file. Other pages are
    // loaded for small reads only.
    PageFrame* frame = _pages.Find(PageOf(iOffset)).frame;
    if (frame == nullptr) {
        const std::size_t notCached = CountNotCached(iOffset, iSize);
        if (notCached < kBypassSize) frame = FindOrAdd(PageOf(iOffset));
        if (frame == nullptr) {
            return ReadFully(Descriptor(false), iOffset, oData, notCached, oError);
        }
    }
    return ReadPage(*frame, iOffset & (kPageSize - 1), oData, iSize, oError);
}

std::size_t PagedFile::ReadPage(
    PageFrame& ioFrame, std::size_t iFrom, unsigned char* oData, std::size_t iSize, bool& oError) {
    // A read past the valid bytes asks the file, which may have grown since the last read.
    const std::size_t to = std::min<std::size_t>(iFrom + iSize, kPageSize);
    if (to > ioFrame.valid && !LoadRest(ioFrame)) oError = true;
    const std::size_t end = std::min<std::size_t>(to, ioFrame.valid);
    const std::size_t size = end > iFrom ? end - iFrom : 0;
    if (size != 0) std::memcpy(oData, ioFrame.bytes + iFrom, size);
    ioFrame.recent = true;
    if (ioFrame.valid == 0) Drop(ioFrame.page);  // past the end of the file
    return size;
}

// Writes.

bool PagedFile::Write(std::size_t iOffset, const unsigned char* iData, std::size_t iSize) {
    if (iOffset + iSize > kEndOfOffsets) return false;
    std::size_t done = 0;
    while (done < iSize) {
        const std::size_t n = WriteStep(iOffset + done, iData + done, iSize - done);
        if (n == 0) return false;
        done += n;
    }
    return true;
}

std::size_t PagedFile::WriteStep(
    std::size_t iOffset, const unsigned char* iData, std::size_t iSize) {
    if (iSize >= kBypassSize) return WriteThrough(iOffset, iData, iSize);
    const std::size_t from = iOffset & (kPageSize - 1);
    const std::size_t size = std::min<std::size_t>(kPageSize - from, iSize);
    // The bytes may stay dirty in the page when all bytes before them are valid and the disk has
    // reserved their blocks. Otherwise they go to the file now, and the page, if it is ready, gets
    // a copy.
    PageFrame* frame = FindOrAdd(PageOf(iOffset));
    const bool isReady = frame != nullptr && FillBefore(*frame, from);
    if (isReady) RaiseDirtyLimit(*frame, _blocks.End());
    if (isReady && from + size <= frame->dirtyLimit) {
        StoreDirty(*frame, from, iData, size);
        return size;
    }
    // WriteThrough() updates pages that have no gap before the bytes. Here the gap is padding, at
    // most.
    const std::size_t done = WriteThrough(iOffset, iData, size);
    if (isReady && done != 0 && from > frame->valid) UpdatePage(*frame, from, iData, done);
    if (frame != nullptr && frame->valid == 0) Drop(frame->page);
    return done;
}

std::size_t PagedFile::WriteThrough(
    std::size_t iOffset, const unsigned char* iData, std::size_t iSize) {
    std::size_t done = 0;
    // A longer file needs the bytes before its new end, so the dirty ones at its old end go first.
    if (iOffset + iSize > _fileEnd) done = WriteWithTail(iOffset, iData, iSize);
    done += WriteFully(Descriptor(true), iOffset + done, iData + done, iSize - done);
    if (done != 0) RecordWrite(iOffset, iOffset + done);
    for (std::size_t shown = 0; shown < done;) {
        const std::size_t from = (iOffset + shown) & (kPageSize - 1);
        const std::size_t inPage = std::min<std::size_t>(kPageSize - from, done - shown);
        PageFrame* frame = _pages.Find(PageOf(iOffset + shown)).frame;
        // Past a gap the bytes aren't copied: a later read loads them from the file.
        if (frame != nullptr && from <= frame->valid) {
            UpdatePage(*frame, from, iData + shown, inPage);
        }
        shown += inPage;
    }
    return done;
}

std::size_t PagedFile::WriteWithTail(
    std::size_t iOffset, const unsigned char* iData, std::size_t iSize) {
    // At most the page with the last byte of the file is concerned: later pages have no blocks.
    PageFrame* tail = _fileEnd != 0 ? _pages.Find(PageOf(_fileEnd - 1)).frame : nullptr;
    if (tail == nullptr) return 0;
    // All dirty runs of the page are written back but one that ends at iOffset, if there is such a
    // run.
    WrittenBytes::Run run = tail->written.NextDirtyRun(0);
    for (; !run.IsEmpty(); run = tail->written.NextDirtyRun(run.to)) {
        if (OffsetOf(tail->page) + run.to == iOffset) break;
        (void)WriteBack(*tail, run);  // on failure the bytes stay dirty
    }
    const std::size_t before = run.to - run.from;
    if (before == 0) return 0;
    // That run and the new bytes go in one system call: an append, the usual write, costs one.
    const iovec both[] = {
        {tail->bytes + run.from,            before},
        {const_cast<unsigned char*>(iData), iSize }
    };
    const ssize_t written =
        pwritev(Descriptor(true), both, 2, static_cast<off_t>(iOffset - before));
    if (written < static_cast<ssize_t>(before)) {
        // The disk or a limit refuses. The run alone may still fit, as its blocks are reserved.
        (void)WriteBack(*tail, run);
        return 0;
    }
    RecordWrite(iOffset - before, iOffset);
    MarkClean(*tail, run);
    return static_cast<std::size_t>(written) - before;
}

void PagedFile::RecordWrite(std::size_t iFrom, std::size_t iTo) {
    _blocks.RecordWrite(Descriptor(true), iFrom, iTo);
    _fileEnd = std::max(_fileEnd, iTo);
}

void PagedFile::UpdatePage(
    PageFrame& ioFrame, std::size_t iFrom, const unsigned char* iData, std::size_t iSize) {
    // The bytes count as written and clean. A dirty range may start with them, and shrinks then.
    // Their blocks are on the disk now, which may raise the limit for dirty bytes.
    const std::size_t start = OffsetOf(ioFrame.page);
    const std::size_t to = iFrom + iSize;
    std::memcpy(ioFrame.bytes + iFrom, iData, iSize);
    ioFrame.valid = std::max(ioFrame.valid, static_cast<std::uint16_t>(to));
    const WrittenBytes::Run run = {static_cast<unsigned int>(iFrom), static_cast<unsigned int>(to)};
    ClearFlushed(ioFrame);
    ioFrame.written.AddClean(run.from, run.to);
    MarkClean(ioFrame, run);
    RaiseDirtyLimit(
        ioFrame, _blocks.EndAfter(start + ioFrame.dirtyLimit, start + iFrom, start + to));
}

void PagedFile::RaiseDirtyLimit(PageFrame& ioFrame, std::size_t iEndOfBlocks) const {
    const std::size_t start = OffsetOf(ioFrame.page);
    // The system is asked for its limit only where the page would gain from a higher one: the call
    // is slow.
    const std::size_t before = start + ioFrame.dirtyLimit;
    std::size_t end = std::min(iEndOfBlocks, start + kPageSize);
    if (end > before) end = std::min(end, AllowedFileEnd());
    if (end > before) ioFrame.dirtyLimit = static_cast<std::uint16_t>(end - start);
}

// Pages in memory.

std::size_t PagedFile::CountNotCached(std::size_t iOffset, std::size_t iSize) const {
    std::size_t end = iOffset;
    while (end < iOffset + iSize && _pages.Find(PageOf(end)).frame == nullptr) {
        end = OffsetOf(PageOf(end) + 1);
    }
    return std::min(end - iOffset, iSize);
}

PageFrame* PagedFile::FindOrAdd(std::size_t iPage) {
    PageFrame* frame = _pages.Find(iPage).frame;
    if (frame != nullptr) return frame;
    const auto page = static_cast<unsigned int>(iPage);
    // Without memory, or where the page isn't worth it, the access goes to the file.
    if (!_pool.IsWorthCaching(this, page) || !_pages.Reserve(iPage)) return nullptr;
    frame = _pool.Allocate(this, page);
    if (frame != nullptr) _pages.Set(iPage, frame);
    return frame;
}

bool PagedFile::LoadRest(PageFrame& ioFrame) {
    const std::size_t start = OffsetOf(ioFrame.page);
    const std::size_t size = std::min<std::size_t>(kPageSize, kEndOfOffsets - start);
    // The valid bytes stay: they may be newer than those of the file.
    bool error = false;
    const std::size_t n = ReadFully(
        Descriptor(false), start + ioFrame.valid, ioFrame.bytes + ioFrame.valid,
        size - ioFrame.valid, error);
    ioFrame.valid = static_cast<std::uint16_t>(ioFrame.valid + n);
    return !error;
}

bool PagedFile::FillBefore(PageFrame& ioFrame, std::size_t iFrom) {
    if (iFrom > ioFrame.valid && !LoadRest(ioFrame)) return false;
    const std::size_t valid = ioFrame.valid;
    if (iFrom <= valid) return true;
    // The file ends before the bytes. An append starts at the next multiple of kFileAlignment, and
    // the padding before it reads as zero. For a wider gap the page isn't used.
    if (iFrom % kFileAlignment != 0 || iFrom - valid >= kFileAlignment) return false;
    std::memset(ioFrame.bytes + valid, 0, iFrom - valid);
    return true;
}

void PagedFile::Drop(unsigned int iPage) {
    PageFrame* frame = _pages.Find(iPage).frame;
    MarkClean(*frame, {0, kPageSize});  // keeps the count of dirty pages right
    _pages.Clear(iPage);
    _pool.Release(frame);
}

void PagedFile::DropPages(bool iAlsoDirty) {
    for (std::size_t page = 0; page < _pages.End(); ++page) {
        const PageFrame* frame = _pages.Find(page).frame;
        if (frame != nullptr && (iAlsoDirty || !frame->written.IsDirty())) {
            Drop(static_cast<unsigned int>(page));
        }
    }
}

// Dirty pages and their write back.

void PagedFile::CountDirtyPage(PageFrame& ioFrame) {
    ClearFlushed(ioFrame);
    // Flush() visits the pages from the lowest to the highest dirty one. The range never shrinks
    // while some page is dirty; it starts anew with the first dirty page after none.
    const std::size_t page = ioFrame.page;
    if (_nDirty++ == 0) {
        _lowestDirty = page;
        _highestDirty = page;
    }
    _lowestDirty = std::min(_lowestDirty, page);
    _highestDirty = std::max(_highestDirty, page);
}

void PagedFile::ClearFlushed(PageFrame& ioFrame) const {
    // After a flush others may change bytes that were written before it, so these must not go
    // again. The counter spares Flush() a visit to every clean page.
    if (ioFrame.nFlushes == _nFlushes || ioFrame.written.IsDirty()) return;
    ioFrame.nFlushes = _nFlushes;
    ioFrame.written.Clear(kPageSize);
}

void PagedFile::MarkClean(PageFrame& ioFrame, WrittenBytes::Run iRun) {
    if (!ioFrame.written.IsDirty()) return;
    ioFrame.written.MarkClean(iRun);
    if (!ioFrame.written.IsDirty()) --_nDirty;
}

bool PagedFile::Flush() {
    // Write back of one page may take the pages after it along, so some pages of the range are
    // clean when the loop comes to them.
    ++_nFlushes;
    if (_nDirty == 0) return true;
    for (std::size_t page = _lowestDirty; page <= _highestDirty; ++page) {
        if (_pages.Find(page).frame != nullptr)
            (void)WriteBackPage(static_cast<unsigned int>(page));
    }
    return _nDirty == 0;
}

bool PagedFile::WriteBackPage(unsigned int iPage) {
    // A failure of one run doesn't keep the others from the file: as few bytes as possible stay
    // dirty.
    PageFrame& frame = *_pages.Find(iPage).frame;
    bool all = true;
    for (WrittenBytes::Run run = frame.written.NextDirtyRun(0); !run.IsEmpty();
         run = frame.written.NextDirtyRun(run.to)) {
        all = WriteBack(frame, run) && all;
    }
    return all;
}

bool PagedFile::WriteBack(const PageFrame& iFrame, WrittenBytes::Run iRun) {
    // One call for all pieces. When it writes less, each piece is tried by itself, so that as many
    // bytes as possible reach the file and it is known which of them did.
    const GatherList pieces = Gather(iFrame, iRun);
    std::size_t offset = OffsetOf(iFrame.page) + iRun.from;
    const ssize_t written =
        pwritev(Descriptor(true), pieces.bytes, pieces.count, static_cast<off_t>(offset));
    const bool atOnce = written == static_cast<ssize_t>(pieces.size);
    bool all = true;
    for (int i = 0; i < pieces.count; ++i) {
        const auto* bytes = static_cast<const unsigned char*>(pieces.bytes[i].iov_base);
        const std::size_t size = pieces.bytes[i].iov_len;
        if (atOnce || WriteFully(Descriptor(true), offset, bytes, size) == size) {
            const auto from = static_cast<unsigned int>(offset & (kPageSize - 1));
            RecordWrite(offset, offset + size);
            MarkClean(
                *_pages.Find(PageOf(offset)).frame, {from, from + static_cast<unsigned int>(size)});
        } else {
            all = false;
        }
        offset += size;
    }
    return all;
}

PagedFile::GatherList PagedFile::Gather(const PageFrame& iFrame, WrittenBytes::Run iRun) const {
    // A run that reaches the end of its page may continue at the start of the next page.
    GatherList pieces;
    pieces.Add(iFrame, iRun);
    std::size_t page = iFrame.page;
    for (WrittenBytes::Run run = iRun; run.to == kPageSize && pieces.count < kRunPages;) {
        const PageFrame* next = _pages.Find(++page).frame;
        if (next == nullptr) break;
        run = next->written.NextDirtyRun(0);
        if (run.from != 0 || run.to == 0) break;
        pieces.Add(*next, run);
    }
    return pieces;
}
