#include "FileOperations.h"

#include "FailingCalls.h"
#include "FlatFile.h"
#include "TemporaryFolder.h"
#include "TraceRecorder.h"

#include "IDX_WT_File.h"
#include "IDX_WT_MemFile.h"
#include "IDX_WT_SplittedFile.h"
#include "IdxFile.h"
#include "VEXFile.h"

#include <algorithm>
#include <fcntl.h>
#include <memory>
#include <random>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr std::size_t kLimit = 0x80000000u;  ///< no file reaches it
constexpr int kPieces = 4;
constexpr int kEntries = kPieces + 2;
constexpr std::size_t kUsualMemory = std::size_t{256} << 20U;

std::function<void(const std::string&)> onDelete;

}  // namespace

/// The program's own service, which the library calls in place of its own.
long int VEXDeleteFile(const char* path) {
    if (onDelete) onDelete(path);
    return unlink(path) == 0 ? 0 : -1;
}

namespace {

void Check(bool holds, const std::string& what, const Lines& traced = {}) {
    if (holds) return;
    std::string text = what;
    for (const std::string& line : traced) text += ", " + line;
    throw std::runtime_error(text);
}

/// The bytes of the run, read from front to back; zeros follow the last one.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : _next(data), _end(data + size) {}
    bool IsAtEnd() const { return _next == _end; }
    unsigned int Byte() { return IsAtEnd() ? 0u : *_next++; }
    unsigned int Short() {
        const unsigned int low = Byte();
        return low + 256 * Byte();
    }

private:
    const std::uint8_t* _next;
    const std::uint8_t* _end;
};

/// A file of the disk, seen by this program past the library.
struct PlainFile {
    FlatFile flat;
    int descriptor = -1;
    bool isLost = false;  ///< the library has reported that bytes are lost

    std::size_t Size() const {
        struct stat status = {};
        fstat(descriptor, &status);
        return static_cast<std::size_t>(status.st_size);
    }

    std::string Read(std::size_t offset, std::size_t size) const {
        std::string data(size, ' ');
        lseek(descriptor, static_cast<off_t>(offset), SEEK_SET);
        const ssize_t n = read(descriptor, data.data(), size);
        data.resize(static_cast<std::size_t>(std::max<ssize_t>(n, 0)));
        return data;
    }

    void Write(std::size_t offset, const std::string& data) const {
        lseek(descriptor, static_cast<off_t>(offset), SEEK_SET);
        Check(write(descriptor, data.data(), data.size()) >= 0, "a write of the test's own");
    }
};

enum Mode { Closed, Reading, Writing };

/// A name under which a file is opened.
struct Entry {
    std::string path;
    PlainFile* file;
    Mode mode = Closed;
    unsigned int size = 0;
};

unsigned int Align(std::size_t size) {
    return static_cast<unsigned int>((size + 3) & ~std::size_t{3});
}

unsigned int Narrow(std::size_t number) {
    return static_cast<unsigned int>(number);
}

class Run {
public:
    Run(const Input& input, const std::string& folder) : _input(input), _base(folder + "/p") {
        for (int i = 0; i < kPieces; ++i) {
            _entries[i] = {_base + std::to_string(i), &_files[i]};
            const char* path = _entries[i].path.c_str();
            _files[i].descriptor = open(path, O_RDWR | O_CREAT | O_TRUNC, 0600);
            Check(_files[i].descriptor >= 0, "a file of the test's own");
        }
        _entries[kPieces] = {folder + "/./p0", &_files[0]};
        _entries[kPieces + 1] = {folder + "/link", &_files[0]};
        (void)link(_entries[0].path.c_str(), (folder + "/link").c_str());  // may be there
        onDelete = [this](const std::string& lock) {  // without a lock a piece is whole
            const Entry& piece = _entries[lock[_base.size()] - '0'];
            if (piece.mode == Writing && !CanFail()) CheckDisk(*piece.file);
        };
    }

    ~Run() {
        failingCalls.Stop();
        onDelete = nullptr;
        for (const PlainFile& file : _files) close(file.descriptor);
        IdxFile::SetPageMemory(kUsualMemory);
    }

