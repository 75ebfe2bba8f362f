#ifndef IndexFiles_h
#define IndexFiles_h

#include "PLMIdxDirectoryManager.h"

#include "formats/PartIndexFiles.h"

// How the index of parts is written, where its format leaves it open. docs/file-formats.md, "Part
// index".

constexpr Index_Type kIndexKind = Index_Dwh;

/// Bytes of a piece of the octrees at which images go to the next one: any image fits below the
/// limit of a file.
constexpr unsigned int kPieceSize = 1U << 30;

// The nodes of the boxes: 460 bytes, a few cache lines to be read for one step of a search.
constexpr unsigned short kBoxesMinFill = 6;
constexpr unsigned short kBoxesMaxChildren = 16;

#endif
