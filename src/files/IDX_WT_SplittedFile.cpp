#include "IDX_WT_SplittedFile.h"

#include "common/TraceFailure.h"

#include "IDX_WT_File.h"
#include "VEXFile.h"
#include "VEXUnicodeString.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

// Every operation follows the same steps: check the arguments, open the piece in a slot
// (_TestAndOpen), call the operation of that IDX_WT_File. The tags say which of the three failed.

namespace {

// An open piece occupies a slot. A piece that isn't open takes the slot after the one that was used
// last, and the piece in that slot is closed.

constexpr unsigned int kFreeSlot = 0xFFFFFFFF;  ///< in place of a piece number
constexpr unsigned int kMaxSlots = 10;

/// Whether a file exists now. Other processes create and delete lock files, so no cached answer is
/// used. Only IDX_S_OK says that it exists: the service may be another program's, with status
/// values of its own.
bool Exists(const char* iName) {
    (void)VEXFlushInodeCache();
    VEXUnicodeString name(iName);
    struct stat status;
    return VEXFileStat(&name, &status, 0) == IDX_S_OK;
}

}  // namespace

/// All arrays have one element for each slot.
IDX_WT_SplittedFile::IDX_WT_SplittedFile(
    unsigned int iMaxFileSize, unsigned int iCacheSize, bool iUseLockFiles)
    : m_currentFile(0),
      m_maxFileSize(iMaxFileSize),
      m_openMode(NotOpened),
      m_cacheSize(std::clamp(iCacheSize, 1U, kMaxSlots)),
      m_lastSlot(0),
      m_slotFile(new unsigned int[m_cacheSize]),
      m_slotLocked(new unsigned char[m_cacheSize]()),
      m_slots(new IDX_WT_File[m_cacheSize]),
      m_useLockFiles(iUseLockFiles) {
    std::fill_n(m_slotFile.get(), m_cacheSize, kFreeSlot);
}

IDX_WT_SplittedFile::~IDX_WT_SplittedFile() {
    Close();
}

IDX_Bool IDX_WT_SplittedFile::OpenRead(const char* iPath) {
    // A missing piece 0 is no error to trace: there is no index yet. The pieces after it are opened
    // on demand.
    StartOn(iPath, ReadOnly);
    char name[kPieceNameSize];
    if (!FormatName(name, 0, kPieceSuffix)) return TraceNo("IDX_WT_SplittedFile.OpenRead.snprintf");
    if (!Exists(name)) return IDX_False;
    IDX_WT_File* file;
    if (_TestAndOpen(0, file) == IDX_False) {
        return TraceNo("IDX_WT_SplittedFile.OpenRead._TestAndOpen");
    }
    return IDX_True;
}

IDX_Bool IDX_WT_SplittedFile::OpenWrite(const char* iPath) {
    StartOn(iPath, ReadWrite);
    return IDX_True;
}

/// For each piece: write back, remove its lock file, close it. EvictSlot() closes before it
/// removes. Both orders can be seen by other processes and by tests, so they stay as they are.
void IDX_WT_SplittedFile::Close() {
    for (unsigned int slot = 0; slot < m_cacheSize; ++slot) {
        if (m_slotFile[slot] == kFreeSlot) continue;
        m_slots[slot].Flush();  // a process that sees no lock file finds the whole piece
        if (m_slotLocked[slot] != 0) (void)Unlock(m_slotFile[slot]);  // may be deleted already
        m_slotLocked[slot] = 0;
        (void)m_slots[slot].Close();  // always IDX_True
        FreeSlot(slot);
    }
    m_fileBasePath.reset();
    m_currentFile = 0;
    m_openMode = NotOpened;
}

void IDX_WT_SplittedFile::Flush() {
    for (unsigned int slot = 0; slot < m_cacheSize; ++slot) {
        if (m_slotFile[slot] != kFreeSlot) m_slots[slot].Flush();
    }
}

IDX_Bool IDX_WT_SplittedFile::IsOpened() const {
    return m_openMode != NotOpened ? IDX_True : IDX_False;
}

unsigned int IDX_WT_SplittedFile::GetSize(unsigned int iPart) {
    IDX_WT_File* file;
    return _TestAndOpen(iPart, file) == IDX_True ? file->GetSize() : 0;
}

