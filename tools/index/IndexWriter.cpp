#include "IndexWriter.h"

#include "FileSync.h"
#include "IndexFiles.h"

#include "IDX_WT_File.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace fs = std::filesystem;

namespace {

constexpr unsigned int kOpenPieces = 1;  // appends go to the last piece alone

std::string SyncAll(const std::string& iFolder) {
    std::error_code error;
    for (fs::directory_iterator entry(iFolder, error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        std::string failure = SyncPath(entry->path().string());
        if (!failure.empty()) return failure;
    }
    return error ? iFolder + ": " + error.message() : SyncPath(iFolder);
}

}  // namespace

IndexWriter::IndexWriter(const std::string& iFolder)
    : _folder(iFolder + "/"), _octrees(kPieceSize, kOpenPieces, false), _parts(false) {}

std::string IndexWriter::Failure(const char* iFile) const {
    const int error = errno;
    return _folder + iFile + " can't be written" +
           (error != 0 ? std::string(": ") + std::strerror(error) : std::string());
}

std::string IndexWriter::Open() {
    errno = 0;
    if (_octrees.OpenWrite((_folder + kOctreesName).c_str()) != IDX_True) {
        return Failure(kOctreesName);
    }
    if (_boxes.Init(kBoxesMinFill, kBoxesMaxChildren) != IDX_True) return "out of memory";
    return _parts.OpenWrite((_folder + kPartsName).c_str()) == IDX_True ? "" : Failure(kPartsName);
}

std::string IndexWriter::Add(const IndexedPart& iPart) {
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
    if (_boxes.Insert(iPart.box, item) != IDX_True) return "out of memory";
    ++_nParts;
    return {};
}

std::string IndexWriter::SaveBoxes() {
    IDX_WT_File file;
    unsigned int offset = 0;
    if (file.OpenWrite((_folder + kBoxesName).c_str()) != IDX_True) return Failure(kBoxesName);
    if (_boxes.Save(file, offset) != IDX_True) return Failure(kBoxesName);
    file.Close();
    return {};
}

std::string IndexWriter::Finish() {
    errno = 0;
    if (!_parts.WriteCount(_nParts)) return Failure(kPartsName);
    _parts.Close();
    _octrees.Close();
    const std::string failure = SaveBoxes();
    return failure.empty() ? SyncAll(_folder) : failure;
}
