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

/// True when the file has a block that is another file's, too: it is copied when it is written to. True as
/// well when the file system doesn't tell.
bool MayShareBlocks(int iDescriptor) {
    constexpr unsigned int kExtents = 32;
    alignas(fiemap) unsigned char bytes[sizeof(fiemap) + kExtents * sizeof(fiemap_extent)];
    auto* map = reinterpret_cast<fiemap*>(bytes);
    for (unsigned long long from = 0;;) {
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

/// True when the file's data lie on a disk of XFS that has a place of its own for them, where they may be
/// written to a new block each time.
bool IsOnRealtimeDisk(int iDescriptor) {
    fsxattr attributes = {};
    return ioctl(iDescriptor, FS_IOC_FSGETXATTR, &attributes) != 0 ||
           (attributes.fsx_xflags & FS_XFLAG_REALTIME) != 0;
}

bool OverwritesInPlace(int iDescriptor, unsigned long iFileSystem) {
    constexpr unsigned long kXfs = 0x58465342;
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
    _mayLackBlocks = system.f_type == EXT4_SUPER_MAGIC && iFileSize < _unit;
    const off_t hole = iFileSize != 0 ? lseek(iDescriptor, 0, SEEK_HOLE) : 0;
    if (hole > 0) _end = EndAfter(0, 0, static_cast<std::size_t>(hole));
}

void FileBlocks::LookForBlocks(int iDescriptor) {
    constexpr int kContentInRecord = 0x10000000;
    int flags = 0;
    _mayLackBlocks =
        ioctl(iDescriptor, FS_IOC_GETFLAGS, &flags) != 0 || (flags & kContentInRecord) != 0;
}
