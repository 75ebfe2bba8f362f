#ifndef IDX_Base_Endian_h
#define IDX_Base_Endian_h

#include "GridloomContractsExport.h"

/// Byte order.
class GRIDLOOM_CONTRACTS_API IDX_Base_Endian {
public:
    /// The number 1 in the byte order of this machine. Files store its two bytes as their
    /// byte-order mark.
    static const unsigned short& one();

    // Each reverses the bytes of a number in place. A NaN keeps all its bits.
    static void swap(unsigned short& ioValue);
    static void swap(unsigned int& ioValue);
    static void swap(float& ioValue);
};

#endif