    /// @param fillUp  leaves no block on the disk; empty: there are enough
    void All(const std::function<void()>& fillUp) {
        SetPageMemory();
        const std::string old = Data(_input.Byte() * 157);
        _files[0].Write(0, old);
        _files[0].flat.Set(0, old);
        _may = _input.Short();
        ChangeDisk();
        _slots.assign(1 + _may / 0x800 % 3, -1);
        _split = std::make_unique<IDX_WT_SplittedFile>(Limit(), Narrow(_slots.size()), UsesLocks());
        if (fillUp) fillUp();
        _isFull = fillUp != nullptr;
        for (_chosen = 0; _chosen < 2; ++_chosen) Open();
        while (!_input.IsAtEnd()) {
            Step();
            CheckStates();
        }
        Finish();
    }

private:
    bool May(unsigned int what) const { return (_may & what) == what; }
    bool CanFail() const { return failingCalls.disk == Disk::Dead; }
    bool HasBlocks() const { return !CanFail() && !_isFull; }  ///< for what needs some
    IDX_WT_File& Object() { return _objects[_chosen]; }

    // Operands.

    /// Mostly of a record of a few bytes, else of about a page or an image.
    std::size_t Size() {
        const std::size_t byte = _input.Byte();
        if (byte < 200) return 1 + byte % 64;
        return byte < 240 ? 4076 + byte - 200 : 5000 + (byte - 240) * 777;
    }

    std::size_t Offset(std::size_t end) {
        const std::size_t byte = _input.Byte();
        if (byte < 128) return _input.Short() % (end + 10);
        if (byte < 200) return _input.Short();
        if (byte < 230) return (byte - 200) * FlatFile::kPage + _input.Byte() % 64;
        if (byte < 240 || !May(kFarOffsets)) return end - std::min<std::size_t>(end, _input.Byte());
        return kLimit + 40 - std::min(_input.Short() % 6000, 40 + _input.Byte() * 20);
    }

    /// Other bytes each time.
    std::string Data(std::size_t size) {
        ++_nWrites;
        std::string data(size, ' ');
        for (std::size_t i = 0; i < size; ++i) {
            data[i] = static_cast<char>(1 + (_nWrites * 37 + i * 11 + i / 256) % 255);
        }
        return data;
    }

    // Checks.

    void Expect(IDX_Bool result, const Lines& tags) {
        const Lines traced = _trace.Take();
        if ((result == IDX_True) == tags.empty() && traced == tags) return;
        Check(false, tags.empty() ? "a success" : tags.front() + " is expected", traced);
    }

    /// Modes and sizes are right, and less than a page of what was appended is missing on the disk.
    void CheckStates() {
        Check(_trace.Take().empty(), "a trace that belongs to nothing");
        for (int i = 0; i < 3; ++i) {
            if (_of[i] == nullptr) continue;
            Check(_objects[i].GetSize() == _of[i]->size, "the size of a file");
            Check(_objects[i].IsOpened() == (_of[i]->mode != Closed), "whether a file is open");
            Check(_objects[i].IsReadWrite() == (_of[i]->mode == Writing), "whether it is written");
        }
        for (const PlainFile& file : _files) {
            const std::size_t size = file.Size();
            Check(
                file.isLost || size + FlatFile::kPage > file.flat.End(),
                "bytes are missing on the disk");
            Check(file.isLost || size <= file.flat.FarEnd(), "the disk has more than was written");
        }
        for (int i = 0; i < kPieces; ++i) {
            const bool isLocked = UsesLocks() && std::count(_slots.begin(), _slots.end(), i) != 0;
            const bool hasLock = access((_entries[i].path + ".lock").c_str(), F_OK) == 0;
            Check(hasLock == isLocked, "the lock of a piece");
        }
    }

    /// All that was taken is on the disk.
    void CheckDisk(const PlainFile& file) {
        if (file.isLost) return;
        Check(file.Size() >= file.flat.End(), "the end of the file isn't on the disk");
        for (const std::size_t page : file.flat.Pages()) {
            const std::string data = file.Read(page, FlatFile::kPage);
            const std::size_t at = file.flat.FirstDifference(page, data, FlatFile::Open);
            Check(at == FlatFile::kNone, "the disk differs at " + std::to_string(at));
        }
    }

    // What operations do to the model.

    void Flushed(PlainFile& file) {
        CheckDisk(file);
        file.flat.Flushed();
    }

    void ForgetIfClosed(PlainFile& file) {
        bool isOpen = _memoryOf == &file;
        for (const Entry& entry : _entries) {
            isOpen = isOpen || (entry.file == &file && entry.mode != Closed);
        }
        if (!isOpen) file.flat.Closed();
    }

