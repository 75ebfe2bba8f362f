#ifndef RunLength_h
#define RunLength_h

#include <algorithm>
#include <cstddef>

/// How many of those that wait go to one child: as many as leave enough for the other processes, so
/// that the last ones end at about the same time.
constexpr std::size_t RunLength(
    std::size_t iWaiting, std::size_t iProcesses, std::size_t iLongest) {
    constexpr std::size_t kRunsPerProcess = 3;
    return std::clamp<std::size_t>(iWaiting / (kRunsPerProcess * iProcesses), 1, iLongest);
}

#endif
