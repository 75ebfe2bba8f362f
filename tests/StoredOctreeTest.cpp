// Octrees in split files: the bytes on the disk, the way back, the loader, and every failure.

#include "AdjustableConstants.h"
#include "FileCase.h"
#include "Images.h"
#include "LimitedMemory.h"
#include "Transcript.h"

#include "IDX_WT_SplittedFile.h"
#include "PLMIdxOctreeLoader.h"

#include <cstring>
#include <sys/mman.h>

namespace {

std::string ImageIn(const PLMIdxWTOptimOctree_0& octree) {
    const Bytes image = ImageOf(octree);
    return {image.begin(), image.end()};
}

// Offsets of words in a stored image.
constexpr std::size_t kType = 0;
constexpr std::size_t kVersion = 4;
constexpr std::size_t kSize = 128;

std::string With(std::string image, std::size_t at, unsigned int word) {
    std::memcpy(&image[at], &word, sizeof word);
    return image;
}

/// An octree with a cell at the end of a path, and records of 8 bytes for all but the last two cells on it.
PLMIdxWTOptimOctree_0& MakePath(
    PLMIdxWTOptimOctree_0& octree, std::initializer_list<unsigned int> path) {
    PLMIdxWTWorkingOctree working;
    working.SetDepth(static_cast<int>(path.size()));
    IDX_Base_Octree_Iterator iterator;
    for (const unsigned int child : path) (void)working.MoveCreate(iterator, child);
    EXPECT_EQ(octree.ConstructFrom(working), IDX_S_OK);
    return octree;
}

class StoredOctrees : public FileCase {
protected:
    StoredOctrees() : _image(ImageIn(MakePath(_small, {0, 3, 7}))) {
        EXPECT_EQ(_image.size(), 148u);
    }

    void ExpectSaved(const PLMIdxOptimOctree_0& octree, unsigned int atPart, unsigned int at) {
        unsigned int part = 77;
        unsigned int offset = 77;
        EXPECT_EQ(octree.Save(_file, part, offset), IDX_S_OK);
        EXPECT_EQ(part, atPart);
        EXPECT_EQ(offset, at);
    }

    /// Stores these bytes as piece 0 and opens it.
    void Store(const std::string& bytes) {
        _file.Close();
        SetContent(_base + "0", bytes);
        ASSERT_EQ(_file.OpenRead(_base.c_str()), IDX_True);
    }

    PLMIdxWTOptimOctree_0 _small;
    std::string _image;  ///< of the small octree
    std::string _base = _folder / "B";
    IDX_WT_SplittedFile _file{100, 2, false};
};

}  // namespace

TEST_F(StoredOctrees, LieWholeInOnePiece) {
    _file.OpenWrite(_base.c_str());
    ASSERT_EQ(_file.Write("ab", 2), IDX_True);
    PLMIdxWTOptimOctree_0 octree;
    ASSERT_EQ(octree.ConstructFullOctree({0, 0, 0}, {1, 1, 1}), IDX_S_OK);
    const std::string full = ImageIn(octree);
    ExpectSaved(octree, 0, 4);
    ExpectSaved(_small, 1, 0);
    ExpectSaved(_small, 2, 0);
    ExpectSaved(PLMIdxOptimOctree_0(), 3, 0);
    _file.Close();
    EXPECT_EQ(ContentOf(_base + "0"), std::string("ab\0\0", 4) + full);
    EXPECT_EQ(ContentOf(_base + "2"), _image);
    const std::string empty = ContentOf(_base + "3");
    EXPECT_EQ(empty.size(), 132u);
    EXPECT_EQ(empty.substr(0, 12), std::string("\2\0\0\0\1\0\0\0\0\0\0\0", 12));

    _file.OpenRead(_base.c_str());
    const auto expectLoaded = [&](unsigned int part, unsigned int at, const std::string& image) {
        EXPECT_EQ(octree.Load(_file, part, at), IDX_S_OK);
        EXPECT_EQ(ImageIn(octree), image);
    };
    Transcript transcript;
    expectLoaded(2, 0, _image);  // into a block that is too small
    EXPECT_TRUE(octree == _small);
    expectLoaded(0, 4, full);  // into one that is too large
    NOTE(transcript, octree.ConstructFrom(_small));
    expectLoaded(3, 0, empty);
    NOTE(transcript, octree.ConstructFrom(_small));
    expectLoaded(2, 0, _image);
    NOTE(transcript, octree.ConstructFrom(_small));
}

