#include "IDX_WT_MemFile.h"

#include "PagedFile.h"
#include "common/RawMemory.h"
#include "common/TraceFailure.h"

#include "VEXMemory.h"

#include "formats/SplitFile.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <sys/mman.h>

// The content is one block:
//
//   | content (m_writtenSize bytes)  | unused, undefined bytes |
//   m_buffer                                                   m_allocatedSize
//
// It grows by a new block of twice the needed size. Close(true) keeps the block, so that a process
// that loads file after file allocates once for the largest of them.

namespace {

/// Content is smaller than this. A block that grows gets twice the bytes that a write needs, and
/// that number has to fit into 32 bits.
constexpr unsigned long long kContentLimit = 1ULL << 31;

/// The size of the file under a stream; -1 when it has none. Moves the stream to its start.
long int MeasureSize(FILE* ioStream) {
    if (std::fseek(ioStream, 0, SEEK_END) != 0) return -1;
    const long int size = std::ftell(ioStream);
    return std::fseek(ioStream, 0, SEEK_SET) == 0 ? size : -1;
}

/// Opens an unbuffered stream: the block serves as the buffer, and fclose has nothing left to
/// write. An IDX_WT_File of the process may have dirty bytes of the same file; they are written
/// back first.
FILE* OpenStream(const char* iPath, const char* iMode) {
    FILE* stream = std::fopen(iPath, iMode);
    if (stream == nullptr) return nullptr;
    (void)std::setvbuf(stream, nullptr, _IONBF, 0);
    PagedFile* pages = PagedFile::Find(fileno(stream));
    if (pages != nullptr) (void)pages->Flush();
    return stream;
}

/// Asks the system to use pages of 2 MiB for a block. The reads of a tree are spread over the whole
/// block, and the processor remembers the addresses of some thousand pages only (in its TLB). The
/// request may fail; then reads are slower.
void* PreferLargePages(void* ioBlock, std::size_t iSize) {
    constexpr std::size_t kLargePage = std::size_t{2} << 20U;
    const auto start = reinterpret_cast<std::uintptr_t>(ioBlock);
    const std::uintptr_t first = (start + kLargePage - 1) & ~(kLargePage - 1);
    const std::uintptr_t end = (start + iSize) & ~(kLargePage - 1);
    if (ioBlock != nullptr && first < end) {
        (void)madvise(
            static_cast<unsigned char*>(ioBlock) + (first - start), end - first, MADV_HUGEPAGE);
    }
    return ioBlock;
}

/// Null without memory.
unsigned char* AllocateBlock(std::size_t iSize) {
    return static_cast<unsigned char*>(PreferLargePages(VEXUnsecuredMemAlloc(iSize), iSize));
}

}  // namespace

const unsigned int IDX_WT_MemFile::FILE_MAX_SIZE;

IDX_WT_MemFile::IDX_WT_MemFile()
    : m_stream(nullptr),
      m_mode(NotOpened),
      m_buffer(nullptr),
      m_writtenSize(0),
      m_allocatedSize(0),
      m_errorCode(IDX_S_OK) {}

IDX_WT_MemFile::~IDX_WT_MemFile() {
    (void)IDX_WT_MemFile::Close(false);
    CloseStream();
    ReleaseBlock();
}

IDX_Bool IDX_WT_MemFile::OpenRead(const char* iPath) {
    m_errorCode = IDX_S_OK;
    if (m_stream != nullptr && Close(true) == IDX_False) return IDX_False;
    if (ReadFile(iPath, false) == IDX_False) return TraceNo("IDX_WT_MemFile.OpenRead.ReadFile");
    m_mode = ReadOnly;
    return IDX_True;
}

IDX_Bool IDX_WT_MemFile::OpenWrite(const char* iPath) {
    m_errorCode = IDX_S_OK;
    if (m_stream != nullptr && Close(true) == IDX_False) return IDX_False;
    // A trial shows whether the file exists. Only a missing file is created: that empties a file.
    if (FILE* existing = std::fopen(iPath, "rb+")) {
        (void)std::fclose(existing);  // nothing was written to it
        if (ReadFile(iPath, true) == IDX_False) return TraceNo("IDX_WT_MemFile.OpenWrite.ReadFile");
    } else if (errno != ENOENT) {
        // It exists and can't be opened now, for example because too many files are open.
        return TraceNo("IDX_WT_MemFile.OpenWrite.fopen");
    } else if (CreateFile(iPath) == IDX_False) {
        return IDX_False;
    }
    m_mode = ReadWrite;
    return IDX_True;
}

