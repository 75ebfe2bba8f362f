// Memory files by hand: the blocks and every failure; FileModelTest has random sequences. The
// program supplies the memory, so that it can run out and never starts as zeros.

#include "FileCase.h"

#include "IDX_Status.h"
#include "IDX_WT_MemFile.h"
#include "VEXMemory.h"

#include <algorithm>
#include <cstring>
#include <dlfcn.h>
#include <sys/stat.h>

namespace {

using std::string_literals::operator""s;

bool hasMemory = true;
bool canRead = true;
std::size_t lastSize = 0;  ///< of the last block asked for
int blocks = 0;            ///< not given back

}  // namespace

void* VEXUnsecuredMemAlloc(std::size_t iSize) {
    lastSize = iSize;
    if (!hasMemory) return nullptr;
    ++blocks;
    return std::memset(std::malloc(iSize), 0xCC, std::min<std::size_t>(iSize, 4096));
}

void* VEXMemAlloc(std::size_t iSize) {
    return VEXUnsecuredMemAlloc(iSize);
}

void VEXMemFree(void* iBlock) {
    --blocks;
    std::free(iBlock);
}

extern "C" __attribute__((visibility("default"))) std::size_t fread(
    void* data, std::size_t size, std::size_t count, FILE* file) {
    static const auto next = reinterpret_cast<decltype(&fread)>(dlsym(RTLD_NEXT, "fread"));
    return next(data, size, canRead ? count : count / 2, file);
}

namespace {

class MemFiles : public FileFailures {
protected:
    ~MemFiles() override { EXPECT_EQ(blocks, 0) << "every block was given back"; }

    const char* PathOf(const std::string& content) {
        SetContent(_path, content);
        return _path.c_str();
    }
};

}  // namespace

TEST_F(MemFiles, ReadsPastTheEnd) {
    IDX_WT_MemFile file;
    char bytes[8] = {};
    NOTE(_transcript, file.OpenRead(PathOf("abcd5")));
    NOTE(_transcript, file.ReadAt(5, bytes, 0));
    NOTE(_transcript, file.ReadAt(6, bytes, 0));
    NOTE(_transcript, file.ReadAt(0xFFFFFFFC, bytes, 8));
    NOTE(_transcript, file.ReadAt(0, nullptr, 1));
}

TEST_F(MemFiles, BlocksGrowToTwiceTheEndAndAreKept) {
    const std::string chunk(IDX_WT_MemFile::FILE_MAX_SIZE, 'c');
    IDX_WT_MemFile file;
    NOTE(_transcript, file.OpenWrite(_path.c_str()));
    EXPECT_EQ(file.IsOpened(), IDX_False) << "no stream";
    EXPECT_EQ(lastSize, 34603008u);
    NOTE(_transcript, file.Write(chunk.data(), IDX_WT_MemFile::FILE_MAX_SIZE));
    NOTE(_transcript, file.Write(nullptr, 7));  // nothing to do
    hasMemory = false;
    NOTE(_transcript, file.Write("x", 1));
    NOTE(_transcript, file.WriteAt(0x40000000, "x", 1));
    NOTE(_transcript, file.WriteAt(0, nullptr, 1));
    hasMemory = true;
    lastSize = 0;
    NOTE(_transcript, file.WriteAt(0x7FFFFFFF, "x", 1));
    NOTE(_transcript, file.WriteAt(0xFFFFFFFF, "xy", 2));
    NOTE(_transcript, file.Write("x", 0xFFFFFFFF));
    EXPECT_EQ(lastSize, 0u) << "not even asked for";
    EXPECT_EQ(file.GetSize(), chunk.size());
    NOTE(_transcript, file.Write("x", 1));
    EXPECT_EQ(lastSize, 2 * (chunk.size() + 1));
    NOTE(_transcript, file.Close(true));
    EXPECT_TRUE(ContentOf(_path) == chunk + "x\0\0\0"s);

    lastSize = 0;
    file.OpenWrite((_path + "2").c_str());
    file.Close(true);
    file.OpenRead(PathOf("small"));
    file.Close(true);
    EXPECT_EQ(lastSize, 0u) << "the kept block was used again";
    file.OpenWrite((_path + "3").c_str());
    EXPECT_EQ(lastSize, chunk.size()) << "after a loaded file it counts as one of 5 bytes";

    NOTE(_transcript, file.OpenWrite(PathOf("four")));
    NOTE(_transcript, file.Write("5", 1));
    EXPECT_EQ(lastSize, 10u) << "a loaded file has no spare room";  // 8 of them in use
    hasMemory = false;
    NOTE(_transcript, file.Write("9a", 2));
    hasMemory = true;
    EXPECT_EQ(file.GetSize(), 10u) << "without its padding";
}

TEST_F(MemFiles, OpensThatFail) {
    IDX_WT_MemFile file;
    NOTE(_transcript, file.OpenRead((_path + "/file").c_str()));
    NOTE(_transcript, file.OpenWrite((_path + "/file").c_str()));
    hasMemory = false;
    NOTE(_transcript, file.OpenWrite(_path.c_str()));
    EXPECT_EQ(file.GetErrorCode(), IDX_S_OK);
    NOTE(_transcript, file.OpenRead(PathOf("content")));
    EXPECT_EQ(file.GetErrorCode(), IDX_E_OUT_OF_MEMORY);
    NOTE(_transcript, file.OpenWrite(_path.c_str()));
    NOTE(_transcript, file.Write("x", 1));
    hasMemory = true;
    canRead = false;
    NOTE(_transcript, file.OpenWrite(_path.c_str()));
    EXPECT_EQ(file.GetErrorCode(), IDX_S_OK);
    EXPECT_EQ(file.GetSize(), 7u);
    NOTE(_transcript, file.Write("x", 1));
    canRead = true;
    NOTE(_transcript, file.OpenWrite(_path.c_str()));
    NOTE(_transcript, file.Close());
    std::filesystem::resize_file(_path, 0x80000000);
    lastSize = 0;
    NOTE(_transcript, file.OpenRead(_path.c_str()));
    EXPECT_EQ(lastSize, 0u);
    const std::string pipe = _folder / "pipe";  // has no size
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    NOTE(_transcript, file.OpenWrite(pipe.c_str()));
}

TEST_F(MemFiles, ACloseThatCannotWriteCanBeTriedAgain) {
    IDX_WT_MemFile file;
    file.OpenWrite(_path.c_str());
    file.Write("12345678", 8);
    {
        const FileSizeLimit limit(6);
        NOTE(_transcript, file.Close());
        NOTE(_transcript, file.OpenRead(_path.c_str()));
    }
    NOTE(_transcript, file.WriteAt(8, "9", 1));
    NOTE(_transcript, file.Close());
    EXPECT_EQ(ContentOf(_path), "123456789\0\0\0"s);
    NOTE(_transcript, file.OpenWrite("/dev/full"));
    NOTE(_transcript, file.Write("1", 1));
    NOTE(_transcript, file.Close());
}
