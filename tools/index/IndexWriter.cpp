#include "IndexWriter.h"

#include "FileSync.h"
#include "IndexFiles.h"

#include "IDX_WT_File.h"

#include <cerrno>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

constexpr unsigned int kOpenPieces = 1;  // appends go to the last piece alone

/// Forces the files of a folder to the disk, and then their names.
Status SyncAll(const std::string& iFolder) {
    std::error_code error;
    for (fs::directory_iterator entry(iFolder, error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        Status status = SyncPath(entry->path().string());
        if (status.Failed()) return status;
    }
    return error ? Status::Environment(error.message()).In(iFolder) : SyncPath(iFolder);
}

Status OutOfMemory() {
    return Status::Environment("out of memory");
}

}  // namespace

IndexWriter::IndexWriter(const std::string& iFolder)
    : _folder(iFolder + "/"), _octrees(kPieceSize, kOpenPieces, false), _parts(false) {}

/// The library says no more than that it failed: errno knows the reason, if it is the system's.
/// Each operation sets it to 0 before it writes.
Status IndexWriter::Failure(const char* iFile) const {
    const int error = errno;
    const std::string what = _folder + iFile + " can't be written";
    return error != 0 ? Status::System(error).In(what) : Status::Environment(what);
}

Status IndexWriter::Open() {
    errno = 0;
    if (_octrees.OpenWrite((_folder + kOctreesName).c_str()) != IDX_True) {
        return Failure(kOctreesName);
    }
    if (_boxes.Init(kBoxesMinFill, kBoxesMaxChildren) != IDX_True) return OutOfMemory();
    if (_parts.OpenWrite((_folder + kPartsName).c_str()) != IDX_True) return Failure(kPartsName);
    return {};
}

/// Octree first: its place goes into the record, and the record's place into the boxes.
Status IndexWriter::Add(const IndexedPart& iPart) {
    errno = 0;
    PartRecord record = {};
    record.octreeSize = iPart.imageSize;
    record.nTriangles = iPart.nTriangles;
    record.box = iPart.box;
    record.nOccupiedLow = static_cast<std::uint32_t>(iPart.nOccupied);
    record.nOccupiedHigh = static_cast<std::uint32_t>(iPart.nOccupied >> 32U);
    if (_octrees.Write(iPart.image, iPart.imageSize, record.octreePiece, record.octreeOffset) !=
        IDX_True) {
        return Failure(kOctreesName);
    }
    unsigned int item = 0;
    if (!_parts.Add(iPart.identifier, record, item)) return Failure(kPartsName);
    if (_boxes.Insert(iPart.box, item) != IDX_True) return OutOfMemory();
    ++_nParts;
    return {};
}

Status IndexWriter::SaveBoxes() {
    IDX_WT_File file;
    unsigned int offset = 0;
    if (file.OpenWrite((_folder + kBoxesName).c_str()) != IDX_True) return Failure(kBoxesName);
    if (_boxes.Save(file, offset) != IDX_True) return Failure(kBoxesName);
    file.Close();
    return {};
}

Status IndexWriter::Finish() {
    errno = 0;
    if (!_parts.WriteCount(_nParts)) return Failure(kPartsName);
    _parts.Close();
    _octrees.Close();
    Status status = SaveBoxes();
    return status.Failed() ? status : SyncAll(_folder);
}
