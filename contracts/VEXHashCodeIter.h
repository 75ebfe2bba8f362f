#ifndef VEXHashCodeIter_h
#define VEXHashCodeIter_h

#include "GridloomContractsExport.h"
#include "VEXHashDico.h"

/// Walks a dictionary, in the order of insertion. It starts before the first entry. Entries that are
/// inserted during the walk are met; RemoveAll ends it.
class GRIDLOOM_CONTRACTS_API VEXHashCodeIter {
public:
    explicit VEXHashCodeIter(const VEXHashDico& iDico);
    ~VEXHashCodeIter() = default;

    /// Moves to the next entry, the first time to the first one.
    /// @return its value, or null when there is none left
    void* operator++(int);

private:
    friend class VEXHashDico;

    VEXHashDico::Entry* const* _next;    ///< points at the pointer to the next entry
    const VEXHashDico::Entry* _current;  ///< null before the first entry and behind the last
};

#endif
