#ifndef FileOperations_h
#define FileOperations_h

#include <cstddef>
#include <cstdint>
#include <string>

/// Takes operations on files out of any bytes, and does them with the library beside plain bytes (FlatFile):
/// several objects that share files under several names, a memory file, a split file, a child of fork, other
/// processes that write, and disks that fail (FailingCalls). The bytes:
///
///     memory for pages; bytes that the first file has; what may happen (kForks and so on);
///     kind of disk; good calls before, 2 bytes; calls that meet it, 255: all    then the operations
///
/// @param folder  an empty one, or that of a run before
/// @return the first difference, in words; empty when there is none
std::string RunFileOperations(
    const std::uint8_t* data, std::size_t size, const std::string& folder);

// What may happen. The slow things take several bits, so that any byte has them less often.
constexpr std::uint8_t kMoreDisks = 1;  ///< the disk changes on the way
constexpr std::uint8_t kNoRepair = 2;   ///< the disk is as it is until the last file is closed
constexpr std::uint8_t kForks = 4 + 8;
constexpr std::uint8_t kExits = 16;                  ///< forked children end by exit()
constexpr std::uint8_t kFarOffsets = 32 + 64 + 128;  ///< offsets near 2^31, too

#endif
