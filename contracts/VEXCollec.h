#ifndef VEXCollec_h
#define VEXCollec_h

/// What all collections share. Positions in every collection count from 1.
struct VEXCollec {
    /// What RemoveAll does with the storage.
    enum MemoryHandling {
        KeepMemory = 0,    ///< the collection is refilled at once: its storage stays
        ReleaseMemory = 1  ///< the collection is being discarded: its storage goes
    };
};

#endif