    void Opened(Entry& entry, Mode mode) {
        if (entry.mode != Closed) return;
        entry.mode = mode;
        const std::size_t size = entry.file->Size();
        entry.size = mode == Writing ? Align(size) : Narrow(size);
        if (!CanFail()) Flushed(*entry.file);
    }

    /// @param tags  what the close traced
    void CloseEntry(Entry& entry, const Lines& tags) {
        const bool isLost = CanFail() && tags == Lines{"IDX_WT_File.Close.fclose"};
        Check(tags.empty() || isLost, "the trace of a close", tags);
        if (isLost) entry.file->isLost = true;
        if (entry.mode == Writing) Flushed(*entry.file);
        entry.mode = Closed;
        ForgetIfClosed(*entry.file);
    }

    /// @param outer  what is traced after a tag of the file
    void Wrote(
        Entry& entry,
        std::size_t offset,
        const std::string& data,
        bool appends,
        IDX_Bool result,
        const Lines& outer = {}) {
        const std::size_t end = offset + data.size();
        const bool isOpen = entry.mode == Writing;
        const bool isFar = end >= kLimit;
        const bool mayRefuse = CanFail() || _isFull || failingCalls.disk == Disk::Full;
        Lines tags;
        if (!isOpen) {
            tags = {"IDX_WT_File.Write.InvalidFile"};
        } else if (isFar || (result != IDX_True && mayRefuse)) {
            const std::string operation = appends ? "IDX_WT_File.Write." : "IDX_WT_File.WriteAt.";
            tags = {operation + (isFar ? "fseek" : "fwrite")};
        }
        if (!tags.empty()) tags.insert(tags.end(), outer.begin(), outer.end());
        Expect(result, tags);
        if (isOpen && end > entry.size && (!appends || result == IDX_True)) entry.size = Align(end);
        if (isOpen && !isFar) entry.file->flat.Write(offset, data, result == IDX_True);
    }

    // Operations of the three objects.

    void Open() {
        Entry& entry = _entries[_input.Byte() % kEntries];
        const Mode mostly = _input.Byte() % 3 == 0 ? Reading : Writing;
        const bool wasOpen = entry.mode != Closed;
        const Mode mode = wasOpen ? entry.mode : mostly;
        const char* path = entry.path.c_str();
        if (mode == Writing) Close();  // as it would by itself
        _of[_chosen] = &entry;
        const IDX_Bool result =
            mode == Reading ? Object().OpenRead(path) : Object().OpenWrite(path);
        const Lines tags = _trace.Take();
        if (result == IDX_True) {
            Check(tags.empty(), "the trace of an open", tags);
            Opened(entry, mode);
            if (!wasOpen && CanFail()) entry.size = Object().GetSize();
            return;
        }
        const bool isFound = tags == Lines{"IDX_WT_File.OpenRead.fseek"};
        const char* operation =
            mode == Reading ? "IDX_WT_File.OpenRead." : "IDX_WT_File.OpenWrite.";
        Check(
            CanFail() && (isFound || tags == Lines{std::string(operation) + "fopen"}), "an open",
            tags);
        if (isFound && mode == Reading) entry.mode = Reading;  // the stream stays
        if (entry.size == 0) entry.size = Object().GetSize();  // of a run before
    }

    void Close() {
        if (_of[_chosen] == nullptr) return;
        Check(Object().Close() == IDX_True, "a close");
        CloseEntry(*_of[_chosen], _trace.Take());
    }

    void Flush() {
        if (_of[_chosen] == nullptr) return;
        Object().Flush();
        const Lines tags = _trace.Take();
        const bool failed = CanFail() && tags == Lines{"IDX_WT_File.Flush.fflush"};
        Check(tags.empty() || failed, "the trace of a flush", tags);
        if (_of[_chosen]->mode == Writing && !failed) Flushed(*_of[_chosen]->file);
    }

    void Append(std::size_t size) {
        if (_of[_chosen] == nullptr) return;
        const std::string data = Data(size);
        const IDX_Bool result = Object().Write(data.data(), Narrow(size));
        Wrote(*_of[_chosen], _of[_chosen]->size, data, true, result);
    }