IDX_Bool IDX_WT_SplittedFile::Lock(unsigned int iPart) {
    if (!m_useLockFiles) return IDX_True;
    // Between the test and the creation another process may make the file; then both count it as
    // theirs.
    if (HasLock(iPart) == IDX_True) return IDX_False;
    char name[kPieceNameSize];
    if (!FormatName(name, iPart, kLockSuffix)) return TraceNo("IDX_WT_SplittedFile.Lock.snprintf");
    FILE* lock = std::fopen(name, "wb");
    if (lock == nullptr) return IDX_False;
    (void)std::fclose(lock);  // empty: nothing can be lost
    return IDX_True;
}

IDX_Bool IDX_WT_SplittedFile::Unlock(unsigned int iPart) {
    if (!m_useLockFiles) return IDX_True;
    // A lock file that another process has deleted is a failure, which Close() and EvictSlot()
    // ignore.
    if (HasLock(iPart) == IDX_False) return IDX_False;
    char name[kPieceNameSize];
    if (!FormatName(name, iPart, kLockSuffix)) {
        return TraceNo("IDX_WT_SplittedFile.Unlock.snprintf");
    }
    return VEXDeleteFile(name) == IDX_S_OK ? IDX_True : IDX_False;
}

IDX_Bool IDX_WT_SplittedFile::HasLock(unsigned int iPart) const {
    char name[kPieceNameSize];
    if (!FormatName(name, iPart, kLockSuffix)) {
        return TraceNo("IDX_WT_SplittedFile.HasLock.snprintf");
    }
    return Exists(name) ? IDX_True : IDX_False;
}

IDX_Bool IDX_WT_SplittedFile::ReadAt(
    unsigned int iPart, unsigned int iOffset, void* oData, unsigned int iSize) {
    if (oData == nullptr || iSize == 0) {
        return TraceNo("IDX_WT_SplittedFile.ReadAt.InvalidData");
    }
    IDX_WT_File* file;
    if (_TestAndOpen(iPart, file) == IDX_False) {
        return TraceNo("IDX_WT_SplittedFile.ReadAt._TestAndOpen");
    }
    if (file->ReadAt(iOffset, oData, iSize) == IDX_False) {
        return TraceNo("IDX_WT_SplittedFile.ReadAt.IDX_WT_File.ReadAt");
    }
    return IDX_True;
}

IDX_Bool IDX_WT_SplittedFile::ReadAt(
    unsigned int iPart, unsigned int iOffset, unsigned short& oValue) {
    return ReadAt(iPart, iOffset, &oValue, sizeof oValue);
}

IDX_Bool IDX_WT_SplittedFile::ReadAt(
    unsigned int iPart, unsigned int iOffset, unsigned int& oValue) {
    return ReadAt(iPart, iOffset, &oValue, sizeof oValue);
}

IDX_Bool IDX_WT_SplittedFile::ReadAt(unsigned int iPart, unsigned int iOffset, float& oValue) {
    return ReadAt(iPart, iOffset, &oValue, sizeof oValue);
}

IDX_Bool IDX_WT_SplittedFile::ReadAt(
    unsigned int iPart, unsigned int iOffset, IDX_Base_ByteArray& oValue) {
    IDX_WT_File* file;
    if (_TestAndOpen(iPart, file) == IDX_False) {
        return TraceNo("IDX_WT_SplittedFile.ReadAt(ByteArray)._TestAndOpen");
    }
    if (file->ReadAt(iOffset, oValue) == IDX_False) {
        return TraceNo("IDX_WT_SplittedFile.ReadAt(ByteArray).IDX_WT_File.ReadAt");
    }
    return IDX_True;
}

IDX_Bool IDX_WT_SplittedFile::ReadAt(
    unsigned int iPart, unsigned int iOffset, IDX_Base_String& oValue) {
    IDX_WT_File* file;
    if (_TestAndOpen(iPart, file) == IDX_False) {
        return TraceNo("IDX_WT_SplittedFile.ReadAt(String)._TestAndOpen");
    }
    if (file->ReadAt(iOffset, oValue) == IDX_False) {
        return TraceNo("IDX_WT_SplittedFile.ReadAt(String).IDX_WT_File.ReadAt");
    }
    return IDX_True;
}

