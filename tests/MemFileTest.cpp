// Memory files by hand: the blocks and every failure; FileModelTest has random sequences. The program supplies
// the memory, so that it can run out and never starts as zeros.

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

class MemFiles : public FileCase {
protected:
    ~MemFiles() override { EXPECT_EQ(blocks, 0) << "every block was given back"; }

    const char* PathOf(const std::string& content) {
        SetContent(_path, content);
        return _path.c_str();
    }

    std::string _path = _folder / "file";
};

}  // namespace

TEST_F(MemFiles, ReadsBehindTheEnd) {
    IDX_WT_MemFile file;
    Expect(file.OpenRead(PathOf("abcd5")));
    char bytes[8] = {};
    Expect(file.ReadAt(5, bytes, 0));
    const std::string tag = "IDX_WT_MemFile.ReadAt.Offset overflow: ";
    Expect(file.ReadAt(6, bytes, 0), {tag + "iOffset 6, iDataSize 0, m_writtenSize 5"});
    Expect(
        file.ReadAt(0xFFFFFFFC, bytes, 8),
        {tag + "iOffset 4294967292, iDataSize 8, m_writtenSize 5"});
    Expect(file.ReadAt(0, nullptr, 1), {"IDX_WT_MemFile.ReadAt.InvalidInputData"});
}

TEST_F(MemFiles, BlocksGrowToTwiceTheEndAndAreKept) {
    const std::string chunk(IDX_WT_MemFile::FILE_MAX_SIZE, 'c');
    IDX_WT_MemFile file;
    Expect(file.OpenWrite(_path.c_str()));
    EXPECT_EQ(file.IsOpened(), IDX_False) << "no stream";
    EXPECT_EQ(lastSize, 34603008u);
    Expect(file.Write(chunk.data(), IDX_WT_MemFile::FILE_MAX_SIZE));
    Expect(file.Write(nullptr, 7));  // nothing to do
    hasMemory = false;
    Expect(file.Write("x", 1), {"IDX_WT_MemFile.Write.ResizeIfNeeded"});
    Expect(file.WriteAt(0x40000000, "x", 1), {"IDX_WT_MemFile.WriteAt.ResizeIfNeeded"});
    Expect(file.WriteAt(0, nullptr, 1), {"IDX_WT_MemFile.WriteAt.InvalidData"});
    hasMemory = true;
    lastSize = 0;
    Expect(file.WriteAt(0x7FFFFFFF, "x", 1), {"IDX_WT_MemFile.WriteAt.ResizeIfNeeded"});
    Expect(file.WriteAt(0xFFFFFFFF, "xy", 2), {"IDX_WT_MemFile.WriteAt.ResizeIfNeeded"});
    Expect(file.Write("x", 0xFFFFFFFF), {"IDX_WT_MemFile.Write.ResizeIfNeeded"});
    EXPECT_EQ(lastSize, 0u) << "not even asked for";
    EXPECT_EQ(file.GetSize(), chunk.size());
    Expect(file.Write("x", 1));
    EXPECT_EQ(lastSize, 2 * (chunk.size() + 1));
    Expect(file.Close(true));
    EXPECT_TRUE(ContentOf(_path) == chunk + "x\0\0\0"s);

    lastSize = 0;
    Expect(file.OpenWrite((_folder / "new").c_str()));
    Expect(file.Close(true));
    Expect(file.OpenRead(PathOf("small")));
    EXPECT_EQ(lastSize, 0u) << "the kept block was used again";
    Expect(file.Close(true));
    Expect(file.OpenWrite((_folder / "newer").c_str()));
    EXPECT_EQ(lastSize, chunk.size()) << "after a loaded file it counts as one of 5 bytes";

    Expect(file.OpenWrite(PathOf("four")));
    Expect(file.Write("5", 1));
    EXPECT_EQ(lastSize, 10u) << "a loaded file has no spare room";  // 8 of them in use
    hasMemory = false;
    Expect(
        file.Write("9a", 2),
        {"IDX_WT_MemFile.Write.ResizeIfNeeded", "IDX_WT_MemFile.Write (alignment)"});
    hasMemory = true;
    EXPECT_EQ(file.GetSize(), 10u) << "without its padding";
}

TEST_F(MemFiles, OpensThatFail) {
    IDX_WT_MemFile file;
    const std::string lost = _folder / "none/file";
    const char* read = "IDX_WT_MemFile.OpenRead.ReadFile";
    const char* write = "IDX_WT_MemFile.OpenWrite.ReadFile";
    const char* noMemory = "IDX_WT_MemFile.ReadFile : Failed to allocate file in memory!";
    Expect(file.OpenRead(lost.c_str()), {"IDX_WT_MemFile.OpenWrite.fopen", read});
    Expect(file.OpenWrite(lost.c_str()), {"IDX_WT_MemFile.OpenWrite.fopen"});
    hasMemory = false;
    Expect(file.OpenWrite(_path.c_str()), {"IDX_WT_MemFile.OpenWrite.VEXUnsecuredMemAlloc failed"});
    EXPECT_EQ(file.GetErrorCode(), IDX_S_OK);
    Expect(file.OpenRead(PathOf("content")), {noMemory, read});
    EXPECT_EQ(file.GetErrorCode(), IDX_E_OUT_OF_MEMORY);
    Expect(file.OpenWrite(_path.c_str()), {noMemory, write});
    Refused(file.Write("x", 1));
    hasMemory = true;
    canRead = false;
    Expect(file.OpenWrite(_path.c_str()), {"IDX_WT_MemFile.ReadFile.fread", write});
    EXPECT_EQ(file.GetErrorCode(), IDX_S_OK);
    EXPECT_EQ(file.GetSize(), 7u);
    Refused(file.Write("x", 1));
    canRead = true;
    Expect(file.OpenWrite(_path.c_str()));
    Expect(file.Close());
    std::filesystem::resize_file(_path, 0x80000000);
    lastSize = 0;
    Expect(file.OpenRead(_path.c_str()), {noMemory, read});
    EXPECT_EQ(lastSize, 0u);
    const std::string pipe = _folder / "pipe";  // has no size
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    Expect(file.OpenWrite(pipe.c_str()), {"IDX_WT_MemFile.ReadFile.fread", write});
}

TEST_F(MemFiles, ACloseThatCantWriteCanBeTriedAgain) {
    const char* tag = "IDX_WT_MemoryFile.Close.fwrite";
    IDX_WT_MemFile file;
    Expect(file.OpenWrite(_path.c_str()));
    Expect(file.Write("12345678", 8));
    {
        const FileSizeLimit limit(6);
        Expect(file.Close(), {tag});
        Expect(file.OpenRead(_path.c_str()), {tag});
    }
    Expect(file.WriteAt(8, "9", 1));
    Expect(file.Close());
    EXPECT_EQ(ContentOf(_path), "123456789\0\0\0"s);
    IDX_WT_MemFile full;
    Expect(full.OpenWrite("/dev/full"));
    Expect(full.Write("1", 1));
    Expect(full.Close(), {tag});
}