    void Overwrite(std::size_t offset, std::size_t size) {
        if (_of[_chosen] == nullptr) return;
        Entry& entry = *_of[_chosen];
        const std::string data = Data(size);
        // On a full disk what has its blocks can be written.
        const bool fits = failingCalls.disk == Disk::Full && entry.mode == Writing &&
                          offset + size < kLimit &&
                          BytesWithBlocks(entry.file->descriptor, offset, size) == size;
        const IDX_Bool result = Object().WriteAt(Narrow(offset), data.data(), Narrow(size));
        Check(!fits || result == IDX_True, "a write into blocks that are there is refused");
        Wrote(entry, offset, data, false, result);
    }

    void ReadAt(std::size_t offset, std::size_t size) {
        if (_of[_chosen] == nullptr) return;
        const Entry& entry = *_of[_chosen];
        const PlainFile& file = *entry.file;
        std::string data(size, ' ');
        const IDX_Bool result = Object().ReadAt(Narrow(offset), data.data(), Narrow(size));
        if (entry.mode == Closed) return Expect(result, {"IDX_WT_File.ReadAt.InvalidFile"});
        const std::string at = std::to_string(static_cast<int>(offset));
        if (offset >= kLimit) return Expect(result, {"IDX_WT_File.ReadAt.fseek[" + at + "]"});
        const Lines tags = _trace.Take();
        if (result == IDX_True) {
            const std::size_t differs =
                file.flat.FirstDifference(offset, data, FlatFile::Open | FlatFile::Foreign);
            const bool isRight = offset + size <= file.flat.FarEnd() && differs == FlatFile::kNone;
            Check(tags.empty() && (isRight || file.isLost), "a read at " + at, tags);
            return;
        }
        const std::string length = std::to_string(size) + "]";
        if (CanFail() && tags == Lines{"IDX_WT_File.ReadAt.fread[" + length}) return;
        Check(file.isLost || offset + size > file.flat.End(), "a read within the file fails", tags);
        const std::string end = std::to_string(static_cast<int>(entry.size));
        const std::string past =
            "IDX_WT_File.ReadAt.InvalidOffset[fOffset=" + at + ",fSize=" + end + ",dSize=" + length;
        Check(tags == Lines{past}, "the trace of a read beyond the end", tags);
    }

    // What happens around them.

    void SetPageMemory() {
        const unsigned int pages[] = {65536, 0, 1, 2, 5, 17};
        IdxFile::SetPageMemory(pages[_input.Byte() % 6] * std::size_t{4096});
    }

    void ChangeDisk() {
        const auto disk = static_cast<Disk>(_input.Byte() % 4);
        const unsigned int after = _input.Short() % 2000;
        const unsigned int count = _input.Byte();
        failingCalls.Start(
            disk, static_cast<int>(after), count == 255 ? 1000000 : static_cast<int>(count));
    }

    /// Other processes write, but for bytes that may wait for the disk here.
    void WriteFromOutside() {
        PlainFile& file = _files[_input.Byte() % kPieces];
        const std::size_t offset = Offset(file.flat.End());
        const std::string data = Data(Size() % 8192);
        const bool isNear = offset <= file.Size() + 100 && offset + data.size() < kLimit;
        if (file.isLost || !isNear || _isFull) return;
        std::string written = file.Read(offset, data.size());
        written.resize(data.size(), '\0');
        for (std::size_t i = 0; i < data.size(); ++i) {
            if (!file.flat.IsSure(offset + i)) continue;
            written[i] = data[i];
            file.flat.WriteForeign(offset + i, data.substr(i, 1));
        }
        file.Write(offset, written);
        ForgetIfClosed(file);
    }

    /// A page goes from a file that nobody has open.
    void PunchHole() {
        PlainFile& file = _files[_input.Byte() % kPieces];
        const std::size_t page = Offset(file.flat.End()) / FlatFile::kPage * FlatFile::kPage;
        for (const Entry& entry : _entries) {
            if (entry.file == &file && entry.mode != Closed) return;
        }
        if (file.isLost || page + FlatFile::kPage > file.Size()) return;
        constexpr int kMode = FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE;
        if (syscall(SYS_fallocate, file.descriptor, kMode, page, FlatFile::kPage) != 0) return;
        file.flat.Set(page, std::string(FlatFile::kPage, '\0'));
    }

