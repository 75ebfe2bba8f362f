#include "FileBlocks.h"

#include "PagePool.h"

#include "formats/UnalignedMemory.h"

#include <bit>
#include <cstring>
#include <linux/fiemap.h>
#include <linux/fs.h>
#include <linux/magic.h>
#include <sys/ioctl.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace {

/// True when the file shares a block with another file, or when the file system can't say. A shared
/// block is copied by a write to it, which needs space.
bool MayShareBlocks(int iDescriptor) {
    constexpr unsigned int kExtents = 32;
    alignas(fiemap) unsigned char bytes[sizeof(fiemap) + kExtents * sizeof(fiemap_extent)];
    auto* map = reinterpret_cast<fiemap*>(bytes);
    for (unsigned long long from = 0;;) {
        // Each call describes at most kExtents extents; the next one starts after the last of
        // these.
        std::memset(bytes, 0, sizeof(fiemap));
        map->fm_start = from;
        map->fm_length = FIEMAP_MAX_OFFSET - from;
        map->fm_extent_count = kExtents;
        if (ioctl(iDescriptor, FS_IOC_FIEMAP, map) != 0) return true;
        if (map->fm_mapped_extents == 0) return false;
        for (unsigned int i = 0; i < map->fm_mapped_extents; ++i) {
            const auto extent =
                LoadAt<fiemap_extent>(bytes, sizeof(fiemap) + i * sizeof(fiemap_extent));
            if ((extent.fe_flags & FIEMAP_EXTENT_SHARED) != 0) return true;
            if ((extent.fe_flags & FIEMAP_EXTENT_LAST) != 0) return false;
            from = extent.fe_logical + extent.fe_length;
        }
    }
}

/// True when the data of a file on XFS are on the realtime device. Each write there may go to a new
/// block.
bool IsOnRealtimeDisk(int iDescriptor) {
    fsxattr attributes = {};
    return ioctl(iDescriptor, FS_IOC_FSGETXATTR, &attributes) != 0 ||
           (attributes.fsx_xflags & FS_XFLAG_REALTIME) != 0;
}

/// Whether a write to a block of the file needs no space of the disk.
bool OverwritesInPlace(int iDescriptor, unsigned long iFileSystem) {
    constexpr unsigned long kXfs = 0x58465342;  // "XFSB"; the system's header has no name for it
    switch (iFileSystem) {
        case EXT4_SUPER_MAGIC:  // ext2 and ext3, too
        case TMPFS_MAGIC:
            return true;
        case kXfs:
            return !IsOnRealtimeDisk(iDescriptor) && !MayShareBlocks(iDescriptor);
        default:
            return false;
    }
}

}  // namespace

FileBlocks::FileBlocks(int iDescriptor, std::size_t iFileSize) {
    struct statfs system = {};
    if (fstatfs(iDescriptor, &system) != 0 || system.f_bsize <= 0) return;
    if (!OverwritesInPlace(iDescriptor, static_cast<unsigned long>(system.f_type))) return;
    const auto block = static_cast<std::size_t>(system.f_bsize);
    if (!std::has_single_bit(block)) return;
    _unit = std::min<std::size_t>(block, kPageSize);
    // A file of less than one block may be inside its record on ext4. The first write will look
    // again.
    _mayLackBlocks = system.f_type == EXT4_SUPER_MAGIC && iFileSize < _unit;
    const off_t hole = iFileSize != 0 ? lseek(iDescriptor, 0, SEEK_HOLE) : 0;
    if (hole > 0) _end = EndAfter(0, 0, static_cast<std::size_t>(hole));
}

void FileBlocks::LookForBlocks(int iDescriptor) {
    constexpr int kContentInRecord = 0x10000000;  // EXT4_INLINE_DATA_FL of ext4's own header
    int flags = 0;
    _mayLackBlocks =
        ioctl(iDescriptor, FS_IOC_GETFLAGS, &flags) != 0 || (flags & kContentInRecord) != 0;
}
