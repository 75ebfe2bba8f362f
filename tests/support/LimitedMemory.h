#ifndef LimitedMemory_h
#define LimitedMemory_h

#include <sys/resource.h>

/// No block of 4095 MiB for the process from now on. Under a sanitizer its options see to that.
inline void LimitMemory() {
#ifndef GRIDLOOM_SANITIZED
    rlimit limit;
    getrlimit(RLIMIT_AS, &limit);
    limit.rlim_cur = 2u << 30;
    setrlimit(RLIMIT_AS, &limit);
#endif
}

#endif
