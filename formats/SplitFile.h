#ifndef SplitFile_h
#define SplitFile_h

#include <cstddef>

// A split file is a series of numbered files, its pieces. A piece has no header. It holds the
// appended data, and each append starts at a multiple of kFileAlignment. docs/file-formats.md,
// "Split file".

/// Names of pieces and of their lock files, for printf: base path, number of the piece, suffix.
constexpr char kPieceNameFormat[] = "%s%d%s";
constexpr char kPieceSuffix[] = "";
constexpr char kLockSuffix[] = ".lock";

/// Bytes of the buffer for a name, with its terminator. A longer name is an error.
constexpr std::size_t kPieceNameSize = 2048;

/// Each append to an index file starts at a multiple of this number of bytes.
constexpr unsigned int kFileAlignment = 4;

/// Where the next append begins, after one that ended at `iEnd`.
constexpr std::size_t NextAppend(std::size_t iEnd) {
    return (iEnd + kFileAlignment - 1) / kFileAlignment * kFileAlignment;
}

#endif
