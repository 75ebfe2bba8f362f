#ifndef VEXCollecRoot_h
#define VEXCollecRoot_h

#include "GridloomContractsExport.h"

/// Empty base class of the typed lists.
class GRIDLOOM_CONTRACTS_API VEXCollecRoot {
public:
    ~VEXCollecRoot() = default;
};

#endif
