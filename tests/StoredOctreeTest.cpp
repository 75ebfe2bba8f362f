// Octrees in split files: the bytes on the disk, the way back, the loader, and every failure.

#include "AdjustableConstants.h"
#include "FileCase.h"
#include "Images.h"
#include "LimitedMemory.h"

#include "IDX_WT_SplittedFile.h"
#include "PLMIdxOctreeLoader.h"
#include "PLMIdxWTOptimOctree_0.h"

#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

struct OpenOctree : PLMIdxWTOptimOctree_0 {
    using PLMIdxWTOptimOctree_0::_capacity;
};

std::string ImageIn(const PLMIdxWTOptimOctree_0& octree) {
    unsigned int size = 0;
    const std::unique_ptr<const unsigned char[]> block(octree.GetOctreeBuffer(size));
    return {block.get(), block.get() + size};
}

// Offsets of words in a stored image.
constexpr std::size_t kType = 0;
constexpr std::size_t kVersion = 4;
constexpr std::size_t kSize = 128;

std::string With(std::string image, std::size_t at, unsigned int word) {
    std::memcpy(&image[at], &word, sizeof word);
    return image;
}

class StoredOctrees : public FileCase {
protected:
    StoredOctrees() {
        OpenBuilder builder;
        builder.SetParameters(5, 0, IDX_False);
        EXPECT_EQ(Draw(builder, BoxMesh({0, 0, 0}, {1, 2, 3})), IDX_S_OK);
        EXPECT_EQ(_box.ConstructFrom(builder._workingOctree), IDX_S_OK);
        _image = ImageIn(_box);
    }

    void Expect(long int result, long int status, const Lines& tags = {}) {
        EXPECT_EQ(result, status);
        EXPECT_EQ(_trace.Take(), tags);
    }

    void ExpectSaved(const PLMIdxOptimOctree_0& octree, unsigned int atPart, unsigned int at) {
        unsigned int part = 77;
        unsigned int offset = 77;
        Expect(octree.Save(_file, part, offset), IDX_S_OK);
        EXPECT_EQ(part, atPart);
        EXPECT_EQ(offset, at);
    }

    /// Stores these bytes as piece 0 and opens it.
    void Store(const std::string& bytes) {
        _file.Close();
        SetContent(_base + "0", bytes);
        ASSERT_EQ(_file.OpenRead(_base.c_str()), IDX_True);
    }

    /// Loads these bytes into a copy of the box, whose image starts with others then.
    void ExpectLoad(
        const std::string& stored, long int status, const Lines& tags, const std::string& after) {
        Store(stored);
        PLMIdxWTOptimOctree_0 octree;
        ASSERT_EQ(octree.ConstructFrom(_box), IDX_S_OK);
        Expect(octree.Load(_file, 0, 0), status, tags);
        EXPECT_EQ(ImageIn(octree).substr(0, after.size()), after);
        Store(_image);
        Expect(octree.Load(_file, 0, 0), IDX_S_OK);
        EXPECT_EQ(ImageIn(octree), _image) << "usable again";
    }

    PLMIdxWTOptimOctree_0 _box;
    std::string _image;  ///< of the box
    std::string _base = _folder / "B";
    IDX_WT_SplittedFile _file{100, 2, false};
};

}  // namespace

TEST_F(StoredOctrees, LieWholeInOnePiece) {
    _file.OpenWrite(_base.c_str());
    ASSERT_EQ(_file.Write("ab", 2), IDX_True);
    OpenOctree octree;
    ASSERT_EQ(octree.ConstructFullOctree({0, 0, 0}, {1, 1, 1}), IDX_S_OK);
    const std::string full = ImageIn(octree);
    ExpectSaved(octree, 0, 4);
    ExpectSaved(_box, 1, 0);
    ExpectSaved(_box, 2, 0);
    ExpectSaved(PLMIdxOptimOctree_0(), 3, 0);
    _file.Close();
    EXPECT_EQ(ContentOf(_base + "0"), std::string("ab\0\0", 4) + full);
    EXPECT_EQ(ContentOf(_base + "2"), _image);
    const std::string empty = ContentOf(_base + "3");
    EXPECT_EQ(empty.size(), 132u);
    EXPECT_EQ(empty.substr(0, 12), std::string("\2\0\0\0\1\0\0\0\0\0\0\0", 12));

    _file.OpenRead(_base.c_str());
    Expect(octree.Load(_file, 2, 0), IDX_S_OK);  // into a block that is too small
    EXPECT_TRUE(octree == _box);
    EXPECT_EQ(ImageIn(octree), _image);
    Expect(octree.Load(_file, 0, 4), IDX_S_OK);  // into one that is too large
    EXPECT_EQ(ImageIn(octree), full);
    const std::string noRoom = "PLMIdxWTOptimOctree_0._Alloc.MaxSize";
    const std::string tag = "PLMIdxWTOptimOctree_0._SubConstructFrom._AllocOptim(NodeOptim)";
    Expect(octree.ConstructFrom(_box), IDX_E_FAIL, {noRoom, tag});  // 8 bytes are left
    Expect(octree.Load(_file, 3, 0), IDX_S_OK);
    EXPECT_EQ(ImageIn(octree), empty);
    Expect(octree.ConstructFrom(_box), IDX_E_FAIL, {noRoom});  // not one
    Expect(octree.Load(_file, 2, 0), IDX_S_OK);
    Expect(octree.ConstructFrom(_box), IDX_S_OK);
    EXPECT_EQ(ImageIn(octree), _image);

    const int descriptor = open((_base + "2").c_str(), O_RDONLY);
    void* map = mmap(nullptr, _image.size(), PROT_READ, MAP_PRIVATE, descriptor, 0);
    close(descriptor);
    ASSERT_NE(map, MAP_FAILED);
    const PLMIdxOctreeLoader loader(map);
    ASSERT_NE(loader.GetOctree(), nullptr);
    EXPECT_EQ(SolidCells(*loader.GetOctree()), SolidCells(_box));
    munmap(map, _image.size());
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
            char* const image = pages + kPage - (isOurs ? 132 : 8);
            std::memcpy(image, &type, 4);
            std::memcpy(image + 4, &version, 4);
            const PLMIdxOctreeLoader loader(image);
            EXPECT_EQ(loader.GetOctree() != nullptr, isOurs) << type;
            const Lines working = {"PLMIdxWorkingOctree.Load - Not Implemented"};
            EXPECT_EQ(_trace.Take(), type == 0 ? working : Lines());
        }
    }
    munmap(pages, 2 * kPage);
}

