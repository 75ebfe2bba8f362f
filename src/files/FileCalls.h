#ifndef FileCalls_h
#define FileCalls_h

#include <cstddef>

// System calls on an open file, by its descriptor. A call that a signal interrupts is made again.

/// No byte of a file has this offset or a higher one: offsets have 31 bits.
constexpr std::size_t kEndOfOffsets = 0x7FFFFFFF;

/// Reads until all bytes have come, the file ends or an error occurs.
/// @param oError  set to true on an error, else left alone
/// @return the number of bytes read
std::size_t ReadFully(
    int iDescriptor, std::size_t iOffset, unsigned char* oData, std::size_t iSize, bool& oError);

/// Writes until all bytes are in the file or an error occurs.
/// @return the number of bytes written
std::size_t WriteFully(
    int iDescriptor, std::size_t iOffset, const unsigned char* iData, std::size_t iSize);

/// The offset at which files of the process must end: its limit of file sizes, at most
/// kEndOfOffsets.
std::size_t AllowedFileEnd();

#endif
