#ifndef FailingCalls_h
#define FailingCalls_h

#include <cstddef>

/// What the system calls on files do in this program. Dead: nothing works. Full: there is no block
/// left, and only blocks that are there can be written. Short: a write does half of its work.
enum class Disk { Sound, Dead, Full, Short };

/// The calls from `first` to `last`, counted from 1 on, meet such a disk; all others a sound one.
struct FailingCalls {
    Disk disk = Disk::Sound;
    int first = 1;
    int last = 0;
    int calls = 0;

    /// From now on, after some good calls.
    void Start(Disk kind, int after, int count) {
        disk = kind;
        first = calls + after + 1;
        last = first + count - 1;
    }
    void Stop() { disk = Disk::Sound; }
};

extern FailingCalls failingCalls;

/// How many bytes from an offset on lie in blocks that the file has.
std::size_t BytesWithBlocks(int descriptor, std::size_t offset, std::size_t size);

#endif
