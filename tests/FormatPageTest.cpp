// docs/file-formats.md against the library: the examples of the page are built and compared byte
// for byte.

#include "OpenRTree.h"
#include "OpenTree.h"
#include "TemporaryFolder.h"

#include "IDXWorkingID.h"
#include "PLMIdxWTOptimOctree_0.h"
#include "PLMIdxWTWorkingOctree.h"

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

/// The bytes of the first block "dump" below a heading: an offset, then pairs of hexadecimal
/// digits, then text. Every offset must be the number of bytes before it.
Bytes ReadDumpOfPage(const std::string& iHeading) {
    std::ifstream page(GRIDLOOM_FORMAT_PAGE);
    Bytes bytes;
    std::string line;
    while (std::getline(page, line) && line != "## " + iHeading) {
    }
    while (std::getline(page, line) && line != "```dump") {
    }
    while (std::getline(page, line) && line != "```") {
        std::istringstream words(line);
        std::size_t offset = 0;
        words >> offset;
        EXPECT_EQ(offset, bytes.size()) << line;
        std::string word;
        while (words >> word && word.size() == 2 &&
               word.find_first_not_of("0123456789abcdef") == std::string::npos) {
            bytes.push_back(static_cast<unsigned char>(std::stoul(word, nullptr, 16)));
        }
    }
    return bytes;
}

/// Marks the cell that a path of child numbers leads to, all of it.
void FillPath(PLMIdxWTWorkingOctree& ioOctree, const std::vector<unsigned>& iPath) {
    IDX_Base_Octree_Iterator parent;
    for (std::size_t i = 0; i + 1 < iPath.size(); ++i) {
        ASSERT_EQ(ioOctree.MoveCreate(parent, iPath[i]), IDX_S_OK);
    }
    ioOctree.Fill(parent, iPath.back(), OCTREE_FULL);
}

/// The octree that the page describes, packed.
Bytes BuildExampleOfPage() {
    PLMIdxWTWorkingOctree octree;
    octree.SetDepth(4);
    octree.SetBB({-8, -8, -8}, {16, 16, 16});
    FillPath(octree, {1, 2, 0, 0});
    FillPath(octree, {1, 2, 0, 7});
    FillPath(octree, {1, 2, 5});
    FillPath(octree, {6, 0, 3, 2});
    FillPath(octree, {6, 3});
    for (unsigned group = 0; group < 8; ++group) FillPath(octree, {6, 5, group});
    FillPath(octree, {7});

    PLMIdxWTOptimOctree_0 packed;
    EXPECT_EQ(packed.ConstructFrom(octree), IDX_S_OK);
    unsigned int size = 0;
    const std::unique_ptr<unsigned char[]> image(packed.GetOctreeBuffer(size));
    return Bytes(image.get(), image.get() + size);
}

TEST(FormatPage, TheOctreeIsWhatTheLibraryWrites) {
    EXPECT_EQ(ReadDumpOfPage("Octree image"), BuildExampleOfPage());
}

TEST(FormatPage, TheWorkingIdentifierIsReadAndWrittenAgain) {
    const Bytes form = ReadDumpOfPage("Serial form of a working identifier");
    IDX_Base_Buffer buffer;
    buffer.Resize(static_cast<unsigned int>(form.size()));
    std::copy(form.begin(), form.end(), buffer.GetDataForWriting());
    IDXWorkingID id;
    id.ConvertFromBuffer(buffer);
    const IDX_Base_ByteArray& ids = id.GetObjectAndLogicalID();
    for (unsigned int i = 0; i < 32; ++i) EXPECT_EQ(ids.GetData()[i], i);
    VEXUnicodeString type;
    id.GetType(type);
    EXPECT_STREQ(type, "PART");
    const IDX_Base_String& repository = id.GetRepositoryName();
    EXPECT_EQ(std::string(repository.GetData(), repository.GetLength()), "Vault");
    id.ConvertToBuffer(buffer);
    EXPECT_EQ(Bytes(buffer.GetData(), buffer.GetData() + buffer.GetSize()), form);
}

TEST(FormatPage, TheRTreeIsWhatTheLibraryWrites) {
    OpenRTree tree(1, 2);
    unsigned int value = 0;
    for (const float x : {0.0f, 10.0f, 8.0f}) {
        tree.Insert(Bar(x, x + 1), value += 10);
    }
    EXPECT_EQ(ImageOf(tree), ReadDumpOfPage("R-tree image"));
}

TEST(FormatPage, TheIdentifierTreeIsWhatTheLibraryWrites) {
    const TemporaryFolder folder;
    const std::string path = folder / "tree";
    OpenTree tree(16, 8, false);
    ASSERT_EQ(tree.OpenWrite(path.c_str()), IDX_True);
    char letter = 'A';
    for (const char* id : {"ant", "bee", "cat", "dog"}) {
        unsigned int item = 0;
        EXPECT_EQ(tree.Add(std::string(16, letter++), id, item), IDX_True);
    }
    tree.Close();
    const std::string content = ContentOf(path);
    EXPECT_EQ(ReadDumpOfPage("Identifier tree file"), Bytes(content.begin(), content.end()));
}

}  // namespace
