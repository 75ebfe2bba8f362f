// Random sequences of operations over several objects that share files, beside a flat model: a string
// of bytes for each file, and a mode and a size for each spelling of its path.

#include "FileCase.h"

#include "IDX_WT_File.h"
#include "IdxFile.h"

#include <random>

namespace {

enum Mode { Closed, Reading, Writing };

struct ModelEntry {
    std::string path;
    std::string* content;  ///< of the file, shared by all spellings of its path
    Mode mode = Closed;
    unsigned int size = 0;
};

std::string PastTheEnd(unsigned int offset, unsigned int fileSize, unsigned int size) {
    return "IDX_WT_File.ReadAt.InvalidOffset[fOffset=" + std::to_string(offset) +
           ",fSize=" + std::to_string(fileSize) + ",dSize=" + std::to_string(size) + "]";
}

class FileModel : public FileCase, public testing::WithParamInterface<std::size_t> {
protected:
    static constexpr unsigned int kObjects = 4;

    FileModel() {
        for (const ModelEntry& entry : _entries) SetContent(entry.path, "");
    }

    void TearDown() override {
        for (IDX_WT_File& file : _files) file.Close();
        IdxFile::SetPageMemory(std::size_t{256} << 20U);
    }

    unsigned int Random(unsigned int bound) { return static_cast<unsigned int>(_random() % bound); }

    /// Mostly records of a few bytes, now and then about a page, now and then an image.
    unsigned int RandomSize() {
        const unsigned int kind = Random(40);
        if (kind == 0) return 30000 + Random(40000);
        return kind < 5 ? 4090 + Random(12) : 1 + Random(40);
    }

    unsigned int RandomOffset(const ModelEntry& entry) {
        return Random(20) == 0 ? entry.size + Random(20000) : Random(entry.size + 10);
    }

    std::string RandomBytes(unsigned int size) {
        std::string bytes(size, ' ');
        for (char& byte : bytes) byte = static_cast<char>(_random());
        return bytes;
    }

    /// The model's write: bytes before it that aren't there are zero.
    static void Put(ModelEntry& entry, unsigned int offset, const std::string& bytes) {
        std::string& content = *entry.content;
        if (content.size() < offset + bytes.size()) content.resize(offset + bytes.size(), '\0');
        content.replace(offset, bytes.size(), bytes);
        const auto end = static_cast<unsigned int>(offset + bytes.size());
        if (end > entry.size) entry.size = (end + 3) & ~3u;
    }

    void Open(unsigned int object);
    void Write(unsigned int object, bool appends);
    void Read(unsigned int object);
    void Release(unsigned int object, bool close);
    void Step();

    std::string _a;
    std::string _b;
    ModelEntry _entries[3] = {
        {_folder / "a",   &_a},
        {_folder / "./a", &_a},
        {_folder / "b",   &_b}
    };
    IDX_WT_File _files[kObjects];
    ModelEntry* _of[kObjects] = {};
    std::mt19937_64 _random;
};

void FileModel::Open(unsigned int object) {
    ModelEntry& entry = _entries[Random(3)];
    const bool write = entry.mode == Closed ? Random(3) != 0 : entry.mode == Writing;
    if (write && _of[object] != nullptr) _of[object]->mode = Closed;
    // The other spelling sees what is in the file.
    for (IDX_WT_File& file : _files) file.Flush();
    const char* path = entry.path.c_str();
    Expect(write ? _files[object].OpenWrite(path) : _files[object].OpenRead(path));
    if (entry.mode == Closed) {
        entry.size = static_cast<unsigned int>(entry.content->size());
        if (write) entry.size = (entry.size + 3) & ~3u;
    }
    entry.mode = write ? Writing : Reading;
    _of[object] = &entry;
}

void FileModel::Write(unsigned int object, bool appends) {
    const std::string bytes = RandomBytes(RandomSize());
    const auto size = static_cast<unsigned int>(bytes.size());
    IDX_WT_File& file = _files[object];
    ModelEntry& entry = *_of[object];
    const unsigned int offset = appends ? entry.size : RandomOffset(entry);
    const bool isOpen = entry.mode == Writing;
    Expect(
        appends ? file.Write(bytes.data(), size) : file.WriteAt(offset, bytes.data(), size),
        isOpen ? Lines() : Lines{"IDX_WT_File.Write.InvalidFile"});
    if (isOpen) Put(entry, offset, bytes);
}

void FileModel::Read(unsigned int object) {
    const ModelEntry& entry = *_of[object];
    const unsigned int offset = RandomOffset(entry);
    std::string bytes(RandomSize(), ' ');
    const auto size = static_cast<unsigned int>(bytes.size());
    const IDX_Bool result = _files[object].ReadAt(offset, bytes.data(), size);
    if (entry.mode == Closed) return Expect(result, {"IDX_WT_File.ReadAt.InvalidFile"});
    if (offset + size > entry.content->size()) {
        return Expect(result, {PastTheEnd(offset, entry.size, size)});
    }
    Expect(result);
    EXPECT_EQ(bytes, entry.content->substr(offset, size));
}

void FileModel::Release(unsigned int object, bool close) {
    ModelEntry& entry = *_of[object];
    const bool writing = entry.mode == Writing;
    if (close) {
        EXPECT_EQ(_files[object].Close(), IDX_True);
        entry.mode = Closed;
    } else {
        _files[object].Flush();
    }
    EXPECT_TRUE(!writing || ContentOf(entry.path) == *entry.content) << entry.path;
}

void FileModel::Step() {
    const unsigned int object = Random(kObjects);
    const unsigned int kind = Random(100);
    if (kind < 4) return Open(object);
    if (kind < 5) return Release(object, true);
    if (kind < 8) return Release(object, false);
    return kind < 65 ? Write(object, kind < 35) : Read(object);
}

}  // namespace

TEST_P(FileModel, AgreesOnResultsSizesBytesAndTrace) {
    for (unsigned int seed = 0; seed < 40; ++seed) {
        SCOPED_TRACE(seed);
        _random.seed(seed);
        IdxFile::SetPageMemory(GetParam());
        for (unsigned int object = 0; object < kObjects; ++object) Open(object);
        for (int step = 0; step < 400 && !HasFailure(); ++step) {
            Step();
            for (unsigned int i = 0; i < kObjects; ++i) {
                EXPECT_EQ(_files[i].GetSize(), _of[i]->size);
                EXPECT_EQ(_files[i].IsOpened() == IDX_True, _of[i]->mode != Closed);
                EXPECT_EQ(_files[i].IsReadWrite() == IDX_True, _of[i]->mode == Writing);
            }
        }
        for (unsigned int object = 0; object < kObjects; ++object) Release(object, true);
        if (HasFailure()) return;
    }
}

// None, fewer than the files have, the usual.
INSTANTIATE_TEST_SUITE_P(
    PageMemory,
    FileModel,
    testing::Values(std::size_t{0}, std::size_t{5 * 4096}, std::size_t{256} << 20U));
