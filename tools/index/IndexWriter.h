#ifndef IndexWriter_h
#define IndexWriter_h

#include "PartTree.h"
#include "Status.h"

#include "IDX_WT_RTree.h"
#include "IDX_WT_SplittedFile.h"

#include <cstdint>
#include <string>

/// One part as it goes into an index.
struct IndexedPart {
    std::string identifier;                ///< UTF-8, unique in the index
    const unsigned char* image = nullptr;  ///< its octree image
    unsigned int imageSize = 0;            ///< bytes of `image`
    IDX_Base_BoundingBox box;              ///< of all points of its triangles
    std::uint32_t nTriangles = 0;
    std::uint64_t nOccupied = 0;  ///< occupied cells of the last level
};

/// Writes the files of an index into a folder that holds none. The same parts in the same order
/// give the same bytes. After a failure the folder holds nothing that may be used. Failures name
/// the file.
class IndexWriter {
public:
    explicit IndexWriter(const std::string& iFolder);
    IndexWriter(const IndexWriter&) = delete;
    IndexWriter& operator=(const IndexWriter&) = delete;
    ~IndexWriter() = default;

    Status Open();
    Status Add(const IndexedPart& iPart);

    /// Writes what is still in memory, closes the files and forces them and the folder to the disk.
    Status Finish();

    unsigned int CountParts() const { return _nParts; }

private:
    Status Failure(const char* iFile) const;
    Status SaveBoxes();

    std::string _folder;
    IDX_WT_SplittedFile _octrees;
    IDX_WT_RTree _boxes;
    PartTree _parts;
    unsigned int _nParts = 0;
};

#endif