IDX_Bool IDX_WT_SplittedFile::ReadAt(
    unsigned int iPart, unsigned int iOffset, unsigned int iSize, IDX_Base_ByteArray& oValue) {
    // The file itself would accept a size of 0.
    if (iSize == 0) return TraceNo("IDX_WT_SplittedFile.ReadAt.InvalidData");
    IDX_WT_File* file;
    if (_TestAndOpen(iPart, file) == IDX_False) {
        return TraceNo("IDX_WT_SplittedFile.ReadAt._TestAndOpen");
    }
    if (file->ReadAt(iOffset, iSize, oValue) == IDX_False) {
        return TraceNo("IDX_WT_SplittedFile.ReadAt.IDX_WT_File.ReadAt");
    }
    return IDX_True;
}

/// The search for a piece with space starts at the current one and never goes back, so pieces are
/// filled in the order of their numbers. After a new open it starts at piece 0 again.
IDX_Bool IDX_WT_SplittedFile::Write(
    const void* iData, unsigned int iSize, unsigned int& oPart, unsigned int& oOffset) {
    oPart = 0;
    oOffset = 0;
    if (iData == nullptr || iSize == 0) {
        return TraceNo("IDX_WT_SplittedFile.Write.InvalidData");
    }
    IDX_WT_File* file;
    if (_TestAndOpen(m_currentFile, file) == IDX_False) {
        return TraceNo("IDX_WT_SplittedFile.Write._TestAndOpen (1)");
    }
    // A piece that has reached the limit takes no more appends. The size of the new data doesn't
    // count: an append is never divided.
    while (m_maxFileSize != 0 && file->GetSize() >= m_maxFileSize) {
        if (_TestAndOpen(++m_currentFile, file) == IDX_False) {
            return TraceNo("IDX_WT_SplittedFile.Write._TestAndOpen (2)");
        }
    }
    const unsigned int offset = file->GetSize();
    if (file->Write(iData, iSize) == IDX_False) {
        return TraceNo("IDX_WT_SplittedFile.Write.IDX_WT_File.Write");
    }
    oPart = m_currentFile;
    oOffset = offset;
    return IDX_True;
}

IDX_Bool IDX_WT_SplittedFile::Write(const void* iData, unsigned int iSize) {
    unsigned int part;
    unsigned int offset;
    return Write(iData, iSize, part, offset);
}

IDX_Bool IDX_WT_SplittedFile::Write(
    unsigned int iValue, unsigned int& oPart, unsigned int& oOffset) {
    return Write(&iValue, sizeof iValue, oPart, oOffset);
}

IDX_Bool IDX_WT_SplittedFile::Write(unsigned int iValue) {
    return Write(&iValue, sizeof iValue);
}

IDX_Bool IDX_WT_SplittedFile::WriteAt(
    unsigned int iPart, unsigned int iOffset, const void* iData, unsigned int iSize) {
    if (iData == nullptr || iSize == 0) {
        return TraceNo("IDX_WT_SplittedFile.WriteAt.InvalidData");
    }
    IDX_WT_File* file;
    if (_TestAndOpen(iPart, file) == IDX_False) {
        return TraceNo("IDX_WT_SplittedFile.WriteAt._TestAndOpen");
    }
    if (file->WriteAt(iOffset, iData, iSize) == IDX_False) {
        return TraceNo("IDX_WT_SplittedFile.WriteAt.IDX_WT_File.WriteAt");
    }
    return IDX_True;
}

IDX_Bool IDX_WT_SplittedFile::WriteAt(
    unsigned int iPart, unsigned int iOffset, unsigned short iValue) {
    return WriteAt(iPart, iOffset, &iValue, sizeof iValue);
}

IDX_Bool IDX_WT_SplittedFile::WriteAt(
    unsigned int iPart, unsigned int iOffset, unsigned int iValue) {
    return WriteAt(iPart, iOffset, &iValue, sizeof iValue);
}

