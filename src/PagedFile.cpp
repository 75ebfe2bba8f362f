#include "PagedFile.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <new>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

/// From this size on an access goes past the pages: to copy the bytes twice costs more than a system call.
constexpr std::size_t kStraightSize = kPageSize;

/// Most pages that one system call writes back.
constexpr int kRunPages = 64;

/// Space is taken ahead of appended bytes, an eighth of the file at a time: a system call for each page would
/// cost more than the write. It is at least a page, and bounded so that little is left unused.
constexpr std::size_t kMostSpaceAhead = std::size_t{1} << 20U;

std::size_t PageOf(std::size_t iOffset) {
    return iOffset >> kPageBits;
}

std::size_t OffsetOf(std::size_t iPage) {
    return iPage << kPageBits;
}

std::size_t RoundUpToPage(std::size_t iOffset) {
    return (iOffset + kPageSize - 1) & ~std::size_t{kPageSize - 1};
}

/// Reads until all has come, the file ends or an error occurs.
std::size_t ReadFully(
    int iDescriptor, std::size_t iOffset, unsigned char* oData, std::size_t iSize, bool& oError) {
    std::size_t done = 0;
    while (done < iSize) {
        const ssize_t n =
            pread(iDescriptor, oData + done, iSize - done, static_cast<off_t>(iOffset + done));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) oError = true;
        if (n <= 0) break;
        done += static_cast<std::size_t>(n);
    }
    return done;
}

