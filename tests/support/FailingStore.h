#ifndef FailingStore_h
#define FailingStore_h

#include "IDX_WT_File.h"

/// A store that counts the reads and writes that go through its virtual operations, and refuses one
/// of them, without a trace of its own.
template <class Store>
class FailingStore : public Store {
public:
    int calls = 0;
    int refused = 0;  ///< the call that fails, counted from 1; 0 for none

    IDX_Bool ReadAt(unsigned int offset, void* data, unsigned int size) override {
        return Refuses() ? IDX_False : Store::ReadAt(offset, data, size);
    }
    IDX_Bool Write(const void* data, unsigned int size) override {
        return Refuses() ? IDX_False : Store::Write(data, size);
    }
    IDX_Bool WriteAt(unsigned int offset, const void* data, unsigned int size) override {
        return Refuses() ? IDX_False : Store::WriteAt(offset, data, size);
    }

    using Store::ReadAt;
    using Store::Write;
    using Store::WriteAt;

    /// Counts one more call, which may be of another kind, too.
    bool Refuses() { return ++calls == refused; }
};

#endif
