#ifndef ExitCodes_h
#define ExitCodes_h

/// What a tool ends with. Scripts depend on the numbers. The table of each tool says what they mean
/// there.
enum class ExitCode : int {
    Done = 0,
    NothingFound = 1,   ///< the question has no answer
    Usage = 2,          ///< the command line is wrong, or names nothing to work on
    PartsFailed = 3,    ///< parts or files failed; the others are done
    Damaged = 4,        ///< the bytes of an index are wrong
    Environment = 5,    ///< full disk, no permission, no such file, no memory, a lock, and the like
    Interrupted = 130,  ///< ended by SIGINT, SIGTERM or SIGHUP: 128 and the number of SIGINT
};

/// The number that main() returns.
constexpr int NumberOf(ExitCode iCode) {
    return static_cast<int>(iCode);
}

#endif
