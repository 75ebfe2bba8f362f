// System calls that fail: each call of a run once, and all from each call on. A write that was refused says
// so with its tag, and one that was taken is in the file, or its loss is told.

#include "FileCase.h"

#include "IDX_WT_File.h"
#include "IdxFile.h"

#include <cerrno>
#include <cstdio>
#include <dlfcn.h>
#include <sys/uio.h>
#include <vector>

namespace {

int calls = 0;
int firstRefused = 0;  ///< counted from 1
int lastRefused = 0;

/// Calls the genuine function, or gives what it gives when the disk is full.
template <class Result, class... Parameters, class... Arguments>
Result Call(Result (*)(Parameters...), const char* name, Result failure, Arguments... arguments) {
    ++calls;
    if (calls >= firstRefused && calls <= lastRefused) {
        errno = ENOSPC;
        return failure;
    }
    return reinterpret_cast<Result (*)(Parameters...)>(dlsym(RTLD_NEXT, name))(arguments...);
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

ssize_t pread(int d, void* data, size_t size, off_t at) {
    return Call(pread, "pread", ssize_t{-1}, d, data, size, at);
}

ssize_t pwrite(int d, const void* data, size_t size, off_t at) {
    return Call(pwrite, "pwrite", ssize_t{-1}, d, data, size, at);
}

ssize_t pwritev(int d, const struct iovec* pieces, int nPieces, off_t at) {
    return Call(pwritev, "pwritev", ssize_t{-1}, d, pieces, nPieces, at);
}

int fallocate(int d, int mode, off_t at, off_t size) {
    return Call(fallocate, "fallocate", -1, d, mode, at, size);
}

int fseek(FILE* stream, long offset, int whence) {
    return Call(fseek, "fseek", -1, stream, offset, whence);
}

FILE* fopen(const char* path, const char* mode) {
    return Call(fopen, "fopen", static_cast<FILE*>(nullptr), path, mode);
}

}  // extern "C"
#pragma GCC visibility pop

namespace {

/// What a file must hold: bytes, and whether a refused write left open what they are.
struct Expected {
    std::string bytes;
    std::vector<bool> open;

    void Put(unsigned int offset, const std::string& data, bool taken) {
        const std::size_t end = offset + data.size();
        if (bytes.size() < end) bytes.resize(end, '\0');
        open.resize(bytes.size(), !taken);
        for (std::size_t i = 0; i < data.size(); ++i) {
            if (taken) bytes[offset + i] = data[i];
            open[offset + i] = !taken;
        }
    }

    bool MeetsAt(std::size_t offset, const std::string& content) const {
        for (std::size_t i = 0; i < content.size(); ++i) {
            if (!open[offset + i] && content[i] != bytes[offset + i]) return false;
        }
        return true;
    }

    bool Meets(const std::string& content) const {
        std::size_t end = bytes.size();
        while (end > 0 && open[end - 1]) --end;
        return content.size() >= end && MeetsAt(0, content.substr(0, bytes.size()));
    }
};

class FailingFiles : public FileCase, public testing::WithParamInterface<std::size_t> {
protected:
    FailingFiles() { IdxFile::SetPageMemory(GetParam()); }
    ~FailingFiles() override { IdxFile::SetPageMemory(std::size_t{256} << 20U); }

    void Append(unsigned int size, char fill) {
        const std::string data(size, fill);
        const unsigned int offset = _file.GetSize();
        const bool taken = _file.Write(data.data(), size) == IDX_True;
        EXPECT_EQ(_trace.Take(), taken ? Lines{} : Lines{"IDX_WT_File.Write.fwrite"});
        EXPECT_EQ(_file.GetSize(), taken ? (offset + size + 3) & ~3u : offset);
        _expected.Put(offset, data, taken);
    }