IDX_Bool IDX_WT_MemFile::Close() {
    return Close(false);
}

void IDX_WT_MemFile::Flush() {}

unsigned int IDX_WT_MemFile::GetSize() const {
    return m_writtenSize;
}

IDX_Bool IDX_WT_MemFile::ReadAt(unsigned int iOffset, void* oData, unsigned int iDataSize) {
    // The sum is formed in 64 bits: offset and size may each be close to 2^32.
    if (0ULL + iOffset + iDataSize > m_writtenSize) {
        IDX_Base_Trace::Debug(
            "IDX_WT_MemFile.ReadAt.Offset overflow: iOffset %u, iDataSize %u, m_writtenSize %u",
            iOffset, iDataSize, m_writtenSize);
        return IDX_False;
    }
    if (iDataSize == 0) return IDX_True;
    if (oData == nullptr) return TraceNo("IDX_WT_MemFile.ReadAt.InvalidInputData");
    CopyBytes(oData, m_buffer + iOffset, iDataSize);
    return IDX_True;
}

IDX_Bool IDX_WT_MemFile::Write(const void* iData, unsigned int iDataSize) {
    // Nothing to append counts as success here, unlike in the file of the disk. That is part of the
    // interface.
    if (m_mode != ReadWrite) return IDX_False;
    if (iData == nullptr || iDataSize == 0) return IDX_True;
    if (ResizeIfNeeded(m_writtenSize, iDataSize) == IDX_False) {
        return TraceNo("IDX_WT_MemFile.Write.ResizeIfNeeded");
    }
    std::memcpy(m_buffer + m_writtenSize, iData, iDataSize);
    m_writtenSize += iDataSize;
    return Align();
}

IDX_Bool IDX_WT_MemFile::WriteAt(unsigned int iOffset, const void* iData, unsigned int iDataSize) {
    if (m_mode != ReadWrite) return IDX_False;
    if (iData == nullptr && iDataSize != 0) {
        return TraceNo("IDX_WT_MemFile.WriteAt.InvalidData");
    }
    // A write inside the content is the usual one of a tree, and needs no more than a copy.
    if (0ULL + iOffset + iDataSize > m_writtenSize) return WriteBeyond(iOffset, iData, iDataSize);
    if (iDataSize != 0) CopyBytes(m_buffer + iOffset, iData, iDataSize);
    return IDX_True;
}

IDX_Bool IDX_WT_MemFile::Close(bool iKeepBuffer) {
    // A failed write keeps the file open with its content, so that the caller can try again.
    if (m_stream != nullptr && m_mode != NotOpened) {
        if (m_mode == ReadWrite && WriteBack() == IDX_False) {
            return TraceNo("IDX_WT_MemoryFile.Close.fwrite");
        }
        if (!iKeepBuffer) ReleaseBlock();
    }
    CloseStream();
    m_writtenSize = 0;
    m_mode = NotOpened;
    return IDX_True;
}

long int IDX_WT_MemFile::GetErrorCode() {
    return m_errorCode;
}

IDX_Bool IDX_WT_MemFile::ReadFile(const char* iPath, bool iForWriting) {
    FILE* stream = OpenStream(iPath, iForWriting ? "rb+" : "rb");
    if (stream == nullptr) return TraceNo("IDX_WT_MemFile.OpenWrite.fopen");
    const long int measured = MeasureSize(stream);
    // A device or pipe has no size. It is treated as an empty file here, and refused after the read
    // below.
    const std::size_t size = measured < 0 ? 0 : static_cast<std::size_t>(measured);
    if (size > m_allocatedSize || size >= kContentLimit) {
        ReleaseBlock();
        if (size < kContentLimit) {
            m_buffer = AllocateBlock(size);
        }
        if (m_buffer == nullptr) {
            (void)std::fclose(stream);
            m_errorCode = IDX_E_OUT_OF_MEMORY;
            return TraceNo("IDX_WT_MemFile.ReadFile : Failed to allocate file in memory!");
        }
    }
    // From here on the stream is open, also after a failed read: Close() or the next open closes
    // it.
    m_stream = stream;
    m_writtenSize = static_cast<unsigned int>(size);
    const std::size_t got = size == 0 ? 0 : std::fread(m_buffer, 1, size, m_stream);
    if (measured < 0 || got != size) {
        // The block may have been used before, so what wasn't read becomes zero.
        if (got < size) std::memset(m_buffer + got, 0, size - got);
        return TraceNo("IDX_WT_MemFile.ReadFile.fread");
    }
    m_allocatedSize = m_writtenSize;
    return IDX_True;
}

