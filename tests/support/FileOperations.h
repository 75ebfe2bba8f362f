#ifndef FileOperations_h
#define FileOperations_h

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// Takes operations on files out of any bytes, and does them with the library beside plain bytes (FlatFile):
/// several objects that share files under several names, a memory file, a split file, other
/// processes that write, and disks that fail (FailingCalls). The bytes:
///
///     memory for pages; bytes that the first file has; what may happen, 2 bytes (kMoreDisks and so on);
///     kind of disk; good calls before, 2 bytes; calls that meet it, 255: all    then the operations
///
/// @param folder  an empty one, or that of a run before
/// @param fillUp  leaves no block on the disk of the folder; empty: there are enough for all writes
/// @return the first difference, in words; empty when there is none
std::string RunFileOperations(
    const std::uint8_t* data,
    std::size_t size,
    const std::string& folder,
    const std::function<void()>& fillUp = nullptr);

// What may happen. The slow things take several bits, so that few inputs have them.
constexpr unsigned int kMoreDisks = 0x01;    ///< the disk changes on the way
constexpr unsigned int kNoRepair = 0x02;     ///< the disk is as it is until the last file is closed
constexpr unsigned int kFarOffsets = 0xE0;   ///< offsets near 2^31, too
constexpr unsigned int kSplitFile = 0xFE00;  ///< 2 bits: its limit; 2: its slots; 1: no locks

/// Random bytes for it, on a sound disk.
/// @param may  what may happen
std::vector<std::uint8_t> RandomOperations(unsigned int seed, std::size_t size, unsigned int may);

#endif
