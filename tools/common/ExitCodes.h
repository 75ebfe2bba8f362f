#ifndef ExitCodes_h
#define ExitCodes_h

/// What a tool ends with. Scripts depend on the numbers: docs/tools.md lists them for each tool.
enum class ExitCode : int {
    /// gridloom-index: the new index is live. gridloom-query: something was found, or the index is sound.
    /// gridloom-dump: the file is printed.
    Done = 0,
    NothingFound = 1,   ///< gridloom-query: the question has no answer
    Usage = 2,          ///< wrong usage; gridloom-index: there is no part to index, too
    PartsFailed = 3,    ///< gridloom-index: parts or files failed; the others are done
    Damaged = 4,        ///< the bytes of an index are wrong
    Environment = 5,    ///< full disk, no permission, no such file, no memory, a lock, and the like
    Interrupted = 130,  ///< ended by SIGINT, SIGTERM or SIGHUP: 128 and the number of SIGINT
};

/// The number that main() returns.
constexpr int NumberOf(ExitCode iCode) {
    return static_cast<int>(iCode);
}

#endif
