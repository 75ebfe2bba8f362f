#ifndef VEXHashDico_h
#define VEXHashDico_h

#include "GridloomContractsExport.h"

#include <cstddef>

class VEXHashCodeIter;
class VEXUnicodeString;

/// A dictionary from texts to pointers, any number of them. It has copies of its own of the keys and
/// doesn't own what the pointers point at. It is walked in the order of insertion, on every machine.
class GRIDLOOM_CONTRACTS_API VEXHashDico {
public:
    /// An empty dictionary whose table starts with `iBuckets` buckets, and grows with the entries.
    explicit VEXHashDico(int iBuckets);

    /// Copies the entries in their order. Without memory the process ends.
    VEXHashDico(const VEXHashDico& iOther);
    VEXHashDico& operator=(const VEXHashDico& iOther);
    ~VEXHashDico();

    /// Adds an entry. Amortised constant time.
    /// @param iKey    not in the dictionary yet
    /// @param iValue  not null
    /// @return 1, or 0 without memory; then the dictionary is as before
    int Insert(const VEXUnicodeString& iKey, void* iValue);

    /// The value of a key, or null. Constant time.
    void* Locate(const VEXUnicodeString& iKey) const;

    /// Forgets all entries and leaves the values alone.
    void RemoveAll();

    /// The value at an iterator, null before the first entry and behind the last.
    void* operator[](const VEXHashCodeIter& iIterator) const;

private:
    friend class VEXHashCodeIter;
    struct Entry;

    bool _Add(const char* iKey, std::size_t iKeySize, void* iValue);
    void _Chain(Entry* iEntry);
    void _GrowTable();

    Entry* _first;         ///< the entry that was inserted first
    Entry** _end;          ///< where the pointer to the next new entry goes
    std::size_t _count;    ///< entries
    std::size_t _buckets;  ///< length of `_table` once it is there, never 0
    Entry** _table;        ///< head of each bucket's chain; null before the first entry
};

#endif
