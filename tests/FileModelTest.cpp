// Random operations on files beside plain bytes (FileOperations.h), on sound disks and on disks that fail at each call.

#include "FailingCalls.h"
#include "FileOperations.h"
#include "FromEnvironment.h"
#include "TemporaryFolder.h"

#include "IDX_Base_Trace.h"
#include "IDX_WT_File.h"
#include "IdxFile.h"

#include <gtest/gtest.h>

namespace {

using Bytes = std::vector<std::uint8_t>;

class FileModel : public testing::TestWithParam<unsigned int> {
protected:
    void Agrees(Bytes bytes) {
        bytes[0] = static_cast<std::uint8_t>(GetParam());
        EXPECT_EQ(RunFileOperations(bytes.data(), bytes.size(), _folder / ""), "");
    }

    const TemporaryFolder _folder;
};

}  // namespace

TEST_P(FileModel, OnSoundAndChangingDisks) {
    const unsigned long nRuns = FromEnvironment("GRIDLOOM_FILE_RUNS", 160);
    for (unsigned int seed = 0; seed < nRuns && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        unsigned int may = seed % 8 == 0 ? kFarOffsets : 0u;
        if (seed % 2 == 0) may |= kMoreDisks;
        Agrees(RandomOperations(seed, 600, may));
    }
}

TEST_P(FileModel, OnADiskThatFailsAtEachCall) {
    for (unsigned int seed = 0; seed < 2; ++seed) {
        Bytes bytes = RandomOperations(seed, 200, kNoRepair);
        Agrees(bytes);
        const int nCalls = failingCalls.calls;
        for (int n = 0; n < nCalls && !HasFailure(); ++n) {
            SCOPED_TRACE(testing::Message() << "seed " << seed << " call " << n);
            bytes[5] = static_cast<std::uint8_t>(n);
            bytes[6] = static_cast<std::uint8_t>(n / 256);
            for (const Disk disk : {Disk::Dead, Disk::Full, Disk::Short}) {
                for (const std::uint8_t count : Bytes{1, 255}) {
                    bytes[4] = static_cast<std::uint8_t>(disk);
                    bytes[7] = count;
                    Agrees(bytes);
                }
            }
        }
    }
}

// The usual memory for pages, none, fewer than the files have.
INSTANTIATE_TEST_SUITE_P(PageMemory, FileModel, testing::Values(0u, 1u, 4u));

/// Files that are open when the process ends.
TEST(EndOfTheProcess, WritesWhatWaitsOrTracesThatItCannot) {
    const TemporaryFolder folder;
    const std::string path = folder / "file";
    const auto child = [&](Disk disk) {
        IDX_Base_Trace::SetSink(
            [](IDX_Base_Trace::Level, const char* line, void*) { std::fputs(line, stderr); },
            nullptr);
        static auto* const file = new IDX_WT_File;  // left open
        file->OpenWrite(path.c_str());
        file->WriteAt(100, "new", 3);
        if (ContentOf(path)[100] == 'n') std::fputs("nothing is held here", stderr);
        failingCalls.Start(disk, 0, 1000000);
        std::exit(0);
    };
    SetContent(path, std::string(8192, '.'));
    EXPECT_EXIT(
        child(Disk::Dead), testing::ExitedWithCode(0),
        "^(IDX_WT_File.Close.fclose|nothing is held here)");
    EXPECT_EXIT(child(Disk::Sound), testing::ExitedWithCode(0), "^(nothing is held here)?$");
    EXPECT_EQ(ContentOf(path), std::string(100, '.') + "new" + std::string(8089, '.'));
}

TEST(PageMemory, LessOfItLosesNothingOnADeadDisk) {
    const TemporaryFolder folder;
    const std::string path = folder / "file";
    SetContent(path, std::string(8192, '.'));
    IDX_WT_File file;
    ASSERT_EQ(file.OpenWrite(path.c_str()), IDX_True);
    ASSERT_EQ(file.WriteAt(100, "new", 3), IDX_True);  // waits, where it may
    failingCalls.Start(Disk::Dead, 0, 1000000);
    IdxFile::SetPageMemory(0);
    failingCalls.Stop();
    IdxFile::SetPageMemory(std::size_t{256} << 20U);
    file.Close();
    EXPECT_EQ(ContentOf(path).substr(100, 3), "new");
}
