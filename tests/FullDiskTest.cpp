// Real file systems with no room left: each write that was taken is in the file when the disk has been taken off and
// put on again, and each other one was refused with its tag. Needs the right to mount.

#include "FileCase.h"
#include "FlatFile.h"

#include "IDX_WT_File.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace {

struct Disk {
    const char* name;
    const char* make;   ///< the command that makes it in a file; empty: in memory
    bool takesInPlace;  ///< a block that is there is written where it lies
};

void PrintTo(const Disk& disk, std::ostream* stream) {
    *stream << disk.name;
}

constexpr std::size_t kPage = 4096;
constexpr std::size_t kOldPages = 200;
constexpr std::size_t kHoleFrom = 50;
constexpr std::size_t kHoleTo = 80;
const std::string kRecord = "a record of twenty-eight byt";

/// With a disk of its own, in a space of mounts that goes with the process.
class FullDisks : public FileCase, public testing::WithParamInterface<Disk> {
protected:
    void SetUp() override {
        if (unshare(CLONE_NEWNS) != 0 ||
            mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
            GTEST_SKIP() << "this process may not mount: " << std::strerror(errno);
        }
        std::filesystem::create_directory(_root);
        if (*GetParam().make == '\0') {
            _mount = "mount -t tmpfs -o size=4m none " + _root;
        } else {
            SetContent(_image, "");
            std::filesystem::resize_file(_image, std::size_t{320} << 20U);
            if (!Run(GetParam().make + (" " + _image))) {
                GTEST_SKIP() << "can't be run here: " << GetParam().make;
            }
            _mount = "mount -o loop " + _image + " " + _root;
        }
        if (!Run(_mount)) GTEST_SKIP() << "can't be done here: " << _mount;
        _isMounted = true;
    }

    void TearDown() override { EXPECT_TRUE(!_isMounted || Run("umount " + _root)); }

    static bool Run(const std::string& command) {
        return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
    }

    /// The file as it was before: a hole of which its size in blocks says nothing, since as many blocks lie ready
    /// behind its end; and, where the file system can, another file shares the blocks.
    void MakeOldFile() {
        SetContent(_path, std::string(kOldPages * kPage, 'o'));
        const int file = open(_path.c_str(), O_RDWR);
        constexpr off_t from = kHoleFrom * kPage;
        constexpr off_t size = (kHoleTo - kHoleFrom) * kPage;
        constexpr off_t end = kOldPages * kPage;
        ASSERT_EQ(fallocate(file, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, from, size), 0);
        ASSERT_EQ(fallocate(file, FALLOC_FL_KEEP_SIZE, end, size), 0);
        fsync(file);
        close(file);
        ASSERT_TRUE(Run("cp --reflink=auto " + _path + " " + _root + "/copy"));
        _expected.Set(0, ContentOf(_path));
    }

    /// Takes all blocks but for some hundred.
    void FillUp() {
        const int file = open((_root + "/rest").c_str(), O_RDWR | O_CREAT, 0600);
        off_t end = 0;
        for (off_t size = 1 << 30; size >= 1024; size /= 2) {
            while (fallocate(file, 0, end, size) == 0) end += size;
        }
        ASSERT_EQ(ftruncate(file, end - 300000), 0);
        fsync(file);
        close(file);
        sync();
    }

    /// Each gives whether the write was taken.
    bool Append() {
        const unsigned int offset = _file.GetSize();
        return Wrote(offset, _file.Write(kRecord.data(), 28), "IDX_WT_File.Write.fwrite");
    }

    bool Overwrite(std::size_t offset) {
        const auto at = static_cast<unsigned int>(offset);
        return Wrote(offset, _file.WriteAt(at, kRecord.data(), 28), "IDX_WT_File.WriteAt.fwrite");
    }

    bool Wrote(std::size_t offset, IDX_Bool result, const char* tag) {
        const bool taken = result == IDX_True;
        EXPECT_EQ(_trace.Take(), taken ? Lines() : Lines{tag});
        _expected.Write(offset, kRecord, taken);
        return taken;
    }

    /// Takes the disk off and puts it on again, and looks at what is there.
    void CloseAndCompare(const std::string& path) {
        _file.Close();
        EXPECT_EQ(_trace.Take(), Lines());
        if (*GetParam().make != '\0') {
            ASSERT_TRUE(Run("umount " + _root));
            ASSERT_TRUE(Run(_mount));
        }
        _expected.Flushed();
        EXPECT_TRUE(_expected.Allows(ContentOf(path)));
    }

    const std::string _root = _folder / "disk";
    const std::string _image = _folder / "image";
    const std::string _path = _root + "/file";
    std::string _mount;
    bool _isMounted = false;
    IDX_WT_File _file;
    FlatFile _expected;
};

}  // namespace

TEST_P(FullDisks, WhatWasTakenIsInTheFile) {
    MakeOldFile();
    FillUp();
    Expect(_file.OpenWrite(_path.c_str()));
    int nTaken = 0;
    int nRefused = 0;
    while (nRefused < 100 && nTaken < 100000) ++(Append() ? nTaken : nRefused);
    EXPECT_GT(nTaken, 2000);
    EXPECT_LT(nTaken, 100000);
    for (int round = 0; round < 2; ++round) {
        const std::size_t at = 100 + 1000 * static_cast<std::size_t>(round);
        for (std::size_t page = 0; page < kOldPages - 1; ++page) {
            const bool isHole = page >= kHoleFrom && page < kHoleTo;
            const bool taken = Overwrite(page * kPage + at);
            EXPECT_TRUE(taken || isHole || !GetParam().takesInPlace) << page;
        }
        _file.Flush();
        EXPECT_EQ(_trace.Take(), Lines());
        EXPECT_TRUE(_expected.Allows(ContentOf(_path)));
    }
    for (std::size_t page = 0; page < kOldPages; ++page) Overwrite(page * kPage + 4080);
    CloseAndCompare(_path);

    // The first bytes of a small file may need no block, and the next ones one.
    const std::string small = _root + "/small";
    _expected = {};
    if (_file.OpenWrite(small.c_str()) != IDX_True) return;
    for (int i = 0; i < 300; ++i) Append();
    CloseAndCompare(small);
}

INSTANTIATE_TEST_SUITE_P(
    On,
    FullDisks,
    testing::Values(
        Disk{"Ext4", "mkfs.ext4 -q -b 4096", true},
        Disk{"Ext4SmallBlocks", "mkfs.ext4 -q -b 1024", true},
        Disk{"Ext4SmallFilesInRecords", "mkfs.ext4 -q -O inline_data", true},
        Disk{"Btrfs", "mkfs.btrfs -q", false},
        Disk{"Xfs", "mkfs.xfs -q", false},
        Disk{"Memory", "", true}),
    [](const auto& disk) { return std::string(disk.param.name); });
