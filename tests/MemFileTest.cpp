// Memory files by hand: the blocks and every failure; FileModelTest has random sequences. The program supplies
// the memory, so that it can run out and never starts as zeros.

#include "FileCase.h"
#include "Transcript.h"

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

TEST_F(MemFiles, FailuresNameEachStep) {
    Transcript all;
    char bytes[8] = {};
    IDX_WT_MemFile file;
    all.Title("reads past the end");
    NOTE(all, file.OpenRead(PathOf("abcd5")));
    NOTE(all, file.ReadAt(5, bytes, 0));
    NOTE(all, file.ReadAt(6, bytes, 0));
    NOTE(all, file.ReadAt(0xFFFFFFFC, bytes, 8));
    NOTE(all, file.ReadAt(0, nullptr, 1));
    file.Close();

    all.Title("no such folder; no memory; a disk that can't be read");
    const std::string lost = _folder / "none/file";
    NOTE(all, file.OpenRead(lost.c_str()));
    NOTE(all, file.OpenWrite(lost.c_str()));
    hasMemory = false;
    std::filesystem::remove(_path);
    NOTE(all, file.OpenWrite(_path.c_str()));
    NOTE(all, file.GetErrorCode());
    NOTE(all, file.OpenRead(PathOf("content")));
    NOTE(all, file.GetErrorCode());
    NOTE(all, file.OpenWrite(_path.c_str()));
    NOTE(all, file.Write("x", 1));
    hasMemory = true;
    canRead = false;
    NOTE(all, file.OpenWrite(_path.c_str()));
    NOTE(all, file.GetErrorCode());
    EXPECT_EQ(file.GetSize(), 7u);
    NOTE(all, file.Write("x", 1));
    canRead = true;
    NOTE(all, file.OpenWrite(_path.c_str()));
    NOTE(all, file.Close());

    all.Title("2^31 bytes, and a pipe, which has no size");
    std::filesystem::resize_file(_path, 0x80000000);
    lastSize = 0;
    NOTE(all, file.OpenRead(_path.c_str()));
    EXPECT_EQ(lastSize, 0u) << "not even asked for";
    const std::string pipe = _folder / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    NOTE(all, file.OpenWrite(pipe.c_str()));

    all.Title("a close that can't write may be tried again");
    std::filesystem::remove(_path);
    NOTE(all, file.OpenWrite(_path.c_str()));
    NOTE(all, file.Write("12345678", 8));
    {
        const FileSizeLimit limit(6);
        NOTE(all, file.Close());
        NOTE(all, file.OpenRead(_path.c_str()));
    }
    NOTE(all, file.WriteAt(8, "9", 1));
    NOTE(all, file.Close());
    EXPECT_EQ(ContentOf(_path), "123456789\0\0\0"s);
    NOTE(all, file.OpenWrite("/dev/full"));
    NOTE(all, file.Write("1", 1));
    NOTE(all, file.Close());
}
