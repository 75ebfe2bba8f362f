// Random operations on files beside plain bytes (FileOperations.h), on sound disks and on disks that fail at each call.

#include "FailingCalls.h"
#include "FileCase.h"
#include "FileOperations.h"
#include "FromEnvironment.h"

#include "IDX_WT_File.h"

#include <random>

namespace {

using Bytes = std::vector<std::uint8_t>;

class FileModel : public FileCase, public testing::WithParamInterface<unsigned int> {
protected:
    /// The operations of a seed. @param may  what may happen
    Bytes Operations(unsigned int seed, std::size_t size, unsigned int may) {
        std::mt19937 random(seed);
        Bytes bytes(size);
        for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
        bytes[0] = static_cast<std::uint8_t>(GetParam());
        bytes[2] = static_cast<std::uint8_t>(may);
        bytes[3] = static_cast<std::uint8_t>(may / 256);
        bytes[4] = 0;  // a sound disk
        return bytes;
    }

    void Agrees(const Bytes& bytes) {
        EXPECT_EQ(RunFileOperations(bytes.data(), bytes.size(), _folder / ""), "");
    }
};

}  // namespace

TEST_P(FileModel, OnSoundAndChangingDisks) {
    const unsigned long nRuns = FromEnvironment("GRIDLOOM_FILE_RUNS", 160);
    for (unsigned int seed = 0; seed < nRuns && !HasFailure(); ++seed) {
        SCOPED_TRACE(seed);
        unsigned int may = seed % 8 == 0 ? kFarOffsets : 0u;
        if (seed % 8 == 1) may |= kForks | kExits;
        if (seed % 2 == 0) may |= kMoreDisks;
        Agrees(Operations(seed, 600, may));
    }
}

TEST_P(FileModel, OnADiskThatFailsAtEachCall) {
    for (unsigned int seed = 0; seed < 2; ++seed) {
        Bytes bytes = Operations(seed, 200, kNoRepair);
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

using FailingEnd = FileCase;

TEST_F(FailingEnd, OfTheProcessIsTraced) {
    SetContent(_folder / "file", std::string(8192, '.'));
    const auto child = [&] {
        IDX_Base_Trace::SetSink(
            [](IDX_Base_Trace::Level, const char* line, void*) { std::fputs(line, stderr); },
            nullptr);
        static auto* const file = new IDX_WT_File;  // left open
        file->OpenWrite((_folder / "file").c_str());
        file->WriteAt(100, "x", 1);
        if (ContentOf(_folder / "file")[100] == 'x') std::fputs("nothing is held here", stderr);
        failingCalls.Start(Disk::Dead, 0, 1000000);
        std::exit(0);
    };
    EXPECT_EXIT(
        child(), testing::ExitedWithCode(0), "IDX_WT_File.Close.fclose|nothing is held here");
}
