#ifndef VEXCollec_h
#define VEXCollec_h

/// Constants of all collections. Positions in every collection count from 1.
struct VEXCollec {
    /// What RemoveAll() does with the memory of a collection.
    enum MemoryHandling {
        KeepMemory = 0,    ///< keeps it, for a collection that is filled again soon
        ReleaseMemory = 1  ///< frees it, for a collection that isn't needed any more
    };
};

#endif
