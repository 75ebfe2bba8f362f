#ifndef VEXTime_h
#define VEXTime_h

#include "GridloomContractsExport.h"

#include <cstdint>

class VEXUnicodeString;

/// A point in time, to the second.
class GRIDLOOM_CONTRACTS_API VEXTime {
public:
    /// The current time.
    VEXTime();
    ~VEXTime() = default;

    /// Seconds since 1970-01-01 00:00:00 UTC.
    std::int64_t Gettime_t() const;

    /// Formats the time as local time, by a format of strftime, such as "%H:%M:%S".
    /// @param iFlag  0
    VEXUnicodeString ConvertToString(const VEXUnicodeString& iFormat, int iFlag) const;

private:
    std::int64_t _seconds;
};

#endif