TEST_F(StoredOctrees, SavesThatFail) {
    unsigned int part = 9;
    unsigned int offset = 9;
    const std::string tag = "PLMIdxWTOptimOctree_0.Save.IDX_WT_SplittedFile.";
    Expect(
        _box.Save(_file, part, offset), IDX_E_FAIL,
        {"IDX_WT_SplittedFile._TestAndOpen.NotOpened", "IDX_WT_SplittedFile.Write._TestAndOpen (1)",
         tag + "Write"});
    EXPECT_EQ(part + offset, 0u);
    {
        const FileSizeLimit limit(140);
        _file.OpenWrite(_base.c_str());
        ASSERT_EQ(_file.Write(1u), IDX_True);
        Expect(
            _box.Save(_file, part, offset), IDX_E_FAIL,
            {"IDX_WT_File.WriteAt.fwrite", "IDX_WT_SplittedFile.WriteAt.IDX_WT_File.WriteAt",
             tag + "WriteAt"});
    }
    _file.Close();
    EXPECT_EQ(part, 0u);
    EXPECT_EQ(offset, 4u) << "the place of the header, which stays";
    EXPECT_EQ(ContentOf(_base + "0").substr(4, 132), _image.substr(0, 132));
}

TEST_F(StoredOctrees, Loads) {
    const std::string tag = "PLMIdxWTOptimOctree_0.Load.";
    const std::string inPiece = "IDX_WT_SplittedFile.ReadAt.IDX_WT_File.ReadAt";
    const std::string header = _image.substr(0, 132);
    const std::string version7 = With(_image, kVersion, 7);
    const std::string otherType = With(_image, kType, 3);
    const std::string empty = With(_image, kSize, 0);
    LimitMemory();
    ExpectLoad(version7, IDX_S_OK, {}, version7);                           // any version
    ExpectLoad(With(empty, kType, 3), IDX_S_OK, {}, empty.substr(0, 132));  // and any type here
    ExpectLoad(
        header.substr(1), IDX_E_FAIL,
        {"IDX_WT_File.ReadAt.InvalidOffset[fOffset=0,fSize=131,dSize=132]", inPiece,
         tag + "ReadAt(OctreeHeader)"},
        _image);
    ExpectLoad(
        otherType, IDX_E_FAIL, {tag + "InvalidType"},
        header + std::string(_image.size() - 132, '\0'));
    const std::string end = std::to_string(_image.size() - 1);
    const std::string size = std::to_string(_image.size() - 132);
    ExpectLoad(
        _image.substr(0, _image.size() - 1), IDX_E_FAIL,
        {"IDX_WT_File.ReadAt.InvalidOffset[fOffset=132,fSize=" + end + ",dSize=" + size + "]",
         inPiece, tag + "ReadAt(OctreeBuffer)"},
        header);
    ExpectLoad(
        With(_image, kSize, 0xFFFFFF00), IDX_E_OUT_OF_MEMORY,
        {"PLMIdxWTOptimOctree_0._Alloc.AllocationFailed"}, _image);
}

TEST_F(StoredOctrees, ALoadBehindAConstructionWithoutMemory) {
    Store(With(_image, kType, 3));
    OpenBuilder builder;
    builder.SetParameters(6, 0, IDX_False);
    EXPECT_EQ(Draw(builder, BoxMesh({0, 0, 0}, {1, 2, 3})), IDX_S_OK);
    LimitMemory();
    PLMIdxWTOptimOctree_0 octree;
    const ArenaSize arena(0xFFFFFF00);
    EXPECT_EQ(octree.ConstructFrom(_box), IDX_E_FAIL);
    EXPECT_EQ(octree.Load(_file, 0, 0), IDX_E_FAIL) << "leaves a small block";
    EXPECT_EQ(octree.ConstructFrom(builder._workingOctree), IDX_E_FAIL) << "and no more room";
}
