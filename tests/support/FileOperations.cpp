#include "FileOperations.h"

#include "FailingCalls.h"
#include "FlatFile.h"
#include "Peer.h"
#include "TemporaryFolder.h"
#include "TraceRecorder.h"

#include "IDX_WT_File.h"
#include "IDX_WT_MemFile.h"
#include "IDX_WT_SplittedFile.h"
#include "IdxFile.h"
#include "VEXFile.h"

#include <fcntl.h>
#include <functional>
#include <memory>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr std::size_t kLimit = 0x80000000u;  ///< no file reaches it
constexpr std::size_t kUsualMemory = std::size_t{256} << 20U;

std::function<void()> onDelete;

}  // namespace

/// The program's own service, which the library calls in place of its own.
long int VEXDeleteFile(const char* path) {
    if (onDelete) onDelete();
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
    bool isLost = false;  ///< the library has told that bytes are lost

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

    void Punch(std::size_t page) const {
        constexpr int kMode = FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE;
        (void)syscall(SYS_fallocate, descriptor, kMode, page, FlatFile::kPage);
    }

    /// All pages that were ever written.
    std::string Everything() const {
        std::string all = std::to_string(Size()) + '\n';
        for (const std::size_t page : flat.Pages()) all += Read(page, FlatFile::kPage);
        return all;
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

class Run {
public:
    Run(const Input& input, const std::string& folder);
    ~Run();

    void All();

private:
    bool May(unsigned int what) const { return (_may & what) == what; }
    bool CanFail() const { return failingCalls.disk == Disk::Dead; }

    // Operands out of the input.
    unsigned int Size();
    std::size_t Offset(std::size_t end);
    std::string Data(std::size_t size);
    IDX_WT_File& Object() { return _objects[_chosen]; }

    // Checks.
    void Expect(IDX_Bool result, const Lines& tags);
    void CheckStates();
    void CheckDisk(const PlainFile& file, unsigned char except);

    // The model's part of what several operations do.
    void Opened(Entry& entry, Mode mode);
    void CloseEntry(Entry& entry, const Lines& tags);
    void Wrote(
        Entry& entry,
        std::size_t offset,
        const std::string& data,
        bool appends,
        IDX_Bool result,
        const char* outerTag);
    bool IsOpen(const PlainFile& file) const;

    // Operations.
    void Step();
    void Open();
    void Append(std::size_t size);
    void Overwrite(std::size_t offset, std::size_t size);
    void ReadAt(std::size_t offset, std::size_t size);
    void Flush();
    void ChangeDisk();
    void WriteFromOutside();
    void PunchHole();
    void OpenInMemory();
    void UseInMemory();
    void UseSplit();
    bool TouchPiece(int part);
    void ReleasePiece();
    void UsePeer();
    bool DoInPeer(char step);
    void Finish();

    Input _input;
    unsigned int _may = 0;
    TraceRecorder _trace;
    PlainFile _files[2];
    Entry _entries[4];
    IDX_WT_File _objects[3];
    Entry* _of[3] = {};
    unsigned int _chosen = 0;
    unsigned int _nWrites = 0;

    IDX_WT_MemFile _memory;
    PlainFile* _memoryOf = nullptr;
    std::string _inMemory;

    IDX_WT_SplittedFile _split{0, 1, true};
    std::string _base;
    bool _isSplitOpen = false;
    int _piece = -1;

    std::unique_ptr<Peer> _peer;
    Entry* _peerOf = nullptr;
    unsigned int _peerOffset = 0;
    std::string _peerData;
};

Run::Run(const Input& input, const std::string& folder) : _input(input), _base(folder + "/p") {
    const char* names[] = {"/p0", "/./p0", "/link", "/p1"};
    for (int i = 0; i < 4; ++i) _entries[i] = {folder + names[i], &_files[i / 3]};
    for (PlainFile& file : _files) {
        const std::string& path = _entries[&file == _files ? 0 : 3].path;
        file.descriptor = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
        Check(file.descriptor >= 0, "a file of the test's own");
    }
    (void)link(_entries[0].path.c_str(), _entries[2].path.c_str());  // may be there
}

Run::~Run() {
    failingCalls.Stop();
    onDelete = nullptr;
    _peer.reset();
    for (const PlainFile& file : _files) close(file.descriptor);
    IdxFile::SetPageMemory(kUsualMemory);
}

/// Mostly records of a few bytes, else about a page or an image.
unsigned int Run::Size() {
    const unsigned int byte = _input.Byte();
    if (byte < 200) return 1 + byte % 64;
    return byte < 240 ? 4076 + byte - 200 : 5000 + (byte - 240) * 777;
}

std::size_t Run::Offset(std::size_t end) {
    const unsigned int byte = _input.Byte();
    if (byte < 128) return _input.Short() % (end + 10);
    if (byte < 200) return _input.Short();
    if (byte < 230) return (byte - 200) * FlatFile::kPage + _input.Byte() % 64;
    if (byte < 240 || !May(kFarOffsets)) return end - std::min<std::size_t>(end, _input.Byte());
    return kLimit + 40 - std::min(_input.Short() % 6000, 40 + _input.Byte() * 20);
}

std::string Run::Data(std::size_t size) {
    ++_nWrites;
    std::string data(size, ' ');
    for (std::size_t i = 0; i < size; ++i) {
        data[i] = static_cast<char>(1 + (_nWrites * 37 + i * 11 + i / 256) % 255);
    }
    return data;
}

void Run::Expect(IDX_Bool result, const Lines& tags) {
    const Lines traced = _trace.Take();
    if ((result == IDX_True) == tags.empty() && traced == tags) return;
    std::string wanted = "success";
    for (const std::string& line : tags) wanted = (wanted == "success" ? "" : wanted + ", ") + line;
    Check(false, (result == IDX_True ? "success" : "failure") + (" and not " + wanted), traced);
}

/// Whatever was done: modes and sizes are as told, and less than a page of what was appended is missing on the disk.
void Run::CheckStates() {
    Check(_trace.Take().empty(), "a trace that belongs to nothing");
    for (int i = 0; i < 3; ++i) {
        if (_of[i] == nullptr) continue;
        Check(_objects[i].GetSize() == _of[i]->size, "the size of a file");
        Check(_objects[i].IsOpened() == (_of[i]->mode != Closed), "whether a file is open");
        Check(_objects[i].IsReadWrite() == (_of[i]->mode == Writing), "whether it may be written");
    }
    for (const PlainFile& file : _files) {
        const std::size_t size = file.Size();
        Check(file.isLost || size + FlatFile::kPage > file.flat.End(), "the disk is behind");
        Check(file.isLost || size <= file.flat.FarEnd(), "the disk is ahead");
    }
}

/// The disk has all bytes but for those with one of the marks.
void Run::CheckDisk(const PlainFile& file, unsigned char except) {
    if (file.isLost) return;
    const bool all = (except & FlatFile::Held) == 0;
    Check(!all || file.Size() >= file.flat.End(), "the end of the file isn't on the disk");
    for (const std::size_t page : file.flat.Pages()) {
        const std::size_t at =
            file.flat.FirstDifference(page, file.Read(page, FlatFile::kPage), except);
        Check(at == FlatFile::kNone, "the disk differs at " + std::to_string(at));
    }
}

bool Run::IsOpen(const PlainFile& file) const {
    for (const Entry& entry : _entries) {
        if (entry.file == &file && entry.mode != Closed) return true;
    }
    return _memoryOf == &file;
}

void Run::Opened(Entry& entry, Mode mode) {
    if (entry.mode != Closed) return;
    entry.mode = mode;
    PlainFile& file = *entry.file;
    const std::size_t size = file.Size();
    entry.size = mode == Writing ? Align(size) : static_cast<unsigned int>(size);
    if (CanFail()) return;
    CheckDisk(file, FlatFile::Open);
    file.flat.Flushed();
}

/// @param tags  what the close traced
void Run::CloseEntry(Entry& entry, const Lines& tags) {
    const bool lost = tags == Lines{"IDX_WT_File.Close.fclose"};
    Check(
        tags.empty() || (lost && CanFail() && entry.mode == Writing), "the trace of a close", tags);
    PlainFile& file = *entry.file;
    if (lost) {
        file.isLost = true;
    } else if (entry.mode == Writing) {
        CheckDisk(file, FlatFile::Open);
        file.flat.Flushed();
    }
    entry.mode = Closed;
    if (!IsOpen(file)) file.flat.Closed();
}

void Run::Open() {
    Entry& entry = _entries[_input.Byte() % 4];
    const unsigned int how = _input.Byte() % 3;
    const Mode mode = entry.mode != Closed ? entry.mode : how == 0 ? Reading : Writing;
    IDX_WT_File& object = Object();
    if (mode == Writing && _of[_chosen] != nullptr && _of[_chosen]->mode != Closed) {
        Check(object.Close() == IDX_True, "a close");  // as it would do by itself
        CloseEntry(*_of[_chosen], _trace.Take());
    }
    _of[_chosen] = &entry;
    const bool wasOpen = entry.mode != Closed;
    const IDX_Bool result = mode == Reading ? object.OpenRead(entry.path.c_str())
                                            : object.OpenWrite(entry.path.c_str());
    if (result == IDX_True || !CanFail()) {
        Expect(result, {});
        Opened(entry, mode);
        if (!wasOpen && CanFail()) entry.size = object.GetSize();
        return;
    }
    const Lines tags = _trace.Take();
    const char* opens =
        mode == Reading ? "IDX_WT_File.OpenRead.fopen" : "IDX_WT_File.OpenWrite.fopen";
    const bool sought = tags == Lines{"IDX_WT_File.OpenRead.fseek"};
    Check(sought || tags == Lines{opens}, "the trace of an open that failed", tags);
    if (sought && mode == Reading) entry.mode = Reading;  // the stream stays
    if (entry.size == 0) entry.size = object.GetSize();   // of a run before
}

void Run::Wrote(
    Entry& entry,
    std::size_t offset,
    const std::string& data,
    bool appends,
    IDX_Bool result,
    const char* outerTag) {
    Lines outer;
    if (outerTag != nullptr) outer.emplace_back(outerTag);
    const auto refused = [&](const std::string& tag) {
        Lines tags = {tag};
        tags.insert(tags.end(), outer.begin(), outer.end());
        Expect(result, tags);
    };
    if (entry.mode != Writing) return refused("IDX_WT_File.Write.InvalidFile");
    const std::size_t end = offset + data.size();
    if (!appends && end > entry.size) entry.size = Align(end);
    const std::string operation = appends ? "IDX_WT_File.Write." : "IDX_WT_File.WriteAt.";
    if (end >= kLimit) return refused(operation + "fseek");
    PlainFile& file = *entry.file;
    const bool mayRefuse = CanFail() || failingCalls.disk == Disk::Full;
    if (result != IDX_True && mayRefuse) {
        refused(operation + "fwrite");
    } else {
        Expect(result, {});
    }
    file.flat.Write(offset, data, result == IDX_True);
    if (appends && result == IDX_True) entry.size = Align(end);
}

void Run::Append(std::size_t size) {
    if (_of[_chosen] == nullptr) return;
    Entry& entry = *_of[_chosen];
    const std::string data = Data(size);
    const std::size_t offset = entry.size;
    const IDX_Bool result = Object().Write(data.data(), static_cast<unsigned int>(size));
    Wrote(entry, offset, data, true, result, nullptr);
}

void Run::Overwrite(std::size_t offset, std::size_t size) {
    if (_of[_chosen] == nullptr) return;
    Entry& entry = *_of[_chosen];
    const std::string data = Data(size);
    // On a full disk what has its block can be written.
    const bool fits = failingCalls.disk == Disk::Full && entry.mode == Writing &&
                      offset + size < kLimit &&
                      BytesWithBlocks(entry.file->descriptor, offset, size) == size;
    const IDX_Bool result = Object().WriteAt(
        static_cast<unsigned int>(offset), data.data(), static_cast<unsigned int>(size));
    Check(!fits || result == IDX_True, "a write into blocks that are there is refused");
    Wrote(entry, offset, data, false, result, nullptr);
}

void Run::ReadAt(std::size_t offset, std::size_t size) {
    if (_of[_chosen] == nullptr) return;
    const Entry& entry = *_of[_chosen];
    const FlatFile& flat = entry.file->flat;
    std::string data(size, ' ');
    const IDX_Bool result = Object().ReadAt(
        static_cast<unsigned int>(offset), data.data(), static_cast<unsigned int>(size));
    if (entry.mode == Closed) return Expect(result, {"IDX_WT_File.ReadAt.InvalidFile"});
    const std::string at = std::to_string(static_cast<int>(offset));
    if (offset >= kLimit) return Expect(result, {"IDX_WT_File.ReadAt.fseek[" + at + "]"});
    const std::string length = std::to_string(size);
    if (result == IDX_True) {
        Check(_trace.Take().empty(), "the trace of a read");
        Check(entry.file->isLost || offset + size <= flat.FarEnd(), "a read beyond the end");
        const std::size_t differs =
            flat.FirstDifference(offset, data, FlatFile::Open | FlatFile::Foreign);
        Check(
            entry.file->isLost || differs == FlatFile::kNone,
            "a read differs at " + std::to_string(differs));
        return;
    }
    const Lines tags = _trace.Take();
    if (CanFail() && tags == Lines{"IDX_WT_File.ReadAt.fread[" + length + "]"}) return;
    Check(entry.file->isLost || offset + size > flat.End(), "a read within the file fails");
    const std::string past = "IDX_WT_File.ReadAt.InvalidOffset[fOffset=" + at +
                             ",fSize=" + std::to_string(static_cast<int>(entry.size)) +
                             ",dSize=" + length + "]";
    Check(tags == Lines{past}, "the trace of a read beyond the end", tags);
}

void Run::Flush() {
    if (_of[_chosen] == nullptr) return;
    Object().Flush();
    const Entry& entry = *_of[_chosen];
    const Lines tags = _trace.Take();
    const bool failed = tags == Lines{"IDX_WT_File.Flush.fflush"};
    Check(tags.empty() || (failed && CanFail()), "the trace of a flush", tags);
    if (entry.mode != Writing || failed) return;
    CheckDisk(*entry.file, FlatFile::Open);
    entry.file->flat.Flushed();
}

void Run::ChangeDisk() {
    const auto kind = static_cast<Disk>(_input.Byte() % 4);
    const unsigned int after = _input.Short();
    const unsigned int count = _input.Byte();
    failingCalls.Start(
        kind, static_cast<int>(after % 2000), count == 255 ? 1000000 : static_cast<int>(count));
}

/// Other bytes than those that may wait for the disk.
void Run::WriteFromOutside() {
    PlainFile& file = _files[_input.Byte() % 2];
    const std::size_t offset = Offset(file.flat.End());
    const std::size_t size = file.Size();
    if (file.isLost || offset >= size) return;
    const std::string data = Data(std::min<std::size_t>(Size() % 8192, size - offset));
    std::string written = file.Read(offset, data.size());
    for (std::size_t i = 0; i < data.size(); ++i) {
        if (file.flat.IsSure(offset + i)) written[i] = data[i];
    }
    file.Write(offset, written);
    for (std::size_t i = 0; i < data.size(); ++i) {
        if (file.flat.IsSure(offset + i)) file.flat.WriteForeign(offset + i, data.substr(i, 1));
    }
    if (!IsOpen(file)) file.flat.Closed();
}

void Run::PunchHole() {
    PlainFile& file = _files[_input.Byte() % 2];
    const std::size_t page = Offset(file.flat.End()) / FlatFile::kPage * FlatFile::kPage;
    if (file.isLost || IsOpen(file) || page + FlatFile::kPage > file.Size()) return;
    file.Punch(page);
    file.flat.Set(page, std::string(FlatFile::kPage, '\0'));
}

void Run::OpenInMemory() {
    const Entry& entry = _entries[_input.Byte() % 4];
    const bool reads = _input.Byte() % 4 == 0;
    PlainFile& file = *entry.file;
    if (CanFail() || _memoryOf != nullptr || file.isLost || file.flat.FarEnd() > 1000000) return;
    Expect(
        reads ? _memory.OpenRead(entry.path.c_str()) : _memory.OpenWrite(entry.path.c_str()), {});
    CheckDisk(file, FlatFile::Open);
    file.flat.Flushed();
    _inMemory = file.Read(0, file.Size());
    if (!reads) {
        _memoryOf = &file;
    } else {
        std::string data(_inMemory.size(), ' ');
        Check(_memory.GetSize() == data.size(), "the size of a memory file");
        Expect(_memory.ReadAt(0, data.data(), static_cast<unsigned int>(data.size())), {});
        Check(data == _inMemory, "what a memory file has read");
        Expect(_memory.Close(), {});
    }
}

void Run::UseInMemory() {
    if (_memoryOf == nullptr) return OpenInMemory();
    const unsigned int how = _input.Byte() % 8;
    if (how == 0) {
        if (CanFail()) return;
        Expect(_memory.Close(), {});
        _memoryOf->flat.Set(0, _inMemory);
        CheckDisk(*_memoryOf, FlatFile::Open | FlatFile::Held);
        if (!IsOpen(*std::exchange(_memoryOf, nullptr))) return;
        return;
    }
    const std::size_t offset = how < 4 ? _inMemory.size() : Offset(_inMemory.size()) % 100000;
    const std::string data = Data(Size());
    const auto size = static_cast<unsigned int>(data.size());
    const auto at = static_cast<unsigned int>(offset);
    Expect(how < 4 ? _memory.Write(data.data(), size) : _memory.WriteAt(at, data.data(), size), {});
    const std::size_t end = offset + size;
    if (end > _inMemory.size()) _inMemory.resize(Align(end), '\0');
    _inMemory.replace(offset, size, data);
    Check(_memory.GetSize() == _inMemory.size(), "the size of a memory file");
}

/// The piece that was open is closed, for all who share it.
void Run::ReleasePiece() {
    if (_piece < 0) return;
    Lines tags = _trace.Take();
    if (!tags.empty() && CanFail())
        std::erase(tags, "IDX_WT_File.Flush.fflush");  // before the lock goes
    CloseEntry(_entries[_piece == 0 ? 0 : 3], tags);
    _piece = -1;
}

/// What the split file does to have a piece open; false when that would be a breach of contract.
bool Run::TouchPiece(int part) {
    Entry& entry = _entries[part == 0 ? 0 : 3];
    if (_piece == part) return true;
    if (entry.mode == Reading || CanFail()) return false;
    const std::size_t before = _split.GetSize(static_cast<unsigned int>(part));
    ReleasePiece();
    _piece = part;
    Opened(entry, Writing);
    Check(before == entry.size, "the size of a piece");
    return true;
}

void Run::UseSplit() {
    const unsigned int how = _input.Byte() % 8;
    const int part = static_cast<int>(_input.Byte() % 2);
    const auto piece = static_cast<unsigned int>(part);
    if (!_isSplitOpen) {
        Expect(_split.OpenWrite(_base.c_str()), {});
        _isSplitOpen = true;
    } else if (how == 0) {
        // Whoever sees no lock finds the whole piece.
        onDelete = [this] {
            const Entry& entry = _entries[_piece == 0 ? 0 : 3];
            if (entry.mode == Writing && !CanFail()) CheckDisk(*entry.file, FlatFile::Open);
        };
        _split.Close();
        onDelete = nullptr;
        ReleasePiece();
        _isSplitOpen = false;
    } else if (how < 5 && TouchPiece(part)) {
        Entry& entry = _entries[part == 0 ? 0 : 3];
        const std::size_t offset = Offset(entry.file->flat.End());
        const std::string data = Data(Size());
        const IDX_Bool result = _split.WriteAt(
            piece, static_cast<unsigned int>(offset), data.data(),
            static_cast<unsigned int>(data.size()));
        Wrote(
            entry, offset, data, false, result, "IDX_WT_SplittedFile.WriteAt.IDX_WT_File.WriteAt");
    } else if (how >= 5 && TouchPiece(0)) {
        const std::string data = Data(Size());
        const std::size_t offset = _entries[0].size;
        const IDX_Bool result = _split.Write(data.data(), static_cast<unsigned int>(data.size()));
        Wrote(
            _entries[0], offset, data, true, result, "IDX_WT_SplittedFile.Write.IDX_WT_File.Write");
    }
}

/// In the child.
bool Run::DoInPeer(char step) {
    failingCalls = {};
    IDX_WT_File& object = _objects[_chosen];
    const auto size = static_cast<unsigned int>(_peerData.size());
    std::string data(size, ' ');
    switch (step) {
        case 'r':
            return object.ReadAt(_peerOffset, data.data(), size) == IDX_True &&
                   data == _peerOf->file->Read(_peerOffset, size);
        case 'f':
            object.Flush();
            return true;
        case 'c':
            return object.Close() == IDX_True;
        case 'm':
            IdxFile::SetPageMemory(0);
            return true;
        default:
            if (object.WriteAt(_peerOffset, _peerData.data(), size) != IDX_True) return false;
            object.Flush();
            return true;
    }
}

/// A child goes on with what it has inherited, at any later time. Only what it writes itself may change the disk.
void Run::UsePeer() {
    const unsigned int how = _input.Byte();
    if (!May(kForks) || failingCalls.disk != Disk::Sound) return;
    if (_peer == nullptr) {
        Entry* entry = _of[_chosen];
        if (entry == nullptr || entry->mode != Writing || entry->file->isLost) return;
        const std::size_t size = entry->file->Size();
        _peerData = Data(how % 128 + 1);
        if (size > kLimit / 2 || size < _peerData.size()) return;
        _peerOffset = static_cast<unsigned int>(Offset(size) % (size - _peerData.size() + 1));
        _peerOf = entry;
        _peer = std::make_unique<Peer>([this](char step) { return DoInPeer(step); }, May(kExits));
        if (how % 2 == 0) Check(_peer->Do('r'), "a child reads what the file has");
        return;
    }
    PlainFile& file = *_peerOf->file;
    const std::string before[] = {_files[0].Everything(), _files[1].Everything()};
    if (how % 8 < 3) {
        if (file.Size() < _peerOffset + _peerData.size()) return;
        Check(_peer->Do('w'), "a write of a child");
        Check(file.Read(_peerOffset, _peerData.size()) == _peerData, "what a child wrote");
        file.flat.WriteForeign(_peerOffset, _peerData);
        return;
    }
    if (how % 8 < 6) Check(_peer->Do("fmc"[how % 8 - 3]), "a step of a child");
    if (how % 8 >= 5) {
        Check(_peer->End() == 0, "the end of a child");
        _peer.reset();
    }
    Check(before[0] == _files[0].Everything(), "a child wrote what it inherited");
    Check(before[1] == _files[1].Everything(), "a child wrote what it inherited");
}

void Run::Step() {
    const unsigned int operation = _input.Byte();
    _chosen = operation / 32 % 3;
    const std::size_t end = _of[_chosen] != nullptr ? _of[_chosen]->size : 0;
    switch (operation % 32) {
        case 0:
        case 1:
        case 2:
        case 3:
            return Append(Size());
        case 4:
        case 5: {
            const std::size_t size = 1 + _input.Byte() % 64;
            for (unsigned int n = _input.Byte() % 200; n > 0; --n) Append(size);
            return;
        }
        case 6:
        case 7:
        case 8:
        case 9: {
            const std::size_t offset = Offset(end);
            return Overwrite(offset, Size());
        }
        case 10:
        case 11: {
            const std::size_t step = 16 + 16 * _input.Byte();
            std::size_t offset = Offset(end);
            for (unsigned int n = _input.Byte() % 32; n > 0; --n) Overwrite(offset += step, 16);
            return;
        }
        case 12:
        case 13:
        case 14:
        case 15: {
            const std::size_t offset = Offset(end);
            return ReadAt(offset, Size());
        }
        case 16:
        case 17:
            return Flush();
        case 18:
            if (_of[_chosen] == nullptr) return;
            Check(Object().Close() == IDX_True, "a close");
            return CloseEntry(*_of[_chosen], _trace.Take());
        case 19:
        case 20:
        case 21:
            return Open();
        case 22: {
            const unsigned int pages[] = {0, 1, 2, 5, 17, 65536};
            return IdxFile::SetPageMemory(pages[_input.Byte() % 6] * std::size_t{4096});
        }
        case 23:
            return May(kMoreDisks) ? ChangeDisk() : Flush();
        case 24:
        case 25:
            return WriteFromOutside();
        case 26:
            return PunchHole();
        case 27:
        case 28:
            return UseInMemory();
        case 29:
        case 30:
            return UseSplit();
        default:
            return UsePeer();
    }
}

void Run::Finish() {
    if (!May(kNoRepair)) failingCalls.Stop();
    for (_chosen = 0; _chosen < 3; ++_chosen) {
        if (_of[_chosen] == nullptr) continue;
        Check(Object().Close() == IDX_True, "a close");
        CloseEntry(*_of[_chosen], _trace.Take());
    }
    if (_isSplitOpen) {
        _split.Close();
        ReleasePiece();
    }
    failingCalls.Stop();
    for (Entry& entry : _entries) {
        if (entry.mode == Closed) continue;
        Check(
            entry.mode == Reading ? _objects[0].OpenRead(entry.path.c_str())
                                  : _objects[0].OpenWrite(entry.path.c_str()),
            "an entry that is left");
        Check(_objects[0].Close() == IDX_True, "a close");
        CloseEntry(entry, _trace.Take());
    }
    if (_memoryOf != nullptr) {
        Expect(_memory.Close(), {});
        std::exchange(_memoryOf, nullptr)->flat.Set(0, _inMemory);
    }
    for (const PlainFile& file : _files) CheckDisk(file, FlatFile::Open);
    if (_peer != nullptr) Check(_peer->End() == 0, "the end of a child");
    for (const PlainFile& file : _files) CheckDisk(file, FlatFile::Open);
}

void Run::All() {
    const unsigned int pages[] = {65536, 0, 1, 2, 5};
    IdxFile::SetPageMemory(pages[_input.Byte() % 5] * std::size_t{4096});
    const std::string old = Data(_input.Byte() * 157);
    _files[0].Write(0, old);
    _files[0].flat.Set(0, old);
    _may = _input.Byte();
    ChangeDisk();
    for (_chosen = 0; _chosen < 2; ++_chosen) Open();
    while (!_input.IsAtEnd()) {
        Step();
        CheckStates();
    }
    Finish();
}

}  // namespace

std::string RunFileOperations(
    const std::uint8_t* data, std::size_t size, const std::string& folder) {
    try {
        failingCalls = {};
        Run run({data, size}, folder);
        run.All();
    } catch (const std::runtime_error& difference) {
        return difference.what();
    }
    return "";
}
