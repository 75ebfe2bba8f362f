// Random operations on real file systems with hardly a block left (FileOperations.h): each write that was taken is in
// the file, also when the disk has been taken off and put on again. Needs the right to mount.

#include "FileOperations.h"
#include "TemporaryFolder.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace {

struct FileSystem {
    const char* name;
    const char* make;  ///< the command that makes it in a file; empty: in memory
};

void PrintTo(const FileSystem& system, std::ostream* stream) {
    *stream << system.name;
}

bool Command(const std::string& command) {
    return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

/// With a disk of its own, in a space of mounts that goes with the process.
class FullDisks : public testing::TestWithParam<FileSystem> {
protected:
    void SetUp() override {
        if (unshare(CLONE_NEWNS) != 0 ||
            mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
            GTEST_SKIP() << "this process may not mount: " << std::strerror(errno);
        }
        std::filesystem::create_directory(_root);
        SetContent(_image, "");
        std::filesystem::resize_file(_image, std::size_t{320} << 20U);
        if (!IsInMemory() && !Command(GetParam().make + (" " + _image))) {
            GTEST_SKIP() << "can't be run here: " << GetParam().make;
        }
        _mount = IsInMemory() ? "mount -t tmpfs -o size=4m none " : "mount -o loop " + _image + " ";
        _mount += _root;
        if (!Command(_mount)) GTEST_SKIP() << "can't be done here: " << _mount;
        _isMounted = true;
    }

    void TearDown() override { EXPECT_TRUE(!_isMounted || Command("umount " + _root)); }

    bool IsInMemory() const { return *GetParam().make == '\0'; }

    /// Leaves blocks for some bytes. Before that the first file gets blocks ready after its end, so that its size in blocks says
    /// nothing of its holes; and, where the file system can, another file shares its blocks.
    void FillUp(off_t left) const {
        const std::string first = _root + "/p0";
        const int file = open(first.c_str(), O_RDWR);
        EXPECT_EQ(fallocate(file, FALLOC_FL_KEEP_SIZE, 1 << 16, 1 << 16), 0);
        close(file);
        EXPECT_TRUE(Command("cp --reflink=auto " + first + " " + _root + "/copy"));
        const int rest = open((_root + "/rest").c_str(), O_RDWR | O_CREAT, 0600);
        off_t end = 0;
        for (off_t size = 1 << 30; size >= 1024; size /= 2) {
            while (fallocate(rest, 0, end, size) == 0) end += size;
        }
        EXPECT_EQ(ftruncate(rest, end - left), 0);
        syncfs(rest);
        close(rest);
    }

    std::string AllFiles() const {
        std::string all;
        for (const char* name : {"/p0", "/p1", "/p2", "/p3"}) all += ContentOf(_root + name) + '\n';
        return all;
    }

    const TemporaryFolder _folder;
    const std::string _root = _folder / "disk";
    const std::string _image = _folder / "image";
    std::string _mount;
    bool _isMounted = false;
};

}  // namespace

TEST_P(FullDisks, WhatWasTakenIsInTheFile) {
    for (unsigned int seed = 0; seed < 4 && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        const auto bytes = RandomOperations(seed, 400, 0);
        const auto fillUp = [&] { FillUp(seed % 2 * 40000); };
        EXPECT_EQ(RunFileOperations(bytes.data(), bytes.size(), _root, fillUp), "");
        const std::string content = AllFiles();
        if (!IsInMemory()) {
            ASSERT_TRUE(Command("umount " + _root) && Command(_mount));
        }
        EXPECT_TRUE(AllFiles() == content);
        std::filesystem::remove(_root + "/rest");
    }
}

INSTANTIATE_TEST_SUITE_P(
    On,
    FullDisks,
    testing::Values(
        FileSystem{"Ext4", "mkfs.ext4 -q -b 4096"},
        FileSystem{"Ext4SmallBlocks", "mkfs.ext4 -q -b 1024"},
        FileSystem{"Ext4SmallFilesInRecords", "mkfs.ext4 -q -O inline_data"},
        FileSystem{"Btrfs", "mkfs.btrfs -q"},
        FileSystem{"Xfs", "mkfs.xfs -q"},
        FileSystem{"Memory", ""}),
    [](const auto& test) { return std::string(test.param.name); });