/// Writes until all has gone or an error occurs; gives how many bytes went.
std::size_t WriteFully(
    int iDescriptor, std::size_t iOffset, const unsigned char* iData, std::size_t iSize) {
    std::size_t done = 0;
    while (done < iSize) {
        const ssize_t n =
            pwrite(iDescriptor, iData + done, iSize - done, static_cast<off_t>(iOffset + done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        done += static_cast<std::size_t>(n);
    }
    return done;
}

/// True when the process may make a file that long.
bool IsAllowedEnd(std::size_t iEnd) {
    rlimit limit = {};
    return getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY ||
           iEnd <= limit.rlim_cur;
}

}  // namespace

constinit PagePool PagedFile::_pool;
constinit PagedFile* PagedFile::_files = nullptr;

PagedFile::PagedFile(dev_t iDevice, ino_t iNumber, std::size_t iEnd, bool iHasHoles)
    : _next(_files),
      _streams(nullptr),
      _device(iDevice),
      _number(iNumber),
      _pages(nullptr),
      _nPages(0),
      _knownEnd(iEnd),
      _heldEnd(0),
      _spaceEnd(iHasHoles ? 0 : iEnd),
      _nDirty(0),
      _lowestDirty(0),
      _highestDirty(0),
      _canTakeSpace(true) {
    _files = this;
}

PagedFile::~PagedFile() {
    for (std::size_t page = 0; page < _nPages; ++page) {
        if (_pages[page].frame != nullptr) _pool.Release(_pages[page].frame);
    }
    std::free(_pages);
    PagedFile** link = &_files;
    while (*link != this) link = &(*link)->_next;
    *link = _next;
}

PagedFile* PagedFile::Attach(FILE* ioStream, bool iForWriting) {
    auto* stream = new (std::nothrow) Stream{nullptr, ioStream, fileno(ioStream), iForWriting};
    PagedFile* file = stream != nullptr ? Of(stream->descriptor) : nullptr;
    if (file == nullptr) {
        delete stream;
        return nullptr;
    }
    std::setvbuf(ioStream, nullptr, _IONBF, 0);
    stream->next = file->_streams;
    file->_streams = stream;
    return file;
}

PagedFile* PagedFile::Of(int iDescriptor) {
    struct stat status = {};
    if (fstat(iDescriptor, &status) != 0 || !S_ISREG(status.st_mode)) return nullptr;
    constexpr std::int64_t kBlockUnit = 512;
    const auto end = static_cast<std::size_t>(status.st_size);
    for (PagedFile* file = _files; file != nullptr; file = file->_next) {
        if (file->_device == status.st_dev && file->_number == status.st_ino) {
            file->_knownEnd = std::max(file->_knownEnd, end);
            return file;
        }
    }
    const bool hasHoles = status.st_blocks * kBlockUnit < status.st_size;
    return new (std::nothrow) PagedFile(status.st_dev, status.st_ino, end, hasHoles);
}

bool PagedFile::Detach(FILE* iStream) {
    Stream** link = &_streams;
    while ((*link)->stream != iStream) link = &(*link)->next;
    Stream* stream = *link;
    const bool written = !stream->forWriting || Flush();
    *link = stream->next;
    delete stream;
    if (Descriptor(true) < 0) DropDirty();
    if (_streams == nullptr) delete this;
    return written;
}

int PagedFile::Descriptor(bool iForWriting) const {
    const Stream* stream = _streams;
    while (stream != nullptr && iForWriting && !stream->forWriting) stream = stream->next;
    return stream != nullptr ? stream->descriptor : -1;
}

std::size_t PagedFile::Read(
    std::size_t iOffset, unsigned char* oData, std::size_t iSize, bool& oError) {
    if (iOffset >= kEndOfOffsets) return 0;
    const std::size_t size = std::min(iSize, kEndOfOffsets - iOffset);
    std::size_t done = 0;
    while (done < size) {
        const std::size_t n = ReadSome(iOffset + done, oData + done, size - done, oError);
        if (n == 0) break;
        done += n;
    }
    return done;
}

std::size_t PagedFile::ReadSome(
    std::size_t iOffset, unsigned char* oData, std::size_t iSize, bool& oError) {
    PageFrame* frame = Find(PageOf(iOffset));
    if (frame == nullptr) {
        const std::size_t notHeld = NotHeld(iOffset, iSize);
        if (notHeld < kStraightSize) frame = FindOrTake(PageOf(iOffset));
        if (frame == nullptr) {
            return ReadStraight(iOffset, oData, notHeld, oError);
        }
    }
    return ReadPage(*frame, iOffset & (kPageSize - 1), oData, iSize, oError);
}

std::size_t PagedFile::ReadStraight(
    std::size_t iOffset, unsigned char* oData, std::size_t iSize, bool& oError) const {
    const std::size_t n = ReadFully(Descriptor(false), iOffset, oData, iSize, oError);
    return oError ? n : n + FillHole(iOffset + n, oData + n, iSize - n);
}

std::size_t PagedFile::ReadPage(
    PageFrame& ioFrame, std::size_t iFrom, unsigned char* oData, std::size_t iSize, bool& oError) {
    const std::size_t to = std::min<std::size_t>(iFrom + iSize, kPageSize);
    if (to > ioFrame.valid && !Extend(ioFrame)) oError = true;
    const std::size_t end = std::min<std::size_t>(to, ioFrame.valid);
    const std::size_t size = end > iFrom ? end - iFrom : 0;
    if (size != 0) std::memcpy(oData, ioFrame.bytes + iFrom, size);
    ioFrame.recent = true;
    if (ioFrame.valid == 0) Drop(ioFrame.page);
    return size;
}

bool PagedFile::Write(std::size_t iOffset, const unsigned char* iData, std::size_t iSize) {
    if (iOffset + iSize > kEndOfOffsets) return false;
    std::size_t done = 0;
    while (done < iSize) {
        const std::size_t n = WriteSome(iOffset + done, iData + done, iSize - done);
        if (n == 0) return false;
        done += n;
    }
    return true;
}

std::size_t PagedFile::WriteSome(
    std::size_t iOffset, const unsigned char* iData, std::size_t iSize) {
    if (iSize >= kStraightSize) return WriteStraight(iOffset, iData, iSize);
    const std::size_t from = iOffset & (kPageSize - 1);
    const std::size_t size = std::min<std::size_t>(kPageSize - from, iSize);
    PageFrame* frame = FindOrTake(PageOf(iOffset));
    if (frame != nullptr && Prepare(*frame, from)) {
        Put(*frame, from, iData, size);
        return size;
    }
    if (frame != nullptr && frame->valid == 0) Drop(frame->page);
    return WriteStraight(iOffset, iData, size);
}

std::size_t PagedFile::WriteStraight(
    std::size_t iOffset, const unsigned char* iData, std::size_t iSize) {
    const std::size_t size = WriteFully(Descriptor(true), iOffset, iData, iSize);
    const std::size_t end = iOffset + size;
    if (iOffset <= _spaceEnd) _spaceEnd = std::max(_spaceEnd, end);
    _knownEnd = std::max(_knownEnd, end);
    for (std::size_t done = 0; done < size;) {
        const std::size_t from = (iOffset + done) & (kPageSize - 1);
        const std::size_t inPage = std::min<std::size_t>(kPageSize - from, size - done);
        PageFrame* frame = Find(PageOf(iOffset + done));
        // Behind a gap the page isn't valid: it will be read from the file.
        if (frame != nullptr && from <= frame->valid) {
            std::memcpy(frame->bytes + from, iData + done, inPage);
            frame->valid = std::max(frame->valid, static_cast<std::uint16_t>(from + inPage));
        }
        done += inPage;
    }
    return size;
}

std::size_t PagedFile::NotHeld(std::size_t iOffset, std::size_t iSize) const {
    std::size_t end = iOffset;
    while (end < iOffset + iSize && Find(PageOf(end)) == nullptr) end = OffsetOf(PageOf(end) + 1);
    return std::min(end - iOffset, iSize);
}

PageFrame* PagedFile::FindOrTake(std::size_t iPage) {
    PageFrame* frame = Find(iPage);
    if (frame != nullptr) return frame;
    const auto page = static_cast<unsigned int>(iPage);
    if (!_pool.IsWorthTaking(this, page) || !GrowTable(iPage)) return nullptr;
    frame = _pool.Take(this, page);
    if (frame != nullptr) _pages[iPage] = {frame, frame->bytes};
    return frame;
}

bool PagedFile::GrowTable(std::size_t iPage) {
    if (iPage < _nPages) return true;
    const std::size_t nPages = std::max(iPage + 1, 2 * _nPages);
    auto* pages = static_cast<HeldPage*>(std::realloc(_pages, nPages * sizeof(HeldPage)));
    if (pages == nullptr) return false;
    std::fill(pages + _nPages, pages + nPages, HeldPage{});
    _pages = pages;
    _nPages = nPages;
    return true;
}

bool PagedFile::Extend(PageFrame& ioFrame) {
    const std::size_t start = OffsetOf(ioFrame.page);
    const std::size_t room = std::min<std::size_t>(kPageSize, kEndOfOffsets - start);
    bool error = false;
    const std::size_t n = ReadFully(
        Descriptor(false), start + ioFrame.valid, ioFrame.bytes + ioFrame.valid,
        room - ioFrame.valid, error);
    std::size_t valid = ioFrame.valid + n;
    if (!error) valid += FillHole(start + valid, ioFrame.bytes + valid, room - valid);
    ioFrame.valid = static_cast<std::uint16_t>(valid);
    return !error;
}

std::size_t PagedFile::FillHole(
    std::size_t iOffset, unsigned char* oData, std::size_t iSize) const {
    if (iSize == 0 || iOffset >= _heldEnd) return 0;
    const std::size_t size = std::min(iSize, _heldEnd - iOffset);
    std::memset(oData, 0, size);
    return size;
}

bool PagedFile::Prepare(PageFrame& ioFrame, std::size_t iFrom) {
    const std::size_t validEnd = OffsetOf(ioFrame.page) + ioFrame.valid;
    if (iFrom > ioFrame.valid && validEnd < _knownEnd && !Extend(ioFrame)) return false;
    if (!ioFrame.IsDirty() && !TakeSpace(ioFrame)) return false;
    if (iFrom > ioFrame.valid) {
        std::memset(ioFrame.bytes + ioFrame.valid, 0, iFrom - ioFrame.valid);
    }
    return true;
}

bool PagedFile::TakeSpace(PageFrame& ioFrame) {
    const std::size_t start = OffsetOf(ioFrame.page);
    const std::size_t end = start + kPageSize;
    if (!IsAllowedEnd(end)) return false;
    if (ioFrame.spaceTaken || end <= _spaceEnd) return true;
    if (start <= _spaceEnd) {
        const std::size_t ahead =
            RoundUpToPage(std::clamp<std::size_t>(_knownEnd / 8, kPageSize, kMostSpaceAhead));
        if (PromiseSpace(_spaceEnd, start + ahead - _spaceEnd)) {
            _spaceEnd = start + ahead;
            return true;
        }
    }
    ioFrame.spaceTaken = PromiseSpace(start, kPageSize);
    return ioFrame.spaceTaken;
}

bool PagedFile::PromiseSpace(std::size_t iOffset, std::size_t iSize) {
    while (_canTakeSpace) {
        if (fallocate(
                Descriptor(true), FALLOC_FL_KEEP_SIZE, static_cast<off_t>(iOffset),
                static_cast<off_t>(iSize)) == 0) {
            return true;
        }
        if (errno == EOPNOTSUPP || errno == ENOSYS) _canTakeSpace = false;
        if (errno != EINTR) return false;
    }
    return false;
}

void PagedFile::CountDirty(unsigned int iPage) {
    if (_nDirty++ == 0) {
        _lowestDirty = iPage;
        _highestDirty = iPage;
    }
    _lowestDirty = std::min<std::size_t>(_lowestDirty, iPage);
    _highestDirty = std::max<std::size_t>(_highestDirty, iPage);
}

void PagedFile::SetClean(PageFrame& ioFrame) {
    if (!ioFrame.IsDirty()) return;
    ioFrame.dirtyFrom = 0;
    ioFrame.dirtyTo = 0;
    if (--_nDirty == 0) _heldEnd = 0;
}

bool PagedFile::Flush() {
    if (_nDirty == 0) return true;
    for (std::size_t page = _lowestDirty; page <= _highestDirty; ++page) {
        if (_pages[page].frame != nullptr && _pages[page].frame->IsDirty()) {
            WriteBackFrom(static_cast<unsigned int>(page));
        }
    }
    return _nDirty == 0;
}

bool PagedFile::WriteBackFrom(unsigned int iPage) {
    iovec run[kRunPages];
    const int nPages = CollectRun(iPage, run);
    std::size_t size = 0;
    for (int i = 0; i < nPages; ++i) size += run[i].iov_len;
    const std::size_t offset = OffsetOf(iPage) + _pages[iPage].frame->dirtyFrom;
    const ssize_t written = pwritev(Descriptor(true), run, nPages, static_cast<off_t>(offset));
    const bool all = written >= 0 && static_cast<std::size_t>(written) == size;
    for (int i = 0; i < nPages; ++i) {
        PageFrame& frame = *_pages[iPage + static_cast<unsigned int>(i)].frame;
        if (all || WriteBack(frame)) SetClean(frame);
    }
    return !_pages[iPage].frame->IsDirty();
}

int PagedFile::CollectRun(unsigned int iPage, iovec* oRun) const {
    int nPages = 0;
    for (std::size_t page = iPage; nPages < kRunPages; ++page) {
        const PageFrame* frame = Find(page);
        if (frame == nullptr || !frame->IsDirty()) break;
        if (nPages != 0 && frame->dirtyFrom != 0) break;
        oRun[nPages++] = {
            frame->bytes + frame->dirtyFrom,
            static_cast<std::size_t>(frame->dirtyTo - frame->dirtyFrom)};
        if (frame->dirtyTo != kPageSize) break;
    }
    return nPages;
}

bool PagedFile::WriteBack(const PageFrame& iFrame) const {
    const std::size_t size = static_cast<std::size_t>(iFrame.dirtyTo - iFrame.dirtyFrom);
    return WriteFully(
               Descriptor(true), OffsetOf(iFrame.page) + iFrame.dirtyFrom,
               iFrame.bytes + iFrame.dirtyFrom, size) == size;
}

void PagedFile::Drop(unsigned int iPage) {
    PageFrame* frame = _pages[iPage].frame;
    SetClean(*frame);
    _pages[iPage] = {};
    _pool.Release(frame);
}

void PagedFile::DropDirty() {
    for (std::size_t page = _lowestDirty; _nDirty != 0 && page <= _highestDirty; ++page) {
        if (_pages[page].frame != nullptr && _pages[page].frame->IsDirty()) {
            Drop(static_cast<unsigned int>(page));
        }
    }
}