    void UseMemoryFile() {
        const std::size_t how = _input.Byte() % 16;
        if (_memoryOf == nullptr) {
            const Entry& entry = _entries[how % kEntries];
            PlainFile& file = *entry.file;
            if (!HasBlocks() || file.isLost || file.flat.FarEnd() > 1000000) return;
            Expect(_memory.OpenWrite(entry.path.c_str()), {});
            Flushed(file);
            _memoryOf = &file;
            _content = file.Read(0, file.Size());
        } else if (how < 2) {
            if (!HasBlocks()) return;
            Expect(_memory.Close(how == 0), {});
            _memoryOf->flat.Set(0, _content);
            ForgetIfClosed(*std::exchange(_memoryOf, nullptr));
            _content.clear();
        } else if (how < 8) {
            std::string data(Size(), ' ');
            const std::size_t offset = Offset(_content.size());
            if (offset + data.size() > _content.size()) return;
            Expect(_memory.ReadAt(Narrow(offset), data.data(), Narrow(data.size())), {});
            Check(_content.compare(offset, data.size(), data) == 0, "a read of a memory file");
        } else {
            const std::string data = Data(Size());
            const bool appends = how < 12;
            const std::size_t end = _content.size();
            const std::size_t offset = appends ? end : Offset(end) % 100000;
            Expect(
                appends ? _memory.Write(data.data(), Narrow(data.size()))
                        : _memory.WriteAt(Narrow(offset), data.data(), Narrow(data.size())),
                {});
            _content.resize(std::max<std::size_t>(end, offset + data.size()));
            if (_content.size() > end) _content.resize(Align(_content.size()));
            _content.replace(offset, data.size(), data);
        }
        Check(_memory.GetSize() == _content.size(), "the size of a memory file");
    }

    // The split file.

    unsigned int Limit() const { return _may / 0x200 % 4 * 1500; }
    bool UsesLocks() const { return _may / 0x2000 % 2 == 0; }

    /// The piece in a slot is closed, for all who share it.
    /// @param tags  what the close traced
    void ReleaseSlot(int& piece, Lines tags) {
        if (CanFail()) std::erase(tags, "IDX_WT_File.Flush.fflush");  // before the lock goes
        if (piece >= 0) CloseEntry(_entries[std::exchange(piece, -1)], tags);
    }

    /// Has the split file bring a piece into a slot; false when that would be a breach of contract.
    bool TouchPiece(int piece) {
        const auto hit = std::find(_slots.begin(), _slots.end(), piece);
        const bool isHit = hit != _slots.end();
        if (piece == kPieces || (!isHit && (_entries[piece].mode == Reading || !HasBlocks()))) {
            return false;
        }
        const unsigned int size = _split->GetSize(static_cast<unsigned int>(piece));
        _lastSlot = isHit ? static_cast<std::size_t>(hit - _slots.begin())
                          : (_lastSlot + 1) % _slots.size();
        if (!isHit) {
            ReleaseSlot(_slots[_lastSlot], _trace.Take());
            _slots[_lastSlot] = piece;
            Opened(_entries[piece], Writing);
        }
        Check(size == _entries[piece].size, "the size of a piece");
        return true;
    }

    void CloseSplit() {
        _split->Close();
        const Lines tags = _trace.Take();
        for (int& piece : _slots) ReleaseSlot(piece, tags);
        _current = 0;
        _isSplitOpen = false;
    }

    void AppendToSplit() {
        int piece = _current;
        if (!TouchPiece(piece)) return;
        if (Limit() != 0 && _entries[piece].size >= Limit() && !TouchPiece(++piece)) return;
        const std::size_t offset = _entries[piece].size;
        if (Limit() != 0 && offset >= Limit()) return;  // this model goes one piece on at most
        _current = piece;
        const std::string data = Data(Size());
        unsigned int part = 0;
        unsigned int at = 0;
        const IDX_Bool result = _split->Write(data.data(), Narrow(data.size()), part, at);
        Wrote(
            _entries[piece], offset, data, true, result,
            {"IDX_WT_SplittedFile.Write.IDX_WT_File.Write"});
        const bool isThere = part == static_cast<unsigned int>(piece) && at == offset;
        Check(result == IDX_True ? isThere : part + at == 0, "the place of an append");
    }

    void UseSplit() {
        const unsigned int how = _input.Byte();
        const int piece = static_cast<int>(how % kPieces);
        if (!_isSplitOpen) {
            Expect(_split->OpenWrite(_base.c_str()), {});
            _isSplitOpen = true;
        } else if (how < 16) {
            CloseSplit();
        } else if (how < 140) {
            AppendToSplit();
        } else if (TouchPiece(piece)) {
            const std::size_t offset = Offset(_entries[piece].size);
            const std::string data = Data(Size());
            const IDX_Bool result = _split->WriteAt(
                static_cast<unsigned int>(piece), Narrow(offset), data.data(), Narrow(data.size()));
            Wrote(
                _entries[piece], offset, data, false, result,
                {"IDX_WT_SplittedFile.WriteAt.IDX_WT_File.WriteAt"});
        }
    }

