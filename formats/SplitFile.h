#ifndef SplitFile_h
#define SplitFile_h

#include <cstddef>

// A split file is a series of pieces, each a file of its own without a header: what was appended, each time
// from a multiple of kFileAlignment on. docs/file-formats.md, "Split file".

/// Names of pieces and of their lock files, for printf: base path, number of the piece, suffix.
constexpr char kPieceNameFormat[] = "%s%d%s";
constexpr char kPieceSuffix[] = "";
constexpr char kLockSuffix[] = ".lock";

/// Bytes of a buffer that each of these names has to fit into, with its end.
constexpr std::size_t kPieceNameSize = 2048;

/// What is appended to an index file begins at a multiple of as many bytes.
constexpr unsigned int kFileAlignment = 4;

/// Where the next append begins, after one that ended at `iEnd`.
constexpr std::size_t NextAppend(std::size_t iEnd) {
    return (iEnd + kFileAlignment - 1) / kFileAlignment * kFileAlignment;
}

#endif
