#ifndef FileBlocks_h
#define FileBlocks_h

#include <algorithm>
#include <cstddef>

/// Which blocks of a file the disk has already reserved. A write into such a block needs no new
/// space. So it can be delayed: a disk that is full, or becomes full, can't refuse it later.
///
///     |  block  |  block  |  block  |  hole  |  block  |
///     0                             End()                   writes before End() can be delayed
///
/// This holds on file systems that overwrite a block in place: ext2, ext3, ext4, tmpfs, and XFS for
/// a file that shares no block with another file. On all others no block counts. A file system that
/// copies on write needs space for each write. A network file system reports a full disk too late.
class FileBlocks {
public:
    /// No block counts.
    FileBlocks() = default;

    /// Asks the file system which blocks an open file has, from its start to its first hole.
    FileBlocks(int iDescriptor, std::size_t iFileSize);

    /// The offset at which these blocks end; 0 when no block counts.
    std::size_t End() const { return _end; }

    /// Records that bytes were written to the file, which is open under that descriptor.
    void RecordWrite(int iDescriptor, std::size_t iFrom, std::size_t iTo) {
        if (_mayLackBlocks) LookForBlocks(iDescriptor);
        _end = EndAfter(_end, iFrom, iTo);
    }

    /// Where blocks that ended at `iEnd` end after a write of bytes. A write that starts past
    /// `iEnd` leaves a hole, so the end stays.
    std::size_t EndAfter(std::size_t iEnd, std::size_t iFrom, std::size_t iTo) const {
        if (_unit == 0 || _mayLackBlocks || RoundDown(iFrom) > iEnd) return iEnd;
        return std::max(iEnd, RoundUp(iTo));
    }

private:
    /// Asks whether the file still has no block. ext4 can keep the content of a small file in the
    /// file's own record on the disk (its inode).
    void LookForBlocks(int iDescriptor);

    std::size_t RoundDown(std::size_t iOffset) const { return iOffset & ~(_unit - 1); }
    std::size_t RoundUp(std::size_t iOffset) const { return RoundDown(iOffset + _unit - 1); }

    std::size_t _unit = 0;  ///< bytes of a block, a power of 2; 0 when no block counts
    std::size_t _end = 0;   ///< a multiple of `_unit`
    bool _mayLackBlocks = false;
};

#endif