/// Creates an empty file, with a block of FILE_MAX_SIZE bytes. The block isn't filled with zeros:
/// that would touch all of its memory. WriteBeyond() clears gaps, and no other unwritten byte can
/// be read.
IDX_Bool IDX_WT_MemFile::CreateFile(const char* iPath) {
    FILE* stream = OpenStream(iPath, "wb+");
    if (stream == nullptr) return TraceNo("IDX_WT_MemFile.OpenWrite.fopen");
    if (m_allocatedSize < FILE_MAX_SIZE) {
        ReleaseBlock();
        m_buffer = AllocateBlock(FILE_MAX_SIZE);
        if (m_buffer == nullptr) {
            (void)std::fclose(stream);  // the new, empty file stays on the disk
            return TraceNo("IDX_WT_MemFile.OpenWrite.VEXUnsecuredMemAlloc failed");
        }
    }
    m_allocatedSize = FILE_MAX_SIZE;
    m_stream = stream;
    m_writtenSize = 0;
    return IDX_True;
}

IDX_Bool IDX_WT_MemFile::WriteBeyond(
    unsigned int iOffset, const void* iData, unsigned int iDataSize) {
    if (ResizeIfNeeded(iOffset, iDataSize) == IDX_False) {
        return TraceNo("IDX_WT_MemFile.WriteAt.ResizeIfNeeded");
    }
    // The gap between the old end and the new data reads as zero, like a hole in a file of the
    // disk.
    if (iOffset > m_writtenSize) {
        std::memset(m_buffer + m_writtenSize, 0, iOffset - m_writtenSize);
    }
    if (iDataSize != 0) std::memcpy(m_buffer + iOffset, iData, iDataSize);
    m_writtenSize = iOffset + iDataSize;
    return Align();
}

IDX_Bool IDX_WT_MemFile::ResizeIfNeeded(unsigned int iOffset, unsigned int iDataSize) {
    const unsigned long long end = 0ULL + iOffset + iDataSize;
    if (end >= kContentLimit) return IDX_False;
    if (end <= m_allocatedSize) return IDX_True;
    // Twice the bytes that are needed, so that appends copy the content a constant number of times
    // on average.
    auto* block = static_cast<unsigned char*>(VEXMemAlloc(2 * end));
    if (block == nullptr) return IDX_False;
    if (m_writtenSize != 0) std::memcpy(block, m_buffer, m_writtenSize);
    ReleaseBlock();
    m_buffer = block;
    m_allocatedSize = static_cast<unsigned int>(2 * end);
    return IDX_True;
}

IDX_Bool IDX_WT_MemFile::Align() {
    // The padding is an append of its own, which calls this again; then nothing is left to add.
    const unsigned int past = m_writtenSize % kFileAlignment;
    if (past == 0) return IDX_True;
    const unsigned char zeros[kFileAlignment] = {};
    if (Write(zeros, kFileAlignment - past) == IDX_False) {
        return TraceNo("IDX_WT_MemFile.Write (alignment)");
    }
    return IDX_True;
}

IDX_Bool IDX_WT_MemFile::WriteBack() {
    PagedFile* pages = PagedFile::Find(fileno(m_stream));
    // The order of writes decides. Dirty bytes of an IDX_WT_File on the same path are older, so
    // they go first, and its pages are dropped afterwards, so that it reads the new content.
    if (pages != nullptr) (void)pages->Flush();
    const bool written =
        std::fseek(m_stream, 0, SEEK_SET) == 0 &&
        (m_writtenSize == 0 || std::fwrite(m_buffer, 1, m_writtenSize, m_stream) == m_writtenSize);
    if (pages != nullptr) pages->DropPages(false);
    return written ? IDX_True : IDX_False;
}

void IDX_WT_MemFile::ReleaseBlock() {
    if (m_buffer != nullptr) VEXMemFree(m_buffer);
    m_buffer = nullptr;
    m_allocatedSize = 0;
}

void IDX_WT_MemFile::CloseStream() {
    if (m_stream != nullptr) (void)std::fclose(m_stream);  // unbuffered: nothing is left to write
    m_stream = nullptr;
}