    void Overwrite(unsigned int offset, unsigned int size, char fill) {
        const std::string data(size, fill);
        const bool taken = _file.WriteAt(offset, data.data(), size) == IDX_True;
        EXPECT_EQ(_trace.Take(), taken ? Lines{} : Lines{"IDX_WT_File.WriteAt.fwrite"});
        _expected.Put(offset, data, taken);
    }

    void Read(unsigned int offset, unsigned int size) {
        std::string data(size, ' ');
        const bool read = _file.ReadAt(offset, data.data(), size) == IDX_True;
        const Lines tags = _trace.Take();
        if (read) {
            EXPECT_EQ(tags, Lines());
            EXPECT_TRUE(_expected.MeetsAt(offset, data));
            return;
        }
        ASSERT_EQ(tags.size(), 1u);
        const bool mayBeShort = _expected.open.back();
        EXPECT_TRUE(
            tags[0] == "IDX_WT_File.ReadAt.fread[" + std::to_string(size) + "]" ||
            (mayBeShort && tags[0].rfind("IDX_WT_File.ReadAt.InvalidOffset", 0) == 0))
            << tags[0];
    }

    /// Opens, works and closes while calls fail. Gives the trace of closing.
    Lines Run(int from, int to) {
        const std::string path = _folder / "file";
        std::filesystem::remove(path);
        SetContent(path, std::string(9001, 'o'));
        _expected = {};
        _expected.Put(0, std::string(9001, 'o'), true);
        calls = 0;
        firstRefused = from;
        lastRefused = to;
        const bool opened = _file.OpenWrite(path.c_str()) == IDX_True;
        const Lines tags = _trace.Take();
        if (opened) {
            Work();
            _file.Flush();
            for (const std::string& tag : _trace.Take()) {
                EXPECT_EQ(tag, "IDX_WT_File.Flush.fflush");
            }
            Append(100, 'z');
        } else {
            EXPECT_TRUE(
                tags == Lines{"IDX_WT_File.OpenWrite.fopen"} ||
                tags == Lines{"IDX_WT_File.OpenRead.fseek"});
            EXPECT_EQ(_file.IsOpened(), IDX_False);
        }
        _file.Close();
        lastRefused = 0;
        return _trace.Take();
    }

    void Work() {
        Append(28, 'a');
        Append(5, 'b');
        Overwrite(4090, 20, 'c');
        for (char fill = 'd'; fill < 'p'; ++fill) Append(1500, fill);
        Read(4000, 200);
        Append(50000, 'p');
        Overwrite(20000, 28, 'q');
        Read(30000, 40000);
        for (unsigned int page = 0; page < 8; ++page) Overwrite(page * 8192 + 7, 28, 'r');
        Read(16000, 8300);
    }

    IDX_WT_File _file;
    Expected _expected;
};

}  // namespace

TEST_P(FailingFiles, OneFailureLosesNothingThatWasTaken) {
    EXPECT_EQ(Run(0, 0), Lines());
    EXPECT_TRUE(_expected.Meets(ContentOf(_folder / "file")));
    const int nCalls = calls;
    EXPECT_GT(nCalls, 5);
    for (int n = 1; n <= nCalls && !HasFailure(); ++n) {
        SCOPED_TRACE(n);
        Run(n, n);
        EXPECT_TRUE(_expected.Meets(ContentOf(_folder / "file")));
    }
}

TEST_P(FailingFiles, WhatIsLostToADeadDiskIsTold) {
    Run(0, 0);
    const int nCalls = calls;
    for (int n = 1; n <= nCalls && !HasFailure(); ++n) {
        SCOPED_TRACE(n);
        const Lines tags = Run(n, nCalls * 100);
        const bool met = _expected.Meets(ContentOf(_folder / "file"));
        EXPECT_TRUE(met || (!tags.empty() && tags.back() == "IDX_WT_File.Close.fclose"));
    }
}

INSTANTIATE_TEST_SUITE_P(
    PageMemory,
    FailingFiles,
    testing::Values(std::size_t{0}, std::size_t{2 * 4096}, std::size_t{256} << 20U));
