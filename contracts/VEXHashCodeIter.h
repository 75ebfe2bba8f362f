#ifndef VEXHashCodeIter_h
#define VEXHashCodeIter_h

#include "GridloomContractsExport.h"
#include "VEXHashDico.h"

/// Visits the entries of a dictionary, in the order of insertion. It starts before the first entry.
/// Entries that are inserted during the walk are visited, too. The iterator is invalid after
/// RemoveAll().
class GRIDLOOM_CONTRACTS_API VEXHashCodeIter {
public:
    explicit VEXHashCodeIter(const VEXHashDico& iDico);
    ~VEXHashCodeIter() = default;

    /// Moves to the next entry, the first time to the first one.
    /// @return its value, or null after the last entry
    void* operator++(int);

private:
    friend class VEXHashDico;

    VEXHashDico::Entry* const* _next;    ///< points at the pointer to the next entry
    const VEXHashDico::Entry* _current;  ///< null before the first entry and after the last one
};

#endif
