#ifndef AdjustableConstants_h
#define AdjustableConstants_h

/// Constants of the library, defined by the test program in its stead and changed between builds:
/// these variables have the linkage names of the library's constants, but not their constness.
/// An octree takes its arena with its first cell, and keeps that size.
/// IDX_Base_Constants::MAX_OCTREE_SIZE, 64 MiB unless changed.
extern unsigned int arenaSize __asm__("_ZN18IDX_Base_Constants15MAX_OCTREE_SIZEE")
    __attribute__((visibility("default")));
/// IDX_Base_Constants::OCTREE_EPSILON.
extern float boxMargin __asm__("_ZN18IDX_Base_Constants14OCTREE_EPSILONE")
    __attribute__((visibility("default")));

/// Another arena size until the end of the scope.
class ArenaSize {
public:
    explicit ArenaSize(unsigned int bytes) : _before(arenaSize) { arenaSize = bytes; }
    ~ArenaSize() { arenaSize = _before; }
    ArenaSize(const ArenaSize&) = delete;
    ArenaSize& operator=(const ArenaSize&) = delete;

private:
    unsigned int _before;
};

#endif
