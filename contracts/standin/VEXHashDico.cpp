#include "VEXHashDico.h"

#include "RawStorage.h"

#include "VEXHashCodeIter.h"
#include "VEXUnicodeString.h"

#include <cstdint>
#include <cstring>

namespace {

/// The FNV-1a hash of 64 bits (Fowler, Noll, Vo: http://www.isthe.com/chongo/tech/comp/fnv/).
std::uint64_t HashOf(const char* iKey, std::size_t iKeySize) {
    std::uint64_t hash = 0xcbf29ce484222325u;
    for (std::size_t i = 0; i < iKeySize; ++i) {
        hash ^= static_cast<unsigned char>(iKey[i]);
        hash *= 0x100000001b3u;
    }
    return hash;
}

std::size_t SizeOf(const VEXUnicodeString& iKey) {
    return static_cast<std::size_t>(iKey.GetLengthInByte());
}

}  // namespace

// A hash table with separate chaining (D. E. Knuth, "The Art of Computer Programming", volume 3,
// section 6.4). Each bucket is a chain of entries. All entries are also in one chain in the order
// of insertion, which iterators follow, so that the order doesn't depend on the hash. The table
// doubles when it has as many entries as buckets; so a chain has about one entry.

/// An entry. The bytes of its key follow it in the same block.
struct VEXHashDico::Entry {
    Entry* nextInOrder;   ///< the entry that was inserted after this one
    Entry* nextInBucket;  ///< the next entry of the same bucket
    void* value;
    std::uint64_t hash;
    std::size_t keySize;

    char* Key() { return reinterpret_cast<char*>(this + 1); }
};

VEXHashDico::VEXHashDico(int iBuckets)
    : _first(nullptr),
      _end(&_first),
      _count(0),
      _buckets(iBuckets > 0 ? static_cast<std::size_t>(iBuckets) : 1),
      _table(nullptr) {}

VEXHashDico::VEXHashDico(const VEXHashDico& iOther) : VEXHashDico(1) {
    *this = iOther;
}

VEXHashDico& VEXHashDico::operator=(const VEXHashDico& iOther) {
    if (this == &iOther) return *this;
    RemoveAll();
    for (Entry* entry = iOther._first; entry != nullptr; entry = entry->nextInOrder) {
        if (!_Add(entry->Key(), entry->keySize, entry->value)) StopForMemory();
    }
    return *this;
}

VEXHashDico::~VEXHashDico() {
    RemoveAll();
    delete[] _table;
}

int VEXHashDico::Insert(const VEXUnicodeString& iKey, void* iValue) {
    return _Add(iKey.ConvertToChar(), SizeOf(iKey), iValue) ? 1 : 0;
}

void* VEXHashDico::Locate(const VEXUnicodeString& iKey) const {
    // The hashes are compared first: two keys of one bucket rarely have the same hash, and then the
    // bytes needn't be read.
    if (_table == nullptr) return nullptr;
    const char* key = iKey.ConvertToChar();
    const std::size_t keySize = SizeOf(iKey);
    const std::uint64_t hash = HashOf(key, keySize);
    for (Entry* entry = _table[hash % _buckets]; entry != nullptr; entry = entry->nextInBucket) {
        if (entry->hash == hash && entry->keySize == keySize &&
            std::memcmp(entry->Key(), key, keySize) == 0) {
            return entry->value;
        }
    }
    return nullptr;
}

void VEXHashDico::RemoveAll() {
    for (Entry* entry = _first; entry != nullptr;) {
        Entry* next = entry->nextInOrder;
        ::operator delete(entry);
        entry = next;
    }
    // The table stays for later entries, with empty buckets.
    _first = nullptr;
    _end = &_first;
    _count = 0;
    if (_table != nullptr) std::memset(_table, 0, _buckets * sizeof(Entry*));
}

void* VEXHashDico::operator[](const VEXHashCodeIter& iIterator) const {
    return iIterator._current != nullptr ? iIterator._current->value : nullptr;
}

bool VEXHashDico::_Add(const char* iKey, std::size_t iKeySize, void* iValue) {
    // The operator new without exceptions gives null without memory; the dictionary is still
    // unchanged then.
    if (_table == nullptr || _count >= _buckets) _GrowTable();
    if (_table == nullptr) return false;
    void* block = ::operator new(sizeof(Entry) + iKeySize, std::nothrow);
    if (block == nullptr) return false;
    Entry* entry = new (block) Entry{nullptr, nullptr, iValue, HashOf(iKey, iKeySize), iKeySize};
    std::memcpy(entry->Key(), iKey, iKeySize);
    _Chain(entry);
    *_end = entry;
    _end = &entry->nextInOrder;
    ++_count;
    return true;
}

/// Links an entry to the chain of its bucket.
void VEXHashDico::_Chain(Entry* iEntry) {
    Entry*& head = _table[iEntry->hash % _buckets];
    iEntry->nextInBucket = head;
    head = iEntry;
}

/// Creates the first table, or one of twice the size with all entries. Without memory the present
/// table stays, and its chains become longer.
void VEXHashDico::_GrowTable() {
    const std::size_t buckets = _table == nullptr ? _buckets : 2 * _buckets;
    Entry** table = new (std::nothrow) Entry*[buckets]();
    if (table == nullptr) return;
    delete[] _table;
    _table = table;
    _buckets = buckets;
    for (Entry* entry = _first; entry != nullptr; entry = entry->nextInOrder) _Chain(entry);
}

VEXHashCodeIter::VEXHashCodeIter(const VEXHashDico& iDico)
    : _next(&iDico._first), _current(nullptr) {}

void* VEXHashCodeIter::operator++(int) {
    // _next points to the link of the next entry, not to the entry. So at the end of the dictionary
    // it sees an entry that is inserted later.
    VEXHashDico::Entry* entry = *_next;
    _current = entry;
    if (entry == nullptr) return nullptr;
    _next = &entry->nextInOrder;
    return entry->value;
}
