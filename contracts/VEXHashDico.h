#ifndef VEXHashDico_h
#define VEXHashDico_h

#include "GridloomContractsExport.h"

#include <cstddef>

class VEXHashCodeIter;
class VEXUnicodeString;

/// A dictionary from texts to pointers, with any number of entries. It owns copies of the keys. It
/// doesn't own what the pointers point to. Iterators visit it in the order of insertion, on every
/// machine.
class GRIDLOOM_CONTRACTS_API VEXHashDico {
public:
    /// An empty dictionary. Its table has `iBuckets` buckets at first and grows with the entries.
    explicit VEXHashDico(int iBuckets);

    /// Copies the entries in their order. Without memory the process ends.
    VEXHashDico(const VEXHashDico& iOther);
    VEXHashDico& operator=(const VEXHashDico& iOther);
    ~VEXHashDico();

    /// Adds an entry. Amortised constant time.
    /// @param iKey    not in the dictionary yet
    /// @param iValue  not null
    /// @return 1; 0 without memory, then the dictionary is unchanged
    int Insert(const VEXUnicodeString& iKey, void* iValue);

    /// The value of a key; null when there is no entry. Constant time on average.
    void* Locate(const VEXUnicodeString& iKey) const;

    /// Removes all entries. The values themselves aren't touched.
    void RemoveAll();

    /// The value at an iterator; null before the first entry and after the last one.
    void* operator[](const VEXHashCodeIter& iIterator) const;

private:
    friend class VEXHashCodeIter;
    struct Entry;

    bool _Add(const char* iKey, std::size_t iKeySize, void* iValue);
    void _Chain(Entry* iEntry);
    void _GrowTable();

    Entry* _first;         ///< the entry that was inserted first
    Entry** _end;          ///< the pointer that the next new entry is linked to
    std::size_t _count;    ///< entries
    std::size_t _buckets;  ///< length of `_table`, or of the first table; never 0
    Entry** _table;        ///< head of each bucket's chain; null before the first entry
};

#endif