TEST_F(StoredOctrees, TheLoaderChoosesByTheFirstWord) {
    constexpr std::size_t kPage = 4096;
    const int flags = MAP_PRIVATE | MAP_ANONYMOUS;
    auto* const pages = static_cast<char*>(mmap(nullptr, 2 * kPage, PROT_READ, flags, -1, 0));
    ASSERT_EQ(mprotect(pages, kPage, PROT_READ | PROT_WRITE), 0);
    ASSERT_EQ(mprotect(pages + kPage, kPage, PROT_NONE), 0);
    for (const unsigned int type : {0u, 1u, 2u, 3u}) {
        for (const unsigned int version : {1u, 2u}) {
            // What is of another kind is no longer than these two words.
            const bool isOurs = type == 2 && version == 1;
            const std::string stored =
                With(With(isOurs ? _image : _image.substr(0, 8), kType, type), kVersion, version);
            char* const image = pages + kPage - stored.size();
            std::memcpy(image, stored.data(), stored.size());
            const PLMIdxOctreeLoader loader(image);
            EXPECT_EQ(loader.GetOctree() != nullptr, isOurs) << type;
            if (isOurs) {
                EXPECT_EQ(SolidCells(*loader.GetOctree()), SolidCells(_small));
            }
            const Lines working = {"PLMIdxWorkingOctree.Load - Not Implemented"};
            EXPECT_EQ(_trace.Take(), type == 0 ? working : Lines());
        }
    }
    munmap(pages, 2 * kPage);
}

TEST_F(StoredOctrees, SavesThatFail) {
    Transcript transcript;
    unsigned int part = 9;
    unsigned int offset = 9;
    NOTE(transcript, _small.Save(_file, part, offset));
    EXPECT_EQ(part + offset, 0u);
    {
        const FileSizeLimit limit(140);
        _file.OpenWrite(_base.c_str());
        ASSERT_EQ(_file.Write(1u), IDX_True);
        NOTE(transcript, _small.Save(_file, part, offset));
    }
    _file.Close();
    EXPECT_EQ(part, 0u);
    EXPECT_EQ(offset, 4u) << "the place of the header, which stays";
    EXPECT_EQ(ContentOf(_base + "0").substr(4, 132), _image.substr(0, 132));
}

TEST_F(StoredOctrees, Loads) {
    Transcript transcript;
    const std::string header = _image.substr(0, 132);
    const std::string version7 = With(_image, kVersion, 7);
    const std::string otherType = With(_image, kType, 3);
    const std::string emptyOfOtherType = With(With(header, kSize, 0), kType, 3);
    struct Case {
        const char* name;
        std::string stored;
        std::string
            after;  ///< what the image of an octree that held the small one starts with then
    };
    // clang-format off
    const Case cases[] = {
        {"another version",        version7,                        version7},
        {"another type, empty",    emptyOfOtherType,                With(header, kSize, 0)},
        {"another type",           otherType,                       header + std::string(16, '\0')},
        {"header without a byte",  header.substr(1),                _image},
        {"records without a byte", _image.substr(0, 147),           header},
        {"no memory",              With(_image, kSize, 0xFFFFFF00), _image},
    };
    // clang-format on
    LimitMemory();
    for (const Case& row : cases) {
        transcript.Title(row.name);
        PLMIdxWTOptimOctree_0 octree;
        ASSERT_EQ(octree.ConstructFrom(_small), IDX_S_OK);
        Store(row.stored);
        NOTE(transcript, octree.Load(_file, 0, 0));
        EXPECT_EQ(ImageIn(octree).substr(0, row.after.size()), row.after) << row.name;
        Store(_image);
        EXPECT_EQ(octree.Load(_file, 0, 0), IDX_S_OK);
        EXPECT_EQ(ImageIn(octree), _image) << "usable again";
    }
}

TEST_F(StoredOctrees, ALoadAfterAConstructionWithoutMemory) {
    Store(With(_image, kType, 3));
    PLMIdxWTOptimOctree_0 large;
    MakePath(large, {1, 2, 3, 4});
    LimitMemory();
    PLMIdxWTOptimOctree_0 octree;
    const ArenaSize arena(0xFFFFFF00);
    EXPECT_EQ(octree.ConstructFrom(_small), IDX_E_FAIL);
    EXPECT_EQ(octree.Load(_file, 0, 0), IDX_E_FAIL) << "leaves a small block";
    EXPECT_EQ(octree.ConstructFrom(large), IDX_E_FAIL) << "which stays as small";
}
