#ifndef FileBlocks_h
#define FileBlocks_h

#include <algorithm>
#include <cstddef>

/// Which blocks a file has on its disk. A write into such a block needs no space, so that it may wait in
/// memory: a disk that is full, or becomes full, can't refuse it any more.
///
/// That holds on file systems that overwrite a block where it lies: ext2, ext3, ext4, tmpfs, and XFS for a
/// file that shares no block with another one. Of files elsewhere no block counts: a file system that
/// copies on write needs space for each write, and one behind a network tells late that a disk is full.
class FileBlocks {
public:
    /// No block counts.
    FileBlocks() = default;

    /// Asks the file system which blocks an open file has from its start to its first hole.
    FileBlocks(int iDescriptor, std::size_t iFileSize);

    /// Where these blocks end; 0 when no block counts.
    std::size_t End() const { return _end; }

    /// Takes note of bytes that were written to the file, which is open under that descriptor.
    void RecordWrite(int iDescriptor, std::size_t iFrom, std::size_t iTo) {
        if (_mayLackBlocks) LookForBlocks(iDescriptor);
        _end = EndAfter(_end, iFrom, iTo);
    }

    /// Where blocks without a hole that ended at `iEnd` end now that bytes were written.
    std::size_t EndAfter(std::size_t iEnd, std::size_t iFrom, std::size_t iTo) const {
        if (_unit == 0 || _mayLackBlocks || RoundDown(iFrom) > iEnd) return iEnd;
        return std::max(iEnd, RoundUp(iTo));
    }

private:
    /// Finds out whether the content still lies in the file's own record on the disk, as ext4 can keep that of a
    /// small file: it has no block then.
    void LookForBlocks(int iDescriptor);

    std::size_t RoundDown(std::size_t iOffset) const { return iOffset & ~(_unit - 1); }
    std::size_t RoundUp(std::size_t iOffset) const { return RoundDown(iOffset + _unit - 1); }

    std::size_t _unit = 0;  ///< bytes of a block, a power of 2; 0 when no block counts
    std::size_t _end = 0;   ///< a multiple of `_unit`
    bool _mayLackBlocks = false;
};

#endif