    void Step() {
        const unsigned int byte = _input.Byte();
        const unsigned int operation = byte % 32;
        _chosen = byte / 32 % 3;
        const std::size_t end = _of[_chosen] != nullptr ? _of[_chosen]->size : 0;
        if (operation < 4) return Append(Size());
        if (operation < 6) {
            const std::size_t size = 1 + _input.Byte() % 64;
            for (unsigned int n = _input.Byte() % 200; n > 0; --n) Append(size);
        } else if (operation < 10) {
            const std::size_t offset = Offset(end);
            Overwrite(offset, Size());
        } else if (operation < 12) {
            const std::size_t step = 16 + 16 * _input.Byte();
            std::size_t offset = Offset(end);
            for (unsigned int n = _input.Byte() % 32; n > 0; --n) Overwrite(offset += step, 16);
        } else if (operation < 16) {
            const std::size_t offset = Offset(end);
            ReadAt(offset, Size());
        } else if (operation == 23 && May(kMoreDisks)) {
            ChangeDisk();
        } else {
            using Operation = void (Run::*)();
            static constexpr Operation kOperations[] = {
                &Run::Flush,
                &Run::Flush,
                &Run::Close,
                &Run::Open,
                &Run::Open,
                &Run::Open,
                &Run::SetPageMemory,
                &Run::Flush,
                &Run::WriteFromOutside,
                &Run::WriteFromOutside,
                &Run::PunchHole,
                &Run::UseMemoryFile,
                &Run::UseMemoryFile,
                &Run::UseSplit,
                &Run::UseSplit,
                &Run::UseSplit};
            (this->*kOperations[operation - 16])();
        }
    }

    void Finish() {
        if (!May(kNoRepair)) failingCalls.Stop();
        for (_chosen = 0; _chosen < 3; ++_chosen) Close();
        if (_isSplitOpen) CloseSplit();
        for (Entry& entry : _entries) {
            if (entry.mode == Closed) continue;
            _chosen = 0;
            _of[0] = &entry;
            const char* path = entry.path.c_str();
            const bool reads = entry.mode == Reading;
            Expect(reads ? Object().OpenRead(path) : Object().OpenWrite(path), {});
            Close();
        }
        failingCalls.Stop();
        if (_memoryOf != nullptr) {
            Expect(_memory.Close(), {});
            _memoryOf->flat.Set(0, _content);
        }
        for (const PlainFile& file : _files) CheckDisk(file);
    }

    Input _input;
    unsigned int _may = 0;
    TraceRecorder _trace;
    bool _isFull = false;  ///< the disk itself
    PlainFile _files[kPieces];
    Entry _entries[kEntries];  ///< pieces of the split file, and other names of the first
    IDX_WT_File _objects[3];
    Entry* _of[3] = {};
    unsigned int _chosen = 0;  ///< object
    unsigned int _nWrites = 0;

    IDX_WT_MemFile _memory;
    PlainFile* _memoryOf = nullptr;
    std::string _content;  ///< of the memory file

    std::unique_ptr<IDX_WT_SplittedFile> _split;
    std::string _base;
    bool _isSplitOpen = false;
    std::vector<int> _slots;  ///< the pieces in them; -1 for none
    std::size_t _lastSlot = 0;
    int _current = 0;  ///< piece that takes appends
};

}  // namespace

std::string RunFileOperations(
    const std::uint8_t* data,
    std::size_t size,
    const std::string& folder,
    const std::function<void()>& fillUp) {
    try {
        failingCalls = {};
        Run run({data, size}, folder);
        run.All(fillUp);
    } catch (const std::runtime_error& difference) {
        return difference.what();
    }
    return "";
}

std::vector<std::uint8_t> RandomOperations(unsigned int seed, std::size_t size, unsigned int may) {
    std::mt19937 random(seed);
    std::vector<std::uint8_t> bytes(size);
    for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
    may |= Narrow(random()) & kSplitFile;
    bytes[2] = static_cast<std::uint8_t>(may);
    bytes[3] = static_cast<std::uint8_t>(may / 256);
    bytes[4] = 0;
    return bytes;
}
