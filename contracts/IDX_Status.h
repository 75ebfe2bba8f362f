#ifndef IDX_Status_h
#define IDX_Status_h

/// Status values. A status is a signed 32-bit number, held in a `long int` of any width and
/// sign-extended: 0 and 1 are success, a negative value is failure.
constexpr long int IDX_S_OK = 0;                           ///< success
constexpr long int IDX_S_NOTHING_DONE = 1;                 ///< success; there was nothing to do
constexpr long int IDX_E_NOT_IMPLEMENTED = -2147467263L;   ///< 0x80004001
constexpr long int IDX_E_FAIL = -2147467259L;              ///< 0x80004005, general failure
constexpr long int IDX_E_OUT_OF_MEMORY = -2147024882L;     ///< 0x8007000E
constexpr long int IDX_E_INVALID_ARGUMENT = -2147024809L;  ///< 0x80070057

/// True for a failure. Tests the sign bit of the low 32 bits. So a failure is recognised, too, when
/// a class returns it without sign extension (0x80004005 as a positive number).
inline bool IDX_Failed(long int iStatus) {
    return (iStatus & 0x80000000L) != 0;
}

#endif