IDX_Bool IDX_WT_SplittedFile::WriteAt(unsigned int iPart, unsigned int iOffset, float iValue) {
    return WriteAt(iPart, iOffset, &iValue, sizeof iValue);
}

IDX_Bool IDX_WT_SplittedFile::_TestAndOpen(unsigned int iPart, IDX_WT_File*& oFile) {
    oFile = nullptr;
    // kFreeSlot marks a free slot, so it can't be the number of a piece: the search would find a
    // free slot.
    if (m_openMode == NotOpened) return TraceNo("IDX_WT_SplittedFile._TestAndOpen.NotOpened");
    if (iPart == kFreeSlot) return TraceNo("IDX_WT_SplittedFile._TestAndOpen.InvalidPart");
    const unsigned int* end = m_slotFile.get() + m_cacheSize;
    const unsigned int* hit = std::find(m_slotFile.get(), m_slotFile.get() + m_cacheSize, iPart);
    if (hit != end) {
        m_lastSlot = static_cast<unsigned int>(hit - m_slotFile.get());
    } else {
        // The piece isn't open: it replaces the piece in the next slot. A lock file is only a
        // marker, so one of another process doesn't stop this one.
        if (m_openMode == ReadWrite) (void)Lock(iPart);
        m_lastSlot = (m_lastSlot + 1) % m_cacheSize;
        if (m_slotFile[m_lastSlot] != kFreeSlot) EvictSlot(m_lastSlot);
        if (OpenSlot(m_lastSlot, iPart) == IDX_False) return IDX_False;
    }
    oFile = &m_slots[m_lastSlot];
    return IDX_True;
}

IDX_Bool IDX_WT_SplittedFile::OpenSlot(unsigned int iSlot, unsigned int iPart) {
    char name[kPieceNameSize];
    if (!FormatName(name, iPart, kPieceSuffix)) {
        return TraceNo("IDX_WT_SplittedFile._TestAndOpen.snprintf");
    }
    // The lock file is removed with the slot, even if it was another process's. A slot whose file
    // can't be opened forgets the path: a later Close() would close the file for other objects on
    // it.
    m_slotLocked[iSlot] = m_openMode == ReadWrite;
    if (m_openMode == ReadOnly && m_slots[iSlot].OpenRead(name) == IDX_False) {
        m_slots[iSlot].ForgetPath();
        return TraceNo("IDX_WT_SplittedFile._TestAndOpen.OpenRead");
    }
    if (m_openMode == ReadWrite && m_slots[iSlot].OpenWrite(name) == IDX_False) {
        m_slots[iSlot].ForgetPath();
        return TraceNo("IDX_WT_SplittedFile._TestAndOpen.OpenWrite");
    }
    m_slotFile[iSlot] = iPart;
    return IDX_True;
}

void IDX_WT_SplittedFile::EvictSlot(unsigned int iSlot) {
    (void)m_slots[iSlot].Close();                                   // always IDX_True
    if (m_slotLocked[iSlot] != 0) (void)Unlock(m_slotFile[iSlot]);  // may be deleted already
    m_slotLocked[iSlot] = 0;
    FreeSlot(iSlot);
}

void IDX_WT_SplittedFile::FreeSlot(unsigned int iSlot) {
    m_slots[iSlot].ForgetPath();
    m_slotFile[iSlot] = kFreeSlot;
}

void IDX_WT_SplittedFile::StartOn(const char* iPath, Mode iMode) {
    if (m_openMode != NotOpened) Close();
    const char* path = iPath == nullptr ? "" : iPath;  // a null path counts as empty
    const std::size_t size = std::strlen(path) + 1;
    m_fileBasePath.reset(new char[size]);
    std::memcpy(m_fileBasePath.get(), path, size);
    m_openMode = iMode;
}

bool IDX_WT_SplittedFile::FormatName(
    char (&oName)[kPieceNameSize], unsigned int iPart, const char* iSuffix) const {
    if (m_fileBasePath == nullptr) return false;
    const int length = std::snprintf(
        oName, kPieceNameSize, kPieceNameFormat, m_fileBasePath.get(), static_cast<int>(iPart),
        iSuffix);
    return length >= 0 && static_cast<std::size_t>(length) < kPieceNameSize;
}
