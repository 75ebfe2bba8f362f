#ifndef CheckJob_h
#define CheckJob_h

#include "ChildProcess.h"

#include <cstdint>
#include <string>
#include <vector>

/// What a verification tells: first how far it is, again and again, and then what it found.
struct CheckMessage {
    double share = 0.0;  ///< 0 to 1
    bool isLast = false;
    std::uint64_t nProblems = 0;
    std::vector<std::string> problems;  ///< the first of them
};

/// The work of a child that verifies an index from the disk: a file that can't be read to its end
/// can't take the run with it, and the pages that it reads aren't ours.
ChildProcess::Work CheckWork(const std::string& iFolder);

/// The message, at the other end. False for bytes that can't be from a sound verification.
bool DecodeCheck(const std::string& iMessage, CheckMessage& oCheck);

#endif
